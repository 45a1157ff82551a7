// Contact sample buffers for motion analysis, laid out exactly as the
// contact-point producer writes them, for hand-checked contacts whose faces
// touch exactly. Side A is the side that moves; every sample carries the
// outward normal of A's face at that point. Header-only: the motion tests and
// the motion benchmark both build their cases here.
//
// Buffer layout (positions, normals, texture set 0 with 3 channels, point
// size): vertices in pairs. The first buffer holds samples on A (vertex 2k:
// A's normals) with partners on B (vertex 2k+1: B's normals, the negation);
// the second buffer holds samples on B with partners on A.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

#include "kxMotionDetect.h"
#include "kxSceneGraph.h"

namespace motion_test {

using Vec3f = Wm4::Vector3<float>;
using Vec3d = Wm4::Vector3<double>;

struct tContactSample {
    Vec3f position;
    Vec3f faceNormalA;   // unit normal of A's face, pointing out of A
    Vec3f pointNormalA;  // A's smoothed normal at the point, out of A
    float weight;
};

// The samples of one contact as seen from each side.
struct tContactSamples {
    std::vector<tContactSample> onA;
    std::vector<tContactSample> onB;
};

// One producer buffer: samples on A (samplesOnA) or on B, each followed by its
// partner on the other side at the same position.
inline kx::kxPointer<kx::kxVertexBuffer> makePairBuffer(const std::vector<tContactSample>& samples, bool samplesOnA)
{
    kx::kxAttributes attr;
    attr.SetPositionChannels(3);
    attr.SetNormalChannels(3);
    attr.SetTCoordChannels(0, 3);
    attr.SetPSizeChannels(1);
    kx::kxPointer<kx::kxVertexBuffer> buffer = new kx::kxVertexBuffer(attr, int(2 * samples.size()));
    const float ownSign = samplesOnA ? 1.0f : -1.0f;
    for (size_t k = 0; k < samples.size(); ++k) {
        const tContactSample& s = samples[k];
        for (int side = 0; side < 2; ++side) {
            const int i = int(2 * k) + side;
            const float sign = side == 0 ? ownSign : -ownSign;
            buffer->Position3(i) = s.position;
            buffer->Normal3(i) = s.pointNormalA * sign;
            buffer->TCoord3(0, i) = s.faceNormalA * sign;
            buffer->PSize1(i) = s.weight;
        }
    }
    return buffer;
}

// Both producer buffers of a contact, in push order (A's samples first).
struct tContactBuffers {
    kx::kxPointer<kx::kxVertexBuffer> first;
    kx::kxPointer<kx::kxVertexBuffer> second;

