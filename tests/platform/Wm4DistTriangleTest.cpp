// Triangle–triangle distance against an independent reference computed in
// double: an upper bound from realised point pairs (corner–triangle and
// edge–edge distances plus a dense sampling of both triangles against the
// other) and a lower bound, the corner–triangle and edge–edge minimum, which is
// exact once the sampling or a separating axis proves the triangles apart.
// Covers random, touching, near-touching, parallel, coplanar, crossing,
// degenerate and sliver pairs and almost parallel edges, in float and double,
// plus hand-checked cases.
#include <Wm4.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <tuple>
#include <random>

namespace {

using Wm4::DistTriangle3Triangle3;
using Wm4::Vector3;
using Vec = Vector3<double>;
using Triangle = std::array<Vec, 3>;

double Clamp01(double x) { return std::clamp(x, 0.0, 1.0); }

double PointSegmentDistance(const Vec& p, const Vec& a, const Vec& b)
{
    const Vec d = b - a;
    const double dd = d.SquaredLength();
    const double t = dd > 0 ? Clamp01((p - a).Dot(d) / dd) : 0.0;
    return (a + d * t - p).Length();
}

// Foot on the plane when it lies inside, else the nearest boundary point.
double PointTriangleDistance(const Vec& p, const Triangle& tri)
{
    double best = std::min({PointSegmentDistance(p, tri[0], tri[1]), PointSegmentDistance(p, tri[1], tri[2]),
                            PointSegmentDistance(p, tri[2], tri[0])});
    // The two shorter edges give the most accurate normal.
    int longest = 0;
    for (int i = 1; i < 3; ++i) {
        if ((tri[(i + 1) % 3] - tri[i]).SquaredLength() > (tri[(longest + 1) % 3] - tri[longest]).SquaredLength())
            longest = i;
    }
    const Vec& apex = tri[(longest + 2) % 3];
    const Vec n = (apex - tri[(longest + 1) % 3]).Cross(tri[longest] - apex);
    const double nn = n.SquaredLength();
    if (nn == 0)
        return best;
    const Vec foot = p - n * ((p - tri[0]).Dot(n) / nn);
    bool inside = true;
    for (int i = 0; i < 3; ++i)
        inside = inside && (tri[(i + 1) % 3] - tri[i]).Cross(foot - tri[i]).Dot(n) >= 0;
    if (inside)
        best = std::min(best, (p - foot).Length());
    return best;
}

// The distance from p0 + s·(p1 − p0) to the other segment is convex in s: a
// golden-section search narrows s down to rounding, whatever the angle between
// the segments.
double SegmentSegmentDistance(const Vec& p0, const Vec& p1, const Vec& q0, const Vec& q1)
{
    const auto distanceAt = [&](double s) { return PointSegmentDistance(p0 + (p1 - p0) * s, q0, q1); };
    const double ratio = (std::sqrt(5.0) - 1) / 2;
    double lo = 0, hi = 1;
    double x1 = hi - ratio * (hi - lo), x2 = lo + ratio * (hi - lo);
    double f1 = distanceAt(x1), f2 = distanceAt(x2);
    for (int iteration = 0; iteration < 80; ++iteration) {
        if (f1 <= f2) {
            hi = x2, x2 = x1, f2 = f1;
            x1 = hi - ratio * (hi - lo), f1 = distanceAt(x1);
        } else {
            lo = x1, x1 = x2, f1 = f2;
            x2 = lo + ratio * (hi - lo), f2 = distanceAt(x2);
        }
    }
    return std::min({f1, f2, distanceAt(0), distanceAt(1)});
}

double LongestEdge(const Triangle& tri)
{
    return std::max({(tri[1] - tri[0]).Length(), (tri[2] - tri[1]).Length(), (tri[0] - tri[2]).Length()});
}

// Corners against the other triangle and all edge pairs: the true distance of
// two triangles that do not meet.
double FeatureDistance(const Triangle& t0, const Triangle& t1)
{
    double best = std::numeric_limits<double>::max();
    for (int i = 0; i < 3; ++i) {
        best = std::min({best, PointTriangleDistance(t0[i], t1), PointTriangleDistance(t1[i], t0)});
        for (int j = 0; j < 3; ++j)
            best = std::min(best, SegmentSegmentDistance(t0[i], t0[(i + 1) % 3], t1[j], t1[(j + 1) % 3]));
    }
    return best;
}

constexpr int kSamplingSteps = 24;

// Distance of a barycentric grid over `sampled` to `other`: every point of
// `sampled` lies within LongestEdge(sampled) / kSamplingSteps of a grid point.
double SampledDistance(const Triangle& sampled, const Triangle& other)
{
    double best = std::numeric_limits<double>::max();
    for (int i = 0; i <= kSamplingSteps; ++i) {
        for (int j = 0; i + j <= kSamplingSteps; ++j) {
            const double u = double(i) / kSamplingSteps, v = double(j) / kSamplingSteps;
            const Vec p = sampled[0] * (1 - u - v) + sampled[1] * u + sampled[2] * v;
            best = std::min(best, PointTriangleDistance(p, other));
        }
    }
    return best;
}

// True when an axis among the face normals and the edge–edge cross products
// separates the two triangles by more than rounding.
bool SeparatedByAxis(const Triangle& t0, const Triangle& t1)
{
    std::array<Vec, 11> axes;
    axes[0] = (t0[1] - t0[0]).Cross(t0[2] - t0[0]);
    axes[1] = (t1[1] - t1[0]).Cross(t1[2] - t1[0]);
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j)
            axes[2 + 3 * i + j] = (t0[(i + 1) % 3] - t0[i]).Cross(t1[(j + 1) % 3] - t1[j]);
    }
    const auto extent = [](const Triangle& tri, const Vec& axis) {
        return std::minmax({tri[0].Dot(axis), tri[1].Dot(axis), tri[2].Dot(axis)});
    };
    for (const Vec& axis : axes) {
        const auto [min0, max0] = extent(t0, axis);
        const auto [min1, max1] = extent(t1, axis);
        const double margin = 1e-12 * axis.Length();
        if (max0 + margin < min1 || max1 + margin < min0)
            return true;
    }
    return false;
}

