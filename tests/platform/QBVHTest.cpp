#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <thread>

#include "GeometryMeshes.h"
#include "TestMeshes.h"
#include "kxCommonAddOns.h"

using kx::kxQBVH;
using velmora_test::Vec3f;

namespace {

struct Hit {
    bool found = false;
    double s = 0.0;         // signed ray parameter
    unsigned triangle = 0;
    double secondGap = std::numeric_limits<double>::infinity();  // |s| gap to the next hit
};

// Ray-plane intersection and inside test by sub-triangle areas, in double.
bool rayTriangle(const Vec3f tri[3], const Vec3f& o, const Vec3f& d, double& s)
{
    double p[3][3], od[3], dd[3];
    for (int k = 0; k < 3; ++k) {
        od[k] = o[k];
        dd[k] = d[k];
        for (int c = 0; c < 3; ++c)
            p[c][k] = tri[c][k];
    }
    auto sub = [](const double* a, const double* b, double* r) { for (int k = 0; k < 3; ++k) r[k] = a[k] - b[k]; };
    auto cross = [](const double* a, const double* b, double* r) {
        r[0] = a[1] * b[2] - a[2] * b[1];
        r[1] = a[2] * b[0] - a[0] * b[2];
        r[2] = a[0] * b[1] - a[1] * b[0];
    };
    auto dot = [](const double* a, const double* b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; };
    double e1[3], e2[3], n[3], w[3];
    sub(p[1], p[0], e1);
    sub(p[2], p[0], e2);
    cross(e1, e2, n);
    const double denom = dot(n, dd);
    if (denom == 0.0)
        return false;
    sub(p[0], od, w);
    s = dot(n, w) / denom;
    double x[3];
    for (int k = 0; k < 3; ++k)
        x[k] = od[k] + s * dd[k];
    // The point is inside when the three sub-triangles have the orientation of n.
    for (int c = 0; c < 3; ++c) {
        double a[3], b[3], m[3];
        sub(p[(c + 1) % 3], p[c], a);
        sub(x, p[c], b);
        cross(a, b, m);
        if (dot(m, n) < 0.0)
            return false;
    }
    return true;
}

// Brute force over all triangles: the hit with the smallest s in
// [sMin, sMax], or with `symmetric` the smallest |s| <= sMax; `secondGap` is
// how much farther the next hit lies.
Hit bruteForce(const kx::kxTriMesh& mesh, const Vec3f& o, const Vec3f& d, double sMin, double sMax, bool symmetric)
{
    Hit best;
    double bestKey = std::numeric_limits<double>::infinity();
    for (int t = 0; t < mesh.GetTriangleQuantity(); ++t) {
        Vec3f tri[3];
        velmora_test::triangleCorners(mesh, t, tri);
        double s = 0.0;
        if (!rayTriangle(tri, o, d, s))
            continue;
        const double key = symmetric ? std::abs(s) : s;
        if (symmetric ? key > sMax : (s < sMin || s > sMax))
            continue;
        if (key < bestKey) {
            best.secondGap = bestKey - key;
            bestKey = key;
            best = {true, s, unsigned(t), best.secondGap};
        } else {
            best.secondGap = std::min(best.secondGap, key - bestKey);
        }
    }
    return best;
}

// The hit point by the reported barycentric pair: u·p0 + v·p1 + (1 − u − v)·p2.
Vec3f barycentricPoint(const kx::kxTriMesh& mesh, unsigned t, const Wm4::Vector2<float>& uv)
{
    Vec3f tri[3];
    velmora_test::triangleCorners(mesh, int(t), tri);
    return tri[0] * uv[0] + tri[1] * uv[1] + tri[2] * (1.0f - uv[0] - uv[1]);
}

kx::kxPointer<kx::kxTriMesh> randomMesh(std::mt19937& rng)
{
    return velmora_test::makeRandomSoup(rng, 400, Vec3f(-1, -1, -1), Vec3f(1, 1, 1), 0.3f);
}

}  // namespace

