// kxMiniThreadPool<Functor>: runs jobs 0 … n-1 on a fixed number of worker
// threads. Every worker repeatedly takes the next job number from a shared,
// mutex-guarded counter until the numbers run out; start() blocks the calling
// thread until all workers have ended. Which worker runs which job is not
// fixed, so jobs must write their results into slots of the jobs data
// addressed by job index or thread index.
//
// A functor provides
//   void operator()(unsigned jobIndex, unsigned threadIndex, void* jobsData) const
// and takes everything it needs from the jobs data: the pool holds a
// default-constructed functor of its own and never copies the one passed to
// its constructor. After start() the counter stands at noJobs + noThreads
// (each worker overshoots once).
#pragma once

#include <memory>

#include "kxProgressNotifierInterface.h"
#include "kxSystem.h"

class kxThreadSafeCounter {
public:
    kxThreadSafeCounter();
    explicit kxThreadSafeCounter(unsigned value);
    virtual ~kxThreadSafeCounter();

    void getValue(unsigned& value);
    void getAndIncrementValue(unsigned& value);
    // Not locked: only called while no worker runs.
    void setValue(unsigned value);

private:
    kx::kxMutex mMutex;
    unsigned mValue;
};

template <class Functor>
class kxMiniThreadPoolThread : public kx::kxThread {
public:
    kxMiniThreadPoolThread() = default;
    ~kxMiniThreadPoolThread() override { waitThread(2147483647); }

    void setThreadParameters(unsigned threadIndex, kxThreadSafeCounter* counter, Functor* functor,
                             kx::kxProgressNotifierInterface* progress)
    {
        mThreadIndex = threadIndex;
        mCounter = counter;
        mFunctor = functor;
        mProgress = progress;
    }

    void setJobsData(unsigned noJobs, unsigned noThreads, void* data)
    {
        mNoJobs = noJobs;
        mNoThreads = noThreads;
        mJobsData = data;
    }

protected:
    void run() override
    {
        unsigned job = 0;
        mCounter->getAndIncrementValue(job);
        while (job < mNoJobs) {
            (*mFunctor)(job, mThreadIndex, mJobsData);
            if (mProgress)
                mProgress->incrementProgress(1.0);
            mCounter->getAndIncrementValue(job);
        }
    }

private:
    kxThreadSafeCounter* mCounter = nullptr;
    Functor* mFunctor = nullptr;
    void* mJobsData = nullptr;
    kx::kxProgressNotifierInterface* mProgress = nullptr;
    unsigned mNoJobs = 0;
    unsigned mNoThreads = 0;
    unsigned mThreadIndex = 0;
};

template <class Functor>
class kxMiniThreadPool {
public:
    // `functor` only fixes the type; see the class comment.
    kxMiniThreadPool(const Functor& /*functor*/, unsigned noThreads, kx::kxProgressNotifierInterface* progress)
        : mCounter(0), mProgress(progress), mJobsData(nullptr), mNoJobs(0), mNoThreads(0)
    {
        setNoThreads(noThreads);
    }
    virtual ~kxMiniThreadPool() = default;
    kxMiniThreadPool(const kxMiniThreadPool&) = delete;
    kxMiniThreadPool& operator=(const kxMiniThreadPool&) = delete;

    void setNoThreads(unsigned n)
    {
        mThreads.reset();
        mThreads = std::make_unique<kxMiniThreadPoolThread<Functor>[]>(n);
        mNoThreads = n;
        for (unsigned i = 0; i < n; ++i)
            mThreads[i].setThreadParameters(i, &mCounter, &mFunctor, mProgress);
    }

    // Announces the batch to the progress sink, then stores it for start().
    void setJobsData(unsigned noJobs, void* data)
    {
        if (mProgress)
            mProgress->setProgressRange(static_cast<double>(noJobs));
        mJobsData = data;
        mNoJobs = noJobs;
    }

    void start()
    {
        mCounter.setValue(0);
        for (unsigned i = 0; i < mNoThreads; ++i) {
            mThreads[i].setJobsData(mNoJobs, mNoThreads, mJobsData);
            mThreads[i].startThread(nullptr);
        }
        for (unsigned i = 0; i < mNoThreads; ++i)
            mThreads[i].waitThread(2147483647);
    }

    unsigned getNoThreads() const { return mNoThreads; }
    unsigned getNoJobs() const { return mNoJobs; }
    kxThreadSafeCounter& getCounter() { return mCounter; }

private:
    kxThreadSafeCounter mCounter;
    std::unique_ptr<kxMiniThreadPoolThread<Functor>[]> mThreads;
    kx::kxProgressNotifierInterface* mProgress;
    Functor mFunctor;
    void* mJobsData;
    unsigned mNoJobs;
    unsigned mNoThreads;
};
