// Fuzzes the glTF reader with .gltf text and .glb containers (chosen by the
// "glTF" magic). External buffers are looked up in an empty folder.
#include <cstdint>
#include <filesystem>
#include <vector>

#include "SourceFile.h"
#include "velmora/Assembly.h"

namespace {

std::string assetPath(bool binary)
{
    static const std::filesystem::path folder = [] {
        const std::filesystem::path dir = std::filesystem::temp_directory_path() / "velmora-fuzz-gltf";
        std::filesystem::create_directories(dir);
        return dir;
    }();
    return (folder / (binary ? "asset.glb" : "asset.gltf")).string();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::vector<unsigned char> bytes(data, data + size);
    const bool binary = size >= 4 && std::equal(data, data + 4, "glTF");
    try {
        velmora::parseGltf(bytes, assetPath(binary), binary);
    } catch (const velmora::InputError&) {
    }
    return 0;
}