TEST(QBVH, NearestHitMatchesBruteForce)
{
    std::mt19937 rng(2024);
    const auto mesh = randomMesh(rng);
    kxQBVH tree;
    tree.buildFromMesh(kxQBVH::QBVH_ROBUST, *mesh, 12);
    EXPECT_EQ(tree.getNoTriangles(), 400u);
    int hits = 0;
    for (int r = 0; r < 2000; ++r) {
        const Vec3f o = velmora_test::randomPoint(rng, Vec3f(-1.5f, -1.5f, -1.5f), Vec3f(1.5f, 1.5f, 1.5f));
        const Vec3f d = velmora_test::randomUnitVector(rng) * (r % 2 ? 1.0f : 2.5f);  // also non-unit
        const Hit expected = bruteForce(*mesh, o, d, 0.0, std::numeric_limits<double>::infinity(), false);
        float t = -1.0f;
        Wm4::Vector2<float> uv;
        unsigned triangle = 0;
        const bool found = tree.intersectRay(o, d, 0.0f, t, uv, triangle, kxQBVH::RAY_NEAREST_HIT);
        ASSERT_EQ(found, expected.found) << "ray " << r;
        EXPECT_EQ(tree.intersectRay(o, d, 0.0f, t, uv, triangle, kxQBVH::RAY_ANY_HIT), expected.found);
        if (!found || expected.secondGap < 1e-5)
            continue;
        ++hits;
        EXPECT_EQ(triangle, expected.triangle) << "ray " << r;
        EXPECT_NEAR(t, expected.s, 1e-5) << "ray " << r;
        const Vec3f onTriangle = barycentricPoint(*mesh, triangle, uv);
        EXPECT_LT((onTriangle - (o + d * t)).Length(), 1e-5f) << "ray " << r;
        EXPECT_GE(uv[0], -1e-6f);
        EXPECT_GE(uv[1], -1e-6f);
        EXPECT_LE(uv[0] + uv[1], 1.0f + 1e-6f);
    }
    EXPECT_GT(hits, 500);
}

TEST(QBVH, RayStartRespectsTMin)
{
    std::mt19937 rng(77);
    const auto mesh = randomMesh(rng);
    kxQBVH tree;
    tree.buildFromMesh(kxQBVH::QBVH_ROBUST, *mesh, 12);
    for (int r = 0; r < 500; ++r) {
        const Vec3f o = velmora_test::randomPoint(rng, Vec3f(-1.5f, -1.5f, -1.5f), Vec3f(1.5f, 1.5f, 1.5f));
        const Vec3f d = velmora_test::randomUnitVector(rng);
        const Hit expected = bruteForce(*mesh, o, d, 0.5, std::numeric_limits<double>::infinity(), false);
        float t = 0.0f;
        Wm4::Vector2<float> uv;
        unsigned triangle = 0;
        ASSERT_EQ(tree.intersectRay(o, d, 0.5f, t, uv, triangle, kxQBVH::RAY_NEAREST_HIT), expected.found);
        if (expected.found && expected.secondGap > 1e-5) {
            EXPECT_EQ(triangle, expected.triangle);
            EXPECT_GE(t, 0.5f);
        }
    }
}

TEST(QBVH, SymmetricHitMatchesBruteForce)
{
    std::mt19937 rng(99);
    const auto mesh = randomMesh(rng);
    kxQBVH tree;
    tree.buildFromMesh(kxQBVH::QBVH_ROBUST, *mesh, 12);
    int forward = 0;
    int backward = 0;
    for (int r = 0; r < 3000; ++r) {
        const Vec3f o = velmora_test::randomPoint(rng, Vec3f(-1.2f, -1.2f, -1.2f), Vec3f(1.2f, 1.2f, 1.2f));
        const Vec3f d = velmora_test::randomUnitVector(rng);
        const float maxDist = 0.05f + 0.3f * float(r % 4);
        const Hit expected = bruteForce(*mesh, o, d, 0.0, maxDist, true);
        float t = -1.0f;
        Wm4::Vector2<float> uv;
        unsigned triangle = 0;
        const bool found = tree.intersectRaySymmetric(o, d, maxDist, t, uv, triangle);
        if (expected.found && std::abs(std::abs(expected.s) - maxDist) < 1e-5)
            continue;  // on the range limit either answer is right
        ASSERT_EQ(found, expected.found) << "ray " << r;
        if (!found || expected.secondGap < 1e-5)
            continue;
        (expected.s >= 0 ? forward : backward)++;
        EXPECT_EQ(triangle, expected.triangle) << "ray " << r;
        EXPECT_NEAR(t, std::abs(expected.s), 1e-5) << "ray " << r;
        EXPECT_GE(t, 0.0f);
        const Vec3f hitPoint = o + d * float(expected.s);
        EXPECT_LT((barycentricPoint(*mesh, triangle, uv) - hitPoint).Length(), 1e-5f) << "ray " << r;
    }
    EXPECT_GT(forward, 200);
    EXPECT_GT(backward, 200);
}

