// Hierarchy builder on small hand-made contact diagrams: edge direction data,
// the best-split search and its passes, distant constraints, unsplittable
// nodes, progress and the standard-output lines.
#include <gtest/gtest.h>

#include <mutex>

#include "BuilderFixtures.h"
#include "TestMeshes.h"
#include "kxDisassemblyHierarchyBuilder.h"

namespace {

using hierarchy_test::DiagramFixture;
using hierarchy_test::emptyDiagramOf;
using hierarchy_test::groupsOfNode;
using hierarchy_test::StdoutCapture;
using Vec3d = Wm4::Vector3<double>;
using Vec3f = Wm4::Vector3<float>;
using Builder = kxDisassemblyHierarchyBuilder;

constexpr unsigned kNone = 0xFFFFFFFFu;
constexpr unsigned kSign = 0x80000000u;

// Meshes only give the groups here; the contacts are pushed by hand.
std::unique_ptr<DiagramFixture> boxes(unsigned count)
{
    std::vector<kx::kxPointer<kx::kxTriMesh>> meshes;
    for (unsigned i = 0; i < count; ++i)
        meshes.push_back(velmora_test::makeBox(Vec3f(float(i), 0, 0), Vec3f(float(i) + 1.0f, 1, 1)));
    return emptyDiagramOf(std::move(meshes));
}

void pushEdge(DiagramFixture& f, unsigned mesh0, unsigned mesh1, const std::vector<Vec3d>& directions)
{
    f.diagram->pushContactEdge(mesh0, mesh1, directions.empty() ? nullptr : directions.data(),
                               unsigned(directions.size()), Vec3f(float(mesh0), float(mesh1), 0.5f));
}

class ProgressRecorder : public kx::kxProgressNotifierInterface {
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
    }
    std::vector<double> ranges;
    double done = 0.0;

private:
    std::mutex mMutex;
};

unsigned totalJobs(const Builder& builder)
{
    unsigned jobs = 0;
    for (unsigned t = 0; t < builder.getNoThreads(); ++t)
        jobs += builder.getThreadNoJobs(t);
    return jobs;
}

std::vector<unsigned> sorted(std::vector<unsigned> v)
{
    std::sort(v.begin(), v.end());
    return v;
}

TEST(HierarchyBuilder, EdgesWidenToEverySetDirectionOfTheirFreeLinePlaneOrSpace)
{
    auto f = boxes(4);
    const Vec3d a(0.6, 0.8, 0.0);
    const Vec3d c(0.6, -0.8, 0.0);
    pushEdge(*f, 0, 1, {Vec3d(1, 0, 0), Vec3d(-1, 0, 0), Vec3d(0, 1, 0)});  // plane, +y one-sided
    pushEdge(*f, 1, 2, {a, Vec3d(0, 0, 1), c});                          // plane of a and z, one-sided
    pushEdge(*f, 2, 3, {Vec3d(1, 0, 0), Vec3d(0, 1, 0), Vec3d(0, 0, 1)});  // space, all one-sided
    f->diagram->computeDirectionSet(5.0f);
    ASSERT_EQ(f->diagram->getNoDirections(), 5u);  // x, y, a, z, c in cluster order

    kxDisassemblyHierarchy hierarchy(*f->groups);
    Builder builder(hierarchy, *f->diagram, 2);
    ASSERT_EQ(builder.getNoEdges(), 3u);

    const Builder::tDynamicEdgeData& e0 = builder.getEdgeData(0);
    EXPECT_EQ(e0.groupA, 0u);
    EXPECT_EQ(e0.groupB, 1u);
    EXPECT_EQ(e0.edgeIndex, 0u);
    EXPECT_EQ(e0.isDistant, 0u);
    EXPECT_EQ(e0.contactPoint, Vec3f(0, 1, 0.5f));
    EXPECT_EQ(e0.directions, f->diagram->getDisassemblyDirections(0));
    EXPECT_EQ(e0.signedIds, (std::vector<unsigned>{0, kSign, 1}));
    // a lies in the plane, +a only (+y is one-sided); c only as -c (it
    // points against +y); z is off the plane.
    EXPECT_EQ(e0.admissibleIds, (std::vector<unsigned>{0, kSign, 1, 2, 4 | kSign}));

    // Neither x nor y lies in the plane of a and z.
    EXPECT_EQ(builder.getEdgeData(1).signedIds, (std::vector<unsigned>{2, 3, 4}));
    EXPECT_EQ(builder.getEdgeData(1).admissibleIds, (std::vector<unsigned>{2, 3, 4}));

    // Space: every direction with no component against a one-sided axis.
    EXPECT_EQ(builder.getEdgeData(2).admissibleIds, (std::vector<unsigned>{0, 1, 3, 2}));

    EXPECT_EQ(builder.getPerGroupDirections(0), (std::vector<unsigned>{0, 1, 2, 4}));
    EXPECT_EQ(builder.getPerGroupDirections(1), (std::vector<unsigned>{0, 1, 2, 3, 4}));
    EXPECT_EQ(builder.getPerGroupDirections(2), (std::vector<unsigned>{0, 1, 2, 3, 4}));
    EXPECT_EQ(builder.getPerGroupDirections(3), (std::vector<unsigned>{0, 1, 2, 3}));
}

