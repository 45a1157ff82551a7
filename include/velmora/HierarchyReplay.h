// Rebuilding a disassembly hierarchy from a saved tree, so that an exploded
// view can be made again without searching for the splits.
//
// A saved tree gives, per node, its id, its parent, its groups and, for a
// split node, the direction id and which child stays and which moves. The
// rebuilt hierarchy has exactly the node ids, ranges and group ordering that
// the builder produced when it made those splits: every node's range holds
// its groups in ascending order (the builder partitions ranges stably,
// starting from the groups in id order), the staying side first. Handing it
// to kxDisassemblyHierarchyBuilder::copyGroupsHierarchy then restores the
// builder's per-node records as the original search left them.
#pragma once

#include <cstdint>
#include <vector>

#include "kxDisassemblyHierarchy.h"

class kxMeshGroups;

namespace velmora {

struct SavedHierarchyNode {
    static constexpr uint32_t kNone = kxDisassemblyHierarchy::kNoNode;
    uint32_t id = 0;
    uint32_t parent = kNone;        // kNone at the root
    std::vector<uint32_t> groups;   // any order; each group once
    bool split = false;
    uint32_t directionId = kNone;   // only when split
    uint32_t staying = kNone;       // first child, only when split
    uint32_t moving = kNone;        // second child, only when split
};

class HierarchyReplay {
public:
    // The hierarchy of `nodes` over `groups`, whose direction set has
    // `noDirections` lines. Throws std::invalid_argument naming the first
    // inconsistency: a node id out of range or repeated, a missing root or
    // child, a parent link that disagrees, children that do not split their
    // parent's groups into two non-empty parts, a child id other than the
    // one the node numbering gives, a direction id out of range, or a node
    // not reachable from the root.
    static kxDisassemblyHierarchy rebuild(const kxMeshGroups& groups, const std::vector<SavedHierarchyNode>& nodes,
                                          unsigned noDirections);
};

}  // namespace velmora
