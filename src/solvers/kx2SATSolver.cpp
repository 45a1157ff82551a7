#include "kx2SATSolver.h"

#include "kx2SATRules.h"
#include "kxGroupsClustering.h"

#include <algorithm>

using namespace kx2SATRules;

namespace
{
constexpr unsigned kRootNode = 0;
constexpr uint64_t kSelectableKeyBit = 0x4000000000000000ULL;
// Runs of at most this many columns are sorted by insertion.
constexpr unsigned kInsertionSortRun = 32;
constexpr unsigned kCrossingBlock = 0;
constexpr unsigned kFalseBlock = 1;
constexpr unsigned kTrueBlock = 2;
} // namespace

kx2SATSolver::kx2SATSolver(unsigned noVars, unsigned noConstraints)
    : mNodes(), mPenalty(2 * (noVars + noConstraints) - 1, 0), mConstraintFirstColumn(noConstraints),
      mLiteralFirstNode(2 * noVars, kNone), mLiteralCost(2 * noVars, 0),
      mHighWordStack(2 * (noVars + noConstraints) - 1, 0), mNoHighWords(0), mRemovedHeaders(noConstraints, 0),
      mNoRemovedHeaders(0), mUnselectableHeaders(2 * noConstraints, 0), mNoUnselectableHeaders(0),
      mScratchColumns(noVars + 2 * noConstraints),
      mMergeBuffer(noVars + 2 * noConstraints), mBestSolution(noVars), mCurrentAssignment(noVars),
      mTouchedVars(noVars), mClusterGroups(noVars), mBestCost(kNoCost), mNoVars(noVars),
      mNoConstraints(noConstraints), mMaxColumns(2 * (noVars + noConstraints) - 1),
      mPenaltyShift(penaltyShift(noVars)), mNoClusterColumns(0), mNoVisitedNodes(0),
      mSelection(2 * (noVars + noConstraints) - 1), mStaleLiteralNode(2 * noVars, kNone), mStaleLiterals(2 * noVars, 0),
      mNoStaleLiterals(0), mIndexedSelection(true)
{
    mNodes.reserve(3 * mMaxColumns + 1);
    mNodes.emplace_back(eDLXRowHeader);
    mNodes[kRootNode].left = kRootNode;
    mNodes[kRootNode].right = kRootNode;
    for (unsigned c = 0; c < mMaxColumns; ++c)
        mNodes.emplace_back(eDLXColumnHeader);
    for (unsigned k = 0; k < 2 * mMaxColumns; ++k)
        mNodes.emplace_back(eDLXElementNode);

    for (unsigned v = 0; v < noVars; ++v)
        writeHeader(v, literalOf(v, true), literalOf(v, false), kNoConstraintId, true, true);
    for (unsigned c = 0; c < noConstraints; ++c)
    {
        mConstraintFirstColumn[c] = noVars + 2 * c;
        writeHeader(noVars + 2 * c, 0, 0, 2 * c, false, false);
        writeHeader(noVars + 2 * c + 1, 0, 0, 2 * c + 1, false, false);
    }
    for (unsigned c = noVars + 2 * noConstraints; c < mMaxColumns; ++c)
        header(c).setConstraintId(kNoConstraintId);
}

void kx2SATSolver::writeHeader(unsigned column, uint32_t literal0, uint32_t literal1, uint32_t constraintId,
                               bool active, bool selectable)
{
    kxDLXNode& node = header(column);
    node.setCoordinates(literal0, literal1);
    node.setConstraintId(constraintId);
    node.setActive(active);
    node.setSelectable(selectable);
    mPenalty[column] = 0;
}

void kx2SATSolver::addNewConstraint(unsigned constraintId, unsigned groupA, unsigned groupB, bool active)
{
    const unsigned first = mNoVars + 2 * constraintId;
    mConstraintFirstColumn[constraintId] = first;
    for (unsigned clause = 0; clause < 2; ++clause)
    {
        const tClauseLiterals literals = constraintClause(groupA, groupB, clause);
        writeHeader(first + clause, literals.first, literals.second, 2 * constraintId + clause, active, active);
    }
}

