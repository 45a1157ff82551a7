// The assemblies of the shared corpus as the importer takes them: each
// folder, and each mesh file the importer reads, in name order. Empty when
// the corpus is not beside this checkout. For test programs that link the app.
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "TestMeshes.h"
#include "velmora/Import.h"

namespace velmora_test {

inline std::vector<std::filesystem::path> corpusAssemblies()
{
    std::vector<std::filesystem::path> paths;
    const std::string dir = corpusDir();
    if (dir.empty())
        return paths;
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        if (entry.is_directory() || velmora::isSupportedMeshFile(entry.path().string()))
            paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    return paths;
}

}  // namespace velmora_test
