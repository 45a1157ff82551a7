// Planning with the split search against planning from a saved tree (what
// `explode --plan` does), on generated machine assemblies and on the corpus
// assemblies beside this checkout, on two threads. The "hierarchyMs" counter
// is the stage the saved tree replaces; the rest (contacts, distant
// contacts) is computed either way. The saved tree is made outside the timing.
#include <benchmark/benchmark.h>

#include <filesystem>

#include "MachineAssembly.h"
#include "velmora/Import.h"
#include "velmora/PlanReader.h"
#include "velmora/Planner.h"
#include "velmora/Report.h"

namespace {

velmora::PlanOptions twoThreadPlan(const velmora::SavedPlan* saved)
{
    velmora::PlanOptions options;
    options.threads = 2;
    options.hierarchy = true;
    options.savedHierarchy = saved ? &saved->hierarchy : nullptr;
    return options;
}

void planTimed(benchmark::State& state, const velmora::Assembly& assembly, bool replay)
{
    const velmora::SavedPlan saved =
        velmora::parsePlanReport(velmora::planReport(*velmora::planAssembly(assembly, twoThreadPlan(nullptr))).dump());
    double hierarchyMs = 0;
    for (auto _ : state) {
        const auto plan = velmora::planAssembly(assembly, twoThreadPlan(replay ? &saved : nullptr));
        for (const velmora::StageTiming& t : plan->timings())
            if (t.stage == "hierarchy")
                hierarchyMs = t.milliseconds;
        benchmark::DoNotOptimize(plan.get());
    }
    state.counters["hierarchyMs"] = hierarchyMs;
    state.counters["parts"] = double(assembly.parts.size());
}

void Search(benchmark::State& state)
{
    planTimed(state, velmora_bench::MachineAssemblyBuilder::grid(unsigned(state.range(0))), false);
}
void Replay(benchmark::State& state)
{
    planTimed(state, velmora_bench::MachineAssemblyBuilder::grid(unsigned(state.range(0))), true);
}

void Corpus(benchmark::State& state, const std::string& input, bool replay)
{
    const std::string path = std::string(VELMORA_CORPUS_DIR) + "/" + input;
    if (!std::filesystem::exists(path)) {
        state.SkipWithError("the corpus is not beside this checkout");
        return;
    }
    planTimed(state, velmora::importAssembly({path}), replay);
}

}  // namespace

BENCHMARK(Search)->Arg(50)->Arg(200)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Replay)->Arg(50)->Arg(200)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Corpus, rod_linkage_search, "rod_linkage", false)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Corpus, rod_linkage_replay, "rod_linkage", true)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Corpus, beam_assembly_search, "beam_assembly", false)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Corpus, beam_assembly_replay, "beam_assembly", true)->Iterations(1)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
