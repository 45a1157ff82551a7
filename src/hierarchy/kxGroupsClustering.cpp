#include "kxGroupsClustering.h"

#include <algorithm>
#include <numeric>

#include "velmora/LogSink.h"

kxGroupsClustering::kxGroupsClustering(unsigned noGroups)
    : mGroupIdFromOrderedIndex(noGroups), mOrderedIndexFromGroupId(noGroups), mScratchOrdering(noGroups),
      mClusters(), mCurrentSet(noGroups), mCurrentSmallest(kNone), mCurrentLargest(0), mCurrentCount(0)
{
    std::iota(mGroupIdFromOrderedIndex.begin(), mGroupIdFromOrderedIndex.end(), 0u);
    std::iota(mOrderedIndexFromGroupId.begin(), mOrderedIndexFromGroupId.end(), 0u);
    std::iota(mScratchOrdering.begin(), mScratchOrdering.end(), 0u);
    mClusters.reserve(2 * size_t(noGroups));
}

void kxGroupsClustering::computeOrderedCluster(const kx2SATState& groups)
{
    mCurrentSet->clear(false);
    mCurrentSmallest = kNone;
    mCurrentLargest = 0;
    mCurrentCount = 0;
    groups.forEachTrueVar([&](unsigned group) {
        const unsigned position = mOrderedIndexFromGroupId[group];
        mCurrentSet->setTrue(position);
        mCurrentSmallest = std::min(mCurrentSmallest, position);
        mCurrentLargest = std::max(mCurrentLargest, position);
        ++mCurrentCount;
    });
}

unsigned kxGroupsClustering::countCurrentPositions(unsigned first, unsigned last) const
{
    const uint64_t* chunks = mCurrentSet->getData();
    unsigned count = 0;
    for (unsigned k = first / 64; k <= last / 64; ++k)
    {
        const unsigned lowBit = k == first / 64 ? first % 64 : 0;
        const unsigned highBit = k == last / 64 ? last % 64 : 63;
        const uint64_t mask = (~uint64_t(0) >> (63 - highBit)) & (~uint64_t(0) << lowBit);
        count += kx2SATState::populationCount(chunks[k] & mask);
    }
    return count;
}

bool kxGroupsClustering::currentClusterIncludes(const tCluster& cluster) const
{
    // A record with no groups has no range to test: it is never included.
    const unsigned count = groupCount(cluster);
    if (count == 0)
        return false;
    return countCurrentPositions(cluster.start, cluster.start + count - 1) == count;
}

bool kxGroupsClustering::clusterCrosses(const tCluster& cluster) const
{
    const unsigned count = groupCount(cluster);
    if (count == 0)
        return false;
    const unsigned end = cluster.start + count - 1;
    if (cluster.start > mCurrentLargest || end < mCurrentSmallest)
        return false;
    if (cluster.start <= mCurrentSmallest && end >= mCurrentLargest)
        return false;
    const unsigned inside = countCurrentPositions(cluster.start, end);
    return inside != 0 && inside != count;
}

void kxGroupsClustering::gatherCurrentSetAtSpanFront()
{
    unsigned nextInside = mCurrentSmallest;
    unsigned nextOutside = mCurrentSmallest + mCurrentCount;
    for (unsigned position = mCurrentSmallest; position <= mCurrentLargest; ++position)
    {
        const unsigned group = mGroupIdFromOrderedIndex[position];
        const unsigned newPosition = mCurrentSet->getVar(position) != 0 ? nextInside++ : nextOutside++;
        mOrderedIndexFromGroupId[group] = newPosition;
        mScratchOrdering[newPosition] = group;
    }
}

void kxGroupsClustering::commitScratchOrdering()
{
    std::copy(mScratchOrdering.begin() + mCurrentSmallest, mScratchOrdering.begin() + mCurrentLargest + 1,
              mGroupIdFromOrderedIndex.begin() + mCurrentSmallest);
}

