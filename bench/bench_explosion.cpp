// Exploded views: computeTranslationHierarchy, the keyframe controllers and
// the binary glTF export, on the largest demo assembly ("stack") and on a
// 200-brick wall. Planning (contacts and hierarchy) happens once per
// assembly, outside the timed loops.
#include <benchmark/benchmark.h>

#include <iostream>
#include <map>
#include <memory>
#include <sstream>

#include "kxDisassemblyHierarchy.h"
#include "kxDisassemblyHierarchyBuilder.h"
#include "kxExplodedViewAnimation.h"
#include "kxExplosionDiagram.h"
#include "velmora/DemoAssemblies.h"
#include "velmora/GltfExport.h"
#include "velmora/Planner.h"

namespace {

// An assembly planned down to its hierarchy, exploded by a tenth of its
// diagonal and animated.
struct ExplodedAssembly {
    std::unique_ptr<velmora::Plan> plan;
    std::unique_ptr<kxDisassemblyHierarchy> hierarchy;
    std::unique_ptr<kxDisassemblyHierarchyBuilder> builder;
    std::unique_ptr<kxExplosionDiagram> diagram;
    float splitDistance = 1.0f;
    std::vector<velmora::GroupKeyframes> keys;
};

std::unique_ptr<ExplodedAssembly> explode(const velmora::Assembly& assembly)
{
    std::ostringstream quiet;  // the builder's timing lines
    std::streambuf* previous = std::cout.rdbuf(quiet.rdbuf());
    auto out = std::make_unique<ExplodedAssembly>();
    velmora::PlanOptions options;
    options.threads = 2;
    out->plan = velmora::planAssembly(assembly, options);
    out->hierarchy = std::make_unique<kxDisassemblyHierarchy>(out->plan->groups());
    out->builder = std::make_unique<kxDisassemblyHierarchyBuilder>(*out->hierarchy, out->plan->diagram(), 2);
    out->builder->initSolver();
    out->builder->computeGroupsHierarchy(0, nullptr);
    Wm4::Vector3<float> lo, hi;
    velmora::assemblyBounds(assembly, lo, hi);
    out->splitDistance = 0.1f * (hi - lo).Length();
    out->diagram = std::make_unique<kxExplosionDiagram>(*out->builder);
    out->diagram->computeTranslationHierarchy(out->splitDistance);
    kxExplodedViewAnimation(*out->diagram).createKeyFrameControllers();
    out->keys = velmora::readGroupKeyframes(out->plan->groups());
    std::cout.rdbuf(previous);
    return out;
}

const ExplodedAssembly& exploded(const std::string& name)
{
    static std::map<std::string, std::unique_ptr<ExplodedAssembly>> cache;
    std::unique_ptr<ExplodedAssembly>& entry = cache[name];
    if (!entry)
        entry = explode(name == "wall-200" ? velmora::makeBrickWall(200) : velmora::makeDemoAssembly(name));
    return *entry;
}

void BM_ComputeTranslationHierarchy(benchmark::State& state, const char* name)
{
    const ExplodedAssembly& assembly = exploded(name);
    kxExplosionDiagram diagram(*assembly.builder);
    for (auto _ : state) {
        diagram.computeTranslationHierarchy(assembly.splitDistance);
        benchmark::DoNotOptimize(diagram.getFinalPerGroupTranslation(0));
    }
    state.counters["groups"] = double(assembly.plan->groups().getNoGroups());
}
BENCHMARK_CAPTURE(BM_ComputeTranslationHierarchy, stack, "stack")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ComputeTranslationHierarchy, wall200, "wall-200")->Unit(benchmark::kMillisecond);

void BM_CreateKeyFrameControllers(benchmark::State& state, const char* name)
{
    const ExplodedAssembly& assembly = exploded(name);
    kxExplodedViewAnimation animation(*assembly.diagram);
    for (auto _ : state)
        animation.createKeyFrameControllers();
}
BENCHMARK_CAPTURE(BM_CreateKeyFrameControllers, stack, "stack")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CreateKeyFrameControllers, wall200, "wall-200")->Unit(benchmark::kMillisecond);

void BM_ExportAnimatedGlb(benchmark::State& state, const char* name)
{
    const ExplodedAssembly& assembly = exploded(name);
    size_t bytes = 0;
    for (auto _ : state) {
        const std::vector<unsigned char> glb = velmora::buildAnimatedGlb(assembly.plan->assembly(), assembly.keys);
        bytes = glb.size();
        benchmark::DoNotOptimize(glb.data());
    }
    state.counters["bytes"] = double(bytes);
}
BENCHMARK_CAPTURE(BM_ExportAnimatedGlb, stack, "stack")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ExportAnimatedGlb, wall200, "wall-200")->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
