// Every corpus assembly planned with verification on 1 and 2 threads: the
// same plan, the same verdicts and the same number of repaired splits; and a
// split stays unverified only where the assembly itself is at fault (its
// colliding part is stuck to a neighbour or modelled into one). Skips when
// the corpus is absent, and under AddressSanitizer, where contact detection
// on the corpus takes minutes: the Release run covers it.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

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

// Groups the assembly's own defects excuse: members of a stuck contact or of
// an interference.
std::set<unsigned> defectiveGroups(const velmora::Plan& plan)
{
    std::set<unsigned> groups;
    for (unsigned e : plan.verification()->stuck)
        groups.insert({plan.diagram().getEdgeData(e).groupId0, plan.diagram().getEdgeData(e).groupId1});
    for (const velmora::Interference& i : plan.verification()->interferences)
        groups.insert({i.groupA, i.groupB});
    return groups;
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
        EXPECT_LE(splits - v1.noVerified(), v1.repair.initiallyFailing);
        const std::set<unsigned> excused = defectiveGroups(*one);
        for (const velmora::SplitVerdict& verdict : v1.repair.verdicts) {
            if (verdict.sweep.clear)
                continue;
            EXPECT_TRUE(excused.count(verdict.sweep.movingGroup) || excused.count(verdict.sweep.stayingGroup))
                << "split " << verdict.node << ": " << assembly.groups[verdict.sweep.movingGroup].name << " into "
                << assembly.groups[verdict.sweep.stayingGroup].name << " at " << verdict.sweep.travel;
        }
        std::cout << path.filename().string() << ": " << v1.noVerified() << " of " << splits
                  << " splits verified, " << v1.repair.initiallyFailing << " failed as first planned, "
                  << v1.repair.repaired << " repaired, " << v1.interferences.size() << " interferences, "
                  << v1.stuck.size() << " stuck contacts" << std::endl;
    }
}

}  // namespace