void kx2SATSolver::configureColumn(unsigned column, bool soft, bool otherSoft, unsigned penalty, bool maxType)
{
    kxDLXNode& node = header(column);
    node.setActive(!soft);
    node.setSelectable(soft ? (maxType && penalty != 0) : !otherSoft);
    mPenalty[column] = soft ? penalty : 0;
}

void kx2SATSolver::desactivateConstraint(unsigned constraintId, bool soft0, bool soft1, unsigned penalty0,
                                         unsigned penalty1, bool maxType)
{
    const unsigned first = mConstraintFirstColumn[constraintId];
    configureColumn(first, soft0, soft1, penalty0, maxType);
    configureColumn(first + 1, soft1, soft0, penalty1, maxType);
}

// ---------------------------------------------------------------------------
// Baking: header ring, vertical column rings, horizontal literal rings.

void kx2SATSolver::bakeSystem(const kx2SATSystemRoot& root, kxGroupsClustering* clustering, bool flag)
{
    const unsigned end = root.firstColumn + root.noColumns;
    mTouchedVars->clear(false);
    for (unsigned c = root.firstColumn; c < end; ++c)
    {
        for (const uint32_t literal : {header(c).getRow0(), header(c).getRow1()})
        {
            mLiteralFirstNode[literal] = kNone;
            mTouchedVars->setTrue(literal >> 1);
        }
    }
    mNoClusterColumns = clustering != nullptr ? addClusterColumns(*clustering, flag) : 0;

    mNodes[kRootNode].left = kRootNode;
    mNodes[kRootNode].right = kRootNode;
    for (unsigned c = root.firstColumn; c < end; ++c)
        linkColumn(c);
    const unsigned firstClusterColumn = mNoVars + 2 * mNoConstraints;
    for (unsigned c = firstClusterColumn; c < firstClusterColumn + mNoClusterColumns; ++c)
        linkColumn(c);
}

unsigned kx2SATSolver::addClusterColumns(kxGroupsClustering& clustering, bool flag)
{
    unsigned column = mNoVars + 2 * mNoConstraints;
    for (unsigned id = clustering.getNextClusterId(flag, *mTouchedVars, kNone); id != kNone;
         id = clustering.getNextClusterId(flag, *mTouchedVars, id))
    {
        clustering.getCluster(id, *mClusterGroups);
        unsigned previous = kNone;
        mClusterGroups->forEachTrueVar([&](unsigned group) {
            if (previous != kNone)
                writeHeader(column++, literalOf(previous, false), literalOf(group, true), kNoConstraintId, true, true);
            previous = group;
        });
    }
    return column - (mNoVars + 2 * mNoConstraints);
}

void kx2SATSolver::linkColumn(unsigned column)
{
    const unsigned h = getNodeIdFromColumnId(column);
    const unsigned first = getFirstChildNodeId(column);
    const unsigned second = getSecondChildNodeId(column);
    kxDLXNode& root = mNodes[kRootNode];
    mNodes[h].right = kRootNode;
    mNodes[h].left = root.left;
    mNodes[root.left].right = h;
    root.left = h;

    mNodes[first].setCoordinates(mNodes[h].getRow0(), column);
    mNodes[second].setCoordinates(mNodes[h].getRow1(), column);
    mNodes[h].down = first;
    mNodes[first].down = second;
    mNodes[second].down = h;
    mNodes[h].up = second;
    mNodes[second].up = first;
    mNodes[first].up = h;

    appendToLiteralRing(first, mNodes[first].getRow0());
    appendToLiteralRing(second, mNodes[second].getRow0());
}

