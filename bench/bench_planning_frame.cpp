// What the planning facade adds around the library: scaling the group meshes
// into the planning frame, and the analysis of contacts without area (on a
// grid of touching cubes, where most neighbours meet only along an edge or at
// a corner), beside the contact diagram it follows for scale.
//
//   build/release/bench/bench_planning_frame
#include <benchmark/benchmark.h>

#include <algorithm>

#include "velmora/DemoAssemblies.h"
#include "velmora/PlanningScale.h"
#include "velmora/ZeroAreaContacts.h"

namespace {

// n x n x layers unit cubes, each its own group.
velmora::Assembly cubeGrid(int n, int layers)
{
    velmora::Assembly assembly;
    for (int x = 0; x < n; ++x)
        for (int y = 0; y < n; ++y)
            for (int z = 0; z < layers; ++z) {
                const Wm4::Vector3<float> lo{static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)};
                std::string name = "cube";
                name += std::to_string(assembly.parts.size());
                assembly.parts.push_back(
                    {name, "(bench)", "", velmora::shapes::box(lo, lo + Wm4::Vector3<float>(1, 1, 1)), std::nullopt});
            }
    velmora::assignGroups(assembly, velmora::GroupBy::Mesh);
    return assembly;
}

void BM_ScaleIntoPlanningFrame(benchmark::State& state)
{
    const velmora::Assembly assembly = velmora::makeBrickWall(200);
    for (auto _ : state) {
        std::vector<kx::kxPointer<kx::kxTriMesh>> meshes = velmora::mergeGroups(assembly);
        velmora::scalePositions(meshes, velmora::planningScale(assembly, meshes));
        benchmark::DoNotOptimize(meshes.data());
    }
}
BENCHMARK(BM_ScaleIntoPlanningFrame)->Unit(benchmark::kMillisecond);

struct GridDiagram {
    explicit GridDiagram(int layers)
        : assembly(cubeGrid(5, layers)), meshes(velmora::mergeGroups(assembly)),
          groups(std::vector<kx::kxTriMesh*>(meshes.begin(), meshes.end()), nullptr)
    {
    }
    velmora::Assembly assembly;
    std::vector<kx::kxPointer<kx::kxTriMesh>> meshes;
    kxMeshGroups groups;
};

void BM_ContactDiagramOfCubeGrid(benchmark::State& state)
{
    GridDiagram grid(int(state.range(0)));
    for (auto _ : state) {
        kxContactDiagram diagram(grid.groups, 2, nullptr);
        benchmark::DoNotOptimize(diagram.getNoContacts());
    }
}
BENCHMARK(BM_ContactDiagramOfCubeGrid)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FreeZeroAreaContactsOfCubeGrid(benchmark::State& state)
{
    GridDiagram grid(int(state.range(0)));
    const kxContactDiagram diagram(grid.groups, 2, nullptr);
    unsigned freed = 0;
    for (auto _ : state) {
        const velmora::ZeroAreaContacts result = velmora::freeZeroAreaContacts(diagram, grid.groups);
        freed = unsigned(std::count(result.zeroArea.begin(), result.zeroArea.end(), true));
    }
    state.counters["contacts"] = diagram.getNoContacts();
    state.counters["zero_area"] = freed;
}
BENCHMARK(BM_FreeZeroAreaContactsOfCubeGrid)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
