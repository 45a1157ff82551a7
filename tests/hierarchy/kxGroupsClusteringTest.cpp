#include "kxGroupsClustering.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace
{
constexpr unsigned kNone = 0xFFFFFFFFu;

std::unique_ptr<kx2SATState> setOf(unsigned noGroups, std::initializer_list<unsigned> ids)
{
    auto set = std::make_unique<kx2SATState>(noGroups);
    for (const unsigned id : ids)
        set->setTrue(id);
    return set;
}

// Clusters as (start, count with flag) pairs.
std::vector<std::pair<unsigned, unsigned>> records(const kxGroupsClustering& clustering)
{
    std::vector<std::pair<unsigned, unsigned>> out;
    for (unsigned k = 0; k < clustering.getNoClusters(); ++k)
        out.emplace_back(clustering.getCluster(k).start, clustering.getCluster(k).count);
    return out;
}

std::vector<unsigned> ordering(const kxGroupsClustering& clustering, unsigned noGroups)
{
    std::vector<unsigned> out;
    for (unsigned k = 0; k < noGroups; ++k)
        out.push_back(clustering.getGroupIdFromOrderedIndex(k));
    return out;
}

std::vector<unsigned> groupsOf(const kxGroupsClustering& clustering, unsigned id, unsigned noGroups)
{
    kx2SATState groups(noGroups);
    clustering.getCluster(id, groups);
    std::vector<unsigned> out;
    groups.forEachTrueVar([&](unsigned g) { out.push_back(g); });
    return out;
}

std::vector<unsigned> clustersKeptWhole(kxGroupsClustering& clustering, const kx2SATState& system, bool flag)
{
    std::vector<unsigned> ids;
    for (unsigned id = clustering.getNextClusterId(flag, system, kNone); id != kNone;
         id = clustering.getNextClusterId(flag, system, id))
        ids.push_back(id);
    return ids;
}

constexpr unsigned kDisassemblable = kxGroupsClustering::kDisassemblableBit;
using Records = std::vector<std::pair<unsigned, unsigned>>;
} // namespace

TEST(kxGroupsClustering, SameSetTwiceOnlyUpdatesTheFlag)
{
    kxGroupsClustering clustering(5);
    clustering.pushCluster(*setOf(5, {1, 3}), false);
    EXPECT_EQ(records(clustering), (Records{{1, 2}}));
    EXPECT_EQ(ordering(clustering, 5), (std::vector<unsigned>{0, 1, 3, 2, 4}));
    clustering.pushCluster(*setOf(5, {1, 3}), true);
    EXPECT_EQ(records(clustering), (Records{{1, 2 | kDisassemblable}}));
    EXPECT_EQ(ordering(clustering, 5), (std::vector<unsigned>{0, 1, 3, 2, 4}));
    EXPECT_EQ(groupsOf(clustering, 0, 5), (std::vector<unsigned>{1, 3}));
    clustering.setClusterDisassemblable(0, false);
    EXPECT_EQ(records(clustering), (Records{{1, 2}}));
}

TEST(kxGroupsClustering, CrossingClusterIsDropped)
{
    kxGroupsClustering clustering(4);
    clustering.pushCluster(*setOf(4, {1, 2}), false);
    testing::internal::CaptureStdout();
    clustering.pushCluster(*setOf(4, {2, 3}), false);
    // Dropped before the insertion point: no report.
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(records(clustering), (Records{{2, 2}}));
    EXPECT_EQ(groupsOf(clustering, 0, 4), (std::vector<unsigned>{2, 3}));
}

TEST(kxGroupsClustering, CrossingClusterAfterTheInsertionPointIsReported)
{
    kxGroupsClustering clustering(6);
    clustering.pushCluster(*setOf(6, {2}), false);
    clustering.pushCluster(*setOf(6, {3, 4}), false);
    testing::internal::CaptureStdout();
    clustering.pushCluster(*setOf(6, {1, 3}), true);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "deleted\n");
    // Positions 1..3 become groups 1, 3, 2; cluster {2} moves with its group.
    EXPECT_EQ(ordering(clustering, 6), (std::vector<unsigned>{0, 1, 3, 2, 4, 5}));
    EXPECT_EQ(records(clustering), (Records{{1, 2 | kDisassemblable}, {3, 1}}));
    EXPECT_EQ(groupsOf(clustering, 0, 6), (std::vector<unsigned>{1, 3}));
    EXPECT_EQ(groupsOf(clustering, 1, 6), (std::vector<unsigned>{2}));
}

