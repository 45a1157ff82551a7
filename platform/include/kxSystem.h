// kx system primitives: a joinable thread whose body is a virtual run(), a
// mutex, and a monotonic millisecond timer.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>

namespace kx {

// A thread object that runs its virtual run() on a new OS thread between
// startThread and waitThread. One object runs at most one thread at a time;
// startThread on a running object first waits for it. The destructor waits
// for a running thread, but a derived class whose run() uses its own members
// must call waitThread itself before they are destroyed.
class kxThread {
public:
    kxThread();
    virtual ~kxThread();
    kxThread(const kxThread&) = delete;
    kxThread& operator=(const kxThread&) = delete;

    // Starts run() on a new thread; `name` (may be null) labels it for debuggers.
    void startThread(const char* name);
    // Waits for the thread to end. Threads cannot be abandoned safely, so the
    // wait is unbounded whatever `timeoutMs` says; returns true once the thread
    // has ended (also when none was running).
    bool waitThread(int timeoutMs);
    bool isRunning() const;

protected:
    virtual void run() = 0;

private:
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

class kxMutex {
public:
    void lock() { mMutex.lock(); }
    void unlock() { mMutex.unlock(); }

private:
    std::mutex mMutex;
};

// Milliseconds since construction or the last reset, from a steady clock.
class kxTimer {
public:
    kxTimer() : mStart(std::chrono::steady_clock::now()) {}
    void reset() { mStart = std::chrono::steady_clock::now(); }
    double getElapsedMs() const
    {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - mStart).count();
    }

private:
    std::chrono::steady_clock::time_point mStart;
};

}  // namespace kx
