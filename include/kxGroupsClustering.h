// kxGroupsClustering: clusters of groups that belong together (sub-assemblies)
// and that a split should not cut through. When the dancing-links solver
// bakes a system, each cluster to keep whole inside it becomes a chain of
// columns forcing its groups to one side.
//
// Invariants:
// - clusters form a nested family: two clusters are disjoint or one holds the
//   other (a new cluster drops the ones it crosses);
// - the group ordering keeps every cluster a contiguous range of positions,
//   so a cluster is a start position and a group count;
// - mGroupIdFromOrderedIndex and mOrderedIndexFromGroupId are inverse
//   permutations;
// - mClusters is sorted by start, enclosing clusters before the ones inside
//   them (for equal starts, by group count descending), as long as clusters
//   are pushed enclosing ones first.
#pragma once

#include "kx2SATState.h"

#include <cstdint>
#include <vector>

class kxGroupsClustering
{
public:
    struct tCluster
    {
        uint32_t start; // first position in the group ordering
        uint32_t count; // bits 0-30: number of groups, bit 31: disassemblable
    };

    static constexpr uint32_t kDisassemblableBit = 0x80000000u;
    static constexpr uint32_t kGroupCountMask = 0x7FFFFFFFu;

    explicit kxGroupsClustering(unsigned noGroups);
    kxGroupsClustering(const kxGroupsClustering&) = default;
    kxGroupsClustering(kxGroupsClustering&&) noexcept = default;
    kxGroupsClustering& operator=(const kxGroupsClustering&) = default;
    kxGroupsClustering& operator=(kxGroupsClustering&&) noexcept = default;
    ~kxGroupsClustering() = default;

    // Adds the cluster of the given groups (or only updates its flag when it
    // exists). Clusters it crosses are dropped; the ones dropped after the
    // insertion point are reported with the line "deleted". An empty set
    // leaves a record with no groups.
    void pushCluster(const kx2SATState& groups, bool disassemblable);
    // Removes cluster id and, with withNested, the clusters nested in it.
    void deleteCluster(unsigned id, bool withNested);
    void setClusterDisassemblable(unsigned id, bool value);

    unsigned getNoClusters() const { return unsigned(mClusters.size()); }
    const tCluster& getCluster(unsigned id) const { return mClusters[id]; }
    // Clears groups and sets the groups of cluster id.
    void getCluster(unsigned id, kx2SATState& groups) const;
    unsigned getGroupIdFromOrderedIndex(unsigned k) const { return mGroupIdFromOrderedIndex[k]; }

    // The next cluster after id (all ones: from the first, with groups made the
    // current set) to keep whole inside the current set: it lies wholly inside
    // the set, is not nested in the last one returned, and is not
    // disassemblable or, when flag is true, has fewer groups than the set.
    // All ones when there is none.
    unsigned getNextClusterId(bool flag, const kx2SATState& groups, unsigned id);

    // Removes every cluster; the ordering stays.
    void clear() { mClusters.clear(); }

    static unsigned groupCount(const tCluster& cluster) { return cluster.count & kGroupCountMask; }
    static bool isDisassemblable(const tCluster& cluster) { return (cluster.count & kDisassemblableBit) != 0; }

private:
    static constexpr unsigned kNone = 0xFFFFFFFFu;

    void computeOrderedCluster(const kx2SATState& groups);
    bool clusterCrosses(const tCluster& cluster) const;
    bool currentClusterIncludes(const tCluster& cluster) const;
    // Number of positions of [first, last] that are in the current set.
    unsigned countCurrentPositions(unsigned first, unsigned last) const;
    void gatherCurrentSetAtSpanFront();
    void commitScratchOrdering();
    uint32_t remappedStart(uint32_t start) const;

    std::vector<unsigned> mGroupIdFromOrderedIndex;
    std::vector<unsigned> mOrderedIndexFromGroupId;
    std::vector<unsigned> mScratchOrdering;
    std::vector<tCluster> mClusters;
    kx2SATStateValue mCurrentSet;
    unsigned mCurrentSmallest;
    unsigned mCurrentLargest;
    unsigned mCurrentCount;
};
