// Writing exploded views as GLB: time and size, compressed (quantised and
// meshopt-encoded) and plain, on every corpus assembly, next to the time of
// the plan the view comes from. Counters: `bytes` (file size), `planMs` (the
// plan, measured once) and `ofPlan` (writing time over plan time).
#include <benchmark/benchmark.h>

#include <filesystem>
#include <map>
#include <memory>

#include "kxSystem.h"
#include "velmora/Explode.h"
#include "velmora/FixedBase.h"
#include "velmora/Import.h"

namespace {

// One planned corpus assembly and its exploded offsets and keys, base still.
struct PlannedView {
    std::unique_ptr<velmora::Plan> plan;
    double planMs = 0;
    velmora::ExplodedView view;
};

const PlannedView& plannedView(const std::string& path)
{
    static std::map<std::string, std::unique_ptr<PlannedView>> cache;
    std::unique_ptr<PlannedView>& entry = cache[path];
    if (!entry) {
        entry = std::make_unique<PlannedView>();
        static std::map<std::string, velmora::Assembly> assemblies;
        assemblies[path] = velmora::importAssembly({path});
        velmora::PlanOptions options;
        options.hierarchy = true;
        kx::kxTimer timer;
        entry->plan = velmora::planAssembly(assemblies[path], options);
        entry->planMs = timer.getElapsedMs();
        velmora::ExplodeOptions explode;
        explode.speed = 0.8f;
        entry->view = velmora::explodeAssembly(*entry->plan, explode);
    }
    return *entry;
}

void writeView(benchmark::State& state, const std::string& path, bool compress)
{
    const PlannedView& planned = plannedView(path);
    velmora::GlbOptions options;
    options.compress = compress;
    options.zUp = velmora::isZUp(planned.plan->assembly());
    options.baseGroup = int(planned.view.base);
    size_t bytes = 0;
    kx::kxTimer timer;
    for (auto _ : state) {
        const std::vector<unsigned char> glb =
            velmora::buildAnimatedGlb(planned.plan->assembly(), planned.view.keyframes, options);
        bytes = glb.size();
        benchmark::DoNotOptimize(glb.data());
    }
    state.counters["bytes"] = double(bytes);
    state.counters["planMs"] = planned.planMs;
    state.counters["ofPlan"] = timer.getElapsedMs() / double(state.iterations()) / planned.planMs;
}

}  // namespace

int main(int argc, char** argv)
{
    std::error_code ec;
    if (std::filesystem::is_directory(VELMORA_CORPUS_DIR, ec)) {
        for (const char* input : {"beam_assembly", "pins.glb", "rod_linkage", "fm1_satellite", "cycloidal_drive"}) {
            const std::string path = std::string(VELMORA_CORPUS_DIR) + "/" + input;
            for (bool compress : {true, false})
                benchmark::RegisterBenchmark(
                    (std::string("GlbWrite/") + input + (compress ? "/compressed" : "/plain")).c_str(),
                    [path, compress](benchmark::State& s) { writeView(s, path, compress); })
                    ->Unit(benchmark::kMillisecond)
                    ->UseRealTime();
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