TEST(QBVH, HandCases)
{
    // Unit square at z = 0 as triangles (0, 1, 2) and (0, 2, 3).
    const auto square = velmora_test::makeMesh({Vec3f(0, 0, 0), Vec3f(1, 0, 0), Vec3f(1, 1, 0), Vec3f(0, 1, 0)},
                                               {0, 1, 2, 0, 2, 3});
    kxQBVH tree;
    EXPECT_FALSE([&] {
        float t;
        Wm4::Vector2<float> uv;
        unsigned tri;
        return tree.intersectRaySymmetric(Vec3f(0.5f, 0.5f, 1), Vec3f(0, 0, -1), 5.0f, t, uv, tri);
    }()) << "an unbuilt tree misses";
    kx::kxGenericBVH unusedBVH;
    tree.buildFromBVH(kxQBVH::QBVH_ROBUST, unusedBVH, *square);

    float t = -1.0f;
    Wm4::Vector2<float> uv;
    unsigned triangle = 99;
    // Straight down onto triangle 0 at (0.75, 0.25): weights u·p0 + v·p1 + (1−u−v)·p2.
    ASSERT_TRUE(tree.intersectRay(Vec3f(0.75f, 0.25f, 2), Vec3f(0, 0, -1), 0.0f, t, uv, triangle,
                                  kxQBVH::RAY_NEAREST_HIT));
    EXPECT_EQ(triangle, 0u);
    EXPECT_FLOAT_EQ(t, 2.0f);
    EXPECT_NEAR(uv[0], 0.25f, 1e-6f);  // p0 = (0,0,0)
    EXPECT_NEAR(uv[1], 0.5f, 1e-6f);   // p1 = (1,0,0); p2 = (1,1,0) gets 0.25
    // Away from the square: no hit; backwards within range: found.
    EXPECT_FALSE(tree.intersectRay(Vec3f(0.75f, 0.25f, 2), Vec3f(0, 0, 1), 0.0f, t, uv, triangle,
                                   kxQBVH::RAY_NEAREST_HIT));
    ASSERT_TRUE(tree.intersectRaySymmetric(Vec3f(0.75f, 0.25f, 2), Vec3f(0, 0, 1), 2.0f, t, uv, triangle));
    EXPECT_EQ(t, 2.0f);
    EXPECT_FALSE(tree.intersectRaySymmetric(Vec3f(0.75f, 0.25f, 2), Vec3f(0, 0, 1), 1.99f, t, uv, triangle));

    // A ray that starts on the square reports distance 0 in both queries.
    ASSERT_TRUE(tree.intersectRaySymmetric(Vec3f(0.25f, 0.75f, 0), Vec3f(0, 0, 1), 0.01f, t, uv, triangle));
    EXPECT_EQ(t, 0.0f);
    EXPECT_EQ(triangle, 1u);
    ASSERT_TRUE(tree.intersectRaySymmetric(Vec3f(0.25f, 0.75f, 0), Vec3f(0, 0, 1), 0.0f, t, uv, triangle));
    EXPECT_EQ(t, 0.0f);
    ASSERT_TRUE(tree.intersectRay(Vec3f(0.25f, 0.75f, 0), Vec3f(0, 0, 1), 0.0f, t, uv, triangle,
                                  kxQBVH::RAY_NEAREST_HIT));
    EXPECT_EQ(t, 0.0f);

    // Through the shared diagonal: watertight, one of the two triangles.
    ASSERT_TRUE(tree.intersectRay(Vec3f(0.5f, 0.5f, 1), Vec3f(0, 0, -1), 0.0f, t, uv, triangle,
                                  kxQBVH::RAY_NEAREST_HIT));
    EXPECT_LE(triangle, 1u);
    EXPECT_FLOAT_EQ(t, 1.0f);

    // The tree keeps its own copy: changing the mesh afterwards changes nothing.
    square->GetVertexBuffer()->Position3(2) = Vec3f(5, 5, 5);
    ASSERT_TRUE(tree.intersectRay(Vec3f(0.75f, 0.25f, 2), Vec3f(0, 0, -1), 0.0f, t, uv, triangle,
                                  kxQBVH::RAY_NEAREST_HIT));
    EXPECT_FLOAT_EQ(t, 2.0f);

    // An empty mesh gives a tree that every ray misses.
    const auto empty = velmora_test::makeMesh({}, {});
    tree.buildFromMesh(kxQBVH::QBVH_ROBUST | kxQBVH::QBVH_COMPACT, *empty, 12);
    EXPECT_EQ(tree.getNoTriangles(), 0u);
    EXPECT_FALSE(tree.intersectRay(Vec3f(0.75f, 0.25f, 2), Vec3f(0, 0, -1), 0.0f, t, uv, triangle,
                                   kxQBVH::RAY_NEAREST_HIT));
}

