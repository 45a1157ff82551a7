#include "velmora/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>

#include "velmora/Assembly.h"

namespace velmora {
namespace {

// The child's answer: one byte saying what follows, the length of the
// messages it wrote to std::cerr, those messages, then the result or the
// input error's text.
constexpr char kResult = 'R';
constexpr char kInputError = 'E';

std::string lengthBytes(uint64_t n) { return std::string(reinterpret_cast<const char*>(&n), sizeof n); }

void writeAll(int fd, const std::string& bytes)
{
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;
        done += size_t(n);
    }
}

[[noreturn]] void runChild(int answerFd, const std::function<std::string()>& work, bool keepMessages)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::signal(SIGINT, SIG_DFL);
    ::signal(SIGTERM, SIG_DFL);
    const int sink = ::open("/dev/null", O_WRONLY);
    ::dup2(sink, STDOUT_FILENO);
    ::dup2(sink, STDERR_FILENO);  // a crash is reported by the parent, in one line
    std::ostringstream messages;
    if (keepMessages)
        std::cerr.rdbuf(messages.rdbuf());
    char kind = kResult;
    std::string body;
    try {
        body = work();
    } catch (const InputError& e) {
        kind = kInputError;
        body = e.what();
    } catch (...) {
        ::_exit(1);  // reported like a crash
    }
    const std::string text = messages.str();
    writeAll(answerFd, kind + lengthBytes(text.size()) + text + body);
    ::_exit(0);
}

// Everything the child writes until it closes the pipe, or false on timeout.
bool readAnswer(int fd, std::chrono::steady_clock::time_point deadline, std::string& answer)
{
    char buffer[65536];
    for (;;) {
        using std::chrono::milliseconds;
        const auto left = std::chrono::duration_cast<milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return false;
        pollfd ready{fd, POLLIN, 0};
        const int polled = ::poll(&ready, 1, int(std::min<long long>(left.count(), 1 << 30)));
        if (polled < 0 && errno == EINTR)
            continue;
        if (polled == 0)
            return false;
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return true;
        answer.append(buffer, size_t(n));
    }
}

std::string secondsText(std::chrono::milliseconds duration)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g", double(duration.count()) / 1000.0);
    return text;
}

}  // namespace

std::string runInChildProcess(const std::function<std::string()>& work, std::chrono::milliseconds limit,
                              std::ostream* messages)
{
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
        throw ChildProcessFailure("cannot create a pipe", false);
    const auto deadline = std::chrono::steady_clock::now() + limit;
    const pid_t child = ::fork();
    if (child < 0) {
        ::close(fds[0]);
        ::close(fds[1]);
        throw ChildProcessFailure("cannot start a process", false);
    }
    if (child == 0) {
        ::close(fds[0]);
        runChild(fds[1], work, messages != nullptr);
    }
    ::close(fds[1]);
    std::string answer;
    const bool complete = readAnswer(fds[0], deadline, answer);
    ::close(fds[0]);
    if (!complete)
        ::kill(child, SIGKILL);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!complete)
        throw ChildProcessFailure("no answer within " + secondsText(limit) + " s", true);
    uint64_t textLength = 0;
    constexpr size_t kHeader = 1 + sizeof textLength;
    if (answer.size() >= kHeader)
        std::memcpy(&textLength, answer.data() + 1, sizeof textLength);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || answer.size() < kHeader ||
        textLength > answer.size() - kHeader)
        throw ChildProcessFailure(WIFSIGNALED(status) ? "killed by signal " + std::to_string(WTERMSIG(status))
                                                      : "failed",
                                  false);
    if (messages != nullptr)
        *messages << answer.substr(kHeader, textLength) << std::flush;
    std::string body = answer.substr(kHeader + textLength);
    if (answer[0] == kInputError)
        throw InputError(body);
    return body;
}

}  // namespace velmora