struct ReferenceBounds {
    double upper;
    double lower;
};

ReferenceBounds Reference(const Triangle& t0, const Triangle& t1)
{
    const double features = FeatureDistance(t0, t1);
    const double upper = std::min({features, SampledDistance(t0, t1), SampledDistance(t1, t0)});
    // Triangles that meet have a grid point within the covering radius of the
    // other triangle; beyond it, or with a separating axis, they are apart and
    // the features give the exact distance.
    const double coveringRadius = std::min(LongestEdge(t0), LongestEdge(t1)) / kSamplingSteps;
    const bool apart = upper > coveringRadius || SeparatedByAxis(t0, t1);
    return {upper, apart ? features : 0.0};
}

template <class Real>
Triangle ToDouble(const std::array<Vector3<Real>, 3>& tri)
{
    return {Vec(tri[0]), Vec(tri[1]), Vec(tri[2])};
}

template <class Real>
std::array<Vector3<Real>, 3> ToReal(const Triangle& tri)
{
    return {Vector3<Real>(tri[0]), Vector3<Real>(tri[1]), Vector3<Real>(tri[2])};
}

Vec Barycentric(const Triangle& tri, double u, double v) { return tri[0] * (1 - u - v) + tri[1] * u + tri[2] * v; }

// Runs the query in Real on the corners rounded to Real and checks it against
// the reference of those same corners; returns the reported distance.
template <class Real>
double CheckPair(const Triangle& exact0, const Triangle& exact1, double tolerance)
{
    const auto tri0 = ToReal<Real>(exact0), tri1 = ToReal<Real>(exact1);
    const Triangle t0 = ToDouble(tri0), t1 = ToDouble(tri1);
    const DistTriangle3Triangle3<Real> query(tri0.data(), tri1.data());
    const ReferenceBounds reference = Reference(t0, t1);
    const double distance = query.Get();

    EXPECT_LE(distance, reference.upper + tolerance);
    EXPECT_GE(distance, reference.lower - tolerance);
    EXPECT_NEAR(double(query.GetSquared()), distance * distance, 4 * tolerance * (distance + tolerance));

    const Real bary[2][3] = {{query.GetTriangleBary0(0), query.GetTriangleBary0(1), query.GetTriangleBary0(2)},
                             {query.GetTriangleBary1(0), query.GetTriangleBary1(1), query.GetTriangleBary1(2)}};
    const Triangle* corners[2] = {&t0, &t1};
    Vec rebuilt[2];
    for (int side = 0; side < 2; ++side) {
        double sum = 0;
        for (int i = 0; i < 3; ++i) {
            EXPECT_GE(bary[side][i], Real(0));
            EXPECT_LE(bary[side][i], Real(1));
            sum += bary[side][i];
            rebuilt[side] += (*corners[side])[i] * double(bary[side][i]);
        }
        EXPECT_NEAR(sum, 1.0, 8 * std::numeric_limits<Real>::epsilon());
    }
    EXPECT_NEAR((rebuilt[0] - rebuilt[1]).Length(), distance, tolerance);
    EXPECT_LE((rebuilt[0] - Vec(query.GetClosestPoint0())).Length(), tolerance);
    EXPECT_LE((rebuilt[1] - Vec(query.GetClosestPoint1())).Length(), tolerance);
    return distance;
}