TEST(kxGroupsClustering, NestedClusterReordersInsideTheEnclosingOne)
{
    kxGroupsClustering clustering(5);
    clustering.pushCluster(*setOf(5, {0, 1, 2, 3}), false);
    clustering.pushCluster(*setOf(5, {1, 3}), false);
    EXPECT_EQ(ordering(clustering, 5), (std::vector<unsigned>{0, 1, 3, 2, 4}));
    EXPECT_EQ(records(clustering), (Records{{0, 4}, {1, 2}}));

    // The enclosing cluster pushed last still goes first.
    kxGroupsClustering reversed(5);
    reversed.pushCluster(*setOf(5, {1, 3}), false);
    reversed.pushCluster(*setOf(5, {0, 1, 2, 3}), false);
    EXPECT_EQ(records(reversed), (Records{{0, 4}, {1, 2}}));
    EXPECT_EQ(groupsOf(reversed, 1, 5), (std::vector<unsigned>{1, 3}));
}

TEST(kxGroupsClustering, EmptySetLeavesAZeroRecordThatCrossesNothing)
{
    kxGroupsClustering clustering(4);
    clustering.pushCluster(kx2SATState(4), false);
    EXPECT_EQ(records(clustering), (Records{{0, 0}}));
    testing::internal::CaptureStdout();
    clustering.pushCluster(*setOf(4, {0, 1}), false);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(records(clustering), (Records{{0, 2}, {0, 0}}));
    // The empty record is never kept whole.
    kx2SATState all(4);
    all.clear(true);
    EXPECT_EQ(clustersKeptWhole(clustering, all, true), (std::vector<unsigned>{0}));
    clustering.clear();
    EXPECT_EQ(clustering.getNoClusters(), 0u);
    EXPECT_EQ(ordering(clustering, 4), (std::vector<unsigned>{0, 1, 2, 3}));
}

TEST(kxGroupsClustering, NextClusterIdReturnsOutermostClustersToKeepWhole)
{
    const unsigned n = 8;
    kxGroupsClustering clustering(n);
    clustering.pushCluster(*setOf(n, {0, 1, 2, 3, 4, 5}), true);
    clustering.pushCluster(*setOf(n, {0, 1, 2}), false);
    clustering.pushCluster(*setOf(n, {1, 2}), false);
    clustering.pushCluster(*setOf(n, {3, 4}), true);
    clustering.pushCluster(*setOf(n, {6, 7}), false);
    ASSERT_EQ(records(clustering), (Records{{0, 6 | kDisassemblable}, {0, 3}, {1, 2}, {3, 2 | kDisassemblable}, {6, 2}}));

    kx2SATState all(n);
    all.clear(true);
    // Disassemblable clusters are cut unless flag asks for every outermost
    // cluster smaller than the system; nested ones are never returned.
    EXPECT_EQ(clustersKeptWhole(clustering, all, false), (std::vector<unsigned>{1, 4}));
    EXPECT_EQ(clustersKeptWhole(clustering, all, true), (std::vector<unsigned>{0, 4}));
    const auto sixGroups = setOf(n, {0, 1, 2, 3, 4, 5});
    EXPECT_EQ(clustersKeptWhole(clustering, *sixGroups, true), (std::vector<unsigned>{1, 3}));
    EXPECT_EQ(clustersKeptWhole(clustering, *sixGroups, false), (std::vector<unsigned>{1}));
    EXPECT_EQ(clustersKeptWhole(clustering, *setOf(n, {1, 2, 3}), true), (std::vector<unsigned>{2}));
    EXPECT_TRUE(clustersKeptWhole(clustering, *setOf(n, {0, 6}), true).empty());
}

TEST(kxGroupsClustering, DeleteWithOrWithoutNestedClusters)
{
    const unsigned n = 8;
    kxGroupsClustering clustering(n);
    clustering.pushCluster(*setOf(n, {0, 1, 2, 3, 4, 5}), true);
    clustering.pushCluster(*setOf(n, {0, 1, 2}), false);
    clustering.pushCluster(*setOf(n, {1, 2}), false);
    clustering.pushCluster(*setOf(n, {6, 7}), false);

    kxGroupsClustering copy = clustering;
    copy.deleteCluster(1, false);
    EXPECT_EQ(records(copy), (Records{{0, 6 | kDisassemblable}, {1, 2}, {6, 2}}));
    clustering.deleteCluster(0, true);
    EXPECT_EQ(records(clustering), (Records{{6, 2}}));
}
