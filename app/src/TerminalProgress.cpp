#include "velmora/TerminalProgress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace velmora {

TerminalProgress::TerminalProgress(std::ostream& out, bool enabled) : mOut(out), mEnabled(enabled) {}

TerminalProgress::~TerminalProgress() { finish(); }

bool TerminalProgress::stderrIsTerminal() { return ::isatty(STDERR_FILENO) == 1; }

void TerminalProgress::setStage(const std::string& stage)
{
    std::lock_guard<std::mutex> lock(mMutex);
    mStage = stage;
    mDone = mTotal = 0.0;
    draw(true);
}

void TerminalProgress::setProgressRange(double total)
{
    std::lock_guard<std::mutex> lock(mMutex);
    mTotal = total;
    mDone = 0.0;
    draw(true);
}

void TerminalProgress::incrementProgress(double step)
{
    std::lock_guard<std::mutex> lock(mMutex);
    mDone += step;
    draw(mDone >= mTotal);
}

void TerminalProgress::finish()
{
    std::lock_guard<std::mutex> lock(mMutex);
    if (mEnabled && mDrawn) {
        mOut << "\r\033[K" << std::flush;
        mDrawn = false;
    }
}

void TerminalProgress::draw(bool force)
{
    if (!mEnabled)
        return;
    const auto now = std::chrono::steady_clock::now();
    if (!force && now - mLastDraw < std::chrono::milliseconds(100))
        return;
    mLastDraw = now;
    constexpr int kWidth = 30;
    const double fraction = mTotal > 0.0 ? std::clamp(mDone / mTotal, 0.0, 1.0) : 0.0;
    const int filled = static_cast<int>(fraction * kWidth);
    char counts[64];
    std::snprintf(counts, sizeof(counts), " %3.0f%% (%.0f/%.0f)", fraction * 100.0, mDone, mTotal);
    mOut << "\r\033[K" << mStage << " [" << std::string(size_t(filled), '#') << std::string(size_t(kWidth - filled), '.')
         << "]" << counts << std::flush;
    mDrawn = true;
}

}  // namespace velmora