void kx2SATSolver::appendToLiteralRing(unsigned node, uint32_t literal)
{
    const unsigned first = mLiteralFirstNode[literal];
    if (first == kNone)
    {
        mLiteralFirstNode[literal] = node;
        mNodes[node].left = node;
        mNodes[node].right = node;
        return;
    }
    const unsigned last = mNodes[first].left;
    mNodes[node].right = first;
    mNodes[node].left = last;
    mNodes[last].right = node;
    mNodes[first].left = node;
}

void kx2SATSolver::unlinkFromRow(unsigned node)
{
    mNodes[mNodes[node].left].right = mNodes[node].right;
    mNodes[mNodes[node].right].left = mNodes[node].left;
}

void kx2SATSolver::relinkInRow(unsigned node)
{
    mNodes[mNodes[node].left].right = node;
    mNodes[mNodes[node].right].left = node;
}

void kx2SATSolver::unlinkFromColumn(unsigned node)
{
    mNodes[mNodes[node].up].down = mNodes[node].down;
    mNodes[mNodes[node].down].up = mNodes[node].up;
}

void kx2SATSolver::relinkInColumn(unsigned node)
{
    mNodes[mNodes[node].up].down = node;
    mNodes[mNodes[node].down].up = node;
}

// ---------------------------------------------------------------------------
// Column records: reordering and splitting move headers with their penalties.

kxDLXColumn kx2SATSolver::columnRecord(unsigned column) const
{
    const kxDLXNode& node = header(column);
    kxDLXColumn record;
    record.setHeaderWord(node.getPackedWord());
    record.setConstraintId(node.getConstraintId());
    if (node.isActive())
        record.setActive(node.isSelectable());
    else
        record.setInactive(node.isSelectable());
    record.setPenalty(mPenalty[column]);
    return record;
}

void kx2SATSolver::writeColumnRecord(unsigned column, const kxDLXColumn& record)
{
    header(column).setPackedWord(record.getHeaderWord());
    mPenalty[column] = record.getPenalty();
}

void kx2SATSolver::writeBackScratchColumns(const kx2SATSystemRoot& root)
{
    for (unsigned k = 0; k < root.noColumns; ++k)
        writeColumnRecord(root.firstColumn + k, mScratchColumns[k]);
    updateConstraintFirstColumns(root);
}

void kx2SATSolver::updateConstraintFirstColumns(const kx2SATSystemRoot& root)
{
    const unsigned end = root.firstColumn + root.noColumns;
    for (unsigned c = root.firstColumn; c < end; ++c)
    {
        const uint32_t id = header(c).getConstraintId();
        if ((id & 1) == 0 && id < 2 * mNoConstraints)
            mConstraintFirstColumn[id / 2] = c;
    }
}

bool kx2SATSolver::isVariableColumn(unsigned column) const
{
    return (header(column).getRow0() >> 1) == (header(column).getRow1() >> 1);
}

void kx2SATSolver::reorderColumns(const kx2SATSystemRoot& root)
{
    const unsigned end = root.firstColumn + root.noColumns;
    unsigned written = 0;
    for (unsigned c = root.firstColumn; c < end; ++c)
    {
        if (isVariableColumn(c))
            mScratchColumns[written++] = columnRecord(c);
    }
    const unsigned noVariableColumns = written;
    for (unsigned c = root.firstColumn; c < end; ++c)
    {
        if (!isVariableColumn(c))
            mScratchColumns[written++] = columnRecord(c);
    }
    sortScratchColumnsByConstraintId(noVariableColumns, written - noVariableColumns);
    writeBackScratchColumns(root);
}

void kx2SATSolver::sortScratchColumnsByConstraintId(unsigned first, unsigned count)
{
    if (count <= kInsertionSortRun)
    {
        for (unsigned i = first + 1; i < first + count; ++i)
        {
            const kxDLXColumn moving = mScratchColumns[i];
            unsigned j = i;
            for (; j > first && mScratchColumns[j - 1].getConstraintId() > moving.getConstraintId(); --j)
                mScratchColumns[j] = mScratchColumns[j - 1];
            mScratchColumns[j] = moving;
        }
        return;
    }
    const unsigned half = count / 2;
    sortScratchColumnsByConstraintId(first, half);
    sortScratchColumnsByConstraintId(first + half, count - half);
    mergeScratchRuns(first, first + half, first + count);
}

