#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "kxMiniThreadPool.h"

namespace {

struct JobLog {
    std::vector<std::atomic<int>> runs;
    std::vector<std::atomic<int>> perThread;
    explicit JobLog(unsigned jobs, unsigned threads) : runs(jobs), perThread(threads) {}
};

// Records how often each job ran and on which thread slot.
struct CountingFunctor {
    void operator()(unsigned jobIndex, unsigned threadIndex, void* jobsData) const
    {
        auto* log = static_cast<JobLog*>(jobsData);
        log->runs[jobIndex].fetch_add(1);
        log->perThread[threadIndex].fetch_add(1);
    }
};

class RecordingProgress : public kx::kxProgressNotifierInterface {
public:
    void setProgressRange(double total) override
    {
        std::lock_guard<std::mutex> lock(mMutex);
        ranges.push_back(total);
    }
    void incrementProgress(double step) override
    {
        std::lock_guard<std::mutex> lock(mMutex);
        done += step;
        ++increments;
    }
    std::vector<double> ranges;
    double done = 0.0;
    int increments = 0;

private:
    std::mutex mMutex;
};

TEST(MiniThreadPool, EveryJobRunsExactlyOnceForAnyThreadCount)
{
    for (unsigned threads = 1; threads <= 8; ++threads) {
        for (unsigned jobs : {1u, 3u, 8u, 100u, 1000u}) {
            RecordingProgress progress;
            JobLog log(jobs, threads);
            kxMiniThreadPool<CountingFunctor> pool(CountingFunctor(), threads, &progress);
            pool.setJobsData(jobs, &log);
            pool.start();
            for (unsigned j = 0; j < jobs; ++j)
                ASSERT_EQ(log.runs[j].load(), 1) << "job " << j << " with " << threads << " threads";
            int total = 0;
            for (auto& n : log.perThread)
                total += n.load();
            EXPECT_EQ(total, int(jobs));
            unsigned counter = 0;
            pool.getCounter().getValue(counter);
            EXPECT_EQ(counter, jobs + threads) << "each worker overshoots the counter once";
            EXPECT_EQ(progress.ranges, std::vector<double>{double(jobs)});
            EXPECT_EQ(progress.increments, int(jobs));
            EXPECT_DOUBLE_EQ(progress.done, double(jobs));
        }
    }
}

TEST(MiniThreadPool, ZeroThreadsRunNothing)
{
    RecordingProgress progress;
    JobLog log(10, 1);
    kxMiniThreadPool<CountingFunctor> pool(CountingFunctor(), 0, &progress);
    pool.setJobsData(10, &log);
    pool.start();
    for (auto& n : log.runs)
        EXPECT_EQ(n.load(), 0);
    EXPECT_EQ(progress.increments, 0);
    unsigned counter = 99;
    pool.getCounter().getValue(counter);
    EXPECT_EQ(counter, 0u);
}

TEST(MiniThreadPool, ZeroJobsOnlyTouchTheCounter)
{
    RecordingProgress progress;
    JobLog log(0, 4);
    kxMiniThreadPool<CountingFunctor> pool(CountingFunctor(), 4, &progress);
    pool.setJobsData(0, &log);
    pool.start();
    EXPECT_EQ(progress.increments, 0);
    EXPECT_EQ(progress.ranges, std::vector<double>{0.0});
    unsigned counter = 0;
    pool.getCounter().getValue(counter);
    EXPECT_EQ(counter, 4u);
}

TEST(MiniThreadPool, BatchesRepeatOnTheSameWorkersAndNullProgressIsFine)
{
    kxMiniThreadPool<CountingFunctor> pool(CountingFunctor(), 3, nullptr);
    for (unsigned batch = 0; batch < 5; ++batch) {
        JobLog log(20 + batch, 3);
        pool.setJobsData(20 + batch, &log);
        pool.start();
        for (auto& n : log.runs)
            ASSERT_EQ(n.load(), 1);
    }
    pool.setNoThreads(6);
    EXPECT_EQ(pool.getNoThreads(), 6u);
    JobLog log(50, 6);
    pool.setJobsData(50, &log);
    pool.start();
    for (auto& n : log.runs)
        EXPECT_EQ(n.load(), 1);
}

TEST(ThreadSafeCounter, ReadsIncrementsAndSets)
{
    kxThreadSafeCounter counter(7);
    unsigned v = 0;
    counter.getAndIncrementValue(v);
    EXPECT_EQ(v, 7u);
    counter.getValue(v);
    EXPECT_EQ(v, 8u);
    counter.setValue(2);
    counter.getValue(v);
    EXPECT_EQ(v, 2u);
    kxThreadSafeCounter zero;
    zero.getValue(v);
    EXPECT_EQ(v, 0u);
}

}  // namespace
