// Fuzzes the OBJ reader; the same bytes also serve as every material library
// the file names, so that the MTL reader is fuzzed with it.
#include <cstdint>
#include <string>

#include "SourceFile.h"
#include "velmora/Assembly.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    try {
        velmora::parseObj(bytes, "fuzz.obj", [&](const std::string&, std::string& where) {
            where = "fuzz.mtl";
            return std::optional<std::string>(bytes);
        });
    } catch (const velmora::InputError&) {
    }
    return 0;
}
