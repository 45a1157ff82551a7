// Plan verification against planning: every corpus assembly, and generated
// brick walls of about 200 and 400 bricks, planned with and without the
// verification stage (sweeps of every split, repair, interference search).
// Each benchmark reports the stage times of its last run as counters
// (planMs: contacts to hierarchy; verifyMs: the verification stage), so the
// share verification adds is verifyMs / planMs.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <iostream>

#include "BenchMeshes.h"
#include "velmora/Import.h"
#include "velmora/Planner.h"

namespace {

// Bricks in running bond: `rows` courses of `perRow` bricks, every other
// course shifted by half a brick (with a half brick at its end), each brick
// touching its neighbours and the course below.
velmora::Assembly brickWall(unsigned rows, unsigned perRow)
{
    using velmora_bench::Vec3f;
    const float length = 2.0f, depth = 1.0f, height = 0.6f, width = perRow * length;
    velmora::Assembly assembly;
    for (unsigned r = 0; r < rows; ++r) {
        float x = 0.0f;
        float cut = (r % 2) ? 0.5f * length : length;
        for (unsigned b = 0; x < width; ++b, cut += length) {
            const float end = std::min(cut, width);
            velmora::Part part;
            part.name = "brick_" + std::to_string(r) + "_" + std::to_string(b);
            part.mesh =
                velmora_bench::makeTessellatedBox(Vec3f(x, 0, r * height), Vec3f(end, depth, (r + 1) * height), 2);
            assembly.parts.push_back(part);
            x = end;
        }
    }
    velmora::assignGroups(assembly, velmora::GroupBy::Mesh);
    return assembly;
}

double stageMs(const velmora::Plan& plan, const std::string& stage)
{
    for (const velmora::StageTiming& t : plan.timings())
        if (t.stage == stage)
            return t.milliseconds;
    return 0.0;
}

void planOnce(benchmark::State& state, const velmora::Assembly& assembly, bool verify)
{
    velmora::PlanOptions options;
    options.threads = 2;
    options.hierarchy = true;
    options.verify = verify;
    std::unique_ptr<velmora::Plan> plan;
    for (auto _ : state) {
        std::cout.setstate(std::ios::failbit);  // the builder's timing lines
        plan = velmora::planAssembly(assembly, options);
        std::cout.clear();
    }
    state.counters["planMs"] = stageMs(*plan, "contacts") + stageMs(*plan, "directions") +
                               stageMs(*plan, "distant") + stageMs(*plan, "hierarchy");
    state.counters["verifyMs"] = stageMs(*plan, "verification");
    state.counters["groups"] = double(assembly.groups.size());
    if (const velmora::PlanVerification* v = plan->verification()) {
        state.counters["splits"] = double(v->repair.verdicts.size());
        state.counters["verified"] = double(v->noVerified());
        state.counters["repaired"] = double(v->repair.repaired);
    }
}

void registerAssembly(const std::string& name, const velmora::Assembly& assembly)
{
    for (bool verify : {false, true})
        benchmark::RegisterBenchmark((std::string(verify ? "PlanVerified/" : "Plan/") + name).c_str(),
                                     [assembly, verify](benchmark::State& state) { planOnce(state, assembly, verify); })
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime()
            ->Iterations(1);
}

}  // namespace

int main(int argc, char** argv)
{
    const std::filesystem::path corpus(VELMORA_CORPUS_DIR);
    if (std::filesystem::is_directory(corpus)) {
        std::vector<std::filesystem::path> paths;
        for (const auto& entry : std::filesystem::directory_iterator(corpus))
            if (entry.is_directory() || velmora::isSupportedMeshFile(entry.path().string()))
                paths.push_back(entry.path());
        std::sort(paths.begin(), paths.end());
        for (const auto& path : paths)
            registerAssembly(path.filename().string(), velmora::importAssembly({path.string()}));
    }
    registerAssembly("bricks_200", brickWall(10, 20));
    registerAssembly("bricks_400", brickWall(20, 20));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
