// kx2SATSolver: dancing-links partition solver, the one the hierarchy builder
// drives. It splits a set of groups (one boolean variable per group) into two
// sides at the lowest packed cost, with the same literals, clause kinds, cost
// and system splitting as kx2SATSolverV2, on a classic four-link node matrix:
// every clause is a column holding two element nodes, every literal is a
// horizontal ring of the element nodes that carry it.
//
// Node layout for n variables and m constraints, K = 2(n + m) - 1 columns at
// most (n variable columns, 2m constraint columns, n - 1 cluster columns):
// node 0 is the root of the header ring, node c + 1 the header of column c,
// nodes c + 1 + K and c + 1 + 2K its two element nodes. All 3K + 1 nodes are
// allocated once; baking a system only relinks them.
//
// Invariants:
// - mConstraintFirstColumn[c] is the current column of constraint c's first
//   clause, its second clause is the next column;
// - between searches the literal costs are zero and every redundant, soft or
//   hard secondary column removed for a search is linked again: each cover is
//   undone by its uncover;
// - a range must be baked (bakeSystem) before it is solved.
#pragma once

#include "kx2SATState.h"
#include "velmora/ColumnSelectionIndex.h"

#include <cstdint>
#include <utility>
#include <vector>

class kxGroupsClustering;

enum tDLXNodeType : unsigned
{
    eDLXElementNode = 0,
    eDLXRowHeader = 1,
    eDLXColumnHeader = 2,
};

// One node of the matrix: a packed word and four links (node indices).
// Packed word: bits 0-19 row0 (an element's literal, a header's first
// literal), bits 20-39 row1 (an element's column, a header's second literal),
// bits 40-59 the constraint id, bits 60-61 the node type, bit 62 active
// (hard), bit 63 selectable (primary; for a soft column: maximum-type).
class kxDLXNode
{
public:
    explicit kxDLXNode(tDLXNodeType type = eDLXElementNode)
        : mWord(uint64_t(type) << kTypeShift), up(~0u), down(~0u), left(~0u), right(~0u)
    {
    }

    uint32_t getRow0() const { return uint32_t(mWord & kFieldMask); }
    uint32_t getRow1() const { return uint32_t((mWord >> kRow1Shift) & kFieldMask); }
    uint32_t getConstraintId() const { return uint32_t((mWord >> kConstraintShift) & kFieldMask); }
    void setRow0(uint32_t row0) { setField(0, row0); }
    void setRow1(uint32_t row1) { setField(kRow1Shift, row1); }
    void setCoordinates(uint32_t row0, uint32_t row1)
    {
        setRow0(row0);
        setRow1(row1);
    }
    void setConstraintId(uint32_t id) { setField(kConstraintShift, id); }

    bool isRowHeader() const { return getType() == eDLXRowHeader; }
    bool isColumnHeader() const { return getType() == eDLXColumnHeader; }
    tDLXNodeType getType() const { return tDLXNodeType((mWord >> kTypeShift) & 3u); }

    void setActive(bool active) { setFlag(kActiveBit, active); }
    bool isActive() const { return (mWord & kActiveBit) != 0; }
    void setSelectable(bool selectable) { setFlag(kSelectableBit, selectable); }
    bool isSelectable() const { return (mWord & kSelectableBit) != 0; }

    uint64_t getPackedWord() const { return mWord; }
    void setPackedWord(uint64_t word) { mWord = word; }

private:
    static constexpr uint64_t kFieldMask = 0xFFFFFu;
    static constexpr unsigned kRow1Shift = 20;
    static constexpr unsigned kConstraintShift = 40;
    static constexpr unsigned kTypeShift = 60;
    static constexpr uint64_t kActiveBit = uint64_t(1) << 62;
    static constexpr uint64_t kSelectableBit = uint64_t(1) << 63;

    void setField(unsigned shift, uint32_t value)
    {
        mWord = (mWord & ~(kFieldMask << shift)) | ((uint64_t(value) & kFieldMask) << shift);
    }
    void setFlag(uint64_t bit, bool value) { mWord = value ? (mWord | bit) : (mWord & ~bit); }

    uint64_t mWord;

public:
    uint32_t up;
    uint32_t down;
    uint32_t left;
    uint32_t right;
};

// Column descriptor: a column header's packed word with its flags (bit 31
// selectable, bit 30 active, bits 0-29 constraint id) and its penalty. Used
// to move column headers around when columns are reordered or split.
class kxDLXColumn
{
public:
    uint64_t getHeaderWord() const { return mHeaderWord; }
    void setHeaderWord(uint64_t word) { mHeaderWord = word; }

