// Tree builds and ray queries on a sphere of about one million triangles.
#include <benchmark/benchmark.h>

#include <random>
#include <thread>

#include "BenchMeshes.h"
#include "kxCommonAddOns.h"

using velmora_bench::Vec3f;

namespace {

const kx::kxTriMesh& millionTriangles()
{
    static const kx::kxPointer<kx::kxTriMesh> mesh = velmora_bench::makeSphere(Vec3f(0, 0, 0), 1.0f, 501, 1000);
    return *mesh;
}

kx::kxLinearGenericBVHBuilder filledBuilder(const kx::kxTriMesh& mesh)
{
    const kx::kxBVHTriangleContainer triangles(mesh);
    kx::kxLinearGenericBVHBuilder builder;
    builder.setNoPrimitives(triangles.getQuantity());
    for (unsigned i = 0; i < triangles.getQuantity(); ++i) {
        builder.mPrimitiveBoxes[i] = triangles.getBBox(i);
        builder.mPrimitiveCentroids[i] = builder.mPrimitiveBoxes[i].getCenter();
        builder.mPrimitiveIds[i] = i;
        builder.mBBox.selfUnion(builder.mPrimitiveBoxes[i]);
    }
    return builder;
}

void BM_BuildGenericBVH(benchmark::State& state)
{
    const kx::kxTriMesh& mesh = millionTriangles();
    const kx::kxLinearGenericBVHBuilder builder = filledBuilder(mesh);
    kx::kxGenericBVH bvh;
    for (auto _ : state)
        builder.build(bvh, nullptr, 20);
    state.SetItemsProcessed(state.iterations() * mesh.GetTriangleQuantity());
    state.counters["nodes"] = bvh.getNoNodes();
    state.counters["largestLeaf"] = bvh.getMaxLeafSize();
}
BENCHMARK(BM_BuildGenericBVH)->Unit(benchmark::kMillisecond);

void BM_BuildQBVH(benchmark::State& state)
{
    const kx::kxTriMesh& mesh = millionTriangles();
    for (auto _ : state) {
        kx::kxQBVH tree;
        tree.buildFromMesh(kx::kxQBVH::QBVH_ROBUST, mesh, 12);
        benchmark::DoNotOptimize(tree.getNoTriangles());
    }
    state.SetItemsProcessed(state.iterations() * mesh.GetTriangleQuantity());
}
BENCHMARK(BM_BuildQBVH)->Unit(benchmark::kMillisecond);

const kx::kxQBVH& millionTriangleTree()
{
    static const kx::kxQBVH* tree = [] {
        auto* built = new kx::kxQBVH();
        built->buildFromMesh(kx::kxQBVH::QBVH_ROBUST, millionTriangles(), 12);
        return built;
    }();
    return *tree;
}

struct Ray {
    Vec3f origin;
    Vec3f direction;
};

// Rays from points near the sphere (radius 0.98 … 1.02) along directions
// close to the normal, the way contact sampling casts them.
std::vector<Ray> nearSurfaceRays(size_t count)
{
    std::mt19937 rng(3);
    std::normal_distribution<float> normal(0.0f, 1.0f);
    std::uniform_real_distribution<float> radius(0.98f, 1.02f);
    std::vector<Ray> rays(count);
    for (Ray& ray : rays) {
        Vec3f n(normal(rng), normal(rng), normal(rng));
        n.Normalize();
        Vec3f tilt(normal(rng), normal(rng), normal(rng));
        ray.origin = n * radius(rng);
        ray.direction = n + tilt * 0.1f;
        ray.direction.Normalize();
    }
    return rays;
}

void BM_IntersectRaySymmetric(benchmark::State& state)
{
    const kx::kxQBVH& tree = millionTriangleTree();
    const std::vector<Ray> rays = nearSurfaceRays(1 << 16);
    const float maxDist = float(state.range(0)) * 0.001f;
    size_t k = 0;
    size_t hits = 0;
    for (auto _ : state) {
        const Ray& ray = rays[k++ & (rays.size() - 1)];
        float t;
        Wm4::Vector2<float> uv;
        unsigned triangle;
        hits += tree.intersectRaySymmetric(ray.origin, ray.direction, maxDist, t, uv, triangle);
    }
    state.SetItemsProcessed(int64_t(state.iterations()));
    state.counters["hitRate"] = benchmark::Counter(double(hits) / double(state.iterations()), benchmark::Counter::kAvgThreads);
}
BENCHMARK(BM_IntersectRaySymmetric)->Arg(30)->Arg(1000)->ThreadRange(1, 2);

void BM_IntersectRayNearest(benchmark::State& state)
{
    const kx::kxQBVH& tree = millionTriangleTree();
    std::vector<Ray> rays = nearSurfaceRays(1 << 16);
    size_t k = 0;
    for (auto _ : state) {
        const Ray& ray = rays[k++ & (rays.size() - 1)];
        float t;
        Wm4::Vector2<float> uv;
        unsigned triangle;
        benchmark::DoNotOptimize(tree.intersectRay(ray.origin * 3.0f, -ray.direction, 0.0f, t, uv, triangle,
                                                   kx::kxQBVH::RAY_NEAREST_HIT));
    }
    state.SetItemsProcessed(int64_t(state.iterations()));
}
BENCHMARK(BM_IntersectRayNearest);

}  // namespace

BENCHMARK_MAIN();
