#include "kxSystem.h"

#include <pthread.h>

#include <cstring>
#include <thread>

namespace kx {

struct kxThread::Impl {
    std::thread thread;
};

kxThread::kxThread() : mImpl(std::make_unique<Impl>()) {}

kxThread::~kxThread() { waitThread(0); }

void kxThread::startThread(const char* name)
{
    waitThread(0);
    mImpl->thread = std::thread([this] { run(); });
    if (name != nullptr && name[0] != '\0') {
        // Linux limits thread names to 15 characters plus the terminator.
        char shortName[16] = {};
        std::strncpy(shortName, name, sizeof(shortName) - 1);
        pthread_setname_np(mImpl->thread.native_handle(), shortName);
    }
}

bool kxThread::waitThread(int /*timeoutMs*/)
{
    if (mImpl->thread.joinable())
        mImpl->thread.join();
    return true;
}

bool kxThread::isRunning() const { return mImpl->thread.joinable(); }

}  // namespace kx