    explicit tContactBuffers(const tContactSamples& samples)
        : first(makePairBuffer(samples.onA, true)), second(makePairBuffer(samples.onB, false))
    {
    }
    // clearSystems, push both buffers, centerSystems. The detector keeps the
    // buffers' addresses, so a temporary cannot load one.
    void load(kxMotionDetect& detector) const&& = delete;
    void load(kxMotionDetect& detector) const&
    {
        detector.clearSystems();
        detector.pushContactPoints(first);
        detector.pushContactPoints(second);
        detector.centerSystems();
    }
    std::vector<kx::kxVertexBuffer*> pointers() const { return {first.get(), second.get()}; }
};

// Cell centres of an nu × nv grid on the parallelogram origin + s·edgeU + t·edgeV,
// each weighted by its cell's area.
inline void addRectangle(std::vector<tContactSample>& out, const Vec3f& origin, const Vec3f& edgeU, const Vec3f& edgeV,
                         const Vec3f& normalA, int nu, int nv)
{
    const float weight = edgeU.Cross(edgeV).Length() / float(nu * nv);
    for (int i = 0; i < nu; ++i) {
        for (int j = 0; j < nv; ++j) {
            const Vec3f p = origin + edgeU * ((float(i) + 0.5f) / float(nu)) + edgeV * ((float(j) + 0.5f) / float(nv));
            out.push_back({p, normalA, normalA, weight});
        }
    }
}

// A rectangle sampled from both sides, on slightly different grids (as two
// sides of a real contact are).
inline void addTouchingRectangle(tContactSamples& c, const Vec3f& origin, const Vec3f& edgeU, const Vec3f& edgeV,
                                 const Vec3f& normalA, int nu, int nv)
{
    addRectangle(c.onA, origin, edgeU, edgeV, normalA, nu, nv);
    addRectangle(c.onB, origin, edgeU, edgeV, normalA, nu + 1, nv + 1);
}

// The lateral surface of a prism with `facets` flat sides inscribed in the
// cylinder of the given radius about the vertical line through (cx, cy),
// between heights z0 and z1: face normals are the facet normals, smoothed
// normals point radially through the point (as interpolated vertex normals do).
// `outward` tells whether A's faces look away from the axis (a pin) or
// towards it (a hole's wall).
inline void addPrismSide(std::vector<tContactSample>& out, float cx, float cy, float radius, float z0, float z1,
                         int facets, int perFacet, int along, bool outward)
{
    const float sign = outward ? 1.0f : -1.0f;
    for (int f = 0; f < facets; ++f) {
        const double a0 = 2.0 * std::numbers::pi * f / facets, a1 = 2.0 * std::numbers::pi * (f + 1) / facets;
        const Vec3f p0(cx + radius * float(std::cos(a0)), cy + radius * float(std::sin(a0)), 0.0f);
        const Vec3f p1(cx + radius * float(std::cos(a1)), cy + radius * float(std::sin(a1)), 0.0f);
        const double mid = 0.5 * (a0 + a1);
        const Vec3f faceNormal = Vec3f(float(std::cos(mid)), float(std::sin(mid)), 0.0f) * sign;
        const float weight = (p1 - p0).Length() * (z1 - z0) / float(perFacet * along);
        for (int i = 0; i < perFacet; ++i) {
            for (int j = 0; j < along; ++j) {
                Vec3f p = p0 + (p1 - p0) * ((float(i) + 0.5f) / float(perFacet));
                p.Z() = z0 + (z1 - z0) * (float(j) + 0.5f) / float(along);
                Vec3f radial(p.X() - cx, p.Y() - cy, 0.0f);
                radial.Normalize();
                out.push_back({p, faceNormal, radial * sign, weight});
            }
        }
    }
}

// A detector holding the contact diagram's sample set (level 300, 906,015
// directions), generated once per program; copy it with copyDirectionSamples.
inline const kxMotionDetect& level300Samples()
{
    static const kxMotionDetect detector = [] {
        kxMotionDetect d;
        d.generateDirectionSamples(300);
        return d;
    }();
    return detector;
}

// The first sample of strictly lowest getSingleDisassemblyDirectionScore, by
// a plain scan over the samples in index order (NO_SAMPLE when none scores
// below +∞).
inline unsigned plainBestDisassemblySample(const kxMotionDetect& detector)
{
    unsigned best = kxMotionDetect::NO_SAMPLE;
    double bestScore = std::numeric_limits<double>::infinity();
    const std::vector<Vec3d>& samples = detector.getDirectionSamples();
    for (size_t i = 0; i < samples.size(); ++i) {
        const double score = detector.getSingleDisassemblyDirectionScore(samples[i]);
        if (score < bestScore) {
            bestScore = score;
            best = unsigned(i);
        }
    }
    return best;
}

// ---- The hand-checked contacts; `n` scales the sampling density -----------

// A unit lid resting on a unit box: A's bottom face (normal −z) on B's top.
inline tContactSamples lidOnBox(int n)
{
    tContactSamples c;
    addTouchingRectangle(c, {0, 0, 1}, {1, 0, 0}, {0, 1, 0}, {0, 0, -1}, n, n);
    return c;
}

// A cap over a unit box: its top on the box's top face and a rim 0.25 deep
// hugging the four side faces.
inline tContactSamples capOnBox(int n)
{
    tContactSamples c = lidOnBox(n);
    const int rim = n / 4;
    addTouchingRectangle(c, {0, 0, 0.75f}, {0, 1, 0}, {0, 0, 0.25f}, {1, 0, 0}, n, rim);
    addTouchingRectangle(c, {1, 0, 0.75f}, {0, 1, 0}, {0, 0, 0.25f}, {-1, 0, 0}, n, rim);
    addTouchingRectangle(c, {0, 0, 0.75f}, {1, 0, 0}, {0, 0, 0.25f}, {0, 1, 0}, n, rim);
    addTouchingRectangle(c, {0, 1, 0.75f}, {1, 0, 0}, {0, 0, 0.25f}, {0, -1, 0}, n, rim);
    return c;
}

// A square peg, 1 × 1 in section, through a square hole 2 deep: four side
// faces, nothing below.
inline tContactSamples squarePegInHole(int n)
{
    tContactSamples c;
    addTouchingRectangle(c, {1, 0, 0}, {0, 1, 0}, {0, 0, 2}, {1, 0, 0}, n, 2 * n);
    addTouchingRectangle(c, {0, 0, 0}, {0, 1, 0}, {0, 0, 2}, {-1, 0, 0}, n, 2 * n);
    addTouchingRectangle(c, {0, 1, 0}, {1, 0, 0}, {0, 0, 2}, {0, 1, 0}, n, 2 * n);
    addTouchingRectangle(c, {0, 0, 0}, {1, 0, 0}, {0, 0, 2}, {0, -1, 0}, n, 2 * n);
    return c;
}

// A round pin of radius 0.5 about the vertical line through (2, 3), in a hole
// between heights 0 and 2; both tessellated with 64 facets.
constexpr float kPinCentreX = 2.0f;
constexpr float kPinCentreY = 3.0f;
inline tContactSamples roundPinInHole(int n)
{
    tContactSamples c;
    addPrismSide(c.onA, kPinCentreX, kPinCentreY, 0.5f, 0.0f, 2.0f, 64, std::max(1, n / 8), 2 * n, true);
    addPrismSide(c.onB, kPinCentreX, kPinCentreY, 0.5f, 0.0f, 2.0f, 64, std::max(1, n / 8) + 1, 2 * n + 1, true);
    return c;
}

// A unit block in a corner: on the floor (A's normal −z) and against the walls
// x = 0 (normal −x) and y = 0 (normal −y), three equal faces.
inline tContactSamples blockInCorner(int n)
{
    tContactSamples c;
    addTouchingRectangle(c, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, -1}, n, n);
    addTouchingRectangle(c, {0, 0, 0}, {0, 1, 0}, {0, 0, 1}, {-1, 0, 0}, n, n);
    addTouchingRectangle(c, {0, 0, 0}, {1, 0, 0}, {0, 0, 1}, {0, -1, 0}, n, n);
    return c;
}

}  // namespace motion_test
