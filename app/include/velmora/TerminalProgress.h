// A progress bar on a terminal: a kxProgressNotifierInterface that redraws one
// line of standard error (at most ten times a second) while a batch runs.
// Calls may come from several worker threads at once. When standard error is
// not a terminal it draws nothing.
#pragma once

#include <chrono>
#include <mutex>
#include <ostream>
#include <string>

#include "kxProgressNotifierInterface.h"

namespace velmora {

class TerminalProgress : public kx::kxProgressNotifierInterface {
public:
    // `enabled` false makes every call a no-op.
    TerminalProgress(std::ostream& out, bool enabled);
    ~TerminalProgress() override;

    // Names the stage shown before the bar.
    void setStage(const std::string& stage);
    void setProgressRange(double total) override;
    void incrementProgress(double step) override;
    // Clears the line.
    void finish();

    // True when standard error is an interactive terminal.
    static bool stderrIsTerminal();

private:
    void draw(bool force);

    std::ostream& mOut;
    bool mEnabled;
    std::mutex mMutex;
    std::string mStage;
    double mTotal = 0.0;
    double mDone = 0.0;
    bool mDrawn = false;
    std::chrono::steady_clock::time_point mLastDraw;
};

}  // namespace velmora
