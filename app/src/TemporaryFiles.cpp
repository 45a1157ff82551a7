#include "TemporaryFiles.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>

namespace velmora {
namespace {

constexpr int kSlots = 8;
constexpr size_t kPathBytes = 4096;

struct Slot {
    std::atomic<int> state{0};  // 0 free, 1 being written, 2 holds a path
    char path[kPathBytes];
};

Slot gSlots[kSlots];
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void removeTemporariesAndExit(int signal)
{
    for (Slot& slot : gSlots) {
        if (slot.state.load() == 2)
            ::unlink(slot.path);
    }
    ::_exit(128 + signal);
}

void installHandlers()
{
    struct sigaction action {};
    action.sa_handler = removeTemporariesAndExit;
    sigemptyset(&action.sa_mask);
    sigaddset(&action.sa_mask, SIGINT);
    sigaddset(&action.sa_mask, SIGTERM);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

// Registers `path` in a free slot; -1 when it is too long or none is free.
int registerTemporaryFile(const char* path)
{
    static std::once_flag installed;
    std::call_once(installed, installHandlers);
    if (std::strlen(path) >= kPathBytes)
        return -1;
    for (int s = 0; s < kSlots; ++s) {
        int expected = 0;
        if (gSlots[s].state.compare_exchange_strong(expected, 1)) {
            std::strcpy(gSlots[s].path, path);
            gSlots[s].state.store(2);
            return s;
        }
    }
    return -1;
}

}  // namespace

int createRegisteredTemporaryFile(std::string& pattern, int& slot)
{
    sigset_t interrupts, previous;
    sigemptyset(&interrupts);
    sigaddset(&interrupts, SIGINT);
    sigaddset(&interrupts, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &interrupts, &previous);
    const int fd = ::mkstemp(pattern.data());
    const int error = errno;
    slot = fd < 0 ? -1 : registerTemporaryFile(pattern.c_str());
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    errno = error;
    return fd;
}

void unregisterTemporaryFile(int slot)
{
    if (slot >= 0 && slot < kSlots)
        gSlots[slot].state.store(0);
}

}  // namespace velmora
