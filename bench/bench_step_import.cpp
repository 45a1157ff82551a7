// STEP import: reading and tessellating a generated 100-part assembly (each
// part a distinct torus, so every solid is tessellated; about half a million
// triangles), on one thread and on two, and at the default tessellation; and
// the reader alone in this process, without the child process the importer
// runs it in. Counters: triangles of the assembly and triangles per second
// of wall time.
#include <benchmark/benchmark.h>

#ifdef VELMORA_WITH_STEP

#include <BRepPrimAPI_MakeTorus.hxx>
#include <filesystem>
#include <gp_Ax2.hxx>

#include "StepReader.h"
#include "StepWriter.h"
#include "velmora/Import.h"

namespace {

constexpr int kParts = 100;
// The angle (degrees) that gives the assembly about half a million triangles.
constexpr double kHalfMillionAngle = 15.0;

// The assembly, written once: tori of major radius 20 to 21 mm in a 10 × 10 grid.
const std::string& hundredPartStep()
{
    static const std::string path = [] {
        const std::string file =
            (std::filesystem::temp_directory_path() / "velmora-bench-100-parts.step").string();
        step_test::XdeBuilder doc;
        const TDF_Label top = doc.addAssembly("grid");
        for (int k = 0; k < kParts; ++k) {
            const TopoDS_Shape torus = BRepPrimAPI_MakeTorus(gp_Ax2(), 20.0 + 0.01 * k, 5.0).Shape();
            doc.addInstance(top, doc.addPart(torus, "torus-" + std::to_string(k)),
                            step_test::translation(60.0 * (k % 10), 60.0 * (k / 10), 0.0));
        }
        doc.write(file);
        return file;
    }();
    return path;
}

void importStep(benchmark::State& state, double angle)
{
    const std::string& file = hundredPartStep();
    velmora::ImportOptions options;
    options.threads = unsigned(state.range(0));
    options.angularDeflection = angle;
    size_t triangles = 0;
    for (auto _ : state) {
        const velmora::Assembly assembly = velmora::importAssembly({file}, options);
        triangles = assembly.triangleCount();
        benchmark::DoNotOptimize(triangles);
    }
    state.counters["parts"] = kParts;
    state.counters["triangles"] = double(triangles);
    state.counters["trianglesPerSecond"] =
        benchmark::Counter(double(triangles) * double(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_StepImport(benchmark::State& state) { importStep(state, kHalfMillionAngle); }

void BM_StepReadInProcess(benchmark::State& state)
{
    const std::string& file = hundredPartStep();
    velmora::CadOptions options;
    options.threads = unsigned(state.range(0));
    options.angularDeflection = kHalfMillionAngle;
    size_t triangles = 0;
    for (auto _ : state) {
        const velmora::SourceFile source = velmora::readCad(file, options);
        triangles = 0;
        for (const velmora::SourceInstance& instance : source.instances)
            triangles += source.meshes[size_t(instance.meshIndex)].indices.size() / 3;
        benchmark::DoNotOptimize(triangles);
    }
    state.counters["triangles"] = double(triangles);
}
void BM_StepImportDefaultTessellation(benchmark::State& state) { importStep(state, 0.0); }

}  // namespace

// CPU time is that of the whole process, all tessellation threads included;
// the importer reads in a child process, whose time it does not count: compare
// wall times.
BENCHMARK(BM_StepImport)->ArgName("threads")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime()
    ->MeasureProcessCPUTime();
BENCHMARK(BM_StepReadInProcess)->ArgName("threads")->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime()
    ->MeasureProcessCPUTime();
BENCHMARK(BM_StepImportDefaultTessellation)->ArgName("threads")->Arg(2)->Unit(benchmark::kMillisecond)
    ->UseRealTime()->MeasureProcessCPUTime();

#endif

BENCHMARK_MAIN();