void kx2SATSolver::mergeScratchRuns(unsigned first, unsigned middle, unsigned end)
{
    unsigned left = first;
    unsigned right = middle;
    unsigned out = first;
    while (left < middle && right < end)
    {
        // Taking the left run on equal ids keeps the sort stable.
        if (mScratchColumns[right].getConstraintId() < mScratchColumns[left].getConstraintId())
            mMergeBuffer[out++] = mScratchColumns[right++];
        else
            mMergeBuffer[out++] = mScratchColumns[left++];
    }
    while (left < middle)
        mMergeBuffer[out++] = mScratchColumns[left++];
    while (right < end)
        mMergeBuffer[out++] = mScratchColumns[right++];
    std::copy(mMergeBuffer.begin() + first, mMergeBuffer.begin() + end, mScratchColumns.begin() + first);
}

unsigned kx2SATSolver::blockOfColumn(unsigned column, const kx2SATState& solution) const
{
    const unsigned value0 = solution.getVar(header(column).getRow0() >> 1);
    const unsigned value1 = solution.getVar(header(column).getRow1() >> 1);
    if (value0 != value1)
        return kCrossingBlock;
    return value0 == 0 ? kFalseBlock : kTrueBlock;
}

void kx2SATSolver::splitSystem(const kx2SATSystemRoot& root, const kx2SATState& solution,
                               kx2SATSystemRoot& falseSide, kx2SATSystemRoot& trueSide)
{
    const unsigned end = root.firstColumn + root.noColumns;
    unsigned blockSizes[3] = {0, 0, 0};
    unsigned written = 0;
    for (const unsigned block : {kCrossingBlock, kFalseBlock, kTrueBlock})
    {
        for (unsigned c = root.firstColumn; c < end; ++c)
        {
            if (blockOfColumn(c, solution) != block)
                continue;
            mScratchColumns[written++] = columnRecord(c);
            ++blockSizes[block];
        }
    }
    writeBackScratchColumns(root);
    falseSide = {root.firstColumn + blockSizes[kCrossingBlock], blockSizes[kFalseBlock]};
    trueSide = {falseSide.firstColumn + falseSide.noColumns, blockSizes[kTrueBlock]};
}

// ---------------------------------------------------------------------------
// Search.

void kx2SATSolver::solve()
{
    mCurrentAssignment->clear(false);
    mBestSolution->clear(false);
    removeRedundantConstraints();
    removeUnselectableColumns();
    if (mIndexedSelection)
        startSelectionIndex();
    mBestCost = kNoCost;
    mNoVisitedNodes = 0;
    iterateSolve(0, 0, 0, 0);
    pushBackUnselectableColumns();
    pushBackRedundantConstraints();
}

bool kx2SATSolver::isSearchColumn(unsigned headerNode) const
{
    return mNodes[headerNode].isActive() && mNodes[headerNode].isSelectable();
}

bool kx2SATSolver::isInertColumn(unsigned headerNode) const
{
    const kxDLXNode& node = mNodes[headerNode];
    return !node.isActive() && !node.isSelectable() && mPenalty[getColumnIdFromNodeId(headerNode)] == 0;
}

void kx2SATSolver::removeUnselectableColumns()
{
    mNoUnselectableHeaders = 0;
    for (unsigned h = mNodes[kRootNode].right; h != kRootNode; h = mNodes[h].right)
    {
        if (isSearchColumn(h))
            continue;
        // The search selects only hard primary columns and reaches the others
        // through their literals' rings, so they leave the header ring. A
        // soft column without penalty also charges nothing when covered: it
        // leaves the literal rings too, where only the walks over it would
        // remain. Unlinking keeps the order of every other ring, so the search
        // visits the same nodes.
        unlinkFromRow(h);
        if (isInertColumn(h))
        {
            const unsigned column = getColumnIdFromNodeId(h);
            unlinkFromRow(getFirstChildNodeId(column));
            unlinkFromRow(getSecondChildNodeId(column));
        }
        mUnselectableHeaders[mNoUnselectableHeaders++] = h;
    }
}