    void setConstraintId(uint32_t id) { mFlags = (mFlags & ~kIdMask) | (id & kIdMask); }
    uint32_t getConstraintId() const { return mFlags & kIdMask; }
    void setActive(bool selectable) { mFlags = (mFlags & kIdMask) | kActiveBit | (selectable ? kSelectableBit : 0u); }
    void setInactive(bool selectable) { mFlags = (mFlags & kIdMask) | (selectable ? kSelectableBit : 0u); }
    bool isActive() const { return (mFlags & kActiveBit) != 0; }
    bool isSelectable() const { return (mFlags & kSelectableBit) != 0; }
    void setPenalty(uint32_t penalty) { mPenalty = penalty; }
    uint32_t getPenalty() const { return mPenalty; }

private:
    static constexpr uint32_t kSelectableBit = 0x80000000u;
    static constexpr uint32_t kActiveBit = 0x40000000u;
    static constexpr uint32_t kIdMask = 0x3FFFFFFFu;

    uint64_t mHeaderWord = ~uint64_t(0);
    uint32_t mFlags = kIdMask;
    uint32_t mPenalty = 0;
};

// A contiguous range of columns: one system of the solver.
struct kx2SATSystemRoot
{
    unsigned firstColumn;
    unsigned noColumns;
};

class kx2SATSolver
{
public:
    kx2SATSolver(unsigned noVars, unsigned noConstraints);
    kx2SATSolver(const kx2SATSolver&) = default;
    kx2SATSolver(kx2SATSolver&&) noexcept = default;
    kx2SATSolver& operator=(const kx2SATSolver&) = default;
    kx2SATSolver& operator=(kx2SATSolver&&) noexcept = default;
    ~kx2SATSolver() = default;

    // Columns {A true, B false} and {A false, B true} of constraint c (lower
    // group's literal first), hard and primary when active, soft additive with
    // penalty 0 (no effect) otherwise. Called once per constraint, before any
    // reordering or splitting.
    void addNewConstraint(unsigned constraintId, unsigned groupA, unsigned groupB, bool active);

    // Softens or hardens the two columns of a constraint, with the same rules
    // as kx2SATSolverV2::setConstraintParameters.
    void desactivateConstraint(unsigned constraintId, bool soft0, bool soft1, unsigned penalty0, unsigned penalty1,
                               bool maxType);

    kx2SATSystemRoot getGlobalSystemRoot() const { return {0, mNoVars + 2 * mNoConstraints}; }

    // Links the matrix for the columns of root. With a clustering, every
    // cluster to keep whole inside the system (see
    // kxGroupsClustering::getNextClusterId, flag as given) becomes a chain of
    // hard primary columns that forces its groups to one side.
    void bakeSystem(const kx2SATSystemRoot& root, kxGroupsClustering* clustering, bool flag);

    // Variable columns of the range first (in their order), then the other
    // columns stably sorted by constraint id.
    void reorderColumns(const kx2SATSystemRoot& root);

    // Searches the baked system; the result is in getBestCost/getBestSolution.
    void solve();

    // Reorders the columns of root by solution: crossing columns first, then
    // those of the false side, then those of the true side.
    void splitSystem(const kx2SATSystemRoot& root, const kx2SATState& solution, kx2SATSystemRoot& falseSide,
                     kx2SATSystemRoot& trueSide);

    // All ones: no complete assignment; 0xFFFFFFFFFFFFFFFE: only one-sided ones.
    uint64_t getBestCost() const { return mBestCost; }
    const kx2SATState& getBestSolution() const { return *mBestSolution; }
    // Search nodes (iterateSolve calls) of the last solve.
    uint64_t getNoVisitedNodes() const { return mNoVisitedNodes; }
    // How the search finds the column to branch on: from an index kept up to
    // date by covering and uncovering (the default), or by walking the header
    // ring at every step. Both choose the same column, so the search, its
    // result and its visited nodes are the same; the index only saves the
    // walks.
    void setIndexedColumnSelection(bool indexed) { mIndexedSelection = indexed; }
    bool getIndexedColumnSelection() const { return mIndexedSelection; }

private:
    // Unit tests inspect the internal structures through this class.
    friend class kx2SATSolverTestAccess;

    static constexpr unsigned kNone = 0xFFFFFFFFu;
    static constexpr unsigned kAllCovered = 0x7FFFFFFFu;
    static constexpr uint32_t kNoConstraintId = 0xFFFFFu;