uint32_t kxGroupsClustering::remappedStart(uint32_t start) const
{
    // The ordering still holds the old positions, the inverse map the new ones.
    return mOrderedIndexFromGroupId[mGroupIdFromOrderedIndex[start]];
}

void kxGroupsClustering::pushCluster(const kx2SATState& groups, bool disassemblable)
{
    mClusters.push_back({0, 0});
    computeOrderedCluster(groups);
    if (mCurrentCount == 0)
        return;
    gatherCurrentSetAtSpanFront();

    const unsigned noExisting = unsigned(mClusters.size()) - 1;
    unsigned kept = 0;
    unsigned next = 0;
    for (; next < noExisting; ++next)
    {
        const tCluster cluster = mClusters[next];
        if (clusterCrosses(cluster))
            continue;
        if (cluster.start > mCurrentSmallest ||
            (cluster.start == mCurrentSmallest && groupCount(cluster) <= mCurrentCount))
            break;
        mClusters[kept++] = cluster;
    }

    const bool sameCluster = next < noExisting && mClusters[next].start == mCurrentSmallest &&
                             groupCount(mClusters[next]) == mCurrentCount;
    if (sameCluster)
    {
        mClusters[next].count = mCurrentCount | (disassemblable ? kDisassemblableBit : 0u);
        const auto tail = mClusters.begin() + next;
        std::copy(tail, mClusters.begin() + noExisting, mClusters.begin() + kept);
        mClusters.resize(kept + (noExisting - next));
        commitScratchOrdering();
        return;
    }

    // Insert the new record; every following cluster moves up by one (the
    // carried record) unless the new cluster crosses it.
    tCluster carried{mCurrentSmallest, mCurrentCount | (disassemblable ? kDisassemblableBit : 0u)};
    for (; next < noExisting; ++next)
    {
        const tCluster cluster = mClusters[next];
        if (clusterCrosses(cluster))
        {
            velmora::logLine("deleted");
            continue;
        }
        mClusters[kept++] = carried;
        carried = {remappedStart(cluster.start), cluster.count};
    }
    mClusters[kept++] = carried;
    commitScratchOrdering();
    mClusters.resize(kept);
}

void kxGroupsClustering::deleteCluster(unsigned id, bool withNested)
{
    const uint32_t end = mClusters[id].start + groupCount(mClusters[id]);
    unsigned last = id + 1;
    while (withNested && last < mClusters.size() && mClusters[last].start < end)
        ++last;
    mClusters.erase(mClusters.begin() + id, mClusters.begin() + last);
}

void kxGroupsClustering::setClusterDisassemblable(unsigned id, bool value)
{
    mClusters[id].count = groupCount(mClusters[id]) | (value ? kDisassemblableBit : 0u);
}

void kxGroupsClustering::getCluster(unsigned id, kx2SATState& groups) const
{
    groups.clear(false);
    const tCluster& cluster = mClusters[id];
    for (unsigned position = cluster.start; position < cluster.start + groupCount(cluster); ++position)
        groups.setTrue(mGroupIdFromOrderedIndex[position]);
}

unsigned kxGroupsClustering::getNextClusterId(bool flag, const kx2SATState& groups, unsigned id)
{
    unsigned lowerBound = 0;
    unsigned first = 0;
    if (id == kNone)
    {
        computeOrderedCluster(groups);
    }
    else
    {
        lowerBound = mClusters[id].start + groupCount(mClusters[id]);
        first = id + 1;
    }
    for (unsigned k = first; k < mClusters.size(); ++k)
    {
        const tCluster& cluster = mClusters[k];
        const unsigned count = groupCount(cluster);
        if (count > mCurrentCount || cluster.start < lowerBound)
            continue;
        if (currentClusterIncludes(cluster) && (!isDisassemblable(cluster) || (flag && count < mCurrentCount)))
            return k;
    }
    return kNone;
}