TEST(HierarchyBuilder, EdgeWithoutDirectionsAdmitsNothing)
{
    auto f = boxes(3);
    pushEdge(*f, 0, 1, {});
    pushEdge(*f, 1, 2, {Vec3d(0, 0, 1)});
    f->diagram->computeDirectionSet(5.0f);
    kxDisassemblyHierarchy hierarchy(*f->groups);
    Builder builder(hierarchy, *f->diagram, 1);
    EXPECT_TRUE(builder.getEdgeData(0).admissibleIds.empty());
    EXPECT_TRUE(builder.getEdgeData(0).signedIds.empty());
    EXPECT_TRUE(builder.getPerGroupDirections(0).empty());
    EXPECT_EQ(builder.getPerGroupDirections(1), std::vector<unsigned>{0});
}

// Group 2 touches nothing: splitting it off pays only the balance term, in
// every direction, so the lowest direction wins. The touching pair then
// leaves along the edge's primary direction (penalty 1 against 2).
TEST(HierarchyBuilder, UntouchedGroupSplitsOffFirstAndPairLeavesAlongItsPrimaryDirection)
{
    auto f = boxes(3);
    pushEdge(*f, 0, 1, {Vec3d(0, 0, 1), Vec3d(1, 0, 0)});
    f->diagram->computeDirectionSet(5.0f);
    kxDisassemblyHierarchy hierarchy(*f->groups);
    Builder builder(hierarchy, *f->diagram, 2);
    builder.initSolver();
    StdoutCapture capture;
    builder.computeGroupsHierarchy(0, nullptr);

    const auto& root = hierarchy.getNode(0);
    ASSERT_NE(root.firstChild, kNone);
    EXPECT_EQ(root.splitId, 0u);
    const unsigned pair = hierarchy.getNode(root.firstChild).noGroups == 2 ? root.firstChild : root.secondChild;
    EXPECT_EQ(sorted(groupsOfNode(hierarchy, pair)), (std::vector<unsigned>{0, 1}));
    const auto& pairNode = hierarchy.getNode(pair);
    EXPECT_EQ(pairNode.splitId, 0u);  // +z, the first entry of the edge
    // Group 0 (the edge's first side) is the one allowed to move along +z.
    EXPECT_EQ(groupsOfNode(hierarchy, pairNode.secondChild), std::vector<unsigned>{0});
    EXPECT_EQ(groupsOfNode(hierarchy, pairNode.firstChild), std::vector<unsigned>{1});
    for (unsigned g = 0; g < 3; ++g)
        EXPECT_EQ(hierarchy.getNode(hierarchy.getLeafNodeIndexFromGroupId(g)).noGroups, 1u);

    // The crossing edge of the pair's split is the contact.
    const auto& pairMetadata = builder.getNodeMetadata(pair);
    EXPECT_EQ(pairMetadata.relatedNode, 0u);
    EXPECT_EQ(pairMetadata.noEdges, 1u);
    EXPECT_EQ(builder.getNodeMetadata(pairNode.firstChild).firstEdge, pairMetadata.firstEdge + 1);
    EXPECT_FALSE(builder.checkDisjointSets(pair, *[&] {
        auto set = std::make_unique<kx2SATState>(3);
        set->setTrue(0);
        return set;
    }()));
}

