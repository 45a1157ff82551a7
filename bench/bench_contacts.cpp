// Contact detection: touching faces of two large parts, the whole pass over a
// 200-part assembly, and the minimum distance of two meshes.
#include <benchmark/benchmark.h>

#include <map>
#include <memory>
#include <random>

#include "BenchMeshes.h"
#include "Wm4DistTriangle3Triangle3.h"
#include "kxContactFaces.h"

#ifdef VELMORA_BENCH_WITH_FCL
#include <fcl/fcl.h>
#endif

using velmora_bench::Vec3f;

namespace {

struct Assembly {
    std::vector<kx::kxPointer<kx::kxTriMesh>> meshes;
    std::vector<kxMeshAndBVH> parts;

    explicit Assembly(std::vector<kx::kxPointer<kx::kxTriMesh>> list) : meshes(std::move(list))
    {
        std::vector<kx::kxTriMesh*> raw;
        for (const auto& m : meshes)
            raw.push_back(m.get());
        kxContactFaces::InitializeBVHList(raw, parts);
    }
};

// Two boxes of about 100k triangles each, the second standing on the first;
// the touching faces are grids of different resolution.
const Assembly& touchingBoxes()
{
    static const Assembly assembly({velmora_bench::makeTessellatedBox(Vec3f(0, 0, 0), Vec3f(1, 1, 1), 91),
                                    velmora_bench::makeTessellatedBox(Vec3f(0.013f, 0.007f, 1), Vec3f(1, 1, 2), 90)});
    return assembly;
}

// 200 boxes in a 5 × 5 × 8 lattice, each touching its neighbours; sizes vary
// a little along x and y so that most contacts cover part of a face.
std::vector<kx::kxPointer<kx::kxTriMesh>> latticeMeshes()
{
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> shrink(0.0f, 0.2f);
    std::vector<kx::kxPointer<kx::kxTriMesh>> meshes;
    for (int k = 0; k < 8; ++k) {
        for (int j = 0; j < 5; ++j) {
            for (int i = 0; i < 5; ++i) {
                const Vec3f lo{float(i), float(j), float(k)};
                const Vec3f hi{float(i) + 1.0f - shrink(rng), float(j) + 1.0f - shrink(rng), float(k) + 1.0f};
                meshes.push_back(velmora_bench::makeTessellatedBox(lo, hi, 6));
            }
        }
    }
    return meshes;
}

const Assembly& lattice()
{
    static const Assembly assembly(latticeMeshes());
    return assembly;
}

void BM_ContactFacesTouchingParts(benchmark::State& state)
{
    const Assembly& boxes = touchingBoxes();
    const float tolerance = 0.001f;
    std::vector<unsigned> facesA, facesB;
    for (auto _ : state) {
        kxContactFaces faces(&boxes.parts[0], &boxes.parts[1], tolerance);
        faces.getContactFacesList(facesA, facesB);
        benchmark::DoNotOptimize(facesA.data());
    }
    const double nA = boxes.parts[0].mMesh->GetTriangleQuantity();
    const double nB = boxes.parts[1].mMesh->GetTriangleQuantity();
    state.counters["trianglesA"] = nA;
    state.counters["trianglesB"] = nB;
    state.counters["bruteForcePairs"] = nA * nB;
    state.counters["facesA"] = double(facesA.size());
    state.counters["facesB"] = double(facesB.size());
}
BENCHMARK(BM_ContactFacesTouchingParts)->Unit(benchmark::kMillisecond);

// The cost of one triangle-pair distance: multiplied by the pair count it
// estimates what an all-pairs search would take.
void BM_TriangleDistance(benchmark::State& state)
{
    std::mt19937 rng(2);
    std::uniform_real_distribution<float> coordinate(0.0f, 0.01f);
    std::vector<Vec3f> corners(6 * 1024);
    for (size_t i = 0; i < corners.size(); ++i)
        corners[i] = Vec3f(coordinate(rng), coordinate(rng), coordinate(rng) + (i % 6 >= 3 ? 0.004f : 0.0f));
    size_t k = 0;
    double sum = 0;
    for (auto _ : state) {
        const Vec3f* pair = corners.data() + 6 * (k++ % 1024);
        sum += Wm4::DistTriangle3Triangle3<float>(pair, pair + 3).Get();
    }
    state.SetItemsProcessed(int64_t(state.iterations()));
    state.counters["meanDistance"] = sum / double(state.iterations());
}
BENCHMARK(BM_TriangleDistance);

void BM_InitializeBVHListAssembly(benchmark::State& state)
{
    const std::vector<kx::kxPointer<kx::kxTriMesh>> meshes = latticeMeshes();
    std::vector<kx::kxTriMesh*> raw;
    for (const auto& m : meshes)
        raw.push_back(m.get());
    std::vector<kxMeshAndBVH> parts;
    for (auto _ : state)
        kxContactFaces::InitializeBVHList(raw, parts);
    state.counters["parts"] = double(parts.size());
}
BENCHMARK(BM_InitializeBVHListAssembly)->Unit(benchmark::kMillisecond);

void BM_ProcessPartsAssembly(benchmark::State& state)
{
    const Assembly& assembly = lattice();
    std::vector<kxContactFaces::tContactFacesData> contacts;
    for (auto _ : state)
        kxContactFaces::ProcessParts(assembly.parts, contacts);
    double triangles = 0;
    for (const kxMeshAndBVH& part : assembly.parts)
        triangles += part.mMesh->GetTriangleQuantity();
    state.counters["parts"] = double(assembly.parts.size());
    state.counters["triangles"] = triangles;
    state.counters["contacts"] = double(contacts.size());
}
BENCHMARK(BM_ProcessPartsAssembly)->Unit(benchmark::kMillisecond);

void BM_DetectCollisionsAssembly(benchmark::State& state)
{
    const Assembly& assembly = lattice();
    std::vector<kxContactFaces::tCollisionData> collisions;
    for (auto _ : state)
        kxContactFaces::DetectCollisions(assembly.parts, collisions, 0.005f);
    state.counters["collisions"] = double(collisions.size());
}
BENCHMARK(BM_DetectCollisionsAssembly)->Unit(benchmark::kMillisecond);

// Two unit spheres with 2·rings·2·(rings − 1) triangles each, about 0.05 apart.
const Assembly& spherePair(int rings)
{
    static std::map<int, std::unique_ptr<Assembly>> built;
    std::unique_ptr<Assembly>& pair = built[rings];
    if (!pair)
        pair = std::make_unique<Assembly>(std::vector<kx::kxPointer<kx::kxTriMesh>>{
            velmora_bench::makeSphere(Vec3f(0, 0, 0), 1.0f, rings, 2 * rings),
            velmora_bench::makeSphere(Vec3f(2.05f, 0.1f, 0.03f), 1.0f, rings, 2 * rings)});
    return *pair;
}

// Measured to the end (tolerance 0). The query alone: constructing the
// object (which sizes and fills its per-node and per-triangle arrays) is
// timed by BM_ContactFacesConstruction.
void BM_ComputeMinDistanceSpheres(benchmark::State& state)
{
    const Assembly& spheres = spherePair(int(state.range(0)));
    const kxContactFaces faces(&spheres.parts[0], &spheres.parts[1], 0.0f);
    double sum = 0;
    for (auto _ : state)
        sum += faces.computeMinDistance();
    state.counters["triangles"] = double(spheres.parts[0].mMesh->GetTriangleQuantity());
    state.counters["distance"] = sum / double(state.iterations());
}
BENCHMARK(BM_ComputeMinDistanceSpheres)->Arg(50)->Arg(100)->Arg(224)->Unit(benchmark::kMicrosecond);

void BM_ContactFacesConstruction(benchmark::State& state)
{
    const Assembly& spheres = spherePair(int(state.range(0)));
    for (auto _ : state) {
        const kxContactFaces faces(&spheres.parts[0], &spheres.parts[1], 0.0f);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_ContactFacesConstruction)->Arg(50)->Arg(100)->Arg(224)->Unit(benchmark::kMicrosecond);

#ifdef VELMORA_BENCH_WITH_FCL
// The same pairs through FCL's mesh distance (RSS-OBB trees built once, in
// double precision as FCL is normally used).
std::shared_ptr<fcl::BVHModel<fcl::OBBRSSd>> fclModel(const kx::kxTriMesh& mesh)
{
    std::vector<fcl::Vector3d> vertices;
    for (const Vec3f& p : mesh.GetVertexBuffer()->GetPositions())
        vertices.emplace_back(p[0], p[1], p[2]);
    std::vector<fcl::Triangle> triangles;
    for (int t = 0; t < mesh.GetTriangleQuantity(); ++t) {
        int i0, i1, i2;
        mesh.GetTriangle(t, i0, i1, i2);
        triangles.emplace_back(i0, i1, i2);
    }
    auto model = std::make_shared<fcl::BVHModel<fcl::OBBRSSd>>();
    model->beginModel();
    model->addSubModel(vertices, triangles);
    model->endModel();
    return model;
}

void BM_FCLMinDistanceSpheres(benchmark::State& state)
{
    const Assembly& spheres = spherePair(int(state.range(0)));
    const fcl::CollisionObjectd a(fclModel(*spheres.parts[0].mMesh), fcl::Transform3d::Identity());
    const fcl::CollisionObjectd b(fclModel(*spheres.parts[1].mMesh), fcl::Transform3d::Identity());
    double sum = 0;
    for (auto _ : state) {
        fcl::DistanceRequestd request;
        fcl::DistanceResultd result;
        fcl::distance(&a, &b, request, result);
        sum += result.min_distance;
    }
    state.counters["distance"] = sum / double(state.iterations());
}
BENCHMARK(BM_FCLMinDistanceSpheres)->Arg(50)->Arg(100)->Arg(224)->Unit(benchmark::kMicrosecond);
#endif

}  // namespace

BENCHMARK_MAIN();