// A reproducible stream of triangle pairs of one kind.
class PairGenerator {
public:
    explicit PairGenerator(unsigned seed) : m_rng(seed) {}

    double Uniform(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(m_rng); }
    Vec Point(double extent) { return Vec(Uniform(-extent, extent), Uniform(-extent, extent), Uniform(-extent, extent)); }
    Vec UnitVector()
    {
        for (;;) {
            Vec v = Point(1);
            if (v.Normalize() > 0.1)
                return v;
        }
    }
    Triangle RandomTriangle(const Vec& centre, double size)
    {
        return {centre + Point(size), centre + Point(size), centre + Point(size)};
    }
    // A triangle in the plane through `origin` spanned by u and w.
    Triangle InPlane(const Vec& origin, const Vec& u, const Vec& w, double size)
    {
        Triangle tri;
        for (Vec& corner : tri)
            corner = origin + u * Uniform(-size, size) + w * Uniform(-size, size);
        return tri;
    }
    // Two unit vectors orthogonal to n and to each other.
    void PlaneBasis(const Vec& n, Vec& u, Vec& w)
    {
        u = n.UnitCross(std::fabs(n.X()) < 0.9 ? Vec::UNIT_X : Vec::UNIT_Y);
        w = n.Cross(u);
    }
    int Index(int count) { return std::uniform_int_distribution<int>(0, count - 1)(m_rng); }

private:
    std::mt19937 m_rng;
};

// Pair kinds; each returns the two triangles in double before rounding.
using PairMaker = std::function<std::array<Triangle, 2>(PairGenerator&)>;

std::array<Triangle, 2> RandomPair(PairGenerator& g)
{
    return {g.RandomTriangle(Vec(), 1), g.RandomTriangle(g.Point(1.5), 1)};
}

// A corner of the second triangle placed on the first one (face, edge or corner),
// the rest of it on one side.
std::array<Triangle, 2> TouchingPair(PairGenerator& g)
{
    const Triangle t0 = g.RandomTriangle(Vec(), 1);
    const Vec n = (t0[1] - t0[0]).UnitCross(t0[2] - t0[0]);
    const double u = g.Uniform(0, 1), v = g.Uniform(0, 1 - u);
    const Vec contacts[3] = {Barycentric(t0, u, v), Barycentric(t0, u, 0), t0[g.Index(3)]};
    const Vec touch = contacts[g.Index(3)];
    Vec a, b;
    g.PlaneBasis(n, a, b);
    const Vec lift = n * g.Uniform(0.05, 1);
    return {t0, {touch, touch + lift + a * g.Uniform(-1, 1), touch + lift * g.Uniform(0.2, 1) + b * g.Uniform(-1, 1)}};
}

