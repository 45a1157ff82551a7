// kxMotionDetect::ComputeCircleBasedCentroid: the centre of a circle fitted to
// the convex hull of the contact points seen along a direction.
#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "kxMotionDetect.h"
#include "kxMotionGeometry.h"
#include "kxPointSorter.h"

namespace {

using Vec3 = Wm4::Vector3<double>;
using Vec2 = Wm4::Vector2<double>;

// Added to both diagonal entries of the 2×2 normal matrix of the fit, in
// coordinates where the projections span a unit square at most.
constexpr double kFitRegularisation = 0.0001;

// Twice the signed area of the triangle (o, a, b): positive for a left turn.
double turn(const Vec2& o, const Vec2& a, const Vec2& b)
{
    return (a[0] - o[0]) * (b[1] - o[1]) - (a[1] - o[1]) * (b[0] - o[0]);
}

// Drops the points strictly inside the octagon of the extreme points along
// eight directions 45 degrees apart (they cannot be hull vertices), so the
// hull's sort sees only the points near the boundary. Contact samples cover
// their patch densely, so most of them go. Each extreme is the first point of
// largest projection; one pass finds all eight.
void dropPointsInsideExtremeOctagon(std::vector<Vec2>& points)
{
    static const double kDirections[8][2] = {{1, 0}, {1, 1}, {0, 1}, {-1, 1}, {-1, 0}, {-1, -1}, {0, -1}, {1, -1}};
    const auto along = [](int k, const Vec2& p) { return kDirections[k][0] * p[0] + kDirections[k][1] * p[1]; };
    size_t extreme[8] = {};
    double highest[8];
    for (int k = 0; k < 8; ++k)
        highest[k] = along(k, points[0]);
    for (size_t i = 1; i < points.size(); ++i) {
        for (int k = 0; k < 8; ++k) {
            const double value = along(k, points[i]);
            if (highest[k] < value) {
                highest[k] = value;
                extreme[k] = i;
            }
        }
    }
    std::vector<Vec2> corners;
    for (const size_t i : extreme) {
        if (corners.empty() || points[i] != corners.back())
            corners.push_back(points[i]);
    }
    while (corners.size() > 1 && corners.front() == corners.back())
        corners.pop_back();
    if (corners.size() < 3)
        return;
    // Edge i runs from corner i to the next one; a point is strictly inside
    // when it lies strictly left of every edge.
    std::vector<Vec2> edges(corners.size());
    for (size_t i = 0; i < corners.size(); ++i)
        edges[i] = (i + 1 < corners.size() ? corners[i + 1] : corners[0]) - corners[i];
    const auto strictlyInside = [&](const Vec2& p) {
        for (size_t i = 0; i < corners.size(); ++i) {
            const Vec2& o = corners[i];
            if (!(edges[i][0] * (p[1] - o[1]) - edges[i][1] * (p[0] - o[0]) > 0.0))
                return false;
        }
        return true;
    };
    points.erase(std::remove_if(points.begin(), points.end(), strictlyInside), points.end());
}

// Convex hull by the monotone chain, counter-clockwise; a point is dropped
// while the turn it makes with the last two kept points is not strictly
// convex. Reorders and may shrink `points`.
std::vector<Vec2> convexHull(std::vector<Vec2>& points)
{
    dropPointsInsideExtremeOctagon(points);
    // Points that compare equal are identical up to the sign of a zero
    // coordinate; the chain drops all but one of them, and a boundary point
    // interpolated from a hull vertex comes out the same for either sign, so
    // the fit does not depend on how such points are arranged.
    kxPointSorter().sortByXThenY(points);
    std::vector<Vec2> hull(2 * points.size());
    size_t k = 0;
    const auto keep = [&](const Vec2& p, size_t chainStart) {
        while (k >= chainStart + 2 && turn(hull[k - 2], hull[k - 1], p) <= 0.0)
            --k;
        hull[k++] = p;
    };
    for (const Vec2& p : points)
        keep(p, 0);
    const size_t upperStart = k - 1;
    for (size_t i = points.size() - 1; i-- > 0;)
        keep(points[i], upperStart);
    hull.resize(k > 1 ? k - 1 : k);
    return hull;
}

// Calls visit(point, weight) at three Gauss–Legendre points of every edge of
// the closed polygon, weights summing to the perimeter: exact for integrals of
// polynomials up to degree five along the boundary.
template <class Visit>
void forEachBoundaryPoint(const std::vector<Vec2>& polygon, Visit&& visit)
{
    static const double kNodes[3] = {0.5 - 0.5 * std::sqrt(0.6), 0.5, 0.5 + 0.5 * std::sqrt(0.6)};
    static constexpr double kWeights[3] = {5.0 / 18.0, 8.0 / 18.0, 5.0 / 18.0};
    for (size_t i = 0; i < polygon.size(); ++i) {
        const Vec2& a = polygon[i];
        const Vec2& b = polygon[(i + 1) % polygon.size()];
        const double length = (b - a).Length();
        for (int g = 0; g < 3; ++g)
            visit(a + (b - a) * kNodes[g], length * kWeights[g]);
    }
}

// A least-squares circle (Kåsa) through the polygon boundary, weighted by arc
// length; returns the quality described in the class header and writes the
// centre.
double fitCircleToBoundary(const std::vector<Vec2>& polygon, Vec2& centre)
{
    double perimeter = 0.0;
    Vec2 mean(0.0, 0.0);
    forEachBoundaryPoint(polygon, [&](const Vec2& p, double w) {
        perimeter += w;
        mean += p * w;
    });
    mean /= perimeter;

    // With x, y centred on the mean and z = x² + y², the circle z = 2a·x + 2b·y + c
    // has c = mean z and (a, b) solving the 2×2 normal equations.
    double sxx = 0.0, sxy = 0.0, syy = 0.0, sxz = 0.0, syz = 0.0, sz = 0.0;
    forEachBoundaryPoint(polygon, [&](const Vec2& p, double w) {
        const double x = p[0] - mean[0], y = p[1] - mean[1], z = x * x + y * y;
        w /= perimeter;
        sxx += w * x * x;
        sxy += w * x * y;
        syy += w * y * y;
        sxz += w * x * z;
        syz += w * y * z;
        sz += w * z;
    });
    const double m00 = sxx + kFitRegularisation, m11 = syy + kFitRegularisation;
    const double det = m00 * m11 - sxy * sxy;
    const double a = (0.5 * sxz * m11 - sxy * 0.5 * syz) / det;
    const double b = (m00 * 0.5 * syz - sxy * 0.5 * sxz) / det;
    const double squaredRadius = sz + a * a + b * b;
    centre = mean + Vec2(a, b);

    double squaredDeviation = 0.0;
    forEachBoundaryPoint(polygon, [&](const Vec2& p, double w) {
        const double deviation = ((p - centre).SquaredLength() - squaredRadius) / squaredRadius;
        squaredDeviation += w / perimeter * deviation * deviation;
    });
    const double quality = 1.0 - std::sqrt(squaredDeviation);
    return squaredRadius > 0.0 ? std::clamp(quality, 0.0, 1.0) : 0.0;
}

}  // namespace

