#include "kxDisassemblyHierarchy.h"

#include "kxMeshGroups.h"

#include <algorithm>
#include <numeric>

namespace
{
constexpr kxDisassemblyHierarchy::tTreeNode kUnusedNode{~0u, ~0u, ~0u, ~0u, ~0u, ~0u};
}

kxDisassemblyHierarchy::kxDisassemblyHierarchy(const kxMeshGroups& groups)
    : mMeshGroups(&groups), mNodes(2 * size_t(groups.getNoGroups()) - 1, kUnusedNode),
      mGroupIdFromOrderedIndex(groups.getNoGroups()), mOrderedIndexFromGroupId(groups.getNoGroups()),
      mLeafNodeIndexFromGroupId(groups.getNoGroups(), 0)
{
    std::iota(mGroupIdFromOrderedIndex.begin(), mGroupIdFromOrderedIndex.end(), 0u);
    std::iota(mOrderedIndexFromGroupId.begin(), mOrderedIndexFromGroupId.end(), 0u);
    mNodes[0] = {0, groups.getNoGroups(), kNoNode, kNoNode, kNoNode, kNoNode};
}

void kxDisassemblyHierarchy::copyFrom(const kxDisassemblyHierarchy& other)
{
    mNodes = other.mNodes;
    mGroupIdFromOrderedIndex = other.mGroupIdFromOrderedIndex;
    mOrderedIndexFromGroupId = other.mOrderedIndexFromGroupId;
    mLeafNodeIndexFromGroupId = other.mLeafNodeIndexFromGroupId;
}

unsigned kxDisassemblyHierarchy::requestNewNode(const tTreeNode& node)
{
    const tTreeNode& parent = mNodes[node.parent];
    const unsigned id =
        parent.start == node.start ? node.parent + 1 : node.parent + 2 * (parent.noGroups - node.noGroups);
    mNodes[id] = node;
    return id;
}

void kxDisassemblyHierarchy::clearSubHierarchy(unsigned id)
{
    tTreeNode& node = mNodes[id];
    node.firstChild = kNoNode;
    node.secondChild = kNoNode;
    node.splitId = kNoNode;
    const unsigned noDescendants = 2 * node.noGroups - 2;
    std::fill(mNodes.begin() + id + 1, mNodes.begin() + id + 1 + noDescendants, kUnusedNode);
}

void kxDisassemblyHierarchy::indexLeaf(unsigned id)
{
    const tTreeNode& leaf = mNodes[id];
    for (unsigned k = leaf.start; k < leaf.start + leaf.noGroups; ++k)
    {
        const unsigned group = mGroupIdFromOrderedIndex[k];
        mLeafNodeIndexFromGroupId[group] = id;
        mOrderedIndexFromGroupId[group] = k;
    }
}

void kxDisassemblyHierarchy::computeHierarchyIndexing(unsigned id)
{
    // Recurse into first children, iterate along second children.
    while (id != kNoNode)
    {
        const tTreeNode& node = mNodes[id];
        if (node.firstChild == kNoNode)
        {
            indexLeaf(id);
            return;
        }
        computeHierarchyIndexing(node.firstChild);
        id = node.secondChild;
    }
}

unsigned kxDisassemblyHierarchy::getSmallestNodeIdContainingSet(const kx2SATState& set) const
{
    unsigned lo = kNoNode;
    unsigned hi = 0;
    set.forEachTrueVar([&](unsigned group) {
        lo = std::min(lo, mOrderedIndexFromGroupId[group]);
        hi = std::max(hi, mOrderedIndexFromGroupId[group]);
    });

    unsigned current = 0;
    while (mNodes[current].secondChild != kNoNode)
    {
        const tTreeNode& node = mNodes[current];
        const unsigned secondStart = mNodes[node.secondChild].start;
        if (secondStart > hi)
            current = node.firstChild;
        else if (secondStart > lo)
            break;
        else
            current = node.secondChild;
    }
    return current;
}
