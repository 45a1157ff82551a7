// Running code that may crash or never return (a third-party file parser) in
// a forked child process, so that the caller survives it and can say what
// went wrong. The child sends its result back through a pipe; it dies with
// its parent and is killed when it outlives its time limit.
#pragma once

#include <chrono>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>

namespace velmora {

// The child crashed, was killed, sent a truncated answer or ran out of time.
class ChildProcessFailure : public std::runtime_error {
public:
    ChildProcessFailure(const std::string& what, bool timedOut) : std::runtime_error(what), mTimedOut(timedOut) {}
    bool timedOut() const { return mTimedOut; }

private:
    bool mTimedOut;
};

// Runs `work` in a child process and returns the bytes it returned. An
// InputError thrown by `work` is thrown again here with the same message; a
// crash, any other exception or running longer than `limit` throws
// ChildProcessFailure. The child's standard output and error go nowhere;
// what it writes to std::cerr is copied to `messages` when one is given
// (with its result or its input error; lost when it crashes).
std::string runInChildProcess(const std::function<std::string()>& work, std::chrono::milliseconds limit,
                              std::ostream* messages = nullptr);

}  // namespace velmora
