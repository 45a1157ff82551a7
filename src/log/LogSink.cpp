#include "velmora/LogSink.h"

#include <atomic>
#include <iostream>
#include <mutex>

namespace velmora {
namespace {

std::mutex& sinkMutex()
{
    static std::mutex mutex;
    return mutex;
}

LogSink& currentSink()
{
    static LogSink sink;
    return sink;
}

std::atomic<bool> gEnabled{false};

}  // namespace

LogSink setLogSink(LogSink sink)
{
    std::lock_guard<std::mutex> lock(sinkMutex());
    std::swap(currentSink(), sink);
    gEnabled.store(static_cast<bool>(currentSink()), std::memory_order_release);
    return sink;
}

LogSink standardOutputLogSink()
{
    return [](std::string_view line) { std::cout << line << std::endl; };
}

bool logEnabled()
{
    return gEnabled.load(std::memory_order_acquire);
}

void logLine(std::string_view line)
{
    if (!logEnabled())
        return;
    std::lock_guard<std::mutex> lock(sinkMutex());
    if (currentSink())
        currentSink()(line);
}

}  // namespace velmora
