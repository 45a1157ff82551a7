// The velmora command-line tool, as a function so tests can drive it.
//
// Exit status: 0 success, 2 bad usage (unknown option, missing argument),
// 3 bad input (missing, unreadable or unusable file), 4 internal error.
// Reports go to `out` (or to the file named by -o); messages, progress and
// the library's own lines go to `err`.
#pragma once

#include <iosfwd>

namespace velmora {

enum ExitStatus : int {
    kExitOk = 0,
    kExitUsage = 2,
    kExitInput = 3,
    kExitInternal = 4,
};

int runCli(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

}  // namespace velmora
