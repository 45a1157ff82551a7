// kx::kxProgressNotifierInterface: the progress sink a host implements. The
// library announces the amount of work of a batch with setProgressRange and
// reports finished units with incrementProgress; both may be called from
// worker threads at the same time, so an implementation must be thread-safe.
#pragma once

namespace kx {

class kxProgressNotifierInterface {
public:
    virtual ~kxProgressNotifierInterface() = default;
    // Total amount of work of the batch that starts now.
    virtual void setProgressRange(double total) = 0;
    // `step` more units of the current batch are done.
    virtual void incrementProgress(double step) = 0;
};

}  // namespace kx
