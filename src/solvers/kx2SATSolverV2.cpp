#include "kx2SATSolverV2.h"

#include "kx2SATRules.h"

#include <algorithm>

using namespace kx2SATRules;

namespace
{
constexpr uint64_t kOpenCountUnit = uint64_t(1) << 62;
constexpr unsigned kCrossingBlock = 0;
constexpr unsigned kFalseBlock = 1;
constexpr unsigned kTrueBlock = 2;
} // namespace

kx2SATSolverV2::kx2SATSolverV2(unsigned noVars, unsigned noConstraints)
    : mBestCost(kNoCost), mBestSolution(noVars), mRows(noVars + 2 * noConstraints),
      mScratchRows(noVars + 2 * noConstraints), mConstraintRow(noConstraints),
      mLiteralStart(2 * noVars, 0), mLiteralCount(2 * noVars, 0),
      mLiteralRows(2 * (noVars + 2 * noConstraints), 0), mLiteralCost(2 * noVars, 0),
      mHighWordStack(2 * (noVars + 2 * noConstraints), 0), mNoHighWords(0),
      mHeapKeys(noVars + 2 * noConstraints), mHeap(noVars + 2 * noConstraints, 0),
      mHeapPosition(noVars + 2 * noConstraints, kNone), mHeapSize(0),
      mHeapItemRow(noVars + 2 * noConstraints, 0), mRowHeapItem(noVars + 2 * noConstraints, kNone),
      mExcludedStack(2 * noVars, 0), mNoExcluded(0), mTouchedVars(noVars), mCurrentAssignment(noVars),
      mExcludedLiterals(2 * noVars), mRowsToRekey(noVars + 2 * noConstraints), mNoVars(noVars),
      mNoConstraints(noConstraints), mPenaltyShift(penaltyShift(noVars)), mNoVisitedNodes(0)
{
    for (unsigned v = 0; v < noVars; ++v)
        mRows[v] = {literalOf(v, true), literalOf(v, false), kPrimaryBit | kHardBit | kRowIdMask, 0};
    for (unsigned c = 0; c < noConstraints; ++c)
    {
        mConstraintRow[c] = noVars + 2 * c;
        mRows[noVars + 2 * c] = {0, 0, 2 * c, 0};
        mRows[noVars + 2 * c + 1] = {0, 0, 2 * c + 1, 0};
    }
}

void kx2SATSolverV2::createConstraint(unsigned constraintId, unsigned groupA, unsigned groupB, bool)
{
    const unsigned first = mConstraintRow[constraintId];
    for (unsigned clause = 0; clause < 2; ++clause)
    {
        tRow& row = mRows[first + clause];
        const tClauseLiterals literals = constraintClause(groupA, groupB, clause);
        row.literal0 = literals.first;
        row.literal1 = literals.second;
        row.flags = (row.flags & kRowIdMask) | kHardBit | kPrimaryBit;
        row.penalty = 0;
    }
}

void kx2SATSolverV2::configureRow(tRow& row, bool soft, bool otherSoft, unsigned penalty, bool maxType)
{
    row.flags &= kRowIdMask;
    if (soft)
    {
        row.penalty = penalty;
        if (maxType && penalty != 0)
            row.flags |= kPrimaryBit;
        return;
    }
    row.penalty = 0;
    row.flags |= kHardBit;
    if (!otherSoft)
        row.flags |= kPrimaryBit;
}

void kx2SATSolverV2::setConstraintParameters(unsigned constraintId, bool soft0, bool soft1, unsigned penalty0,
                                             unsigned penalty1, bool maxType)
{
    const unsigned first = mConstraintRow[constraintId];
    configureRow(mRows[first], soft0, soft1, penalty0, maxType);
    configureRow(mRows[first + 1], soft1, soft0, penalty1, maxType);
}

