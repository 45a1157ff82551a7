// Fuzzes the STL reader, ASCII and binary.
#include <cstdint>
#include <string>

#include "SourceFile.h"
#include "velmora/Assembly.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    try {
        velmora::parseStl(std::string(reinterpret_cast<const char*>(data), size), "fuzz.stl");
    } catch (const velmora::InputError&) {
    }
    return 0;
}
