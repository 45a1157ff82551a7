#include "SweepTest.h"

#include <algorithm>
#include <cmath>

#include "kxCommonAddOns.h"

namespace velmora_test {

namespace {

using Vec3d = Wm4::Vector3<double>;

constexpr double kDefaultToleranceShare = 1e-3;
constexpr unsigned kLeafSize = 4;

struct Triangle {
    Vec3d p[3];
};

struct Box {
    Vec3d lo{HUGE_VAL, HUGE_VAL, HUGE_VAL};
    Vec3d hi{-HUGE_VAL, -HUGE_VAL, -HUGE_VAL};

    void add(const Vec3d& p)
    {
        for (int a = 0; a < 3; ++a) {
            lo[a] = std::min(lo[a], p[a]);
            hi[a] = std::max(hi[a], p[a]);
        }
    }
};

Box boxOf(const Triangle& t)
{
    Box box;
    for (const Vec3d& p : t.p)
        box.add(p);
    return box;
}

void appendTriangles(const kx::kxTriMesh& mesh, std::vector<Triangle>& out)
{
    const kx::kxVertexBuffer& vertices = *mesh.GetVertexBuffer();
    for (int t = 0; t < mesh.GetTriangleQuantity(); ++t) {
        int i[3] = {0, 0, 0};
        mesh.GetTriangle(t, i[0], i[1], i[2]);
        Triangle triangle;
        for (int k = 0; k < 3; ++k) {
            const Wm4::Vector3<float> p = mesh.World.ApplyForward(vertices.Position3(i[k]));
            triangle.p[k] = Vec3d(p[0], p[1], p[2]);
        }
        out.push_back(triangle);
    }
}

std::vector<Triangle> trianglesOf(const std::vector<const kx::kxTriMesh*>& meshes, const std::vector<unsigned>& groups)
{
    std::vector<Triangle> triangles;
    for (const unsigned g : groups)
        appendTriangles(*meshes[g], triangles);
    return triangles;
}

kx::kxBBox floatBox(const Box& box, double margin)
{
    const Wm4::Vector3<float> lo(float(box.lo[0] - margin), float(box.lo[1] - margin), float(box.lo[2] - margin));
    const Wm4::Vector3<float> hi(float(box.hi[0] + margin), float(box.hi[1] + margin), float(box.hi[2] + margin));
    return {lo, hi};
}

kx::kxGenericBVH buildTree(const std::vector<Triangle>& triangles, double margin)
{
    kx::kxLinearGenericBVHBuilder builder;
    builder.setNoPrimitives(unsigned(triangles.size()));
    for (unsigned t = 0; t < triangles.size(); ++t) {
        builder.mPrimitiveBoxes[t] = floatBox(boxOf(triangles[t]), margin);
        builder.mPrimitiveIds[t] = t;
        builder.mPrimitiveCentroids[t] = builder.mPrimitiveBoxes[t].getCenter();
        builder.mBBox = builder.mBBox.bboxUnion(builder.mPrimitiveBoxes[t]);
    }
    kx::kxGenericBVH tree;
    builder.build(tree, nullptr, kLeafSize);
    return tree;
}

bool boxesOverlap(const kx::kxBBox& a, const kx::kxBBox& b)
{
    for (int axis = 0; axis < 3; ++axis) {
        if (a.min[axis] > b.max[axis] || b.min[axis] > a.max[axis])
            return false;
    }
    return true;
}

template <typename Visit>
void forEachOverlappingPrimitive(const kx::kxGenericBVH& tree, const kx::kxBBox& query, Visit&& visit)
{
    if (tree.getNoNodes() == 0 || tree.getNoPrimitives() == 0)
        return;
    std::vector<unsigned> stack{0};
    while (!stack.empty()) {
        const kx::kxGNode& node = tree.getNode(stack.back());
        stack.pop_back();
        if (!boxesOverlap(node.box, query))
            continue;
        if (node.isLeaf()) {
            for (unsigned s = node.getFirstSlot(); s < node.getFirstSlot() + node.getNoSlots(); ++s)
                visit(tree.getPrimitive(s));
        } else {
            stack.push_back(node.getFirstChild());
            stack.push_back(node.getSecondChild());
        }
    }
}

// Range [t0, t1] of translations t along `d` for which box `a` moved by t·d
// overlaps box `b`; false when there is none.
bool overlapRange(const Box& a, const Box& b, const Vec3d& d, double margin, double& t0, double& t1)
{
    for (int axis = 0; axis < 3; ++axis) {
        const double lo = b.lo[axis] - margin - a.hi[axis];
        const double hi = b.hi[axis] + margin - a.lo[axis];
        if (d[axis] == 0.0) {
            if (lo > 0.0 || hi < 0.0)
                return false;
            continue;
        }
        double s0 = lo / d[axis];
        double s1 = hi / d[axis];
        if (s0 > s1)
            std::swap(s0, s1);
        t0 = std::max(t0, s0);
        t1 = std::min(t1, s1);
    }
    return t0 <= t1;
}

// How far the triangle with plane distances `d` pierces the plane on its
// shallower side (negative or 0 when it stays on one side).
double piercingDepth(const double d[3])
{
    const double hi = std::max({d[0], d[1], d[2]});
    const double lo = std::min({d[0], d[1], d[2]});
    return std::min(hi, -lo);
}

bool unitNormal(const Vec3d p[3], Vec3d& normal)
{
    normal = (p[1] - p[0]).Cross(p[2] - p[0]);
    const double length = normal.Length();
    if (!(length > 0.0))
        return false;
    normal = normal / length;
    return true;
}

// The cut of triangle p (plane distances d) by the other plane, projected on
// the common line `line`.
void cutInterval(const Vec3d p[3], const double d[3], const Vec3d& line, double& lo, double& hi)
{
    lo = HUGE_VAL;
    hi = -HUGE_VAL;
    for (int i = 0; i < 3; ++i) {
        const int j = (i + 1) % 3;
        if (d[i] == 0.0) {
            lo = std::min(lo, line.Dot(p[i]));
            hi = std::max(hi, line.Dot(p[i]));
        }
        if ((d[i] < 0.0 && d[j] > 0.0) || (d[i] > 0.0 && d[j] < 0.0)) {
            const Vec3d q = p[i] + (p[j] - p[i]) * (d[i] / (d[i] - d[j]));
            lo = std::min(lo, line.Dot(q));
            hi = std::max(hi, line.Dot(q));
        }
    }
}

}  // namespace

double triangleCrossingDepth(const Vec3d a[3], const Vec3d b[3])
{
    Vec3d normalA;
    Vec3d normalB;
    if (!unitNormal(a, normalA) || !unitNormal(b, normalB))
        return 0.0;
    double da[3];
    double db[3];
    for (int i = 0; i < 3; ++i) {
        da[i] = normalB.Dot(a[i] - b[0]);
        db[i] = normalA.Dot(b[i] - a[0]);
    }
    const double depth = std::min(piercingDepth(da), piercingDepth(db));
    if (depth <= 0.0)
        return 0.0;
    Vec3d line = normalA.Cross(normalB);
    const double length = line.Length();
    if (!(length > 0.0))
        return 0.0;
    line = line / length;
    double loA = 0.0, hiA = 0.0, loB = 0.0, hiB = 0.0;
    cutInterval(a, da, line, loA, hiA);
    cutInterval(b, db, line, loB, hiB);
    const double overlap = std::min(hiA, hiB) - std::max(loA, loB);
    return overlap > 0.0 ? std::min(depth, overlap) : 0.0;
}

SweepResult sweepSeparates(const std::vector<const kx::kxTriMesh*>& groupMeshes, const std::vector<unsigned>& moving,
                           const std::vector<unsigned>& fixed, const Wm4::Vector3<float>& direction,
                           const SweepOptions& options)
{
    SweepResult result;
    Vec3d d(direction[0], direction[1], direction[2]);
    d = d / d.Length();
    const std::vector<Triangle> movingTriangles = trianglesOf(groupMeshes, moving);
    const std::vector<Triangle> fixedTriangles = trianglesOf(groupMeshes, fixed);

    Box all;
    double movingBack = HUGE_VAL;
    double fixedFront = -HUGE_VAL;
    for (const Triangle& t : movingTriangles) {
        for (const Vec3d& p : t.p) {
            movingBack = std::min(movingBack, d.Dot(p));
            all.add(p);
        }
    }
    for (const Triangle& t : fixedTriangles) {
        for (const Vec3d& p : t.p) {
            fixedFront = std::max(fixedFront, d.Dot(p));
            all.add(p);
        }
    }
    if (movingTriangles.empty() || fixedTriangles.empty())
        return result;
    const double tolerance =
        options.tolerance > 0.0 ? options.tolerance : kDefaultToleranceShare * (all.hi - all.lo).Length();
    const double travel = fixedFront - movingBack + tolerance;
    if (travel <= 0.0)
        return result;
    result.noSteps = std::max(options.noSteps, 1u);
    result.stepLength = travel / double(result.noSteps);

    result.tolerance = tolerance;
    const kx::kxGenericBVH tree = buildTree(fixedTriangles, tolerance);
    for (const Triangle& a : movingTriangles) {
        forEachOverlappingPrimitive(tree, floatBox(boxOf(a), tolerance), [&](unsigned fixedIndex) {
            result.startDepth = std::max(result.startDepth, triangleCrossingDepth(a.p, fixedTriangles[fixedIndex].p));
        });
    }
    const double allowedDepth = result.startDepth + tolerance;
    for (const Triangle& a : movingTriangles) {
        const Box boxA = boxOf(a);
        Box swept = boxA;
        swept.add(boxA.lo + d * travel);
        swept.add(boxA.hi + d * travel);
        forEachOverlappingPrimitive(tree, floatBox(swept, tolerance), [&](unsigned fixedIndex) {
            const Triangle& b = fixedTriangles[fixedIndex];
            double t0 = result.stepLength;
            double t1 = travel;
            if (!overlapRange(boxA, boxOf(b), d, tolerance, t0, t1))
                return;
            const unsigned first = unsigned(std::ceil(t0 / result.stepLength));
            const unsigned last = std::min(result.noSteps, unsigned(std::floor(t1 / result.stepLength)));
            for (unsigned step = std::max(first, 1u); step <= last; ++step) {
                const Vec3d shift = d * (double(step) * result.stepLength);
                const Vec3d moved[3] = {a.p[0] + shift, a.p[1] + shift, a.p[2] + shift};
                const double depth = triangleCrossingDepth(moved, b.p);
                if (depth <= allowedDepth)
                    continue;
                result.firstCrossingStep = result.separates ? step : std::min(result.firstCrossingStep, step);
                result.separates = false;
                ++result.noCrossings;
                result.deepestCrossing = std::max(result.deepestCrossing, depth);
            }
        });
    }
    return result;
}

}  // namespace velmora_test
