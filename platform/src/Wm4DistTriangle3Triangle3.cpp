#include "Wm4DistTriangle3Triangle3.h"

#include <algorithm>
#include <limits>

namespace Wm4 {

namespace {

// A triangle whose normal is shorter than this multiple of EPSILON times its
// longest squared edge (a sliver narrower than about 256 ulps of its length) is
// measured by its edges alone: its computed plane would be noise, while dropping
// the face moves the distance by less than the sliver's width.
constexpr int kFaceToleranceUlps = 256;

// How far, in ulps of its lever, a corner may stick out of the slab that proves
// a pair closest (see ClosestPairSearch::IsProvenClosest).
constexpr int kProofSlackUlps = 2;

template <class Real>
Real Square(Real x)
{
    return x * x;
}

// Clamps to [0, 1] (NaN to 0) with selects that compile to min and max.
template <class Real>
Real UnitClamp(Real x)
{
    const Real low = x > Real(0) ? x : Real(0);
    return low < Real(1) ? low : Real(1);
}

template <class Real>
Real Larger(Real a, Real b)
{
    return a > b ? a : b;
}

template <class Real>
bool AllNonNegative(const Real w[3])
{
    return w[0] >= Real(0) && w[1] >= Real(0) && w[2] >= Real(0);
}

// Barycentric weights of the point at parameter t along edge k (from corner k
// to corner k+1); t = 0 gives corner k.
template <class Real>
void SetEdgePoint(Real bary[3], int k, Real t)
{
    bary[k] = Real(1) - t;
    bary[(k + 1) % 3] = t;
    bary[(k + 2) % 3] = Real(0);
}

// A triangle with the quantities every sub-query needs. Edge i runs from corner i
// to corner i+1 (mod 3).
template <class Real>
struct PreparedTriangle {
    const Vector3<Real>* corner;
    Vector3<Real> edge[3];
    Real edgeLengthSq[3];
    int longest;  // index of the longest edge
    // Face normal (not unit), made orthogonal to the longest edge so that the
    // plane it defines stays within rounding of all three corners even for
    // slivers; meaningful only when hasFace.
    Vector3<Real> normal;
    Real normalLengthSq;
    // normal × edge[i], pointing from edge i into the triangle: for a point P,
    // inward[i]·(P − corner[i]) is the unnormalised barycentric weight of the
    // corner opposite edge i (corner i+2). Good for inside tests, though too
    // ill-conditioned on slivers to rebuild points from.
    Vector3<Real> inward[3];
    bool hasFace;

    explicit PreparedTriangle(const Vector3<Real> corners[3]) : corner(corners)
    {
        for (int i = 0; i < 3; ++i) {
            edge[i] = corner[(i + 1) % 3] - corner[i];
            edgeLengthSq[i] = edge[i].SquaredLength();
        }
        const int longer01 = edgeLengthSq[1] > edgeLengthSq[0] ? 1 : 0;
        longest = edgeLengthSq[2] > edgeLengthSq[longer01] ? 2 : longer01;
        // The two shorter edges give the most accurate cross product.
        normal = edge[(longest + 1) % 3].Cross(edge[(longest + 2) % 3]);
        normalLengthSq = normal.SquaredLength();
        const Real tolerance = Real(kFaceToleranceUlps) * Math<Real>::EPSILON * edgeLengthSq[longest];
        hasFace = normalLengthSq > Square(tolerance);
        if (!hasFace)
            return;
        normal -= edge[longest] * (normal.Dot(edge[longest]) / edgeLengthSq[longest]);
        normalLengthSq = normal.SquaredLength();
        for (int i = 0; i < 3; ++i)
            inward[i] = normal.Cross(edge[i]);
    }

