#include "HandAssembly.h"
#include "kxDisassemblyHierarchy.h"
#include "kxMeshGroups.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

using tTreeNode = kxDisassemblyHierarchy::tTreeNode;

using Access = kxDisassemblyHierarchyTestAccess;

namespace
{
constexpr unsigned kNone = kxDisassemblyHierarchy::kNoNode;

// The hierarchy only reads the group count; the meshes are never touched.
kxMeshGroups groupsOfSize(unsigned n)
{
    return kxMeshGroups(std::vector<kx::kxTriMesh*>(n, nullptr), nullptr);
}

std::unique_ptr<kx2SATState> setOf(unsigned n, const std::vector<unsigned>& ids)
{
    auto set = std::make_unique<kx2SATState>(n);
    for (const unsigned id : ids)
        set->setTrue(id);
    return set;
}

bool isUnused(const tTreeNode& node)
{
    return node.start == kNone && node.noGroups == kNone && node.firstChild == kNone && node.secondChild == kNone &&
           node.parent == kNone && node.splitId == kNone;
}

// The deepest node whose range covers every position of the set, found by
// looking at every node.
unsigned deepestCoveringNode(const kxDisassemblyHierarchy& h, const std::vector<unsigned>& groups)
{
    if (groups.empty())
    {
        unsigned id = 0;
        while (h.getNode(id).firstChild != kNone)
            id = h.getNode(id).firstChild;
        return id;
    }
    unsigned lo = kNone, hi = 0;
    for (const unsigned g : groups)
    {
        lo = std::min(lo, h.getOrderedIndexFromGroupId(g));
        hi = std::max(hi, h.getOrderedIndexFromGroupId(g));
    }
    unsigned best = 0;
    for (unsigned id = 0; id < h.getNoNodes(); ++id)
    {
        const tTreeNode& node = h.getNode(id);
        if (!isUnused(node) && node.start <= lo && hi < node.start + node.noGroups &&
            node.noGroups < h.getNode(best).noGroups)
            best = id;
    }
    return best;
}
} // namespace

TEST(kxDisassemblyHierarchy, SingleGroupIsOneLeafRoot)
{
    const kxMeshGroups groups = groupsOfSize(1);
    kxDisassemblyHierarchy h(groups);
    ASSERT_EQ(h.getNoNodes(), 1u);
    const tTreeNode& root = h.getNode(0);
    EXPECT_EQ(root.start, 0u);
    EXPECT_EQ(root.noGroups, 1u);
    EXPECT_EQ(root.firstChild, kNone);
    EXPECT_EQ(root.parent, kNone);
    EXPECT_EQ(root.splitId, kNone);
    EXPECT_EQ(h.getSmallestNodeIdContainingSet(kx2SATState(1)), 0u);
    EXPECT_EQ(h.getSmallestNodeIdContainingSet(*setOf(1, {0})), 0u);
    EXPECT_EQ(&h.getMeshGroups(), &groups);
}

TEST(kxDisassemblyHierarchy, ConstructionGivesRootAndUnusedSlots)
{
    const kxMeshGroups groups = groupsOfSize(5);
    kxDisassemblyHierarchy h(groups);
    ASSERT_EQ(h.getNoNodes(), 9u);
    EXPECT_EQ(h.getNode(0).noGroups, 5u);
    for (unsigned id = 1; id < 9; ++id)
        EXPECT_TRUE(isUnused(h.getNode(id)));
    for (unsigned g = 0; g < 5; ++g)
    {
        EXPECT_EQ(h.getGroupIdFromOrderedIndex(g), g);
        EXPECT_EQ(h.getOrderedIndexFromGroupId(g), g);
        EXPECT_EQ(h.getLeafNodeIndexFromGroupId(g), 0u);
    }
}