void kx2SATSolver::pushBackUnselectableColumns()
{
    while (mNoUnselectableHeaders > 0)
    {
        const unsigned h = mUnselectableHeaders[--mNoUnselectableHeaders];
        if (isInertColumn(h))
        {
            const unsigned column = getColumnIdFromNodeId(h);
            relinkInRow(getSecondChildNodeId(column));
            relinkInRow(getFirstChildNodeId(column));
        }
        relinkInRow(h);
    }
}

bool kx2SATSolver::isRedundantAfter(unsigned headerNode, unsigned nextHeaderNode) const
{
    const kxDLXNode& first = mNodes[headerNode];
    const kxDLXNode& second = mNodes[nextHeaderNode];
    const uint32_t id = first.getConstraintId();
    return (id & 1) == 0 && id < 2 * mNoConstraints && second.getConstraintId() == id + 1 && first.isActive() &&
           first.isSelectable() && second.isActive() && second.isSelectable();
}

void kx2SATSolver::removeRedundantConstraints()
{
    mNoRemovedHeaders = 0;
    for (unsigned h = mNodes[kRootNode].right; h != kRootNode; h = mNodes[h].right)
    {
        const unsigned next = mNodes[h].right;
        if (next == kRootNode || !isRedundantAfter(h, next))
            continue;
        // Either clause of a hard primary constraint alone forces both groups
        // to one side: the second one is left out of the search.
        const unsigned column = getColumnIdFromNodeId(next);
        unlinkFromRow(next);
        unlinkFromRow(getFirstChildNodeId(column));
        unlinkFromRow(getSecondChildNodeId(column));
        mRemovedHeaders[mNoRemovedHeaders++] = next;
    }
}

void kx2SATSolver::pushBackRedundantConstraints()
{
    while (mNoRemovedHeaders > 0)
    {
        const unsigned h = mRemovedHeaders[--mNoRemovedHeaders];
        const unsigned column = getColumnIdFromNodeId(h);
        relinkInRow(getSecondChildNodeId(column));
        relinkInRow(getFirstChildNodeId(column));
        relinkInRow(h);
    }
}

void kx2SATSolver::startSelectionIndex()
{
    mSelection.reset();
    while (mNoStaleLiterals > 0)
        mStaleLiteralNode[mStaleLiterals[--mNoStaleLiterals]] = kNone;
    for (unsigned h = mNodes[kRootNode].right; h != kRootNode; h = mNodes[h].right)
    {
        mSelection.rank(getColumnIdFromNodeId(h));
        trackColumn(getColumnIdFromNodeId(h));
    }
}

void kx2SATSolver::trackColumn(unsigned column)
{
    const auto [firstKey, secondKey] = selectionKeys(header(column));
    mSelection.track(column, firstKey, secondKey);
    mSelection.setShort(column, header(column).up == header(column).down);
}

void kx2SATSolver::noteElementChange(unsigned column)
{
    if (mIndexedSelection && mSelection.isTracked(column))
        mSelection.setShort(column, header(column).up == header(column).down);
}

void kx2SATSolver::markKeysStale(unsigned element)
{
    const uint32_t literal = mNodes[element].getRow0();
    if (!mIndexedSelection || mStaleLiteralNode[literal] != kNone)
        return;
    mStaleLiteralNode[literal] = element;
    mStaleLiterals[mNoStaleLiterals++] = literal;
}