    // Barycentric weights, all in [0, 1], of a point that lies on the face up to
    // rounding. The weights come from a Gram–Schmidt frame on the longest edge,
    // which rebuilds the point to rounding whatever the triangle's shape; a point
    // that rounding puts just outside is moved to the edge it is outside of.
    void FaceBarycentrics(const Vector3<Real>& x, Real bary[3]) const
    {
        const int a = longest, b = (a + 1) % 3, c = (a + 2) % 3;
        const Vector3<Real>& u = edge[a];
        const Vector3<Real> v = corner[c] - corner[a];
        const Real uOfV = u.Dot(v) / edgeLengthSq[a];
        const Vector3<Real> across = v - u * uOfV;
        const Vector3<Real> y = x - corner[a];
        const Real uOfY = u.Dot(y) / edgeLengthSq[a];
        const Real weightC = (y - u * uOfY).Dot(across) / across.SquaredLength();
        const Real weightB = uOfY - uOfV * weightC;
        bary[a] = Real(1) - weightB - weightC;
        bary[b] = weightB;
        bary[c] = weightC;
        if (AllNonNegative(bary))
            return;
        const int outside = bary[0] < bary[1] ? (bary[0] < bary[2] ? 0 : 2) : (bary[1] < bary[2] ? 1 : 2);
        const int opposite = (outside + 1) % 3;
        SetEdgePoint(bary, opposite, UnitClamp((x - corner[opposite]).Dot(edge[opposite]) / edgeLengthSq[opposite]));
    }

    // Whether the foot of p on the plane falls on the face (hasFace only).
    bool Contains(const Vector3<Real>& p) const
    {
        for (int i = 0; i < 3; ++i) {
            if (inward[i].Dot(p - corner[i]) < Real(0))
                return false;
        }
        return true;
    }
};

// The best pair found so far: the two points, and their barycentric weights.
// A point inside a face gets its weights once, at the end.
template <class Real>
struct ClosestPair {
    Real squaredDistance;
    Vector3<Real> point[2];
    Real bary[2][3];
    int faceSide;  // the triangle whose face holds its point, or -1

    void RecordCornerPair(Real distanceSq, const Vector3<Real>& corner0, const Vector3<Real>& corner1)
    {
        squaredDistance = distanceSq;
        point[0] = corner0;
        point[1] = corner1;
        SetEdgePoint(bary[0], 0, Real(0));
        SetEdgePoint(bary[1], 0, Real(0));
        faceSide = -1;
    }
    void RecordCornerAboveFace(Real distanceSq, int side, int k, const Vector3<Real>& corner, const Vector3<Real>& foot)
    {
        squaredDistance = distanceSq;
        point[side] = corner;
        point[1 - side] = foot;
        SetEdgePoint(bary[side], k, Real(0));
        faceSide = 1 - side;
    }
    void RecordEdgeCrossingFace(int side, int k, Real t, const Vector3<Real>& crossing)
    {
        squaredDistance = Real(0);
        point[0] = point[1] = crossing;
        SetEdgePoint(bary[side], k, t);
        faceSide = 1 - side;
    }
    void RecordEdgePair(Real distanceSq, int edge0, Real s, const Vector3<Real>& point0, int edge1, Real t,
                        const Vector3<Real>& point1)
    {
        squaredDistance = distanceSq;
        point[0] = point0;
        point[1] = point1;
        SetEdgePoint(bary[0], edge0, s);
        SetEdgePoint(bary[1], edge1, t);
        faceSide = -1;
    }
};

// Closest points of the segments p0 + s·d0 and p1 + t·d1, s and t in [0, 1];
// returns the squared distance. s comes from the two lines, clamped; t is best
// for that s, clamped; then s best for that t, clamped (which keeps s when t
// needed no clamping). The line parameter comes from cross products, which
// keep their accuracy for nearly parallel segments where the usual a·e − b²
// cancels. A zero denominator only comes with a zero numerator (parallel or
// zero-length segments) and gives parameter 0. Free of branches: the clamps
// compile to min and max instructions.
template <class Real>
Real SegmentSegmentSquared(const Vector3<Real>& p0, const Vector3<Real>& d0, Real d0LengthSq, const Vector3<Real>& p1,
                           const Vector3<Real>& d1, Real d1LengthSq, Real& s, Real& t)
{
    const Real tiny = std::numeric_limits<Real>::min();
    const Vector3<Real> r = p0 - p1;
    const Real b = d0.Dot(d1), c = d0.Dot(r), f = d1.Dot(r);
    const Vector3<Real> n = d0.Cross(d1);
    const Real sLine = UnitClamp(d1.Cross(r).Dot(n) / Larger(n.Dot(n), tiny));
    t = UnitClamp((b * sLine + f) / Larger(d1LengthSq, tiny));
    s = UnitClamp((b * t - c) / Larger(d0LengthSq, tiny));
    return (r + d0 * s - d1 * t).SquaredLength();
}

// One query: the two prepared triangles, the heights of each one's corners
// above the other's face, and the best pair so far.
template <class Real>
class ClosestPairSearch {
public:
    ClosestPairSearch(const Vector3<Real> triangle0[3], const Vector3<Real> triangle1[3])
        : m_tri{PreparedTriangle<Real>(triangle0), PreparedTriangle<Real>(triangle1)}
    {
        m_best.RecordCornerPair((triangle0[0] - triangle1[0]).SquaredLength(), triangle0[0], triangle1[0]);
        for (int side = 0; side < 2; ++side) {
            const PreparedTriangle<Real>& face = m_tri[1 - side];
            for (int k = 0; k < 3; ++k)
                m_height[side][k] = face.hasFace ? face.normal.Dot(m_tri[side].corner[k] - face.corner[0]) : Real(0);
        }
    }