// Groups 0 and 1 are interlocked (a contact without any direction): the
// root splits group 2 off, the pair stays a leaf after four passes over the
// one direction, and progress still counts it.
TEST(HierarchyBuilder, UnsplittableNodeStaysLeafAndProgressAdvances)
{
    auto f = boxes(3);
    pushEdge(*f, 0, 1, {});
    pushEdge(*f, 1, 2, {Vec3d(1, 0, 0)});
    f->diagram->computeDirectionSet(5.0f);
    kxDisassemblyHierarchy hierarchy(*f->groups);
    Builder builder(hierarchy, *f->diagram, 1);
    builder.initSolver();
    ProgressRecorder progress;
    StdoutCapture capture;
    builder.computeGroupsHierarchy(0, &progress);

    const auto& root = hierarchy.getNode(0);
    ASSERT_NE(root.firstChild, kNone);
    // Group 1 may leave along +x away from 2, so {0, 1} is the moving side.
    EXPECT_EQ(groupsOfNode(hierarchy, root.firstChild), std::vector<unsigned>{2});
    EXPECT_EQ(groupsOfNode(hierarchy, root.secondChild), (std::vector<unsigned>{0, 1}));
    const auto& stuck = hierarchy.getNode(root.secondChild);
    EXPECT_EQ(stuck.firstChild, kNone);
    EXPECT_EQ(stuck.splitId, kNone);
    EXPECT_EQ(hierarchy.getLeafNodeIndexFromGroupId(0), root.secondChild);
    EXPECT_EQ(hierarchy.getLeafNodeIndexFromGroupId(1), root.secondChild);

    EXPECT_EQ(progress.ranges, std::vector<double>{2.0});
    EXPECT_EQ(progress.done, 2.0);
    EXPECT_EQ(totalJobs(builder), 1u + 4u);
    EXPECT_NE(capture.text().find("t0: "), std::string::npos);
    EXPECT_NE(capture.text().find(" s. for 5jobs\n"), std::string::npos);
    EXPECT_NE(capture.text().find(" s. for 5\n"), std::string::npos);
}

TEST(HierarchyBuilder, OneGroupIsALeafAndLogsTheTimingBlock)
{
    auto f = boxes(1);
    f->diagram->computeDirectionSet(5.0f);
    kxDisassemblyHierarchy hierarchy(*f->groups);
    Builder builder(hierarchy, *f->diagram, 2);
    builder.initSolver();
    EXPECT_EQ(builder.getNodeMetadata(0).noColumns, 1u);
    ProgressRecorder progress;
    StdoutCapture capture;
    builder.computeGroupsHierarchy(0, &progress);
    EXPECT_EQ(hierarchy.getNode(0).firstChild, kNone);
    EXPECT_EQ(progress.ranges, std::vector<double>{1.0});
    EXPECT_EQ(progress.done, 0.0);
    EXPECT_EQ(capture.text(), "solver time: 0 s.\nt0: 0 s. for 0jobs\nt1: 0 s. for 0jobs\ntotal: 0 s. for 0\n");
}

TEST(HierarchyBuilder, VerboseLogsEveryNodeItSplits)
{
    auto f = boxes(3);
    pushEdge(*f, 0, 1, {Vec3d(0, 0, 1)});
    f->diagram->computeDirectionSet(5.0f);
    kxDisassemblyHierarchy hierarchy(*f->groups);
    Builder builder(hierarchy, *f->diagram, 1);
    EXPECT_FALSE(builder.getVerbose());
    builder.setVerbose(true);
    builder.initSolver();
    StdoutCapture capture;
    builder.computeGroupsHierarchy(0, nullptr);
    const std::string text = capture.text();
    const unsigned pair = hierarchy.getNode(hierarchy.getNode(0).firstChild).noGroups == 2
                              ? hierarchy.getNode(0).firstChild
                              : hierarchy.getNode(0).secondChild;
    EXPECT_EQ(text.find("splitting group: 0\n"), 0u);
    EXPECT_NE(text.find("splitting group: " + std::to_string(pair) + "\n"), std::string::npos);
    // The root's two sides do not touch.
    EXPECT_NE(text.find("0: disjoint sets spotted\n"), std::string::npos);
    EXPECT_EQ(text.find(std::to_string(pair) + ": disjoint sets spotted"), std::string::npos);
}

// A distant constraint on the pair's primary direction: hard in the first
// pass, it sends the pair along its second direction; when it blocks both,
// the second pass weighs the penalties and the weaker blocking wins.
TEST(HierarchyBuilder, DistantConstraintsAreHardFirstThenWeighedByPenalty)
{
    for (const bool blockBoth : {false, true}) {
        auto f = boxes(2);
        pushEdge(*f, 0, 1, {Vec3d(0, 0, 1), Vec3d(1, 0, 0)});
        f->diagram->computeDirectionSet(5.0f);
        kxDisassemblyHierarchy hierarchy(*f->groups);
        Builder builder(hierarchy, *f->diagram, 2);
        std::vector<unsigned> ids{0};
        std::vector<unsigned> penalties{0x80001000u};
        if (blockBoth) {
            ids = {0, 1};
            penalties = {0x80001000u, 0x00000500u};
        }
        builder.setNoDistantConstraints(1);
        builder.pushDistantConstraint(0, 1, ids, penalties);
        EXPECT_EQ(builder.getNoDistantConstraints(), 1u);
        const Builder::tDynamicEdgeData& distant = builder.getEdgeData(1);
        EXPECT_EQ(distant.isDistant, 1u);
        EXPECT_EQ(distant.edgeIndex, 1u);
        EXPECT_EQ(distant.admissibleIds, ids);
        EXPECT_EQ(distant.signedIds, penalties);
        // Distant edges do not add to the per-group directions.
        EXPECT_EQ(builder.getPerGroupDirections(0), (std::vector<unsigned>{0, 1}));

        builder.initSolver();
        EXPECT_EQ(builder.getNodeMetadata(0).noColumns, 2u + 2u * 2u);
        StdoutCapture capture;
        builder.computeGroupsHierarchy(0, nullptr);
        const auto& root = hierarchy.getNode(0);
        ASSERT_NE(root.firstChild, kNone) << blockBoth;
        EXPECT_EQ(root.splitId, 1u) << blockBoth;
        EXPECT_EQ(groupsOfNode(hierarchy, root.secondChild), std::vector<unsigned>{0});
        EXPECT_EQ(totalJobs(builder), blockBoth ? 4u : 2u);
        // Contact and distant edge both cross the split.
        EXPECT_EQ(builder.getNodeMetadata(root.firstChild).firstEdge, 2u);
        EXPECT_TRUE(builder.getNodeMetadata(root.secondChild).noEdges == 0u);
    }
}