void kx2SATSolver::rekeyStaleColumns()
{
    while (mNoStaleLiterals > 0)
    {
        const uint32_t literal = mStaleLiterals[--mNoStaleLiterals];
        const unsigned element = mStaleLiteralNode[literal];
        mStaleLiteralNode[literal] = kNone;
        unsigned j = element;
        do
        {
            const unsigned column = mNodes[j].getRow1();
            if (mSelection.isTracked(column))
            {
                const auto [firstKey, secondKey] = selectionKeys(header(column));
                mSelection.rekey(column, firstKey, secondKey);
            }
            j = mNodes[j].right;
        } while (j != element);
    }
}

// A column's keys come from the costs of its two literals; the header holds
// them in the order of its elements, so for a column with both elements left
// they are the literals of its down and up neighbours.
std::pair<uint64_t, uint64_t> kx2SATSolver::selectionKeys(const kxDLXNode& headerNode) const
{
    const uint64_t cost0 = mLiteralCost[headerNode.getRow0()];
    const uint64_t cost1 = mLiteralCost[headerNode.getRow1()];
    return {((~std::min(cost0, cost1)) >> 3) | kSelectableKeyBit, ~std::max(cost0, cost1)};
}

unsigned kx2SATSolver::selectColumn()
{
    return mIndexedSelection ? selectColumnFromIndex() : selectColumnByRingWalk();
}

unsigned kx2SATSolver::selectColumnFromIndex()
{
    const unsigned shortColumn = mSelection.firstShortColumn();
    if (shortColumn != velmora::ColumnSelectionIndex::kNoColumn)
        return header(shortColumn).up == getNodeIdFromColumnId(shortColumn) ? kNone : shortColumn;
    // Keys matter only now: the literals whose costs changed since the last
    // such choice re-key their columns once each.
    rekeyStaleColumns();
    const unsigned open = mSelection.bestOpenColumn();
    return open == velmora::ColumnSelectionIndex::kNoColumn ? kAllCovered : open;
}

unsigned kx2SATSolver::selectColumnByRingWalk() const
{
    unsigned best = kAllCovered;
    uint64_t bestFirstKey = 0;
    uint64_t bestSecondKey = 0;
    for (unsigned h = mNodes[kRootNode].right; h != kRootNode; h = mNodes[h].right)
    {
        const kxDLXNode& node = mNodes[h];
        if (!node.isActive() || !node.isSelectable())
            continue;
        if (node.up == h)
            return kNone;
        if (node.up == node.down)
            return getColumnIdFromNodeId(h);
        const auto [firstKey, secondKey] = selectionKeys(node);
        if (best == kAllCovered || firstKey < bestFirstKey || (firstKey == bestFirstKey && secondKey < bestSecondKey))
        {
            best = getColumnIdFromNodeId(h);
            bestFirstKey = firstKey;
            bestSecondKey = secondKey;
        }
    }
    return best;
}

void kx2SATSolver::coverColumn(unsigned column)
{
    const unsigned h = getNodeIdFromColumnId(column);
    kxDLXNode& node = mNodes[h];
    if (node.isActive())
    {
        if (node.isSelectable())
        {
            unlinkFromRow(h);
            if (mIndexedSelection)
                mSelection.untrack(column);
        }
        for (unsigned i = node.down; i != h; i = mNodes[i].down)
        {
            for (unsigned j = mNodes[i].right; j != i; j = mNodes[j].right)
            {
                unlinkFromColumn(j);
                noteElementChange(mNodes[j].getRow1());
            }
        }
        return;
    }
    // A soft column charges its penalty to the literal still open in it.
    if (node.down == h)
        return;
    const uint32_t literal = mNodes[node.down].getRow0();
    if (node.isSelectable())
    {
        mHighWordStack[mNoHighWords++] = uint32_t(mLiteralCost[literal] >> 32);
        mLiteralCost[literal] = raiseHighWord(mLiteralCost[literal], mPenalty[column]);
    }
    else
    {
        mLiteralCost[literal] += uint64_t(mPenalty[column]) << mPenaltyShift;
    }
    markKeysStale(node.down);
}