void kx2SATSolverV2::bakeSystem(const tSystemRoot& root)
{
    const unsigned end = root.firstRow + root.noRows;
    mTouchedVars->clear(false);
    for (unsigned r = root.firstRow; r < end; ++r)
    {
        for (const uint32_t literal : {mRows[r].literal0, mRows[r].literal1})
        {
            mLiteralStart[literal] = 0;
            mLiteralCount[literal] = 0;
            mTouchedVars->setTrue(literal >> 1);
        }
    }
    for (unsigned r = root.firstRow; r < end; ++r)
    {
        ++mLiteralCount[mRows[r].literal0];
        ++mLiteralCount[mRows[r].literal1];
    }
    unsigned offset = 0;
    mTouchedVars->forEachTrueVar([&](unsigned v) {
        for (const unsigned literal : {2 * v, 2 * v + 1})
        {
            mLiteralStart[literal] = offset;
            offset += mLiteralCount[literal];
            mLiteralCount[literal] = 0;
        }
    });
    for (unsigned r = root.firstRow; r < end; ++r)
    {
        for (const uint32_t literal : {mRows[r].literal0, mRows[r].literal1})
            mLiteralRows[mLiteralStart[literal] + mLiteralCount[literal]++] = r;
    }
}

void kx2SATSolverV2::solve(const tSystemRoot& root)
{
    const unsigned end = root.firstRow + root.noRows;
    mHeapSize = 0;
    for (unsigned r = root.firstRow; r < end; ++r)
    {
        if (!isHardPrimary(mRows[r]))
            continue;
        const unsigned item = mHeapSize++;
        mHeapKeys[item] = computeColumnCost(r);
        mHeapItemRow[item] = r;
        mRowHeapItem[r] = item;
    }
    buildHeap();
    mNoExcluded = 0;
    mBestCost = kNoCost;
    mNoVisitedNodes = 0;

    tSystemState state{&root, 0, 0, 0};
    iterateSolve(state, 0);
}

uint64_t kx2SATSolverV2::iterateSolve(tSystemState& state, unsigned depth)
{
    ++mNoVisitedNodes;
    const unsigned column = selectColumn();
    if (column == kNone)
        return kNoCost;
    if (column == kAllCovered)
    {
        const uint64_t cost = evaluate(state.cost, state.noTrue, state.noFalse, mPenaltyShift);
        if (cost < mBestCost)
        {
            mBestCost = cost;
            *mBestSolution = *mCurrentAssignment;
        }
        return mBestCost;
    }

    const tRow& row = mRows[column];
    const unsigned x = row.literal0;
    const unsigned y = row.literal1;
    const auto childCostOf = [&](unsigned literal) { return combine(state.cost, mLiteralCost[literal]); };
    const auto childBoundOf = [&](unsigned literal, uint64_t childCost) {
        const bool isTrue = (literal & 1) == 0;
        return bound(childCost, state.noTrue + (isTrue ? 1 : 0), state.noFalse + (isTrue ? 0 : 1), mPenaltyShift);
    };
    const uint64_t costX = childCostOf(x);
    const uint64_t costY = childCostOf(y);
    const uint64_t boundX = childBoundOf(x, costX);
    const uint64_t boundY = childBoundOf(y, costY);
    if (boundY < boundX)
    {
        tryLiteral(state, depth, y, costY, boundY);
        tryLiteral(state, depth, x, costX, boundX);
    }
    else
    {
        tryLiteral(state, depth, x, costX, boundX);
        tryLiteral(state, depth, y, costY, boundY);
    }
    return mBestCost;
}

void kx2SATSolverV2::tryLiteral(tSystemState& state, unsigned depth, unsigned literal, uint64_t childCost,
                                uint64_t childBound)
{
    if (isExcluded(literal) || childBound >= mBestCost)
        return;
    const bool isTrue = (literal & 1) == 0;
    const unsigned variable = literal >> 1;
    if (isTrue)
        mCurrentAssignment->setTrue(variable);
    const unsigned excludedBefore = mNoExcluded;
    maskRow(literal);
    unsigned& counter = isTrue ? state.noTrue : state.noFalse;
    ++counter;
    const uint64_t savedCost = state.cost;
    state.cost = childCost;

    iterateSolve(state, depth + 1);

    state.cost = savedCost;
    --counter;
    unmaskRow(literal, mNoExcluded - excludedBefore);
    if (isTrue)
        mCurrentAssignment->setFalse(variable);
}

