// kxSinglePartDisassemblyProcedure: the ordered removal steps that take one
// part out of an assembly, read from a finished disassembly hierarchy.
//
// The path from the root down to the part's node gives a naive procedure with
// one step per level: at each level the sibling subtree that does not hold the
// part leaves along its split direction. A table of pairwise constraints
// between those subtrees then lets a subtree travel with a later step when it
// touches a node of that step and nothing removed after the step blocks it, so
// the procedure ends up with as few steps as the table allows.
//
// Invariants after buildProcedure:
// - mOrdering holds hierarchy node ids in removal order; the nodes of one step
//   are the consecutive entries [start, start + noNodes), in ascending node id
//   order; mOrderingIndexFromNodeId is its inverse (all ones elsewhere);
// - the last step is the part's own node, with signedDirection all ones; it is
//   never merged and never a merge target;
// - a node's constraints are the range mNodeConstraintRanges[node] of
//   mConstraints, sorted by the other node's id, and concern only nodes that
//   came after it in the naive ordering. Constraint c has one row of
//   mConstraintDirections: bit s set when the node may move along signed
//   direction s (2 * direction id + sign, sign 1 against the stored direction)
//   while the other node is still in place.
//
// The procedure reads the builder, its hierarchy and its mesh groups without
// owning them; all three must outlive it.
#pragma once

#include <cstdint>
#include <vector>

#include "kx2SATState.h"
#include "kxDisassemblyHierarchy.h"
#include "kxDisassemblyHierarchyBuilder.h"
#include "kxMeshGroups.h"

class kxSinglePartDisassemblyProcedure
{
public:
    static constexpr unsigned kNone = 0xFFFFFFFFu;

    // One removal step: the ordering entries [start, start + noNodes) leave
    // together along signedDirection (direction id = signedDirection >> 1,
    // bit 0 set when they move against the stored direction).
    struct tRemovalStep
    {
        unsigned start;
        unsigned noNodes;
        unsigned signedDirection;

        bool operator==(const tRemovalStep&) const = default;
    };

    // Takes the builder, its hierarchy and mesh groups and the number of
    // directions; sizes the per-group and per-node arrays. Computes nothing.
    explicit kxSinglePartDisassemblyProcedure(const kxDisassemblyHierarchyBuilder& builder);
    kxSinglePartDisassemblyProcedure(const kxSinglePartDisassemblyProcedure&) = default;
    kxSinglePartDisassemblyProcedure(kxSinglePartDisassemblyProcedure&&) noexcept = default;
    kxSinglePartDisassemblyProcedure& operator=(const kxSinglePartDisassemblyProcedure&) = default;
    kxSinglePartDisassemblyProcedure& operator=(kxSinglePartDisassemblyProcedure&&) noexcept = default;
    virtual ~kxSinglePartDisassemblyProcedure();

    // Builds the procedure that takes out the part whose hierarchy node (its
    // leaf) is `node`: naive ordering, constraint table, step merging. Writes
    // a "simplifying step : j / k-2" line to standard output for each of the
    // k-2 steps it tries to move (k naive steps). Replaces any earlier
    // procedure.
    void buildProcedure(unsigned node);

    // Writes the procedure as a hierarchy over the same groups: every step but
    // the last splits the current node into the removed groups and the rest
    // (on the side the step's sign gives: the removed groups are the second
    // child when they move along the stored direction), and the rest is split
    // by the next step. The tree of `out` is replaced; its group ordering is
    // reordered within the split ranges; its index maps are recomputed.
    void copyToDisassemblyHierarchy(kxDisassemblyHierarchy& out);

    const std::vector<tRemovalStep>& getSteps() const { return mSteps; }
    // Hierarchy node ids in removal order; step s removes the entries
    // [getSteps()[s].start, getSteps()[s].start + getSteps()[s].noNodes).
    const std::vector<unsigned>& getOrdering() const { return mOrdering; }

private:
    // Unit tests read the constraint table and drive the private steps.
    friend class kxSinglePartDisassemblyProcedureTestAccess;

    static constexpr unsigned kTouchBit = 0x80000000u;
    static constexpr unsigned kNodeMask = 0x7FFFFFFFu;

