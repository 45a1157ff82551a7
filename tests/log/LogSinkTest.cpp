#include "velmora/LogSink.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kxGroupsClustering.h"
#include "velmora/DemoAssemblies.h"
#include "velmora/Planner.h"

namespace {

// A clustering whose third push crosses a cluster after the insertion point:
// the library reports that one "deleted" line.
void pushCrossingClusters()
{
    kxGroupsClustering clustering(6);
    kx2SATState set(6);
    set.setTrue(2);
    clustering.pushCluster(set, false);
    set.clear(false);
    set.setTrue(3);
    set.setTrue(4);
    clustering.pushCluster(set, false);
    set.clear(false);
    set.setTrue(1);
    set.setTrue(3);
    clustering.pushCluster(set, true);
}

TEST(LogSink, NothingIsWrittenWithoutASink)
{
    velmora::ScopedLogSink none{velmora::LogSink()};
    EXPECT_FALSE(velmora::logEnabled());
    testing::internal::CaptureStdout();
    pushCrossingClusters();
    velmora::PlanOptions options;
    options.threads = 2;
    options.hierarchy = true;
    options.verbose = true;
    velmora::planAssembly(velmora::makeDemoAssembly("stack"), options);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(LogSink, ACallbackReceivesTheLinesWordForWord)
{
    std::vector<std::string> lines;
    {
        velmora::ScopedLogSink collect([&](std::string_view line) { lines.emplace_back(line); });
        testing::internal::CaptureStdout();
        pushCrossingClusters();
        velmora::PlanOptions options;
        options.threads = 2;
        options.hierarchy = true;
        velmora::planAssembly(velmora::makeDemoAssembly("stack"), options);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    }
    ASSERT_GE(lines.size(), 5u);
    EXPECT_EQ(lines[0], "deleted");
    // The builder's timing block: the solver, one line per thread, the total.
    EXPECT_EQ(lines[1].rfind("solver time: ", 0), 0u) << lines[1];
    EXPECT_EQ(lines[2].rfind("t0: ", 0), 0u) << lines[2];
    EXPECT_EQ(lines[3].rfind("t1: ", 0), 0u) << lines[3];
    EXPECT_EQ(lines[4].rfind("total: ", 0), 0u) << lines[4];
    for (const std::string& line : lines)
        EXPECT_EQ(line.find('\n'), std::string::npos);
}

TEST(LogSink, ScopedSinksNestAndRestore)
{
    std::string outer, inner;
    velmora::ScopedLogSink first([&](std::string_view line) { outer += std::string(line) + ";"; });
    velmora::logLine("a");
    {
        velmora::ScopedLogSink second([&](std::string_view line) { inner += std::string(line) + ";"; });
        velmora::LogStream() << "b" << 1 << ' ' << 0.5;
    }
    velmora::logLine("c");
    EXPECT_EQ(outer, "a;c;");
    EXPECT_EQ(inner, "b1 0.5;");
}

TEST(LogSink, TheStandardOutputSinkWritesEachLineWithItsNewline)
{
    velmora::ScopedLogSink out(velmora::standardOutputLogSink());
    testing::internal::CaptureStdout();
    pushCrossingClusters();
    velmora::LogStream() << "simplifying step : " << 0 << " / " << 2;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "deleted\nsimplifying step : 0 / 2\n");
}

}  // namespace