unsigned kx2SATSolverV2::selectColumn() const
{
    if (mHeapSize == 0)
        return kAllCovered;
    const unsigned top = mHeap[0];
    if (mHeapKeys[top].first < kOpenCountUnit)
        return kNone;
    return mHeapItemRow[top];
}

kx2SATSolverV2::tHeapKey kx2SATSolverV2::computeColumnCost(unsigned row) const
{
    uint64_t costs[2];
    uint64_t noOpen = 0;
    const uint32_t literals[2] = {mRows[row].literal0, mRows[row].literal1};
    for (unsigned k = 0; k < 2; ++k)
    {
        const bool excluded = isExcluded(literals[k]);
        costs[k] = excluded ? kNoCost : mLiteralCost[literals[k]];
        noOpen += excluded ? 0 : 1;
    }
    const uint64_t lo = std::min(costs[0], costs[1]);
    const uint64_t hi = std::max(costs[0], costs[1]);
    return {((~lo) >> 2) | (noOpen << 62), ~hi};
}

void kx2SATSolverV2::maskRow(unsigned literal)
{
    mExcludedLiterals->setTrue(literal);
    for (const unsigned* it = literalRowsBegin(literal); it != literalRowsEnd(literal); ++it)
    {
        const tRow& row = mRows[*it];
        const unsigned other = otherLiteral(row, literal);
        if (isHard(row))
        {
            if (isPrimary(row) && mHeapPosition[mRowHeapItem[*it]] != kNone)
                heapRemove(mRowHeapItem[*it]);
            if (!isExcluded(other))
            {
                mExcludedLiterals->setTrue(other);
                mExcludedStack[mNoExcluded++] = other;
            }
        }
        else if (isPrimary(row))
        {
            mHighWordStack[mNoHighWords++] = uint32_t(mLiteralCost[other] >> 32);
            mLiteralCost[other] = raiseHighWord(mLiteralCost[other], row.penalty);
        }
        else
        {
            mLiteralCost[other] += uint64_t(row.penalty) << mPenaltyShift;
        }
        markHardPrimaryRowsOf(other);
    }
    unmarkRowsOf(literal);
    rekeyMarkedRows();
}

void kx2SATSolverV2::unmaskRow(unsigned literal, unsigned noExcluded)
{
    mExcludedLiterals->setFalse(literal);
    for (unsigned k = 0; k < noExcluded; ++k)
        mExcludedLiterals->setFalse(mExcludedStack[--mNoExcluded]);
    for (const unsigned* it = literalRowsEnd(literal); it != literalRowsBegin(literal);)
    {
        --it;
        const tRow& row = mRows[*it];
        const unsigned other = otherLiteral(row, literal);
        if (isHard(row))
        {
            if (isPrimary(row))
                heapAppend(mRowHeapItem[*it]);
        }
        else if (isPrimary(row))
        {
            mLiteralCost[other] = withHighWord(mLiteralCost[other], mHighWordStack[--mNoHighWords]);
        }
        else
        {
            mLiteralCost[other] -= uint64_t(row.penalty) << mPenaltyShift;
        }
        markHardPrimaryRowsOf(other);
    }
    unmarkRowsOf(literal);
    rekeyMarkedRows();
}

void kx2SATSolverV2::markHardPrimaryRowsOf(unsigned literal)
{
    for (const unsigned* it = literalRowsBegin(literal); it != literalRowsEnd(literal); ++it)
    {
        if (isHardPrimary(mRows[*it]))
            mRowsToRekey->setTrue(*it);
    }
}

void kx2SATSolverV2::unmarkRowsOf(unsigned literal)
{
    for (const unsigned* it = literalRowsBegin(literal); it != literalRowsEnd(literal); ++it)
        mRowsToRekey->setFalse(*it);
}

void kx2SATSolverV2::rekeyMarkedRows()
{
    uint64_t* chunks = mRowsToRekey->editData();
    const unsigned noChunks = mRowsToRekey->getNoDataChunks();
    for (unsigned k = 0; k < noChunks; ++k)
    {
        for (uint64_t x = chunks[k]; x != 0; x &= x - 1)
        {
            const unsigned row = kx2SATState::lowestBitPosition(x) + 64 * k;
            const unsigned item = mRowHeapItem[row];
            if (mHeapPosition[item] == kNone)
                continue;
            const tHeapKey key = computeColumnCost(row);
            if (key == mHeapKeys[item])
                continue;
            const bool decreased = key < mHeapKeys[item];
            mHeapKeys[item] = key;
            if (decreased)
                heapSiftUp(mHeapPosition[item]);
            else
                heapSiftDown(mHeapPosition[item]);
        }
        chunks[k] = 0;
    }
}

