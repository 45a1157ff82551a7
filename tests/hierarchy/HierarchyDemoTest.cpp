// Hierarchy builder on the demo assemblies and a synthetic wall: every split
// really separates, the edge ranges and solver systems follow the splits, the
// result does not depend on the thread count, and copyGroupsHierarchy
// reproduces a tree without searching.
#include <gtest/gtest.h>

#include "BuilderFixtures.h"
#include "kxDistantContacts.h"
#include "velmora/DemoAssemblies.h"

namespace {

using hierarchy_test::DiagramFixture;
using hierarchy_test::groupsOfNode;
using hierarchy_test::HierarchyFixture;
using hierarchy_test::planHierarchy;
using hierarchy_test::StdoutCapture;
using Builder = kxDisassemblyHierarchyBuilder;

constexpr unsigned kNone = 0xFFFFFFFFu;

// The demos, built once for the whole program (contact detection dominates).
const std::vector<std::pair<std::string, std::unique_ptr<DiagramFixture>>>& demoDiagrams()
{
    static const auto diagrams = [] {
        std::vector<std::pair<std::string, std::unique_ptr<DiagramFixture>>> list;
        for (const std::string& name : velmora::demoAssemblyNames()) {
            velmora::Assembly assembly;
            try {
                assembly = velmora::makeDemoAssembly(name);
            } catch (const velmora::InputError&) {
                continue;  // a demo read from examples/ that this checkout lacks
            }
            list.emplace_back(name, hierarchy_test::diagramOf(assembly));
        }
        list.emplace_back("wall-30", hierarchy_test::diagramOf(velmora::makeBrickWall(30)));
        return list;
    }();
    return diagrams;
}

bool isInUse(const kxDisassemblyHierarchy::tTreeNode& node)
{
    return node.noGroups != kNone;
}

void expectSameResult(const HierarchyFixture& a, const HierarchyFixture& b, const std::string& label)
{
    const kxDisassemblyHierarchy& ha = *a.hierarchy;
    const kxDisassemblyHierarchy& hb = *b.hierarchy;
    for (unsigned n = 0; n < ha.getNoNodes(); ++n) {
        const auto& x = ha.getNode(n);
        const auto& y = hb.getNode(n);
        EXPECT_EQ(std::tie(x.start, x.noGroups, x.firstChild, x.secondChild, x.parent, x.splitId),
                  std::tie(y.start, y.noGroups, y.firstChild, y.secondChild, y.parent, y.splitId))
            << label << " node " << n;
        const auto& ma = a.builder->getNodeMetadata(n);
        const auto& mb = b.builder->getNodeMetadata(n);
        EXPECT_EQ(std::tie(ma.relatedNode, ma.firstEdge, ma.noEdges, ma.firstColumn, ma.noColumns),
                  std::tie(mb.relatedNode, mb.firstEdge, mb.noEdges, mb.firstColumn, mb.noColumns))
            << label << " metadata " << n;
    }
    for (unsigned k = 0; k < a.builder->getMeshGroups().getNoGroups(); ++k) {
        EXPECT_EQ(ha.getGroupIdFromOrderedIndex(k), hb.getGroupIdFromOrderedIndex(k)) << label;
        EXPECT_EQ(ha.getLeafNodeIndexFromGroupId(k), hb.getLeafNodeIndexFromGroupId(k)) << label;
    }
    ASSERT_EQ(a.builder->getNoEdges(), b.builder->getNoEdges()) << label;
    for (unsigned e = 0; e < a.builder->getNoEdges(); ++e) {
        const Builder::tDynamicEdgeData& x = a.builder->getEdgeData(e);
        const Builder::tDynamicEdgeData& y = b.builder->getEdgeData(e);
        EXPECT_EQ(std::tie(x.edgeIndex, x.groupA, x.groupB, x.isDistant, x.admissibleIds, x.signedIds),
                  std::tie(y.edgeIndex, y.groupA, y.groupB, y.isDistant, y.admissibleIds, y.signedIds))
            << label << " edge " << e;
    }
}

TEST(HierarchyDemos, EverySplitSeparatesAlongItsDirection)
{
    for (const auto& [name, diagram] : demoDiagrams()) {
        StdoutCapture capture;
        const HierarchyFixture plan = planHierarchy(*diagram, 2, true);
        const auto sweeps = hierarchy_test::sweepEverySplit(*diagram, *plan.builder);
        EXPECT_FALSE(sweeps.empty()) << name;
        for (const auto& sweep : sweeps) {
            EXPECT_TRUE(sweep.result.separates)
                << name << ": split " << sweep.node << " crosses at step " << sweep.result.firstCrossingStep << " of "
                << sweep.result.noSteps << ", depth " << sweep.result.deepestCrossing;
        }
        // Every group ends in a leaf of its own.
        for (unsigned g = 0; g < diagram->groups->getNoGroups(); ++g)
            EXPECT_EQ(plan.hierarchy->getNode(plan.hierarchy->getLeafNodeIndexFromGroupId(g)).noGroups, 1u) << name;
    }
}

// Edge ranges and systems of every node: the crossing edges come first and
// join the two sides, each child's range holds exactly the edges inside it,
// and a system holds one column per group and two per edge.
TEST(HierarchyDemos, EdgeRangesAndSystemsFollowTheSplits)
{
    for (const auto& [name, diagram] : demoDiagrams()) {
        StdoutCapture capture;
        const HierarchyFixture plan = planHierarchy(*diagram, 2, true);
        const kxDisassemblyHierarchy& h = *plan.hierarchy;
        const Builder& builder = *plan.builder;
        EXPECT_EQ(builder.getNodeMetadata(0).relatedNode, kNone);
        for (unsigned n = 0; n < h.getNoNodes(); ++n) {
            const auto& node = h.getNode(n);
            if (!isInUse(node))
                continue;
            const auto& m = builder.getNodeMetadata(n);
            EXPECT_EQ(m.noColumns, node.noGroups + 2 * m.noEdges) << name << " node " << n;
            if (n != 0) {
                EXPECT_EQ(m.relatedNode, node.parent);
            }
            std::vector<unsigned> inNode(diagram->groups->getNoGroups(), 0);
            for (unsigned g : groupsOfNode(h, n))
                inNode[g] = 1;
            for (unsigned e = m.firstEdge; e < m.firstEdge + m.noEdges; ++e) {
                EXPECT_TRUE(inNode[builder.getEdgeData(e).groupA] && inNode[builder.getEdgeData(e).groupB])
                    << name << " node " << n << " edge " << e;
            }
            if (node.firstChild == kNone)
                continue;
            const auto& first = builder.getNodeMetadata(node.firstChild);
            const auto& second = builder.getNodeMetadata(node.secondChild);
            EXPECT_EQ(second.firstEdge, first.firstEdge + first.noEdges);
            EXPECT_EQ(second.firstEdge + second.noEdges, m.firstEdge + m.noEdges);
            std::vector<unsigned> side(diagram->groups->getNoGroups(), 0);
            for (unsigned g : groupsOfNode(h, node.secondChild))
                side[g] = 1;
            bool anyContactCrosses = false;
            for (unsigned e = m.firstEdge; e < first.firstEdge; ++e) {
                const auto& edge = builder.getEdgeData(e);
                EXPECT_NE(side[edge.groupA], side[edge.groupB]) << name << " crossing edge " << e;
                anyContactCrosses = anyContactCrosses || !edge.isDistant;
            }
            kx2SATState moving(diagram->groups->getNoGroups());
            for (unsigned g : groupsOfNode(h, node.secondChild))
                moving.setTrue(g);
            EXPECT_EQ(builder.checkDisjointSets(n, moving), !anyContactCrosses);
        }
    }
}

TEST(HierarchyDemos, ResultDoesNotDependOnTheThreadCount)
{
    for (const auto& [name, diagram] : demoDiagrams()) {
        StdoutCapture capture;
        const HierarchyFixture reference = planHierarchy(*diagram, 1, true);
        for (const unsigned threads : {2u, 4u, 8u}) {
            const HierarchyFixture plan = planHierarchy(*diagram, threads, true);
            expectSameResult(reference, plan, name + " on " + std::to_string(threads) + " threads");
        }
    }
}

TEST(HierarchyDemos, CopyReproducesATreeWithoutSplitJobs)
{
    for (const auto& [name, diagram] : demoDiagrams()) {
        StdoutCapture capture;
        const HierarchyFixture reference = planHierarchy(*diagram, 2, true);

        HierarchyFixture copy;
        copy.hierarchy = std::make_unique<kxDisassemblyHierarchy>(*diagram->groups);
        copy.builder = std::make_unique<Builder>(*copy.hierarchy, *diagram->diagram, 2);
        kxDistantContacts(*copy.builder).computeDistantContacts(2, nullptr);
        copy.builder->initSolver();
        copy.builder->copyGroupsHierarchy(*reference.hierarchy);
        expectSameResult(reference, copy, name);
        for (unsigned t = 0; t < copy.builder->getNoThreads(); ++t)
            EXPECT_EQ(copy.builder->getThreadNoJobs(t), 0u) << name;
        EXPECT_EQ(copy.builder->getTotalSolverTime(), 0.0);
    }
}

}  // namespace
