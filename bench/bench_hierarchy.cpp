// Hierarchy planning: computeGroupsHierarchy on 2 threads, with the distant
// contacts computed first (as a host does), on the demo assemblies, every
// corpus assembly, synthetic brick walls of 25 to 200 groups and generated
// machines of 50 to 1,600 parts. The contact
// diagram is built once per assembly outside the timing.
//
// Counters: groups, splits (inner nodes), splits_per_s, distant (constraints
// pushed), distant_ms (building the ray trees and casting the rays) and
// search_ms (the split search alone, as the builder times it), and the
// processor time of both on all threads (distant_cpu_ms, search_cpu_ms: the
// figures to compare on a busy machine).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>

#include "kxContactDiagram.h"
#include "kxDisassemblyHierarchy.h"
#include "kxDisassemblyHierarchyBuilder.h"
#include "kxDistantContacts.h"
#include "kxMeshGroups.h"
#include "kxSystem.h"
#include "velmora/Assembly.h"
#include "velmora/DemoAssemblies.h"
#include "velmora/Import.h"
#include "MachineAssembly.h"

namespace {

constexpr unsigned kThreads = 2;

struct Prepared {
    std::vector<kx::kxPointer<kx::kxTriMesh>> meshes;
    std::unique_ptr<kxMeshGroups> groups;
    std::unique_ptr<kxContactDiagram> diagram;
};

std::unique_ptr<Prepared> prepare(const velmora::Assembly& assembly)
{
    auto prepared = std::make_unique<Prepared>();
    prepared->meshes = velmora::mergeGroups(assembly);
    std::vector<kx::kxTriMesh*> raw;
    for (const auto& mesh : prepared->meshes)
        raw.push_back(mesh.get());
    prepared->groups = std::make_unique<kxMeshGroups>(raw, nullptr);
    prepared->diagram = std::make_unique<kxContactDiagram>(*prepared->groups, kThreads, nullptr);
    prepared->diagram->computeDirectionSet(5.0f);
    return prepared;
}

// Keeps the library's timing lines out of the benchmark report.
class QuietStdout {
public:
    QuietStdout() : mPrevious(std::cout.rdbuf(mSink.rdbuf())) {}
    ~QuietStdout() { std::cout.rdbuf(mPrevious); }

private:
    std::ostringstream mSink;
    std::streambuf* mPrevious;
};

double processCpuMs()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) * 1e-6;
}

unsigned countSplits(const kxDisassemblyHierarchy& hierarchy)
{
    unsigned splits = 0;
    for (unsigned n = 0; n < hierarchy.getNoNodes(); ++n) {
        const auto& node = hierarchy.getNode(n);
        splits += node.noGroups != 0xFFFFFFFFu && node.firstChild != 0xFFFFFFFFu ? 1u : 0u;
    }
    return splits;
}

// Distant contacts, solvers and the whole tree.
void planHierarchy(benchmark::State& state, const Prepared& prepared, bool distant)
{
    QuietStdout quiet;
    unsigned splits = 0;
    unsigned distantConstraints = 0;
    double searchMs = 0.0;
    double distantMs = 0.0;
    double searchCpuMs = 0.0;
    double distantCpuMs = 0.0;
    for (auto _ : state) {
        kxDisassemblyHierarchy hierarchy(*prepared.groups);
        kxDisassemblyHierarchyBuilder builder(hierarchy, *prepared.diagram, kThreads);
        const kx::kxTimer distantTimer;
        const double distantStart = processCpuMs();
        if (distant)
            kxDistantContacts(builder).computeDistantContacts(kThreads, nullptr);
        distantMs = distantTimer.getElapsedMs();
        distantCpuMs = processCpuMs() - distantStart;
        builder.initSolver();
        const double searchStart = processCpuMs();
        builder.computeGroupsHierarchy(0, nullptr);
        searchCpuMs = processCpuMs() - searchStart;
        splits = countSplits(hierarchy);
        distantConstraints = builder.getNoDistantConstraints();
        searchMs = builder.getTotalSolverTime();
        benchmark::DoNotOptimize(hierarchy.getNode(0));
    }
    state.counters["groups"] = prepared.groups->getNoGroups();
    state.counters["directions"] = prepared.diagram->getNoDirections();
    state.counters["splits"] = splits;
    state.counters["splits_per_s"] = benchmark::Counter(splits, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["distant"] = distantConstraints;
    state.counters["search_ms"] = searchMs;
    state.counters["distant_ms"] = distantMs;
    state.counters["search_cpu_ms"] = searchCpuMs;
    state.counters["distant_cpu_ms"] = distantCpuMs;
}

void registerAssembly(const std::string& label, std::function<velmora::Assembly()> load)
{
    auto cached = std::make_shared<std::unique_ptr<Prepared>>();
    auto get = [cached, load]() -> const Prepared& {
        if (!*cached)
            *cached = prepare(load());
        return **cached;
    };
    for (const bool distant : {true, false}) {
        benchmark::RegisterBenchmark((std::string(distant ? "Hierarchy/" : "HierarchyNoDistant/") + label).c_str(),
                                     [get, distant](benchmark::State& state) { planHierarchy(state, get(), distant); })
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime()
            ->Iterations(2);
    }
}

void registerAll()
{
    for (const std::string& name : velmora::demoAssemblyNames()) {
        try {
            const velmora::Assembly assembly = velmora::makeDemoAssembly(name);
            registerAssembly("demo:" + name, [assembly] { return assembly; });
        } catch (const velmora::InputError&) {
            // A demo read from examples/ that this checkout lacks.
        }
    }
    std::error_code ec;
    if (std::filesystem::is_directory(VELMORA_CORPUS_DIR, ec)) {
        std::vector<std::filesystem::path> paths;
        for (const auto& entry : std::filesystem::directory_iterator(VELMORA_CORPUS_DIR)) {
            if (entry.is_directory() || velmora::isSupportedMeshFile(entry.path().string()))
                paths.push_back(entry.path());
        }
        std::sort(paths.begin(), paths.end());
        for (const auto& path : paths)
            registerAssembly("corpus:" + path.filename().string(), [path] { return velmora::importAssembly({path.string()}); });
    }
    for (const unsigned parts : {25u, 50u, 100u, 200u})
        registerAssembly("wall:" + std::to_string(parts), [parts] { return velmora::makeBrickWall(parts); });
    for (const unsigned parts : {50u, 100u, 200u, 400u, 800u, 1600u})
        registerAssembly("machine:" + std::to_string(parts),
                         [parts] { return velmora_bench::MachineAssemblyBuilder::grid(parts); });
}

}  // namespace

int main(int argc, char** argv)
{
    registerAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
