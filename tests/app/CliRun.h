// Runs the command-line tool in-process, as the shell would with
// `velmora ARGS…`, and keeps its exit status and both output streams.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "velmora/Cli.h"

namespace cli_test {

struct CliRun {
    int status;
    std::string out;
    std::string err;
};

inline CliRun run(std::vector<std::string> args)
{
    args.insert(args.begin(), "velmora");
    std::vector<const char*> argv;
    for (const std::string& a : args)
        argv.push_back(a.c_str());
    std::ostringstream out, err;
    const int status = velmora::runCli(static_cast<int>(argv.size()), argv.data(), out, err);
    return {status, out.str(), err.str()};
}

}  // namespace cli_test
