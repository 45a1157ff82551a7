// Fuzzes the reader of saved plan reports (`explode --plan`): any text is a
// plan or an InputError, never a crash.
#include <cstdint>
#include <string>

#include "velmora/Assembly.h"
#include "velmora/PlanReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    try {
        velmora::parsePlanReport(std::string(reinterpret_cast<const char*>(data), size));
    } catch (const velmora::InputError&) {
    }
    return 0;
}
