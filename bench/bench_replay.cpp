// Planning with the split search against rebuilding the plan from its saved
// report (what `explode --plan` and `remove --plan` do: the contacts,
// blocking constraints and tree are read back, nothing is searched), on
// generated machine assemblies and on the corpus assemblies beside this
// checkout, on two threads, verified as the command line does. The
// "contactsMs" and "hierarchyMs" counters are the stages the saved report
// replaces. The saved report is made outside the timing.
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
    options.verify = true;
    options.savedPlan = saved;
    return options;
}

void planTimed(benchmark::State& state, const velmora::Assembly& assembly, bool replay)
{
    const velmora::SavedPlan saved =
        velmora::parsePlanReport(velmora::planReport(*velmora::planAssembly(assembly, twoThreadPlan(nullptr))).dump());
    double contactsMs = 0, hierarchyMs = 0;
    for (auto _ : state) {
        const auto plan = velmora::planAssembly(assembly, twoThreadPlan(replay ? &saved : nullptr));
        for (const velmora::StageTiming& t : plan->timings()) {
            if (t.stage == "contacts")
                contactsMs = t.milliseconds;
            if (t.stage == "hierarchy")
                hierarchyMs = t.milliseconds;
        }
        benchmark::DoNotOptimize(plan.get());
    }
    state.counters["contactsMs"] = contactsMs;
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
BENCHMARK_CAPTURE(Corpus, pins_search, "pins.glb", false)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Corpus, pins_replay, "pins.glb", true)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Corpus, fm1_satellite_search, "fm1_satellite", false)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Corpus, fm1_satellite_replay, "fm1_satellite", true)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Corpus, cycloidal_drive_search, "cycloidal_drive", false)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Corpus, cycloidal_drive_replay, "cycloidal_drive", true)->Iterations(1)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
