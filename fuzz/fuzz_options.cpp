// Fuzzes the command line: the input is the argument list, one argument per
// line. It runs in an empty folder, and argument lists that could reach real
// files (absolute or parent paths) or start a plan of a sample assembly are
// skipped, so every run ends in option parsing or an input error.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "velmora/Cli.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    const std::filesystem::path dir = std::filesystem::temp_directory_path() / "velmora-fuzz-options";
    std::filesystem::create_directories(dir);
    std::filesystem::current_path(dir);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::vector<std::string> args = {"velmora"};
    std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
    for (std::string line; std::getline(lines, line) && args.size() < 32;) {
        if (line == "demo" || line.find('/') != std::string::npos || line.find("..") != std::string::npos)
            return 0;
        args.push_back(line);
    }
    std::vector<const char*> argv;
    for (const std::string& a : args)
        argv.push_back(a.c_str());
    std::ostringstream out, err;
    const int status = velmora::runCli(int(argv.size()), argv.data(), out, err);
    if (status == velmora::kExitInternal)
        std::abort();  // bad options and bad files are never internal errors
    return 0;
}