// Queries from several threads at once give the single-thread answers.
// Two unit squares, at z = 0 (triangles 0, 1) and z = 1 (triangles 2, 3):
// the nearer sense wins, the forward one on a tie, and a ray that starts on a
// sheet stays on it whatever lies behind.
TEST(QBVH, SymmetricHitBetweenTwoSheets)
{
    const auto sheets = velmora_test::makeMesh({Vec3f(0, 0, 0), Vec3f(1, 0, 0), Vec3f(1, 1, 0), Vec3f(0, 1, 0),
                                                Vec3f(0, 0, 1), Vec3f(1, 0, 1), Vec3f(1, 1, 1), Vec3f(0, 1, 1)},
                                               {0, 1, 2, 0, 2, 3, 4, 5, 6, 4, 6, 7});
    kxQBVH tree;
    tree.buildFromMesh(kxQBVH::QBVH_ROBUST, *sheets, 12);
    struct Case {
        float z, dz, maxDist;
        bool found;
        bool upperSheet;
        float t;
    };
    const Case cases[] = {
        {0.3f, 1, 2, true, false, 0.3f},  {0.7f, 1, 2, true, true, 0.3f},   {0.5f, 1, 2, true, true, 0.5f},
        {0.5f, -1, 2, true, false, 0.5f}, {0.0f, 1, 2, true, false, 0.0f},  {0.0f, -1, 2, true, false, 0.0f},
        {1.0f, 1, 2, true, true, 0.0f},   {1.0f, -1, 0, true, true, 0.0f},  {0.3f, 1, 0.2f, false, false, 0},
        {2.0f, 1, 1.5f, true, true, 1.0f},
    };
    for (const Case& c : cases) {
        float t = -1.0f;
        Wm4::Vector2<float> uv;
        unsigned triangle = 99;
        const bool found = tree.intersectRaySymmetric(Vec3f(0.25f, 0.75f, c.z), Vec3f(0, 0, c.dz), c.maxDist, t, uv,
                                                      triangle);
        ASSERT_EQ(found, c.found) << "from z = " << c.z << " along " << c.dz;
        if (!found)
            continue;
        EXPECT_EQ(triangle >= 2, c.upperSheet) << "from z = " << c.z << " along " << c.dz;
        EXPECT_FLOAT_EQ(t, c.t) << "from z = " << c.z << " along " << c.dz;
    }
}

TEST(QBVH, ConcurrentQueriesAgree)
{
    std::mt19937 rng(5);
    const auto mesh = velmora_test::makeSphere(Vec3f(0, 0, 0), 1.0f, 40, 80);
    kxQBVH tree;
    tree.buildFromMesh(kxQBVH::QBVH_ROBUST, *mesh, 12);
    struct Query {
        Vec3f o, d;
        bool found = false;
        float t = 0;
        unsigned triangle = 0;
    };
    std::vector<Query> queries(4000);
    for (Query& q : queries) {
        q.o = velmora_test::randomPoint(rng, Vec3f(-1.1f, -1.1f, -1.1f), Vec3f(1.1f, 1.1f, 1.1f));
        q.d = velmora_test::randomUnitVector(rng);
        Wm4::Vector2<float> uv;
        q.found = tree.intersectRaySymmetric(q.o, q.d, 0.2f, q.t, uv, q.triangle);
    }
    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> threads;
    for (int k = 0; k < 4; ++k) {
        threads.emplace_back([&, k] {
            for (size_t i = size_t(k); i < queries.size(); i += 4) {
                float t = 0;
                unsigned triangle = 0;
                Wm4::Vector2<float> uv;
                const bool found = tree.intersectRaySymmetric(queries[i].o, queries[i].d, 0.2f, t, uv, triangle);
                if (found != queries[i].found || (found && (t != queries[i].t || triangle != queries[i].triangle)))
                    ++mismatches[size_t(k)];
            }
        });
    }
    for (std::thread& th : threads)
        th.join();
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}
