// The whole plan (contacts, distant contacts, hierarchy) on generated machine
// assemblies of 50 to 1,600 parts, on the dense one of millions of
// triangles and on grids of touching unit cubes (5×5×4, 20×10×10), on two
// threads. Each stage's wall milliseconds are reported as
// counters next to the total, and its processor milliseconds (all threads) as
// "<stage> cpuMs": on a busy machine the latter are the figures to compare.
// The assembly is built outside the timing.
//
// The larger sizes take minutes; pick sizes with --benchmark_filter, e.g.
// --benchmark_filter='Plan/(50|100|200)/'.
#include <benchmark/benchmark.h>

#include <ctime>
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

double processCpuMs()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) * 1e-6;
}

void planAndCount(benchmark::State& state, const velmora::Assembly& assembly)
{
    std::map<std::string, double> stageMs;
    std::map<std::string, double> stageCpuMs;
    for (auto _ : state) {
        velmora::PlanOptions options = twoThreadPlan();
        std::string stage = "groups";
        double stageStart = processCpuMs();
        const auto closeStage = [&](const std::string& next) {
            const double now = processCpuMs();
            stageCpuMs[stage] = now - stageStart;
            stage = next;
            stageStart = now;
        };
        options.onStage = closeStage;
        const auto plan = velmora::planAssembly(assembly, options);
        closeStage("");
        for (const velmora::StageTiming& t : plan->timings())
            stageMs[t.stage] = t.milliseconds;
        benchmark::DoNotOptimize(plan.get());
    }
    for (const auto& [stage, ms] : stageMs)
        state.counters[stage + "Ms"] = ms;
    for (const auto& [stage, ms] : stageCpuMs)
        state.counters[stage + " cpuMs"] = ms;
    state.counters["parts"] = double(assembly.parts.size());
    state.counters["triangles"] = double(assembly.triangleCount());
}

void Plan(benchmark::State& state)
{
    planAndCount(state, velmora_bench::MachineAssemblyBuilder::grid(unsigned(state.range(0))));
}

// A grid of touching unit cubes, range(0) × range(1) × range(2).
void PlanCubeGrid(benchmark::State& state)
{
    planAndCount(state, velmora_bench::MachineAssemblyBuilder::cubeGrid(unsigned(state.range(0)),
                                                                         unsigned(state.range(1)),
                                                                         unsigned(state.range(2))));
}

void PlanDense(benchmark::State& state)
{
    planAndCount(state, velmora_bench::MachineAssemblyBuilder::dense(5, 768, 100));
}

}  // namespace

BENCHMARK(Plan)->Arg(50)->Arg(100)->Arg(200)->Arg(400)->Arg(800)->Arg(1600)->Iterations(1)->Unit(
    benchmark::kMillisecond);
BENCHMARK(PlanDense)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(PlanCubeGrid)->Args({5, 5, 4})->Args({20, 10, 10})->Iterations(1)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