    // A node's constraints in mConstraints. `pending` is used only while the
    // table is built: the index of the constraint that the node being listed
    // holds about this node, so that every edge finds its row at once.
    struct tConstraintRange
    {
        unsigned first;
        unsigned count;
        unsigned pending;
    };

    void initializeRemovalOrdering(unsigned node);
    void initializeConstraintList();
    void simplifyOrdering();
    void simplifyOrderingIteration(unsigned step);
    bool tryAndMergeNodeToStep(unsigned node, unsigned step);
    bool checkMerge(unsigned step, unsigned otherStep) const;
    bool checkNodeAndStepConstraints(unsigned node, unsigned step) const;
    unsigned findRequestedNodeCst(unsigned otherNode, unsigned node) const;

    // Maps every ordering position and every group to its ordering node.
    void indexOrdering();
    // Lists the constraints of the ordering node at position i and fills their rows.
    void appendNodeConstraints(unsigned i, kx2SATState& laterNodes, std::vector<uint64_t>& edgeRow);
    // The row of one edge for the node on its side: the signed directions the
    // node may move along while the other side stays, its own step direction
    // always included. `flip`: the node holds the edge's second group.
    void computeEdgeRow(const kxDisassemblyHierarchyBuilder::tDynamicEdgeData& edge, bool flip,
                        unsigned ownDirection, std::vector<uint64_t>& row) const;
    // The crossing edges of the split that made `node` (not the root): the
    // builder's edges [first, end).
    void crossingEdgesAbove(unsigned node, unsigned& first, unsigned& end) const;
    // The ordering node across `edge` from the node at ordering position i
    // when that node is removed after it, else all ones; `flip` tells whether
    // the node at position i holds the edge's second group.
    unsigned laterEndOfEdge(const kxDisassemblyHierarchyBuilder::tDynamicEdgeData& edge, unsigned i,
                            bool& flip) const;

    // Index of the step that begins at ordering position `position`.
    unsigned stepStartingAt(unsigned position) const;
    // Moves the single node of step `from` into the later step `to`.
    void moveNodeIntoStep(unsigned from, unsigned to);
    // Marks in mGroupSet the groups of the nodes of step s, or every other
    // group when the step moves against the stored direction (sign bit 1).
    void markStepGroups(unsigned s);

    // Calls visit(group) for every group of hierarchy node `node`, in ordering order.
    template <typename Visitor>
    void forEachGroupOfNode(unsigned node, Visitor&& visit) const
    {
        const kxDisassemblyHierarchy::tTreeNode& treeNode = mHierarchy->getNode(node);
        for (unsigned k = treeNode.start; k < treeNode.start + treeNode.noGroups; ++k)
            visit(mHierarchy->getGroupIdFromOrderedIndex(k));
    }

    unsigned noRowWords() const { return (2 * mNoDirections + 63) / 64; }
    const uint64_t* constraintRow(unsigned constraint) const
    {
        return mConstraintDirections.data() + size_t(constraint) * noRowWords();
    }
    static bool rowAllows(const uint64_t* row, unsigned signedDirection)
    {
        return ((row[signedDirection >> 6] >> (signedDirection & 63)) & 1u) != 0;
    }
    unsigned constrainedNode(unsigned constraint) const { return mConstraints[constraint] & kNodeMask; }
    bool touches(unsigned constraint) const { return (mConstraints[constraint] & kTouchBit) != 0; }

    const kxMeshGroups* mMeshGroups;
    const kxDisassemblyHierarchy* mHierarchy;
    const kxDisassemblyHierarchyBuilder* mBuilder;
    std::vector<unsigned> mProcedureNodeFromGroupId;
    std::vector<unsigned> mOrdering;
    std::vector<unsigned> mOrderingIndexFromNodeId;
    std::vector<tRemovalStep> mSteps;
    std::vector<uint64_t> mConstraintDirections;
    std::vector<unsigned> mConstraints;
    std::vector<tConstraintRange> mNodeConstraintRanges;
    std::vector<unsigned> mScratchGroups;  // stable partitions of copyToDisassemblyHierarchy
    kx2SATStateValue mGroupSet;            // groups of one step; a value, so the class copies member-wise
    unsigned mNoDirections;
};