    unsigned getNodeIdFromColumnId(unsigned column) const { return column + 1; }
    unsigned getColumnIdFromNodeId(unsigned node) const { return node - 1; }
    unsigned getFirstChildNodeId(unsigned column) const { return column + 1 + mMaxColumns; }
    unsigned getSecondChildNodeId(unsigned column) const { return column + 1 + 2 * mMaxColumns; }
    kxDLXNode& header(unsigned column) { return mNodes[getNodeIdFromColumnId(column)]; }
    const kxDLXNode& header(unsigned column) const { return mNodes[getNodeIdFromColumnId(column)]; }

    uint64_t iterateSolve(unsigned depth, uint64_t cost, unsigned noTrue, unsigned noFalse);
    uint64_t tryElement(unsigned element, unsigned depth, uint64_t childCost, unsigned noTrue, unsigned noFalse);
    unsigned selectColumn();
    unsigned selectColumnByRingWalk() const;
    unsigned selectColumnFromIndex();
    // Key pair of a hard primary column with two elements (smaller wins).
    std::pair<uint64_t, uint64_t> selectionKeys(const kxDLXNode& headerNode) const;
    // Ranks the columns of the header ring in the selection index and tracks them.
    void startSelectionIndex();
    // Tracks a column whose header is back in the ring.
    void trackColumn(unsigned column);
    // Marks a tracked column short or open after it lost or regained an
    // element (nothing when the index is off).
    void noteElementChange(unsigned column);
    // Notes that the cost of the literal of `element` changed: the keys of
    // the tracked columns in its ring are stale until rekeyStaleColumns.
    void markKeysStale(unsigned element);
    void rekeyStaleColumns();
    void coverColumn(unsigned column);
    void uncoverColumn(unsigned column);
    void removeRedundantConstraints();
    void pushBackRedundantConstraints();
    bool isRedundantAfter(unsigned headerNode, unsigned nextHeaderNode) const;
    // For the time of a search only hard primary columns stay in the header
    // ring (covering another hard column leaves the ring alone); soft columns
    // without penalty (inert) leave their literal rings as well.
    bool isSearchColumn(unsigned headerNode) const;
    bool isInertColumn(unsigned headerNode) const;
    void removeUnselectableColumns();
    void pushBackUnselectableColumns();

    void configureColumn(unsigned column, bool soft, bool otherSoft, unsigned penalty, bool maxType);
    void writeHeader(unsigned column, uint32_t literal0, uint32_t literal1, uint32_t constraintId, bool active,
                     bool selectable);
    unsigned addClusterColumns(kxGroupsClustering& clustering, bool flag);
    void linkColumn(unsigned column);
    void appendToLiteralRing(unsigned node, uint32_t literal);
    void unlinkFromRow(unsigned node);
    void relinkInRow(unsigned node);
    void unlinkFromColumn(unsigned node);
    void relinkInColumn(unsigned node);

    kxDLXColumn columnRecord(unsigned column) const;
    void writeColumnRecord(unsigned column, const kxDLXColumn& record);
    void writeBackScratchColumns(const kx2SATSystemRoot& root);
    void sortScratchColumnsByConstraintId(unsigned first, unsigned count);
    void mergeScratchRuns(unsigned first, unsigned middle, unsigned end);
    void updateConstraintFirstColumns(const kx2SATSystemRoot& root);
    bool isVariableColumn(unsigned column) const;
    unsigned blockOfColumn(unsigned column, const kx2SATState& solution) const;

    std::vector<kxDLXNode> mNodes;
    std::vector<uint32_t> mPenalty;
    std::vector<unsigned> mConstraintFirstColumn;
    std::vector<unsigned> mLiteralFirstNode;
    std::vector<uint64_t> mLiteralCost;
    std::vector<uint32_t> mHighWordStack;
    unsigned mNoHighWords;
    std::vector<unsigned> mRemovedHeaders;
    unsigned mNoRemovedHeaders;
    std::vector<unsigned> mUnselectableHeaders;
    unsigned mNoUnselectableHeaders;
    std::vector<kxDLXColumn> mScratchColumns;
    std::vector<kxDLXColumn> mMergeBuffer;

    kx2SATStateValue mBestSolution;
    kx2SATStateValue mCurrentAssignment;
    kx2SATStateValue mTouchedVars;
    kx2SATStateValue mClusterGroups;

    uint64_t mBestCost;
    unsigned mNoVars;
    unsigned mNoConstraints;
    unsigned mMaxColumns;
    unsigned mPenaltyShift;
    unsigned mNoClusterColumns;
    uint64_t mNoVisitedNodes;
    velmora::ColumnSelectionIndex mSelection;
    std::vector<unsigned> mStaleLiteralNode; // per literal: a node of its ring to walk, kNone when keys are current
    std::vector<uint32_t> mStaleLiterals;
    unsigned mNoStaleLiterals;
    bool mIndexedSelection;
};