void kx2SATSolverV2::heapPlace(unsigned item, unsigned position)
{
    mHeap[position] = item;
    mHeapPosition[item] = position;
}

void kx2SATSolverV2::buildHeap()
{
    for (unsigned item = 0; item < mHeapSize; ++item)
        heapPlace(item, item);
    for (unsigned position = mHeapSize / 2; position-- > 0;)
        heapSiftDown(position);
}

void kx2SATSolverV2::heapSiftUp(unsigned position)
{
    const unsigned item = mHeap[position];
    while (position > 0)
    {
        const unsigned parent = (position - 1) / 2;
        if (!(mHeapKeys[item] < mHeapKeys[mHeap[parent]]))
            break;
        heapPlace(mHeap[parent], position);
        position = parent;
    }
    heapPlace(item, position);
}

void kx2SATSolverV2::heapSiftDown(unsigned position)
{
    const unsigned item = mHeap[position];
    for (;;)
    {
        unsigned child = 2 * position + 1;
        if (child >= mHeapSize)
            break;
        if (child + 1 < mHeapSize && mHeapKeys[mHeap[child + 1]] < mHeapKeys[mHeap[child]])
            ++child;
        if (!(mHeapKeys[mHeap[child]] < mHeapKeys[item]))
            break;
        heapPlace(mHeap[child], position);
        position = child;
    }
    heapPlace(item, position);
}

void kx2SATSolverV2::heapRemove(unsigned item)
{
    const unsigned position = mHeapPosition[item];
    mHeapPosition[item] = kNone;
    --mHeapSize;
    if (position == mHeapSize)
        return;
    const unsigned last = mHeap[mHeapSize];
    heapPlace(last, position);
    if (position > 0 && mHeapKeys[last] < mHeapKeys[mHeap[(position - 1) / 2]])
        heapSiftUp(position);
    else
        heapSiftDown(position);
}

void kx2SATSolverV2::heapAppend(unsigned item)
{
    heapPlace(item, mHeapSize++);
    heapSiftUp(mHeapSize - 1);
}

unsigned kx2SATSolverV2::blockOfRow(const tRow& row, const kx2SATState& solution) const
{
    const unsigned value0 = solution.getVar(row.literal0 >> 1);
    const unsigned value1 = solution.getVar(row.literal1 >> 1);
    if (value0 != value1)
        return kCrossingBlock;
    return value0 == 0 ? kFalseBlock : kTrueBlock;
}

void kx2SATSolverV2::splitSystem(const tSystemRoot& root, const kx2SATState& solution, tSystemRoot& falseSide,
                                 tSystemRoot& trueSide)
{
    const unsigned end = root.firstRow + root.noRows;
    unsigned blockSizes[3] = {0, 0, 0};
    unsigned written = 0;
    for (const unsigned block : {kCrossingBlock, kFalseBlock, kTrueBlock})
    {
        for (unsigned r = root.firstRow; r < end; ++r)
        {
            if (blockOfRow(mRows[r], solution) != block)
                continue;
            mScratchRows[written++] = mRows[r];
            ++blockSizes[block];
        }
    }
    std::copy(mScratchRows.begin(), mScratchRows.begin() + root.noRows, mRows.begin() + root.firstRow);

    falseSide = {root.firstRow + blockSizes[kCrossingBlock], blockSizes[kFalseBlock]};
    trueSide = {falseSide.firstRow + falseSide.noRows, blockSizes[kTrueBlock]};

    for (unsigned r = root.firstRow; r < end; ++r)
    {
        const unsigned id = mRows[r].flags & kRowIdMask;
        if ((id & 1) == 0 && id / 2 < mNoConstraints)
            mConstraintRow[id / 2] = r;
    }
}
