// kx2SATSolverV2: bitmask partition solver. Splits a set of groups (one
// boolean variable per group) into two sides at the lowest packed cost.
//
// Variable v has literals 2v (true) and 2v + 1 (false). Every clause (row)
// holds two literals; rows 0..n-1 are the variable rows (2v, 2v + 1), rows
// n + 2c and n + 2c + 1 the two clauses of constraint c. The search is an
// exact-cover search over the hard primary rows: choosing a literal covers
// every row holding it, a hard row excludes its other literal, a soft row
// charges its penalty to its other literal. Branch and bound on the packed
// cost; the next row is taken from an indexed heap.
//
// Invariants:
// - mConstraintRow[c] is the current position of constraint c's first row;
//   its second row follows it (splitSystem keeps both in one block);
// - between searches, literal costs, excluded literals, marked rows and the
//   current assignment are all zero: every choice is undone on the way back;
// - a range must be baked (bakeSystem) before it is solved.
#pragma once

#include "kx2SATState.h"

#include <cstdint>
#include <vector>

class kx2SATSolverV2
{
public:
    // A contiguous range of rows.
    struct tSystemRoot
    {
        unsigned firstRow;
        unsigned noRows;
    };

    kx2SATSolverV2(unsigned noVars, unsigned noConstraints);
    kx2SATSolverV2(const kx2SATSolverV2&) = default;
    kx2SATSolverV2(kx2SATSolverV2&&) noexcept = default;
    kx2SATSolverV2& operator=(const kx2SATSolverV2&) = default;
    kx2SATSolverV2& operator=(kx2SATSolverV2&&) noexcept = default;
    ~kx2SATSolverV2() = default;

    // Two hard primary rows {A true, B false} and {A false, B true} (lower
    // group's literal first in each): together they force A and B to the
    // same side. The bool is not used.
    void createConstraint(unsigned constraintId, unsigned groupA, unsigned groupB, bool);

    // Softens a row (penalty, maximum-type when maxType and the penalty is not
    // 0, additive otherwise) or makes it hard; when one row is soft the other
    // one, if hard, only excludes (secondary) and is never branched on.
    void setConstraintParameters(unsigned constraintId, bool soft0, bool soft1, unsigned penalty0,
                                 unsigned penalty1, bool maxType);

    tSystemRoot getGlobalSystemRoot() const { return {0, mNoVars + 2 * mNoConstraints}; }

    // Builds the per-literal row lists of the range.
    void bakeSystem(const tSystemRoot& root);

    // Searches the baked range; the result is in getBestCost/getBestSolution.
    void solve(const tSystemRoot& root);

    // Reorders the rows of root by solution: crossing rows first, then the
    // rows of the false side, then those of the true side.
    void splitSystem(const tSystemRoot& root, const kx2SATState& solution, tSystemRoot& falseSide,
                     tSystemRoot& trueSide);

    // All ones: no complete assignment; 0xFFFFFFFFFFFFFFFE: only one-sided ones.
    uint64_t getBestCost() const { return mBestCost; }
    const kx2SATState& getBestSolution() const { return *mBestSolution; }
    // Search nodes (iterateSolve calls) of the last solve.
    uint64_t getNoVisitedNodes() const { return mNoVisitedNodes; }

private:
    // Unit tests inspect the internal structures through this class.
    friend class kx2SATSolverV2TestAccess;

    struct tRow
    {
        uint32_t literal0;
        uint32_t literal1;
        uint32_t flags; // bit 31 primary, bit 30 hard, bits 0..29 row id
        uint32_t penalty;
    };

    struct tSystemState
    {
        const tSystemRoot* root;
        uint64_t cost;
        unsigned noTrue;
        unsigned noFalse;
    };

    struct tHeapKey
    {
        uint64_t first;
        uint64_t second;
        bool operator==(const tHeapKey&) const = default;
        bool operator<(const tHeapKey& other) const
        {
            return first < other.first || (first == other.first && second < other.second);
        }
    };

    static constexpr uint32_t kPrimaryBit = 0x80000000u;
    static constexpr uint32_t kHardBit = 0x40000000u;
    static constexpr uint32_t kRowIdMask = 0x3FFFFFFFu;
    static constexpr unsigned kNone = 0xFFFFFFFFu;
    static constexpr unsigned kAllCovered = 0x7FFFFFFFu;

    static bool isHard(const tRow& row) { return (row.flags & kHardBit) != 0; }
    static bool isPrimary(const tRow& row) { return (row.flags & kPrimaryBit) != 0; }
    static bool isHardPrimary(const tRow& row) { return (row.flags & (kHardBit | kPrimaryBit)) == (kHardBit | kPrimaryBit); }
    static uint32_t otherLiteral(const tRow& row, unsigned literal) { return row.literal0 ^ row.literal1 ^ literal; }
    static void configureRow(tRow& row, bool soft, bool otherSoft, unsigned penalty, bool maxType);

    uint64_t iterateSolve(tSystemState& state, unsigned depth);
    void tryLiteral(tSystemState& state, unsigned depth, unsigned literal, uint64_t childCost, uint64_t childBound);
    unsigned selectColumn() const;
    tHeapKey computeColumnCost(unsigned row) const;
    void maskRow(unsigned literal);
    void unmaskRow(unsigned literal, unsigned noExcluded);

    // Row lists and bookkeeping shared by maskRow and unmaskRow.
    const unsigned* literalRowsBegin(unsigned literal) const { return mLiteralRows.data() + mLiteralStart[literal]; }
    const unsigned* literalRowsEnd(unsigned literal) const { return literalRowsBegin(literal) + mLiteralCount[literal]; }
    bool isExcluded(unsigned literal) const { return mExcludedLiterals->getVar(literal) != 0; }
    void markHardPrimaryRowsOf(unsigned literal);
    void unmarkRowsOf(unsigned literal);
    void rekeyMarkedRows();
    unsigned blockOfRow(const tRow& row, const kx2SATState& solution) const;

    // Indexed binary min-heap over the hard primary rows.
    void buildHeap();
    void heapRemove(unsigned item);
    void heapAppend(unsigned item);
    void heapSiftUp(unsigned position);
    void heapSiftDown(unsigned position);
    void heapPlace(unsigned item, unsigned position);

    uint64_t mBestCost;
    kx2SATStateValue mBestSolution;

    std::vector<tRow> mRows;
    std::vector<tRow> mScratchRows;
    std::vector<unsigned> mConstraintRow;

    std::vector<unsigned> mLiteralStart;
    std::vector<unsigned> mLiteralCount;
    std::vector<unsigned> mLiteralRows;

    std::vector<uint64_t> mLiteralCost;
    std::vector<uint32_t> mHighWordStack;
    unsigned mNoHighWords;

    std::vector<tHeapKey> mHeapKeys;
    std::vector<unsigned> mHeap;
    std::vector<unsigned> mHeapPosition;
    unsigned mHeapSize;
    std::vector<unsigned> mHeapItemRow;
    std::vector<unsigned> mRowHeapItem;

    std::vector<unsigned> mExcludedStack;
    unsigned mNoExcluded;

    kx2SATStateValue mTouchedVars;
    kx2SATStateValue mCurrentAssignment;
    kx2SATStateValue mExcludedLiterals;
    kx2SATStateValue mRowsToRekey;

    unsigned mNoVars;
    unsigned mNoConstraints;
    unsigned mPenaltyShift;
    uint64_t mNoVisitedNodes;
};
