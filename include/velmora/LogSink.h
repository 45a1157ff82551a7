// Where the library's own progress and diagnostic lines go (solver timings,
// cluster deletions, step simplification, verbose stages).
//
// A process has one sink. By default there is none and the lines are not
// formatted at all, so a host program's standard output stays its own. A
// sink receives each line without its newline, exactly as the library words
// it; standardOutputLogSink() writes them to standard output as they always
// appeared. Lines may come from worker threads; a sink is called under a lock,
// so it never sees two lines at once.
#pragma once

#include <functional>
#include <sstream>
#include <string_view>

namespace velmora {

using LogSink = std::function<void(std::string_view line)>;

// Installs `sink` (empty: drop the lines) and returns the one it replaces.
LogSink setLogSink(LogSink sink);

// A sink that writes every line and a newline to std::cout, flushed.
LogSink standardOutputLogSink();

// True while a sink is installed: callers skip formatting otherwise.
bool logEnabled();

// Hands `line` to the sink, if any.
void logLine(std::string_view line);

// Installs a sink for the lifetime of the object, then restores the previous one.
class ScopedLogSink {
public:
    explicit ScopedLogSink(LogSink sink) : mPrevious(setLogSink(std::move(sink))) {}
    ~ScopedLogSink() { setLogSink(std::move(mPrevious)); }
    ScopedLogSink(const ScopedLogSink&) = delete;
    ScopedLogSink& operator=(const ScopedLogSink&) = delete;

private:
    LogSink mPrevious;
};

// Builds one line with stream formatting and hands it over when destroyed:
// `LogStream() << "t" << t << ": " << seconds;`. Formats nothing while no
// sink is installed.
class LogStream {
public:
    LogStream() : mEnabled(logEnabled()) {}
    ~LogStream()
    {
        if (mEnabled)
            logLine(mText.str());
    }
    LogStream(const LogStream&) = delete;
    LogStream& operator=(const LogStream&) = delete;

    template <class T>
    LogStream& operator<<(const T& value)
    {
        if (mEnabled)
            mText << value;
        return *this;
    }

private:
    bool mEnabled;
    std::ostringstream mText;
};

}  // namespace velmora