TEST(kxDisassemblyHierarchy, PreorderNumberingAndSmallestContainingNode)
{
    // Groups a = 2, b = 0, c = 3, d = 1.
    const unsigned a = 2, b = 0, c = 3, d = 1;
    const kxMeshGroups groups = groupsOfSize(4);
    kxDisassemblyHierarchy h(groups);
    Access::split(h, 0, {b, c, d}, 7);
    Access::split(h, 2, {c, d}, 8);
    EXPECT_EQ(h.getNode(0).firstChild, 1u);
    EXPECT_EQ(h.getNode(0).secondChild, 2u);
    EXPECT_EQ(h.getNode(0).splitId, 7u);
    EXPECT_EQ(h.getNode(2).firstChild, 3u);
    EXPECT_EQ(h.getNode(2).secondChild, 4u);
    EXPECT_EQ(h.getNode(4).noGroups, 2u);
    Access::split(h, 4, {d});
    EXPECT_EQ(h.getNode(4).firstChild, 5u);
    EXPECT_EQ(h.getNode(4).secondChild, 6u);
    for (unsigned id = 0; id < 7; ++id)
        EXPECT_FALSE(isUnused(h.getNode(id)));
    EXPECT_EQ(h.getNode(6).parent, 4u);

    Access::index(h, 0);
    EXPECT_EQ(h.getLeafNodeIndexFromGroupId(a), 1u);
    EXPECT_EQ(h.getLeafNodeIndexFromGroupId(b), 3u);
    EXPECT_EQ(h.getLeafNodeIndexFromGroupId(c), 5u);
    EXPECT_EQ(h.getLeafNodeIndexFromGroupId(d), 6u);
    EXPECT_EQ(h.getOrderedIndexFromGroupId(a), 0u);
    EXPECT_EQ(h.getOrderedIndexFromGroupId(d), 3u);
    EXPECT_EQ(h.getGroupIdFromOrderedIndex(1), b);

    EXPECT_EQ(h.getSmallestNodeIdContainingSet(*setOf(4, {c})), 5u);
    EXPECT_EQ(h.getSmallestNodeIdContainingSet(*setOf(4, {c, d})), 4u);
    EXPECT_EQ(h.getSmallestNodeIdContainingSet(*setOf(4, {a, d})), 0u);
    EXPECT_EQ(h.getSmallestNodeIdContainingSet(kx2SATState(4)), 1u); // leftmost leaf
    // Node 2's range starts exactly at b's position: the walk descends into it.
    EXPECT_EQ(h.getSmallestNodeIdContainingSet(*setOf(4, {b, c})), 2u);

    // Undo the split of node 2: its subtree slots are wiped, the node stays.
    Access::clearSubHierarchy(h, 2);
    EXPECT_EQ(h.getNode(2).firstChild, kNone);
    EXPECT_EQ(h.getNode(2).secondChild, kNone);
    EXPECT_EQ(h.getNode(2).splitId, kNone);
    EXPECT_EQ(h.getNode(2).start, 1u);
    EXPECT_EQ(h.getNode(2).noGroups, 3u);
    EXPECT_EQ(h.getNode(2).parent, 0u);
    for (unsigned id = 3; id < 7; ++id)
        EXPECT_TRUE(isUnused(h.getNode(id)));
    Access::index(h, 2);
    EXPECT_EQ(h.getLeafNodeIndexFromGroupId(d), 2u); // a leaf of several groups
    EXPECT_EQ(h.getSmallestNodeIdContainingSet(*setOf(4, {c, d})), 2u);

    // A leaf of one group: only its three fields are reset.
    h.editNode(1).splitId = 9;
    const tTreeNode sibling = h.getNode(2);
    Access::clearSubHierarchy(h, 1);
    EXPECT_EQ(h.getNode(1).splitId, kNone);
    EXPECT_EQ(h.getNode(1).noGroups, 1u);
    EXPECT_EQ(h.getNode(2).start, sibling.start);
    EXPECT_EQ(h.getNode(2).noGroups, sibling.noGroups);
}

TEST(kxDisassemblyHierarchy, RandomFullSplitsUseEverySlotInPreorder)
{
    std::mt19937 rng(3);
    for (unsigned trial = 0; trial < 50; ++trial)
    {
        const unsigned n = 2 + rng() % 19;
        const kxMeshGroups groups = groupsOfSize(n);
        kxDisassemblyHierarchy h(groups);
        // Split every node of two or more groups, depth first, into a random
        // non-empty moving subset.
        std::vector<unsigned> pending{0};
        while (!pending.empty())
        {
            const unsigned id = pending.back();
            pending.pop_back();
            const tTreeNode node = h.getNode(id);
            if (node.noGroups < 2)
                continue;
            std::vector<unsigned> members;
            for (unsigned k = node.start; k < node.start + node.noGroups; ++k)
                members.push_back(h.getGroupIdFromOrderedIndex(k));
            std::shuffle(members.begin(), members.end(), rng);
            members.resize(1 + rng() % (members.size() - 1));
            Access::split(h, id, members);
            pending.push_back(h.getNode(id).secondChild);
            pending.push_back(h.getNode(id).firstChild);
        }
        Access::index(h, 0);

        for (unsigned id = 0; id < h.getNoNodes(); ++id)
        {
            const tTreeNode& node = h.getNode(id);
            ASSERT_FALSE(isUnused(node)) << "trial " << trial << " node " << id;
            if (node.firstChild == kNone)
            {
                ASSERT_EQ(node.noGroups, 1u);
                EXPECT_EQ(h.getLeafNodeIndexFromGroupId(h.getGroupIdFromOrderedIndex(node.start)), id);
                continue;
            }
            // A subtree of k groups spans 2k - 1 ids: the second child follows
            // the first child's subtree.
            EXPECT_EQ(node.firstChild, id + 1);
            EXPECT_EQ(node.secondChild, id + 2 * h.getNode(node.firstChild).noGroups);
        }
        for (unsigned g = 0; g < n; ++g)
            EXPECT_EQ(h.getGroupIdFromOrderedIndex(h.getOrderedIndexFromGroupId(g)), g);

        for (unsigned query = 0; query < 20; ++query)
        {
            std::vector<unsigned> set;
            for (unsigned g = 0; g < n; ++g)
            {
                if (rng() % 4 == 0)
                    set.push_back(g);
            }
            EXPECT_EQ(h.getSmallestNodeIdContainingSet(*setOf(n, set)), deepestCoveringNode(h, set));
        }

        kxDisassemblyHierarchy copy(groups);
        copy.copyFrom(h);
        kxDisassemblyHierarchy copied(h);
        for (unsigned id = 0; id < h.getNoNodes(); ++id)
        {
            EXPECT_EQ(copy.getNode(id).secondChild, h.getNode(id).secondChild);
            EXPECT_EQ(copied.getNode(id).start, h.getNode(id).start);
        }
        for (unsigned g = 0; g < n; ++g)
        {
            EXPECT_EQ(copy.getLeafNodeIndexFromGroupId(g), h.getLeafNodeIndexFromGroupId(g));
            EXPECT_EQ(copy.getOrderedIndexFromGroupId(g), h.getOrderedIndexFromGroupId(g));
        }
    }
}
