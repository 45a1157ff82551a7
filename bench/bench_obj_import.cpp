// Importing the OBJ assemblies of the shared corpus (72 files and 376,520
// triangles for the cycloidal drive): reading, joining corners and building
// the part meshes, as `velmora plan` does before planning. Skipped when the
// corpus is absent.
#include <benchmark/benchmark.h>

#include <filesystem>

#include "velmora/Import.h"

namespace {

namespace fs = std::filesystem;

void ImportObjFolder(benchmark::State& state, const char* folder)
{
    const fs::path path = fs::path(VELMORA_CORPUS_DIR) / folder;
    if (!fs::is_directory(path)) {
        state.SkipWithError("the corpus is absent");
        return;
    }
    uintmax_t bytes = 0;
    for (const auto& entry : fs::directory_iterator(path))
        bytes += entry.file_size();
    size_t triangles = 0;
    for (auto _ : state) {
        const velmora::Assembly assembly = velmora::importAssembly({path.string()});
        triangles = assembly.triangleCount();
        benchmark::DoNotOptimize(assembly.parts.data());
    }
    state.counters["triangles"] = double(triangles);
    state.SetBytesProcessed(int64_t(state.iterations() * bytes));
}

}  // namespace

BENCHMARK_CAPTURE(ImportObjFolder, cycloidal_drive, "cycloidal_drive")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ImportObjFolder, fm1_satellite, "fm1_satellite")->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
