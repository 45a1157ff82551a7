// The naive removal ordering of one part and the table of pairwise
// constraints between the removed subtrees.
#include "kxSinglePartDisassemblyProcedure.h"

#include <algorithm>

namespace
{
// Signed direction 2k + s of a builder direction word k | (s << 31).
unsigned signedDirectionOfWord(unsigned word) { return (word << 1) | (word >> 31); }

void setBit(std::vector<uint64_t>& row, unsigned bit) { row[bit >> 6] |= uint64_t(1) << (bit & 63); }
void clearBit(std::vector<uint64_t>& row, unsigned bit) { row[bit >> 6] &= ~(uint64_t(1) << (bit & 63)); }
}  // namespace

kxSinglePartDisassemblyProcedure::kxSinglePartDisassemblyProcedure(const kxDisassemblyHierarchyBuilder& builder)
    : mMeshGroups(&builder.getMeshGroups()), mHierarchy(&builder.getHierarchy()), mBuilder(&builder),
      mProcedureNodeFromGroupId(mMeshGroups->getNoGroups(), kNone),
      mOrderingIndexFromNodeId(mHierarchy->getNoNodes(), kNone),
      mNodeConstraintRanges(mHierarchy->getNoNodes(), tConstraintRange{0, 0, kNone}),
      mScratchGroups(mMeshGroups->getNoGroups()), mGroupSet(mMeshGroups->getNoGroups()),
      mNoDirections(builder.getContactDiagram().getNoDirections())
{
}

kxSinglePartDisassemblyProcedure::~kxSinglePartDisassemblyProcedure() = default;

void kxSinglePartDisassemblyProcedure::buildProcedure(unsigned node)
{
    initializeRemovalOrdering(node);
    initializeConstraintList();
    simplifyOrdering();
}

void kxSinglePartDisassemblyProcedure::initializeRemovalOrdering(unsigned node)
{
    // Siblings along the path from the part up to the root, then reversed:
    // the subtree split off at the root leaves first, the part last.
    mOrdering.assign(1, node);
    for (unsigned current = node; current != 0;)
    {
        const unsigned parentId = mHierarchy->getNode(current).parent;
        const kxDisassemblyHierarchy::tTreeNode& parent = mHierarchy->getNode(parentId);
        mOrdering.push_back(parent.firstChild ^ parent.secondChild ^ current);
        current = parentId;
    }
    std::reverse(mOrdering.begin(), mOrdering.end());
    indexOrdering();

    // One step per level. A second child leaves along its parent's split
    // direction, a first child against it; the part's own step gets its leaf
    // splitId (all ones) with sign 1, which stays all ones.
    mSteps.clear();
    unsigned onPath = 0;
    for (unsigned i = 0; i < mOrdering.size(); ++i)
    {
        const unsigned entry = mOrdering[i];
        const kxDisassemblyHierarchy::tTreeNode& level = mHierarchy->getNode(onPath);
        mSteps.push_back({i, 1, level.splitId * 2 + (entry != level.secondChild ? 1u : 0u)});
        onPath = level.firstChild ^ level.secondChild ^ entry;
    }
}

void kxSinglePartDisassemblyProcedure::indexOrdering()
{
    std::fill(mOrderingIndexFromNodeId.begin(), mOrderingIndexFromNodeId.end(), kNone);
    for (unsigned i = 0; i < mOrdering.size(); ++i)
    {
        const unsigned node = mOrdering[i];
        mOrderingIndexFromNodeId[node] = i;
        forEachGroupOfNode(node, [&](unsigned group) { mProcedureNodeFromGroupId[group] = node; });
    }
}

void kxSinglePartDisassemblyProcedure::initializeConstraintList()
{
    std::fill(mNodeConstraintRanges.begin(), mNodeConstraintRanges.end(), tConstraintRange{0, 0, kNone});
    mConstraints.clear();
    mConstraintDirections.clear();

    kx2SATState laterNodes(mHierarchy->getNoNodes());
    std::vector<uint64_t> edgeRow(noRowWords());
    for (unsigned i = 0; i < mOrdering.size(); ++i)
        appendNodeConstraints(i, laterNodes, edgeRow);
}