// Recomputing a subtree starts from the same state as the first time: the
// same tree, ordering, edges and systems come out.
TEST(HierarchyBuilder, RecomputingASubtreeReproducesIt)
{
    auto f = boxes(5);
    pushEdge(*f, 0, 1, {Vec3d(0, 0, 1)});
    pushEdge(*f, 1, 2, {Vec3d(0, 0, 1), Vec3d(0, 0, -1)});
    pushEdge(*f, 2, 3, {Vec3d(1, 0, 0)});
    pushEdge(*f, 3, 4, {Vec3d(0, 1, 0), Vec3d(1, 0, 0)});
    pushEdge(*f, 4, 0, {Vec3d(0, 0, -1)});
    f->diagram->computeDirectionSet(5.0f);
    kxDisassemblyHierarchy hierarchy(*f->groups);
    Builder builder(hierarchy, *f->diagram, 2);
    builder.initSolver();
    StdoutCapture capture;
    builder.computeGroupsHierarchy(0, nullptr);
    const kxDisassemblyHierarchy first(hierarchy);
    std::vector<Builder::tTreeNodeMetadata> metadata;
    std::vector<unsigned> edgeOrder;
    for (unsigned n = 0; n < hierarchy.getNoNodes(); ++n)
        metadata.push_back(builder.getNodeMetadata(n));
    for (unsigned e = 0; e < builder.getNoEdges(); ++e)
        edgeOrder.push_back(builder.getEdgeData(e).edgeIndex);

    for (unsigned node = 0; node < hierarchy.getNoNodes(); ++node) {
        if (first.getNode(node).firstChild == kNone)
            continue;
        builder.computeGroupsHierarchy(node, nullptr);
        for (unsigned n = 0; n < hierarchy.getNoNodes(); ++n) {
            const auto& a = first.getNode(n);
            const auto& b = hierarchy.getNode(n);
            EXPECT_EQ(std::tie(a.start, a.noGroups, a.firstChild, a.secondChild, a.parent, a.splitId),
                      std::tie(b.start, b.noGroups, b.firstChild, b.secondChild, b.parent, b.splitId))
                << "node " << n << " after recomputing " << node;
            const auto& ma = metadata[n];
            const auto& mb = builder.getNodeMetadata(n);
            EXPECT_EQ(std::tie(ma.relatedNode, ma.firstEdge, ma.noEdges, ma.firstColumn, ma.noColumns),
                      std::tie(mb.relatedNode, mb.firstEdge, mb.noEdges, mb.firstColumn, mb.noColumns));
        }
        for (unsigned g = 0; g < 5; ++g)
            EXPECT_EQ(first.getGroupIdFromOrderedIndex(g), hierarchy.getGroupIdFromOrderedIndex(g));
        for (unsigned e = 0; e < builder.getNoEdges(); ++e)
            EXPECT_EQ(builder.getEdgeData(e).edgeIndex, edgeOrder[e]);
    }
}

TEST(HierarchyBuilder, ZeroThreadsIsTakenAsOne)
{
    auto f = boxes(2);
    pushEdge(*f, 0, 1, {Vec3d(0, 0, 1)});
    f->diagram->computeDirectionSet(5.0f);
    kxDisassemblyHierarchy hierarchy(*f->groups);
    Builder builder(hierarchy, *f->diagram, 0);
    EXPECT_EQ(builder.getNoThreads(), 1u);
    builder.initSolver();
    StdoutCapture capture;
    builder.computeGroupsHierarchy(0, nullptr);
    EXPECT_EQ(hierarchy.getNode(0).splitId, 0u);
}

}  // namespace