    // Two triangles are closest where one crosses the other (distance 0), at a
    // corner of one above the inside of the other, or between two edges. The
    // cases are tried cheapest first, and the search stops as soon as the best
    // pair is proven closest.
    const ClosestPair<Real>& Run()
    {
        if (!(MayCross() && (FindEdgeCrossingFace(0) || FindEdgeCrossingFace(1)))) {
            CheckCornersAboveFace(0);
            CheckCornersAboveFace(1);
            if (!IsProvenClosest())
                CheckEdgePairs();
        }
        if (m_best.faceSide >= 0)
            m_tri[m_best.faceSide].FaceBarycentrics(m_best.point[m_best.faceSide], m_best.bary[m_best.faceSide]);
        return m_best;
    }

private:
    // An edge of one triangle can only cross the other where each triangle
    // reaches the other's plane: one lying strictly on one side rules it out.
    bool MayCross() const
    {
        for (const Real* height : m_height) {
            if ((height[0] > Real(0) && height[1] > Real(0) && height[2] > Real(0)) ||
                (height[0] < Real(0) && height[1] < Real(0) && height[2] < Real(0)))
                return false;
        }
        return true;
    }

    // Looks for an edge of triangle `side` that crosses the face of the other;
    // on success records the crossing point on both triangles at distance 0.
    bool FindEdgeCrossingFace(int side)
    {
        const PreparedTriangle<Real>& points = m_tri[side];
        const PreparedTriangle<Real>& face = m_tri[1 - side];
        if (!face.hasFace)
            return false;
        for (int k = 0; k < 3; ++k) {
            const Real h0 = m_height[side][k], h1 = m_height[side][(k + 1) % 3];
            if (!((h0 < Real(0) && h1 > Real(0)) || (h0 > Real(0) && h1 < Real(0))))
                continue;
            const Real t = h0 / (h0 - h1);
            const Vector3<Real> crossing = points.corner[k] + points.edge[k] * t;
            if (face.Contains(crossing)) {
                m_best.RecordEdgeCrossingFace(side, k, t, crossing);
                return true;
            }
        }
        return false;
    }

    // Corners of triangle `side` whose foot on the other's plane falls inside
    // the other triangle: their distance is their height.
    void CheckCornersAboveFace(int side)
    {
        const PreparedTriangle<Real>& face = m_tri[1 - side];
        if (!face.hasFace)
            return;
        for (int k = 0; k < 3; ++k) {
            const Real squaredDistance = Square(m_height[side][k]) / face.normalLengthSq;
            const Vector3<Real>& corner = m_tri[side].corner[k];
            if (squaredDistance < m_best.squaredDistance && face.Contains(corner)) {
                const Vector3<Real> foot = corner - face.normal * (m_height[side][k] / face.normalLengthSq);
                m_best.RecordCornerAboveFace(squaredDistance, side, k, corner, foot);
            }
        }
    }

    void CheckEdgePairs()
    {
        Real lowerBound[2][3];
        EdgeToPlaneLowerBounds(0, lowerBound[0]);
        EdgeToPlaneLowerBounds(1, lowerBound[1]);
        const PreparedTriangle<Real>& tri0 = m_tri[0];
        const PreparedTriangle<Real>& tri1 = m_tri[1];
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < 3; ++j) {
                if (std::max(lowerBound[0][i], lowerBound[1][j]) >= m_best.squaredDistance)
                    continue;
                Real s, t;
                const Real squaredDistance = SegmentSegmentSquared(tri0.corner[i], tri0.edge[i], tri0.edgeLengthSq[i],
                                                                   tri1.corner[j], tri1.edge[j], tri1.edgeLengthSq[j], s, t);
                if (squaredDistance < m_best.squaredDistance) {
                    m_best.RecordEdgePair(squaredDistance, i, s, tri0.corner[i] + tri0.edge[i] * s, j, t,
                                          tri1.corner[j] + tri1.edge[j] * t);
                    if (IsProvenClosest())
                        return;
                }
            }
        }
    }

