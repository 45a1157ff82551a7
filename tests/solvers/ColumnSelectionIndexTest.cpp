// The selection index of the dancing-links search: the column it names must be
// the one the header-ring walk would name, under any sequence of changes.
#include "velmora/ColumnSelectionIndex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>
#include <vector>

using velmora::ColumnSelectionIndex;

namespace {

// What the ring walk sees: per rank, whether the column is in the ring,
// whether it is short, and its keys.
struct RingModel {
    struct Entry {
        unsigned column;
        bool tracked = false;
        bool isShort = false;
        uint64_t firstKey = 0;
        uint64_t secondKey = 0;
    };
    std::vector<Entry> byRank;

    unsigned firstShort() const
    {
        for (const Entry& e : byRank)
            if (e.tracked && e.isShort)
                return e.column;
        return ColumnSelectionIndex::kNoColumn;
    }
    unsigned bestOpen() const
    {
        const Entry* best = nullptr;
        for (const Entry& e : byRank)
            if (e.tracked && (!best || std::tie(e.firstKey, e.secondKey) < std::tie(best->firstKey, best->secondKey)))
                best = &e;
        return best ? best->column : ColumnSelectionIndex::kNoColumn;
    }
};

}  // namespace

TEST(ColumnSelectionIndex, NamesTheColumnTheRingWalkWouldName)
{
    constexpr unsigned kMaxColumns = 300;
    ColumnSelectionIndex index(kMaxColumns);
    for (unsigned seed = 0; seed < 40; ++seed) {
        std::mt19937 rng(seed);
        // Few distinct keys, so that ties (broken by rank) are common.
        const auto key = [&rng] { return uint64_t(rng() % 4); };
        index.reset();
        RingModel model;
        const unsigned noColumns = 1 + rng() % kMaxColumns;
        // Ranks in an order unrelated to the column numbers, as after a reorder.
        std::vector<unsigned> columns(kMaxColumns);
        for (unsigned c = 0; c < kMaxColumns; ++c)
            columns[c] = c;
        std::shuffle(columns.begin(), columns.end(), rng);
        for (unsigned r = 0; r < noColumns; ++r) {
            index.rank(columns[r]);
            model.byRank.push_back({columns[r]});
        }
        for (unsigned step = 0; step < 2000; ++step) {
            RingModel::Entry& e = model.byRank[rng() % noColumns];
            switch (rng() % 4) {
            case 0:
                if (e.tracked) {
                    index.untrack(e.column);
                } else {
                    e.firstKey = key();
                    e.secondKey = key();
                    index.track(e.column, e.firstKey, e.secondKey);
                    e.isShort = false;
                }
                e.tracked = !e.tracked;
                break;
            case 1:
            case 2:
                if (e.tracked) {
                    e.isShort = !e.isShort;
                    index.setShort(e.column, e.isShort);
                }
                break;
            default:
                if (e.tracked) {
                    e.firstKey = key();
                    e.secondKey = key();
                    index.rekey(e.column, e.firstKey, e.secondKey);
                }
            }
            ASSERT_EQ(index.isTracked(e.column), e.tracked) << "seed " << seed << " step " << step;
            ASSERT_EQ(index.firstShortColumn(), model.firstShort()) << "seed " << seed << " step " << step;
            ASSERT_EQ(index.bestOpenColumn(), model.bestOpen()) << "seed " << seed << " step " << step;
        }
    }
}
