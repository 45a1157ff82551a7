// Wm4::DistTriangle3Triangle3<Real>: the exact distance between two solid
// triangles in space and a pair of closest points.
//
// The query runs in the constructor; the accessors only read its result.
// Guarantees:
// - Get() is the distance (not squared), GetSquared() its square; 0 when an
//   edge of one triangle crosses the other.
// - GetTriangleBary0(i) and GetTriangleBary1(i), i = 0..2, are barycentric weights
//   of the closest point on each triangle: each in [0, 1], summing to 1, and
//   GetClosestPoint0() = Σ GetTriangleBary0(i)·corner0[i] (likewise for triangle 1).
// - Degenerate triangles (collinear or coincident corners, or slivers a few
//   hundred ulps wide) are measured as the segments or points they are.
// Corners may be given in any order. The work is done in Real precision, with no
// allocation: an edge crossing a face, a corner above a face, then edge against
// edge, stopping once the best pair is proven closest. Results are accurate to a
// few ulps of the coordinates' magnitude, whatever the triangles' shape.
#pragma once

#include "Wm4Vector3.h"

namespace Wm4 {

template <class Real>
class DistTriangle3Triangle3 {
public:
    DistTriangle3Triangle3(const Vector3<Real> triangle0[3], const Vector3<Real> triangle1[3]);
    DistTriangle3Triangle3(const Vector3<Real>& a0, const Vector3<Real>& b0, const Vector3<Real>& c0,
                           const Vector3<Real>& a1, const Vector3<Real>& b1, const Vector3<Real>& c1);

    Real Get() const { return Math<Real>::Sqrt(m_fSquaredDistance); }
    Real GetSquared() const { return m_fSquaredDistance; }
    const Vector3<Real>& GetClosestPoint0() const { return m_kClosestPoint0; }
    const Vector3<Real>& GetClosestPoint1() const { return m_kClosestPoint1; }
    // i in 0..2.
    Real GetTriangleBary0(int i) const { return m_afTriangleBary0[i]; }
    Real GetTriangleBary1(int i) const { return m_afTriangleBary1[i]; }

private:
    void Compute(const Vector3<Real> triangle0[3], const Vector3<Real> triangle1[3]);

    Real m_fSquaredDistance;
    Real m_afTriangleBary0[3];
    Real m_afTriangleBary1[3];
    Vector3<Real> m_kClosestPoint0;
    Vector3<Real> m_kClosestPoint1;
};

extern template class DistTriangle3Triangle3<float>;
extern template class DistTriangle3Triangle3<double>;

}  // namespace Wm4
