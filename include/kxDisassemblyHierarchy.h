// kxDisassemblyHierarchy: the binary tree of a disassembly plan over the
// groups of a kxMeshGroups. The root holds every group; an inner node has been
// split into two sides that can be separated; a leaf is not split further.
//
// Invariants:
// - every node's groups are one contiguous range of an ordering of the
//   groups; the first child holds the front of its parent's range, the second
//   child the rest;
// - the nodes of a subtree with k groups occupy exactly 2k - 1 consecutive ids
//   in preorder, its root first: a first child is parent + 1, a second child
//   parent + 2 * (parent's groups - second child's groups). 2n - 1 slots
//   always suffice; unused slots have every field all ones;
// - a node is a leaf exactly when firstChild is all ones (both child links
//   are set or cleared together).
// The builder and the single-part procedure edit the tree through the private
// operations; mOrderedIndexFromGroupId and mLeafNodeIndexFromGroupId are only
// current after computeHierarchyIndexing.
#pragma once

#include "kx2SATState.h"

#include <cstdint>
#include <vector>

class kxMeshGroups;
namespace velmora {
class HierarchyReplay;
}

class kxDisassemblyHierarchy
{
public:
    struct tTreeNode
    {
        uint32_t start;       // first position of the node's range in the ordering
        uint32_t noGroups;    // length of the range
        uint32_t firstChild;  // all ones in a leaf
        uint32_t secondChild; // all ones in a leaf
        uint32_t parent;      // all ones at the root
        uint32_t splitId;     // direction id of the split; all ones while unsplit
    };

    static constexpr uint32_t kNoNode = 0xFFFFFFFFu;

    explicit kxDisassemblyHierarchy(const kxMeshGroups& groups);
    kxDisassemblyHierarchy(const kxDisassemblyHierarchy&) = default;
    kxDisassemblyHierarchy(kxDisassemblyHierarchy&&) noexcept = default;
    kxDisassemblyHierarchy& operator=(const kxDisassemblyHierarchy&) = default;
    kxDisassemblyHierarchy& operator=(kxDisassemblyHierarchy&&) noexcept = default;
    ~kxDisassemblyHierarchy() = default;

    // Copies the tree and the three index arrays of other, which must be over
    // the same groups; the kxMeshGroups pointer is kept.
    void copyFrom(const kxDisassemblyHierarchy& other);

    unsigned getNoNodes() const { return unsigned(mNodes.size()); }
    const tTreeNode& getNode(unsigned id) const { return mNodes[id]; }
    tTreeNode& editNode(unsigned id) { return mNodes[id]; }
    unsigned getGroupIdFromOrderedIndex(unsigned k) const { return mGroupIdFromOrderedIndex[k]; }
    unsigned getOrderedIndexFromGroupId(unsigned g) const { return mOrderedIndexFromGroupId[g]; }
    unsigned getLeafNodeIndexFromGroupId(unsigned g) const { return mLeafNodeIndexFromGroupId[g]; }
    const kxMeshGroups& getMeshGroups() const { return *mMeshGroups; }

    // The deepest node whose range holds every group of set (the leftmost
    // leaf for an empty set).
    unsigned getSmallestNodeIdContainingSet(const kx2SATState& set) const;

private:
    // Unit tests reach the private tree edits through this class.
    friend class kxDisassemblyHierarchyTestAccess;

    friend class kxDisassemblyHierarchyBuilder;
    friend class kxSinglePartDisassemblyProcedure;
    // Rebuilds a saved tree with its group ordering.
    friend class velmora::HierarchyReplay;

    // Places a child node (all six fields filled by the caller, its range the
    // front or the back of its parent's) at the id the numbering gives it.
    unsigned requestNewNode(const tTreeNode& node);
    // Makes node id a leaf again and wipes the slots of its former subtree.
    void clearSubHierarchy(unsigned id);
    // Rebuilds the group-to-position and group-to-leaf maps of the subtree.
    void computeHierarchyIndexing(unsigned id);
    void indexLeaf(unsigned id);

    const kxMeshGroups* mMeshGroups;
    std::vector<tTreeNode> mNodes;
    std::vector<unsigned> mGroupIdFromOrderedIndex;
    std::vector<unsigned> mOrderedIndexFromGroupId;
    std::vector<unsigned> mLeafNodeIndexFromGroupId;
};
