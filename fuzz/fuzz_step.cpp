// Fuzzes the STEP reader in this process, not in the child process the
// importer runs it in, so that a fault in our code around OpenCASCADE (the
// check of the assembly's links, the walk of its tree, the welding of the
// tessellation) shows up under the sanitizers. The reader reads files: each
// input is written to one file of this process first. Tessellation runs on
// one thread.
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "StepReader.h"
#include "velmora/Assembly.h"

namespace {

// The input's file, removed when the fuzzer exits.
class InputFile {
public:
    InputFile()
        : mPath((std::filesystem::temp_directory_path() / ("velmora-fuzz-" + std::to_string(::getpid()) + ".step"))
                    .string())
    {
    }
    ~InputFile() { std::filesystem::remove(mPath); }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    const std::string& write(const uint8_t* data, size_t size)
    {
        std::ofstream(mPath, std::ios::binary | std::ios::trunc).write(reinterpret_cast<const char*>(data), std::streamsize(size));
        return mPath;
    }

private:
    std::string mPath;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static InputFile input;
    velmora::CadOptions options;
    options.threads = 1;
    try {
        velmora::readCad(input.write(data, size), options);
    } catch (const velmora::InputError&) {
    }
    return 0;
}