// The second triangle a small height above (or below) the first, sometimes
// tilted: the near-contact case of contact detection.
std::array<Triangle, 2> NearTouchingPair(PairGenerator& g)
{
    const Triangle t0 = g.RandomTriangle(Vec(), 1);
    const Vec n = (t0[1] - t0[0]).UnitCross(t0[2] - t0[0]);
    const Vec offset = n * (g.Uniform(-1, 1) * 1e-3) + g.Point(0.3);
    Triangle t1;
    for (int i = 0; i < 3; ++i)
        t1[i] = t0[(i + 1) % 3] + offset + g.Point(1e-3);
    return {t0, t1};
}

std::array<Triangle, 2> ParallelPair(PairGenerator& g)
{
    const Vec n = g.UnitVector();
    Vec u, w;
    g.PlaneBasis(n, u, w);
    const Vec origin = g.Point(1);
    return {g.InPlane(origin, u, w, 1), g.InPlane(origin + n * g.Uniform(-0.5, 0.5), u, w, 1)};
}

// Same plane (up to the rounding of the corners), overlapping or not.
std::array<Triangle, 2> CoplanarPair(PairGenerator& g)
{
    Vec n = g.Index(2) ? g.UnitVector() : Vec::UNIT_Z;
    Vec u, w;
    g.PlaneBasis(n, u, w);
    const Vec origin = g.Point(1);
    return {g.InPlane(origin, u, w, 1), g.InPlane(origin + u * g.Uniform(-1, 1), u, w, 1)};
}

// The second triangle passes through an inside point of the first, transversally.
std::array<Triangle, 2> CrossingPair(PairGenerator& g)
{
    const Triangle t0 = g.RandomTriangle(Vec(), 1);
    const double u = g.Uniform(0.05, 0.9), v = g.Uniform(0.05, 0.95 - u);
    const Vec x = Barycentric(t0, u, v);
    const Vec n = (t0[1] - t0[0]).UnitCross(t0[2] - t0[0]);
    // |Point(0.5)·n| < 1, so the edge through x is never parallel to the first triangle.
    const Vec d = (n + g.Point(0.5)) * g.Uniform(0.2, 1);
    // x is the midpoint of the second triangle's first edge, which therefore
    // pierces the first triangle at x.
    return {t0, {x + d, x - d, x + g.Point(1.5)}};
}

// Collinear, coincident or point-like triangles against anything.
std::array<Triangle, 2> DegeneratePair(PairGenerator& g)
{
    const Vec a = g.Point(1), b = g.Point(1);
    const Triangle degenerate[4] = {{a, b, a + (b - a) * g.Uniform(-0.5, 1.5)},  // collinear
                                    {a, a, b},                                   // two coincident corners
                                    {a, a, a},                                   // a point
                                    {a, b, a + (b - a) * 2.0}};
    Triangle t0 = degenerate[g.Index(4)];
    Triangle t1 = g.Index(3) ? g.RandomTriangle(Vec(), 1) : degenerate[g.Index(4)];
    if (g.Index(2))
        std::swap(t0, t1);
    // Now and then let the degenerate triangle cross the other one.
    if (g.Index(4) == 0)
        t1[1] = t1[0] + (t0[0] + t0[1] + t0[2] - t1[0] * 3.0) * (2.0 / 3.0);
    return {t0, t1};
}

