// Small walks over a kxDisassemblyHierarchy shared by the explosion diagram
// and its animation: the groups of a node's range, whether a node is a split,
// the builder's edges that cross a split.
#pragma once

#include "kxDisassemblyHierarchy.h"
#include "kxDisassemblyHierarchyBuilder.h"

namespace kxHierarchyWalk {

inline bool isInnerNode(const kxDisassemblyHierarchy& hierarchy, unsigned node)
{
    return hierarchy.getNode(node).firstChild != kxDisassemblyHierarchy::kNoNode;
}

// A slot no node occupies has every field all ones.
inline bool isUnusedSlot(const kxDisassemblyHierarchy::tTreeNode& node)
{
    constexpr unsigned kNone = kxDisassemblyHierarchy::kNoNode;
    return node.start == kNone && node.noGroups == kNone && node.firstChild == kNone && node.secondChild == kNone &&
           node.parent == kNone && node.splitId == kNone;
}

// Calls visit(group) for every group of the node's range, in ordered position.
template <class Visitor>
void forEachGroup(const kxDisassemblyHierarchy& hierarchy, unsigned node, Visitor&& visit)
{
    const kxDisassemblyHierarchy::tTreeNode& range = hierarchy.getNode(node);
    for (unsigned k = range.start; k < range.start + range.noGroups; ++k)
        visit(hierarchy.getGroupIdFromOrderedIndex(k));
}

// The builder's edges [first, end) that cross the split of inner node `node`
// (those joining its two children): they precede the first child's edges.
struct tEdgeRange {
    unsigned first;
    unsigned end;
};

inline tEdgeRange crossingEdges(const kxDisassemblyHierarchyBuilder& builder, unsigned node)
{
    const unsigned firstChild = builder.getHierarchy().getNode(node).firstChild;
    return {builder.getNodeMetadata(node).firstEdge, builder.getNodeMetadata(firstChild).firstEdge};
}

}  // namespace kxHierarchyWalk
