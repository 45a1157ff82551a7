// Every corpus assembly planned with verification on 1 and 2 threads: the
// same plan, the same verdicts, the same repaired splits and pairs kept
// together; and every split of the plan verifies. Skips when
// the corpus is absent, and under AddressSanitizer, where contact detection
// on the corpus takes minutes: the Release run covers it.
#include <gtest/gtest.h>

#include <filesystem>

#include "CorpusAssemblies.h"
#include "StdoutCapture.h"
#include "TestMeshes.h"
#include "velmora/Import.h"
#include "velmora/Planner.h"

namespace {

std::unique_ptr<velmora::Plan> verifiedPlan(const velmora::Assembly& assembly, unsigned threads)
{
    velmora::PlanOptions options;
    options.threads = threads;
    options.hierarchy = true;
    options.verify = true;
    velmora_test::StdoutCapture quiet;
    return velmora::planAssembly(assembly, options);
}

TEST(CorpusVerification, SplitsVerifyAndRepairIsThreadIndependent)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "too slow under AddressSanitizer";
#endif
    const auto assemblies = velmora_test::corpusAssemblies();
    if (assemblies.empty())
        GTEST_SKIP() << "no corpus beside this checkout";
    for (const auto& path : assemblies) {
        SCOPED_TRACE(path.filename().string());
        const velmora::Assembly assembly = velmora::importAssembly({path.string()});
        const auto one = verifiedPlan(assembly, 1);
        const auto two = verifiedPlan(assembly, 2);
        const velmora::PlanVerification& v1 = *one->verification();
        const velmora::PlanVerification& v2 = *two->verification();

        EXPECT_EQ(v1.repair.repaired, v2.repair.repaired);
        EXPECT_EQ(v1.repair.learntConstraints, v2.repair.learntConstraints);
        EXPECT_EQ(v1.repair.keptTogether, v2.repair.keptTogether);
        EXPECT_EQ(v1.freedLocked, v2.freedLocked);
        ASSERT_EQ(v1.repair.verdicts.size(), v2.repair.verdicts.size());
        for (size_t i = 0; i < v1.repair.verdicts.size(); ++i) {
            EXPECT_EQ(v1.repair.verdicts[i].node, v2.repair.verdicts[i].node);
            EXPECT_EQ(v1.repair.verdicts[i].direction, v2.repair.verdicts[i].direction);
            EXPECT_EQ(v1.repair.verdicts[i].sweep.clear, v2.repair.verdicts[i].sweep.clear);
        }

        unsigned splits = 0;
        for (unsigned n = 0; n < one->hierarchy().getNoNodes(); ++n) {
            const auto& node = one->hierarchy().getNode(n);
            splits += node.noGroups != kxDisassemblyHierarchy::kNoNode && node.firstChild != kxDisassemblyHierarchy::kNoNode;
        }
        EXPECT_EQ(v1.repair.verdicts.size(), splits);
        for (const velmora::SplitVerdict& verdict : v1.repair.verdicts)
            EXPECT_TRUE(verdict.sweep.clear)
                << "split " << verdict.node << ": " << assembly.groups[verdict.sweep.movingGroup].name << " into "
                << assembly.groups[verdict.sweep.stayingGroup].name << " at " << verdict.sweep.travel;
        std::cout << path.filename().string() << ": " << v1.noVerified() << " of " << splits
                  << " splits verified, " << v1.repair.initiallyFailing << " failed as first planned, "
                  << v1.repair.repaired << " repaired, " << v1.interferences.size() << " interferences, "
                  << v1.stuck.size() << " stuck contacts, " << v1.freedLocked.size() << " freed by sweeping, "
                  << v1.repair.keptTogether.size() << " pairs kept together" << std::endl;
    }
}

}  // namespace
