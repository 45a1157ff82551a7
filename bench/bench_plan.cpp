// The whole plan (contacts, distant contacts, hierarchy) on generated machine
// assemblies of 50 to 1,600 parts and on the dense one of millions of
// triangles, on two threads. Each stage's milliseconds are reported as
// counters next to the total; the assembly is built outside the timing.
//
// The larger sizes take minutes; pick sizes with --benchmark_filter, e.g.
// --benchmark_filter='Plan/(50|100|200)$'.
#include <benchmark/benchmark.h>

#include <map>

#include "MachineAssembly.h"
#include "velmora/Planner.h"

namespace {

velmora::PlanOptions twoThreadPlan()
{
    velmora::PlanOptions options;
    options.threads = 2;
    options.hierarchy = true;
    options.distantContacts = true;
    return options;
}

void planAndCount(benchmark::State& state, const velmora::Assembly& assembly)
{
    std::map<std::string, double> stageMs;
    for (auto _ : state) {
        const auto plan = velmora::planAssembly(assembly, twoThreadPlan());
        for (const velmora::StageTiming& t : plan->timings())
            stageMs[t.stage] = t.milliseconds;
        benchmark::DoNotOptimize(plan.get());
    }
    for (const auto& [stage, ms] : stageMs)
        state.counters[stage + "Ms"] = ms;
    state.counters["parts"] = double(assembly.parts.size());
    state.counters["triangles"] = double(assembly.triangleCount());
}

void Plan(benchmark::State& state)
{
    planAndCount(state, velmora_bench::MachineAssemblyBuilder::grid(unsigned(state.range(0))));
}

void PlanDense(benchmark::State& state)
{
    planAndCount(state, velmora_bench::MachineAssemblyBuilder::dense(5, 768, 100));
}

}  // namespace

BENCHMARK(Plan)->Arg(50)->Arg(100)->Arg(200)->Arg(400)->Arg(800)->Arg(1600)->Iterations(1)->Unit(
    benchmark::kMillisecond);
BENCHMARK(PlanDense)->Iterations(1)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