void kx2SATSolver::uncoverColumn(unsigned column)
{
    const unsigned h = getNodeIdFromColumnId(column);
    kxDLXNode& node = mNodes[h];
    if (node.isActive())
    {
        for (unsigned i = node.up; i != h; i = mNodes[i].up)
        {
            for (unsigned j = mNodes[i].left; j != i; j = mNodes[j].left)
            {
                relinkInColumn(j);
                noteElementChange(mNodes[j].getRow1());
            }
        }
        if (node.isSelectable())
        {
            relinkInRow(h);
            if (mIndexedSelection)
                trackColumn(column);
        }
        return;
    }
    if (node.down == h)
        return;
    const uint32_t literal = mNodes[node.down].getRow0();
    if (node.isSelectable())
        mLiteralCost[literal] = withHighWord(mLiteralCost[literal], mHighWordStack[--mNoHighWords]);
    else
        mLiteralCost[literal] -= uint64_t(mPenalty[column]) << mPenaltyShift;
    markKeysStale(node.down);
}

uint64_t kx2SATSolver::iterateSolve(unsigned depth, uint64_t cost, unsigned noTrue, unsigned noFalse)
{
    ++mNoVisitedNodes;
    const unsigned column = selectColumn();
    if (column == kNone)
        return kNoCost;
    if (column == kAllCovered)
    {
        const uint64_t finalCost = evaluate(cost, noTrue, noFalse, mPenaltyShift);
        if (finalCost < mBestCost)
        {
            mBestCost = finalCost;
            *mBestSolution = *mCurrentAssignment;
        }
        return mBestCost;
    }

    coverColumn(column);
    const unsigned h = getNodeIdFromColumnId(column);
    unsigned elements[2] = {mNodes[h].down, mNodes[mNodes[h].down].down};
    uint64_t childCosts[2] = {0, 0};
    uint64_t bounds[2] = {0, 0};
    const unsigned noElements = elements[1] == h ? 1 : 2;
    for (unsigned k = 0; k < noElements; ++k)
    {
        const uint32_t literal = mNodes[elements[k]].getRow0();
        const bool isTrue = (literal & 1) == 0;
        childCosts[k] = combine(cost, mLiteralCost[literal]);
        bounds[k] = bound(childCosts[k], noTrue + (isTrue ? 1 : 0), noFalse + (isTrue ? 0 : 1), mPenaltyShift);
    }
    if (noElements == 2 && bounds[1] < bounds[0])
    {
        std::swap(elements[0], elements[1]);
        std::swap(childCosts[0], childCosts[1]);
        std::swap(bounds[0], bounds[1]);
    }

    bool zeroFound = false;
    for (unsigned k = 0; k < noElements && !zeroFound; ++k)
    {
        if (bounds[k] >= mBestCost)
            continue;
        zeroFound = tryElement(elements[k], depth, childCosts[k], noTrue, noFalse) == 0;
    }
    uncoverColumn(column);
    return zeroFound ? 0 : mBestCost;
}

uint64_t kx2SATSolver::tryElement(unsigned element, unsigned depth, uint64_t childCost, unsigned noTrue,
                                  unsigned noFalse)
{
    const uint32_t literal = mNodes[element].getRow0();
    const bool isTrue = (literal & 1) == 0;
    for (unsigned j = mNodes[element].right; j != element; j = mNodes[j].right)
        coverColumn(mNodes[j].getRow1());
    if (isTrue)
        mCurrentAssignment->setTrue(literal >> 1);

    const uint64_t result = iterateSolve(depth + 1, childCost, noTrue + (isTrue ? 1 : 0), noFalse + (isTrue ? 0 : 1));

    if (isTrue)
        mCurrentAssignment->setFalse(literal >> 1);
    for (unsigned j = mNodes[element].left; j != element; j = mNodes[j].left)
        uncoverColumn(mNodes[j].getRow1());
    return result;
}