// An edge of each triangle, almost parallel (down to a few ulps of float) and
// a small gap apart, with the rest of the triangles on opposite sides: the
// closest points lie inside both edges, where the usual edge–edge formula
// loses its precision.
std::array<Triangle, 2> AlmostParallelEdgesPair(PairGenerator& g)
{
    const Vec middle = g.Point(1), along = g.UnitVector();
    Vec up, side;
    g.PlaneBasis(along, up, side);
    const double angle = std::pow(10.0, g.Uniform(-6, -1));
    const Vec turned = along * std::cos(angle) + side * std::sin(angle);
    const Vec gap = up * (g.Uniform(0, 1) * 1e-3);
    const Triangle below = {middle - along * g.Uniform(0.2, 1), middle + along * g.Uniform(0.2, 1),
                            middle - up * g.Uniform(0.3, 1) + g.Point(0.5)};
    const Triangle above = {middle + gap - turned * g.Uniform(0.2, 1), middle + gap + turned * g.Uniform(0.2, 1),
                            middle + gap + up * g.Uniform(0.3, 1) + g.Point(0.5)};
    return {below, above};
}

// Thin but not degenerate triangles: caps (a corner close to the middle of the
// opposite edge) and needles, from a few to a few thousand ulps of float wide,
// against a nearby triangle or one that passes through the sliver.
std::array<Triangle, 2> SliverPair(PairGenerator& g)
{
    const Vec a = g.Point(1), b = g.Point(1);
    const Vec across = (b - a).UnitCross(g.UnitVector());
    const double width = std::pow(10.0, g.Uniform(-6, -2));
    const Vec third = g.Index(2) ? a + (b - a) * g.Uniform(0.2, 0.8) + across * width  // cap
                                 : b + across * width;                                  // needle
    const Triangle sliver = {a, b, third};
    if (g.Index(2))
        return {sliver, g.RandomTriangle((a + b) * 0.5 + g.Point(0.3), 0.7)};
    const double u = g.Uniform(0, 1), v = g.Uniform(0, 1 - u);
    const Vec x = Barycentric(sliver, u, v), d = g.Point(0.5);
    return {sliver, {x + d, x - d, x + g.Point(1)}};
}

template <class Real>
void CheckKind(const PairMaker& make, unsigned seed, int count, double tolerance)
{
    PairGenerator g(seed);
    for (int n = 0; n < count; ++n) {
        const std::array<Triangle, 2> pair = make(g);
        SCOPED_TRACE(n);
        CheckPair<Real>(pair[0], pair[1], tolerance);
        CheckPair<Real>(pair[1], pair[0], tolerance);
    }
}

// Coordinates stay below about 3: a few ulps of float, a few dozen of double.
constexpr double kFloatTolerance = 2e-6;
constexpr double kDoubleTolerance = 1e-14;

struct Kind {
    const char* name;
    PairMaker make;
};

const Kind kKinds[] = {{"random", RandomPair},     {"touching", TouchingPair}, {"near touching", NearTouchingPair},
                       {"parallel", ParallelPair}, {"coplanar", CoplanarPair}, {"crossing", CrossingPair},
                       {"degenerate", DegeneratePair}, {"sliver", SliverPair},
                       {"almost parallel edges", AlmostParallelEdgesPair}};

TEST(Wm4DistTriangle3Triangle3, FloatAgainstReference)
{
    unsigned seed = 1000;
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        CheckKind<float>(kind.make, ++seed, 400, kFloatTolerance);
    }
}

TEST(Wm4DistTriangle3Triangle3, DoubleAgainstReference)
{
    unsigned seed = 2000;
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        CheckKind<double>(kind.make, ++seed, 200, kDoubleTolerance);
    }
}

TEST(Wm4DistTriangle3Triangle3, CrossingAndTouchingGiveZero)
{
    for (const auto& [name, make, tolerance] :
         {std::tuple<const char*, PairMaker, double>{"crossing", CrossingPair, 0.0}, {"touching", TouchingPair, 1e-6}}) {
        SCOPED_TRACE(name);
        PairGenerator g(31);
        for (int n = 0; n < 300; ++n) {
            const std::array<Triangle, 2> pair = make(g);
            const auto tri0 = ToReal<float>(pair[0]), tri1 = ToReal<float>(pair[1]);
            EXPECT_LE(DistTriangle3Triangle3<float>(tri0.data(), tri1.data()).Get(), tolerance) << n;
        }
    }
}

