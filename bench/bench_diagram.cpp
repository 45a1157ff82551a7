// The whole contact diagram (working copies, trees, contact faces, contact
// points, motion analysis, direction set) on the demo assemblies, the corpus
// and a synthetic wall of 200 bricks, on 1 and 2 threads.
//
//   build/release/bench/bench_diagram --benchmark_filter=Corpus
#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>

#include "velmora/DemoAssemblies.h"
#include "velmora/Import.h"
#include "velmora/Planner.h"

namespace {

void runPlan(benchmark::State& state, const velmora::Assembly& assembly)
{
    const unsigned threads = static_cast<unsigned>(state.range(0));
    unsigned contacts = 0;
    double milliseconds = 0.0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        velmora::PlanOptions options;
        options.threads = threads;
        auto plan = velmora::planAssembly(assembly, options);
        milliseconds += std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        contacts = plan->diagram().getNoContacts();
        benchmark::DoNotOptimize(contacts);
    }
    state.counters["contacts"] = contacts;
    state.counters["ms_per_contact"] = contacts ? milliseconds / double(state.iterations()) / contacts : 0.0;
    state.counters["triangles"] = double(assembly.triangleCount());
}

void registerAll()
{
    for (const std::string& name : velmora::demoAssemblyNames()) {
        try {
            auto assembly = std::make_shared<velmora::Assembly>(velmora::makeDemoAssembly(name));
            benchmark::RegisterBenchmark(("Demo/" + name).c_str(),
                                         [assembly](benchmark::State& s) { runPlan(s, *assembly); })
                ->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
        } catch (const velmora::InputError&) {
        }
    }
    auto wall = std::make_shared<velmora::Assembly>(velmora::makeBrickWall(200));
    benchmark::RegisterBenchmark("Synthetic/wall200", [wall](benchmark::State& s) { runPlan(s, *wall); })
        ->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

    std::error_code ec;
    if (!std::filesystem::is_directory(VELMORA_CORPUS_DIR, ec))
        return;
    for (const char* input : {"beam_assembly", "pins.glb", "rod_linkage", "fm1_satellite", "cycloidal_drive"}) {
        const std::string path = std::string(VELMORA_CORPUS_DIR) + "/" + input;
        benchmark::RegisterBenchmark((std::string("Corpus/") + input).c_str(), [path](benchmark::State& s) {
            const velmora::Assembly assembly = velmora::importAssembly({path});
            runPlan(s, assembly);
        })->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    registerAll();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