Wm4::Vector3<float> kxMotionDetect::ComputeCircleBasedCentroid(const Wm4::Vector3<float>& direction,
                                                               std::vector<kx::kxVertexBuffer*> buffers,
                                                               float& quality)
{
    quality = 0.0f;
    Vec3 d = kxMotionGeometry::widen(direction);
    d.Normalize();
    Vec3 u, v;
    kxMotionGeometry::perpendicularBasis(d, u, v);

    size_t pointCount = 0;
    for (const kx::kxVertexBuffer* buffer : buffers)
        pointCount += buffer ? size_t(buffer->GetVertexQuantity()) : 0;
    std::vector<Vec2> projected;
    projected.reserve(pointCount);
    double depthSum = 0.0;
    Vec2 low(std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity());
    Vec2 high = -low;
    for (const kx::kxVertexBuffer* buffer : buffers) {
        if (!buffer)
            continue;
        for (int i = 0; i < buffer->GetVertexQuantity(); ++i) {
            const Vec3 p = kxMotionGeometry::widen(buffer->Position3(i));
            const Vec2 q(u.Dot(p), v.Dot(p));
            projected.push_back(q);
            depthSum += d.Dot(p);
            low = Vec2(std::min(low[0], q[0]), std::min(low[1], q[1]));
            high = Vec2(std::max(high[0], q[0]), std::max(high[1], q[1]));
        }
    }
    if (projected.empty())
        return Wm4::Vector3<float>(0.0f, 0.0f, 0.0f);

    const double meanDepth = depthSum / double(projected.size());
    // Work in the bounding rectangle's frame: centred, larger extent 1.
    const Vec2 rectangleCentre = (low + high) * 0.5;
    const double scale = std::max(high[0] - low[0], high[1] - low[1]);
    Vec2 centre(0.0, 0.0);
    if (scale > 0.0) {
        for (Vec2& q : projected)
            q = (q - rectangleCentre) / scale;
        const std::vector<Vec2> hull = convexHull(projected);
        if (hull.size() >= 3)
            quality = float(fitCircleToBoundary(hull, centre));
    }
    const Vec2 planeCentre = rectangleCentre + centre * scale;
    const Vec3 lifted = u * planeCentre[0] + v * planeCentre[1] + d * meanDepth;
    return Wm4::Vector3<float>(float(lifted[0]), float(lifted[1]), float(lifted[2]));
}