TEST(Wm4DistTriangle3Triangle3, HandCheckedCases)
{
    using V = Vector3<float>;
    const V unit[3] = {V(0, 0, 0), V(1, 0, 0), V(0, 1, 0)};

    // A corner above the inside of the face: the height, at the foot.
    const DistTriangle3Triangle3<float> above(unit[0], unit[1], unit[2], V(0.25f, 0.25f, 2), V(0, 0, 5), V(1, 1, 5));
    EXPECT_FLOAT_EQ(above.Get(), 2.0f);
    EXPECT_FLOAT_EQ(above.GetSquared(), 4.0f);
    EXPECT_FLOAT_EQ(above.GetTriangleBary0(0), 0.5f);
    EXPECT_FLOAT_EQ(above.GetTriangleBary0(1), 0.25f);
    EXPECT_FLOAT_EQ(above.GetTriangleBary0(2), 0.25f);
    EXPECT_EQ(above.GetTriangleBary1(0), 1.0f);
    EXPECT_EQ(above.GetClosestPoint1(), V(0.25f, 0.25f, 2));

    // Skew edges: the x-axis edge of a triangle sloping down in y, against a
    // y-parallel edge one unit up that passes above (0.5, 0, 0).
    const DistTriangle3Triangle3<float> skew(V(0, 0, 0), V(1, 0, 0), V(0, 1, -1), V(0.5f, -1, 1), V(0.5f, 1, 1),
                                             V(0.5f, 0, 3));
    EXPECT_FLOAT_EQ(skew.Get(), 1.0f);
    EXPECT_FLOAT_EQ(skew.GetTriangleBary0(0), 0.5f);
    EXPECT_FLOAT_EQ(skew.GetTriangleBary0(1), 0.5f);
    EXPECT_FLOAT_EQ(skew.GetTriangleBary1(0), 0.5f);
    EXPECT_FLOAT_EQ(skew.GetTriangleBary1(1), 0.5f);

    // A vertical edge piercing the face: the triangles meet along a segment of z = 0.
    const DistTriangle3Triangle3<float> pierce(unit[0], unit[1], unit[2], V(0.25f, 0.25f, -1), V(0.25f, 0.25f, 1),
                                               V(3, 3, 0.5f));
    EXPECT_EQ(pierce.Get(), 0.0f);
    EXPECT_LE((pierce.GetClosestPoint0() - pierce.GetClosestPoint1()).Length(), 1e-6f);
    EXPECT_NEAR(pierce.GetClosestPoint0().Z(), 0.0f, 1e-7f);

    // Identical triangles, and a point against a segment (both degenerate).
    EXPECT_EQ(DistTriangle3Triangle3<float>(unit, unit).Get(), 0.0f);
    const DistTriangle3Triangle3<float> pointToSegment(V(0, 0, 3), V(2, 0, 3), V(1, 0, 3), V(1, 4, 3), V(1, 4, 3),
                                                       V(1, 4, 3));
    EXPECT_FLOAT_EQ(pointToSegment.Get(), 4.0f);
    EXPECT_EQ(pointToSegment.GetClosestPoint0(), V(1, 0, 3));
    EXPECT_FLOAT_EQ(pointToSegment.GetTriangleBary1(0) + pointToSegment.GetTriangleBary1(1) +
                        pointToSegment.GetTriangleBary1(2),
                    1.0f);

    // Parallel, overlapping faces one unit apart.
    const DistTriangle3Triangle3<double> parallel(Vector3<double>(0, 0, 0), Vector3<double>(4, 0, 0),
                                                  Vector3<double>(0, 4, 0), Vector3<double>(1, 1, 1),
                                                  Vector3<double>(2, 1, 1), Vector3<double>(1, 2, 1));
    EXPECT_DOUBLE_EQ(parallel.Get(), 1.0);
}

}  // namespace