    // Squared distance from each edge of triangle `side` to the other's plane
    // (0 where the edge meets it, or when there is no face): a lower bound of
    // any distance from that edge to the other triangle.
    void EdgeToPlaneLowerBounds(int side, Real bound[3]) const
    {
        const PreparedTriangle<Real>& face = m_tri[1 - side];
        for (int k = 0; k < 3; ++k) {
            const Real h0 = m_height[side][k], h1 = m_height[side][(k + 1) % 3];
            const bool apart = (h0 > Real(0) && h1 > Real(0)) || (h0 < Real(0) && h1 < Real(0));
            bound[k] = apart ? std::min(Square(h0), Square(h1)) / face.normalLengthSq : Real(0);
        }
    }

    // The best pair (p, q) is closest when the slab between the planes through
    // p and q across v = q − p separates the triangles: no corner of triangle 0
    // lies beyond p along v, no corner of triangle 1 before q. Corners of the
    // closest features lie on those planes, where rounding tips the sign either
    // way, so a corner x may stick out by kProofSlackUlps·EPSILON·|x − p|·|v|;
    // a pair accepted that way is longer than the closest one by at most
    // 2·kProofSlackUlps·EPSILON times the larger triangle's diameter.
    bool IsProvenClosest() const
    {
        const Vector3<Real> v = m_best.point[1] - m_best.point[0];
        const Real slackSq = Square(kProofSlackUlps * Math<Real>::EPSILON) * v.SquaredLength();
        for (int side = 0; side < 2; ++side) {
            const Vector3<Real> outward = side == 0 ? v : -v;
            for (int k = 0; k < 3; ++k) {
                const Vector3<Real> x = m_tri[side].corner[k] - m_best.point[side];
                const Real beyond = x.Dot(outward);
                if (beyond > Real(0) && Square(beyond) > slackSq * x.SquaredLength())
                    return false;
            }
        }
        return true;
    }

    const PreparedTriangle<Real> m_tri[2];
    // m_height[side][k]: height of corner k of triangle `side` above the other's
    // face, in units of that face's normal length (0 when it has no face).
    Real m_height[2][3];
    ClosestPair<Real> m_best;
};

template <class Real>
Vector3<Real> Combine(const Real bary[3], const Vector3<Real> corner[3])
{
    return corner[0] * bary[0] + corner[1] * bary[1] + corner[2] * bary[2];
}

}  // namespace

template <class Real>
DistTriangle3Triangle3<Real>::DistTriangle3Triangle3(const Vector3<Real> triangle0[3], const Vector3<Real> triangle1[3])
{
    Compute(triangle0, triangle1);
}

template <class Real>
DistTriangle3Triangle3<Real>::DistTriangle3Triangle3(const Vector3<Real>& a0, const Vector3<Real>& b0,
                                                     const Vector3<Real>& c0, const Vector3<Real>& a1,
                                                     const Vector3<Real>& b1, const Vector3<Real>& c1)
{
    const Vector3<Real> triangle0[3] = {a0, b0, c0};
    const Vector3<Real> triangle1[3] = {a1, b1, c1};
    Compute(triangle0, triangle1);
}

template <class Real>
void DistTriangle3Triangle3<Real>::Compute(const Vector3<Real> triangle0[3], const Vector3<Real> triangle1[3])
{
    ClosestPairSearch<Real> search(triangle0, triangle1);
    const ClosestPair<Real>& best = search.Run();
    m_fSquaredDistance = best.squaredDistance;
    for (int i = 0; i < 3; ++i) {
        m_afTriangleBary0[i] = best.bary[0][i];
        m_afTriangleBary1[i] = best.bary[1][i];
    }
    m_kClosestPoint0 = Combine(m_afTriangleBary0, triangle0);
    m_kClosestPoint1 = Combine(m_afTriangleBary1, triangle1);
}

template class DistTriangle3Triangle3<float>;
template class DistTriangle3Triangle3<double>;

}  // namespace Wm4
