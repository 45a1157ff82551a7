#include "velmora/ColumnSelectionIndex.h"

#include <algorithm>
#include <bit>
#include <tuple>

namespace velmora {

namespace {
constexpr unsigned kWordBits = 64;

unsigned wordsFor(unsigned bits) { return (bits + kWordBits - 1) / kWordBits; }
}  // namespace

ColumnSelectionIndex::ColumnSelectionIndex(unsigned maxColumns)
    : mRank(maxColumns, kNoColumn), mColumnOfRank(maxColumns, kNoColumn), mShort(maxColumns, 0),
      mShortBits(wordsFor(maxColumns), 0), mShortWords(wordsFor(wordsFor(maxColumns)), 0),
      mFirstKey(maxColumns, 0), mSecondKey(maxColumns, 0), mHeapSlot(maxColumns, kNoColumn),
      mHeap(maxColumns, kNoColumn)
{
}

void ColumnSelectionIndex::reset()
{
    for (unsigned r = 0; r < mNoRanked; ++r) {
        const unsigned column = mColumnOfRank[r];
        mRank[column] = kNoColumn;
        mShort[column] = 0;
        mHeapSlot[column] = kNoColumn;
    }
    std::fill(mShortBits.begin(), mShortBits.begin() + wordsFor(mNoRanked), 0);
    std::fill(mShortWords.begin(), mShortWords.begin() + wordsFor(wordsFor(mNoRanked)), 0);
    mNoRanked = 0;
    mHeapSize = 0;
}

void ColumnSelectionIndex::rank(unsigned column)
{
    mRank[column] = mNoRanked;
    mColumnOfRank[mNoRanked++] = column;
}

void ColumnSelectionIndex::track(unsigned column, uint64_t firstKey, uint64_t secondKey)
{
    mFirstKey[column] = firstKey;
    mSecondKey[column] = secondKey;
    putInHeapSlot(column, mHeapSize++);
    siftUp(mHeapSlot[column]);
}

void ColumnSelectionIndex::untrack(unsigned column)
{
    setShort(column, false);
    removeFromHeap(column);
}

void ColumnSelectionIndex::rekey(unsigned column, uint64_t firstKey, uint64_t secondKey)
{
    if (mFirstKey[column] == firstKey && mSecondKey[column] == secondKey)
        return;
    mFirstKey[column] = firstKey;
    mSecondKey[column] = secondKey;
    // The keys may have moved either way.
    siftUp(mHeapSlot[column]);
    siftDown(mHeapSlot[column]);
}

void ColumnSelectionIndex::setShort(unsigned column, bool isShort)
{
    if ((mShort[column] != 0) == isShort)
        return;
    mShort[column] = isShort ? 1 : 0;
    const unsigned rank = mRank[column];
    const unsigned word = rank / kWordBits;
    mShortBits[word] ^= uint64_t(1) << (rank % kWordBits);
    if (isShort)
        mShortWords[word / kWordBits] |= uint64_t(1) << (word % kWordBits);
    else if (mShortBits[word] == 0)
        mShortWords[word / kWordBits] &= ~(uint64_t(1) << (word % kWordBits));
}

unsigned ColumnSelectionIndex::firstShortColumn() const
{
    const unsigned noSummaryWords = wordsFor(wordsFor(mNoRanked));
    for (unsigned s = 0; s < noSummaryWords; ++s) {
        if (mShortWords[s] == 0)
            continue;
        const unsigned word = s * kWordBits + unsigned(std::countr_zero(mShortWords[s]));
        const unsigned rank = word * kWordBits + unsigned(std::countr_zero(mShortBits[word]));
        return mColumnOfRank[rank];
    }
    return kNoColumn;
}

bool ColumnSelectionIndex::precedes(unsigned a, unsigned b) const
{
    return std::tie(mFirstKey[a], mSecondKey[a], mRank[a]) < std::tie(mFirstKey[b], mSecondKey[b], mRank[b]);
}

void ColumnSelectionIndex::putInHeapSlot(unsigned column, unsigned slot)
{
    mHeap[slot] = column;
    mHeapSlot[column] = slot;
}

void ColumnSelectionIndex::siftUp(unsigned slot)
{
    const unsigned column = mHeap[slot];
    while (slot > 0) {
        const unsigned parent = (slot - 1) / 2;
        if (!precedes(column, mHeap[parent]))
            break;
        putInHeapSlot(mHeap[parent], slot);
        slot = parent;
    }
    putInHeapSlot(column, slot);
}

void ColumnSelectionIndex::siftDown(unsigned slot)
{
    const unsigned column = mHeap[slot];
    for (;;) {
        unsigned child = 2 * slot + 1;
        if (child >= mHeapSize)
            break;
        if (child + 1 < mHeapSize && precedes(mHeap[child + 1], mHeap[child]))
            ++child;
        if (!precedes(mHeap[child], column))
            break;
        putInHeapSlot(mHeap[child], slot);
        slot = child;
    }
    putInHeapSlot(column, slot);
}

void ColumnSelectionIndex::removeFromHeap(unsigned column)
{
    const unsigned slot = mHeapSlot[column];
    mHeapSlot[column] = kNoColumn;
    const unsigned last = mHeap[--mHeapSize];
    if (last == column)
        return;
    putInHeapSlot(last, slot);
    siftUp(slot);
    siftDown(mHeapSlot[last]);
}

}  // namespace velmora
