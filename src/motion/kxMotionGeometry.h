// Small geometric helpers shared by the motion-analysis sources: the
// perpendicular basis rule, the circle step count, and the walk over the pairs
// of the contact sample buffers.
#pragma once

#include <cmath>
#include <numbers>
#include <vector>

#include "Wm4.h"
#include "kxSceneGraph.h"

namespace kxMotionGeometry {

inline Wm4::Vector3<double> widen(const Wm4::Vector3<float>& v)
{
    return Wm4::Vector3<double>(double(v[0]), double(v[1]), double(v[2]));
}

// An orthonormal pair (u, v) perpendicular to the unit vector d: the auxiliary
// axis is x when |d.y| > |d.x|, otherwise y; u = normalise(a − (d·a)·d),
// v = d × u.
inline void perpendicularBasis(const Wm4::Vector3<double>& d, Wm4::Vector3<double>& u, Wm4::Vector3<double>& v)
{
    const Wm4::Vector3<double> a = std::fabs(d[1]) > std::fabs(d[0]) ? Wm4::Vector3<double>(1.0, 0.0, 0.0)
                                                                     : Wm4::Vector3<double>(0.0, 1.0, 0.0);
    u = a - d * d.Dot(a);
    u.Normalize();
    v = d.Cross(u);
}

// Steps of the circle perpendicular to a first direction: ⌊2π·√(N/(4π))⌋, as
// many as a great circle of an even N-point sampling of the sphere crosses
// (1,687 for N = 906,015).
inline unsigned circleStepCount(size_t sampleCount)
{
    const double pi = std::numbers::pi;
    return unsigned(2.0 * pi * std::sqrt(double(sampleCount) / (4.0 * pi)));
}

// Direction j of M on the circle spanned by (u, v): cos θ·u + sin θ·v with
// θ = j·2π/M.
inline Wm4::Vector3<double> circleDirection(const Wm4::Vector3<double>& u, const Wm4::Vector3<double>& v, unsigned j,
                                            unsigned steps)
{
    const double theta = double(j) * 2.0 * std::numbers::pi / double(steps);
    return u * std::cos(theta) + v * std::sin(theta);
}

// Calls visit(bufferIndex, buffer, firstVertex) for every pair (2k, 2k+1) of
// every buffer, in push order; a trailing odd vertex is not a pair.
template <class Visit>
void forEachContactPair(const std::vector<const kx::kxVertexBuffer*>& buffers, Visit&& visit)
{
    for (size_t b = 0; b < buffers.size(); ++b) {
        const kx::kxVertexBuffer& buffer = *buffers[b];
        const int pairCount = buffer.GetVertexQuantity() / 2;
        for (int k = 0; k < pairCount; ++k)
            visit(b, buffer, 2 * k);
    }
}

}  // namespace kxMotionGeometry
