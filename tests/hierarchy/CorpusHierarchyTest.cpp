// The hierarchy of every corpus assembly, with distant contacts, swept split
// by split. Real assemblies are not all separable by single translations
// (and their meshes may interfere), so the counts are reported and only a
// majority of passing splits is required. Skips when the corpus is absent,
// and under AddressSanitizer, where contact detection on a few hundred
// thousand triangles takes minutes: the Release run covers it.
#include <gtest/gtest.h>

#include <filesystem>

#include "CorpusAssemblies.h"
#include "BuilderFixtures.h"
#include "TestMeshes.h"
#include "velmora/Import.h"

namespace {

TEST(CorpusHierarchy, SplitsSeparateAlongTheirDirections)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "too slow under AddressSanitizer";
#endif
    const auto assemblies = velmora_test::corpusAssemblies();
    if (assemblies.empty())
        GTEST_SKIP() << "no corpus beside this checkout";
    for (const auto& path : assemblies) {
        const auto diagram = hierarchy_test::diagramOf(velmora::importAssembly({path.string()}));
        hierarchy_test::HierarchyFixture plan;
        {
            hierarchy_test::StdoutCapture capture;
            plan = hierarchy_test::planHierarchy(*diagram, 2, true);
        }
        const auto sweeps = hierarchy_test::sweepEverySplit(*diagram, *plan.builder);
        unsigned passed = 0;
        for (const auto& sweep : sweeps)
            passed += sweep.result.separates ? 1u : 0u;
        unsigned leaves = 0;
        for (unsigned n = 0; n < plan.hierarchy->getNoNodes(); ++n) {
            const auto& node = plan.hierarchy->getNode(n);
            leaves += node.noGroups != 0xFFFFFFFFu && node.firstChild == 0xFFFFFFFFu ? 1u : 0u;
        }
        std::cout << path.filename().string() << ": " << diagram->groups->getNoGroups() << " groups, "
                  << diagram->diagram->getNoContacts() << " contacts, " << diagram->diagram->getNoDirections()
                  << " directions, " << plan.builder->getNoDistantConstraints() << " distant constraints, "
                  << sweeps.size() << " splits, " << leaves << " leaves; " << passed << " of " << sweeps.size()
                  << " splits separate" << std::endl;
        for (const auto& sweep : sweeps) {
            if (!sweep.result.separates)
                std::cout << "  split " << sweep.node << ": crossing at step " << sweep.result.firstCrossingStep
                          << " of " << sweep.result.noSteps << ", depth " << sweep.result.deepestCrossing
                          << " (start " << sweep.result.startDepth << ", tolerance " << sweep.result.tolerance
                          << ")" << std::endl;
        }
        EXPECT_GE(2 * passed, unsigned(sweeps.size())) << path;
    }
}

}  // namespace