void kxSinglePartDisassemblyProcedure::appendNodeConstraints(unsigned i, kx2SATState& laterNodes,
                                                             std::vector<uint64_t>& edgeRow)
{
    const unsigned node = mOrdering[i];
    tConstraintRange& range = mNodeConstraintRanges[node];
    range.first = unsigned(mConstraints.size());
    range.count = 0;
    if (node == 0)
        return;  // the part is the whole assembly: nothing was split off

    // Only the split that separated the node from its sibling can join it to
    // a later node: every later node lies inside that sibling.
    unsigned firstEdge = 0;
    unsigned endEdge = 0;
    crossingEdgesAbove(node, firstEdge, endEdge);
    bool flip = false;
    laterNodes.clear(false);
    for (unsigned e = firstEdge; e < endEdge; ++e)
    {
        const unsigned other = laterEndOfEdge(mBuilder->getEdgeData(e), i, flip);
        if (other != kNone)
            laterNodes.setTrue(other);
    }
    laterNodes.forEachTrueVar([&](unsigned other) {
        mNodeConstraintRanges[other].pending = unsigned(mConstraints.size());
        mConstraints.push_back(other);
    });
    range.count = unsigned(mConstraints.size()) - range.first;
    mConstraintDirections.resize(mConstraints.size() * noRowWords(), ~uint64_t(0));

    // Every edge between the same two nodes must allow a direction.
    const unsigned ownDirection = mSteps[i].signedDirection;
    for (unsigned e = firstEdge; e < endEdge; ++e)
    {
        const kxDisassemblyHierarchyBuilder::tDynamicEdgeData& edge = mBuilder->getEdgeData(e);
        const unsigned other = laterEndOfEdge(edge, i, flip);
        if (other == kNone)
            continue;
        const unsigned constraint = mNodeConstraintRanges[other].pending;
        computeEdgeRow(edge, flip, ownDirection, edgeRow);
        uint64_t* row = mConstraintDirections.data() + size_t(constraint) * noRowWords();
        for (unsigned w = 0; w < noRowWords(); ++w)
            row[w] &= edgeRow[w];
        if (edge.isDistant == 0)
            mConstraints[constraint] |= kTouchBit;
    }
}

void kxSinglePartDisassemblyProcedure::crossingEdgesAbove(unsigned node, unsigned& first, unsigned& end) const
{
    const unsigned parent = mHierarchy->getNode(node).parent;
    first = mBuilder->getNodeMetadata(parent).firstEdge;
    end = mBuilder->getNodeMetadata(mHierarchy->getNode(parent).firstChild).firstEdge;
}

unsigned kxSinglePartDisassemblyProcedure::laterEndOfEdge(const kxDisassemblyHierarchyBuilder::tDynamicEdgeData& edge,
                                                          unsigned i, bool& flip) const
{
    const unsigned node = mOrdering[i];
    const unsigned nodeA = mProcedureNodeFromGroupId[edge.groupA];
    const unsigned nodeB = mProcedureNodeFromGroupId[edge.groupB];
    flip = nodeB == node;
    const unsigned other = nodeA == node ? nodeB : flip ? nodeA : kNone;
    if (other == kNone || other == node || mOrderingIndexFromNodeId[other] <= i)
        return kNone;
    return other;
}

void kxSinglePartDisassemblyProcedure::computeEdgeRow(const kxDisassemblyHierarchyBuilder::tDynamicEdgeData& edge,
                                                      bool flip, unsigned ownDirection,
                                                      std::vector<uint64_t>& row) const
{
    // A contact edge lists the directions its sides may separate along; a
    // distant edge lists those along which one side would run into the other.
    const bool blocking = edge.isDistant != 0;
    std::fill(row.begin(), row.end(), blocking ? ~uint64_t(0) : 0);
    for (const unsigned word : edge.admissibleIds)
    {
        const unsigned direction = signedDirectionOfWord(word) ^ (flip ? 1u : 0u);
        if (blocking)
            clearBit(row, direction);
        else
            setBit(row, direction);
    }
    setBit(row, ownDirection);
}
