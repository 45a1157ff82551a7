// ColumnSelectionIndex: the branching choice of the dancing-links search
// without walking the header ring. The walk answers with the first column, in
// ring order, that has at most one element left (a dead end or a forced
// choice), and otherwise with the column of smallest key pair, the first in
// ring order on equal keys. This index gives the same answer in logarithmic
// time.
//
// Every column of the ring gets a rank when the search starts: its position in
// the ring then. During the search the ring only loses columns and gets them
// back in place, so rank order stays ring order. A tracked column (one whose
// header is in the ring) sits in a binary min-heap ordered by (first key,
// second key, rank); its keys depend only on the costs of its two literals,
// so losing or regaining elements does not move it. Short columns (at most
// one element left) are also marked in a two-level bit set over ranks, which
// is all that changes when elements come and go.
//
// Invariants: the heap holds exactly the tracked columns, in heap order as
// long as the owner re-keys a tracked column whenever one of its literals'
// costs changes; a short bit is set only for a tracked column. While any short
// column exists the heap is not consulted, so an open column's keys are never
// read stale. Everything is sized by the constructor; no operation allocates.
#pragma once

#include <cstdint>
#include <vector>

namespace velmora {

class ColumnSelectionIndex {
public:
    static constexpr unsigned kNoColumn = 0xFFFFFFFFu;

    // Columns are numbered 0 .. maxColumns - 1.
    explicit ColumnSelectionIndex(unsigned maxColumns);

    // Forgets every rank and tracked column (cost: the columns ranked since
    // the last reset).
    void reset();
    // Gives `column` the next rank; columns must be ranked in ring order.
    // The column is not tracked until track() is called.
    void rank(unsigned column);
    // Tracks a ranked, untracked column (its header is in the ring) with the
    // given keys, open.
    void track(unsigned column, uint64_t firstKey, uint64_t secondKey);
    // Stops tracking `column` (its header left the ring); it keeps its rank.
    void untrack(unsigned column);
    bool isTracked(unsigned column) const { return mHeapSlot[column] != kNoColumn; }
    // New keys for a tracked column.
    void rekey(unsigned column, uint64_t firstKey, uint64_t secondKey);
    // Marks a tracked column short (at most one element) or open.
    void setShort(unsigned column, bool isShort);

    // The short column of lowest rank, or kNoColumn.
    unsigned firstShortColumn() const;
    // The tracked column of smallest (first key, second key, rank), or
    // kNoColumn; the best open one when firstShortColumn() finds none.
    unsigned bestOpenColumn() const { return mHeapSize == 0 ? kNoColumn : mHeap[0]; }

private:
    bool precedes(unsigned a, unsigned b) const;
    void siftUp(unsigned slot);
    void siftDown(unsigned slot);
    void putInHeapSlot(unsigned column, unsigned slot);
    void removeFromHeap(unsigned column);

    std::vector<unsigned> mRank;          // per column
    std::vector<unsigned> mColumnOfRank;  // per rank
    unsigned mNoRanked = 0;
    std::vector<unsigned char> mShort;    // per column: 1 while tracked and short
    std::vector<uint64_t> mShortBits;     // bit r: the column of rank r is short
    std::vector<uint64_t> mShortWords;    // bit w: word w of mShortBits is not 0
    std::vector<uint64_t> mFirstKey;      // per column, valid while open
    std::vector<uint64_t> mSecondKey;
    std::vector<unsigned> mHeapSlot;      // per column, kNoColumn when not in the heap
    std::vector<unsigned> mHeap;          // columns
    unsigned mHeapSize = 0;
};

}  // namespace velmora
