#include <gtest/gtest.h>

#include "TestMeshes.h"
#include "kxMeshGroups.h"

namespace {

std::vector<kx::kxPointer<kx::kxTriMesh>> boxes(unsigned n)
{
    std::vector<kx::kxPointer<kx::kxTriMesh>> meshes;
    for (unsigned i = 0; i < n; ++i)
        meshes.push_back(velmora_test::makeBox({float(i), 0, 0}, {float(i) + 1, 1, 1}));
    return meshes;
}

TEST(MeshGroups, DefaultGroupingIsOneGroupPerMesh)
{
    auto meshes = boxes(5);
    kxMeshGroups groups(velmora_test::rawPointers(meshes), nullptr);
    ASSERT_EQ(groups.getNoGroups(), 5u);
    for (unsigned g = 0; g < 5; ++g) {
        EXPECT_EQ(groups.getGroupSize(g), 1u);
        EXPECT_EQ(groups.getMeshIdFromGroup(g, 0), g);
        EXPECT_EQ(groups.getMeshFromGroup(g, 0), meshes[g].get());
        EXPECT_EQ(groups.editMeshFromGroup(g, 0), meshes[g].get());
        EXPECT_EQ(groups.getGroupIdFromMeshId(g), g);
    }
    EXPECT_EQ(groups.mGroupStart, (std::vector<unsigned>{0, 1, 2, 3, 4, 5}));
}

TEST(MeshGroups, PermutationPlacesEveryMeshInItsGroup)
{
    auto meshes = boxes(6);
    const std::vector<unsigned> ids = {3, 0, 5, 1, 4, 2};
    kxMeshGroups groups(velmora_test::rawPointers(meshes), &ids);
    ASSERT_EQ(groups.getNoGroups(), 6u);
    for (unsigned k = 0; k < 6; ++k) {
        EXPECT_EQ(groups.getGroupSize(ids[k]), 1u);
        EXPECT_EQ(groups.getMeshIdFromGroup(ids[k], 0), k);
        EXPECT_EQ(groups.getGroupIdFromMeshId(k), ids[k]);
    }
}

TEST(MeshGroups, GapInGroupIdsGivesAnEmptyGroup)
{
    auto meshes = boxes(2);
    const std::vector<unsigned> ids = {0, 2};
    kxMeshGroups groups(velmora_test::rawPointers(meshes), &ids);
    ASSERT_EQ(groups.getNoGroups(), 3u);
    EXPECT_EQ(groups.getGroupSize(0), 1u);
    EXPECT_EQ(groups.getGroupSize(1), 0u);
    EXPECT_EQ(groups.getGroupSize(2), 1u);
    EXPECT_EQ(groups.getMeshIdFromGroup(0, 0), 0u);
    EXPECT_EQ(groups.getMeshIdFromGroup(2, 0), 1u);
}

// With fewer groups than meshes the scatter runs over the group count only:
// the lists keep the values the counting sort leaves behind.
TEST(MeshGroups, SharedGroupsKeepTheGroupCountBoundedScatter)
{
    auto meshes = boxes(6);
    const std::vector<unsigned> ids = {0, 0, 1, 1, 2, 2};
    kxMeshGroups groups(velmora_test::rawPointers(meshes), &ids);
    EXPECT_EQ(groups.getNoGroups(), 3u);
    EXPECT_EQ(groups.mGroupStart, (std::vector<unsigned>{0, 3, 6, 6}));
    EXPECT_EQ(groups.mGroupMeshIds, (std::vector<unsigned>{0, 1, 0, 2, 0, 0}));
    EXPECT_EQ(groups.mMeshGroupId, ids);
}

TEST(MeshGroups, MeshLookupByPointerReturnsLastMatchOrSevenFs)
{
    auto meshes = boxes(3);
    std::vector<kx::kxTriMesh*> raw = velmora_test::rawPointers(meshes);
    raw.push_back(raw[1]);
    kxMeshGroups groups(raw, nullptr);
    EXPECT_EQ(groups.getMeshIdFromTriMesh(meshes[1].get()), 3u);
    EXPECT_EQ(groups.getMeshIdFromTriMesh(meshes[0].get()), 0u);
    auto stranger = velmora_test::makeBox({0, 0, 0}, {1, 1, 1});
    EXPECT_EQ(groups.getMeshIdFromTriMesh(stranger.get()), 0x0FFFFFFFu);
    EXPECT_EQ(kxMeshGroups::NO_MESH_ID, 268435455u);
}

TEST(MeshGroups, CopyKeepsAllFourArrays)
{
    auto meshes = boxes(4);
    const std::vector<unsigned> ids = {1, 0, 3, 2};
    kxMeshGroups groups(velmora_test::rawPointers(meshes), &ids);
    kxMeshGroups copy(groups);
    EXPECT_EQ(copy.mMeshes, groups.mMeshes);
    EXPECT_EQ(copy.mGroupStart, groups.mGroupStart);
    EXPECT_EQ(copy.mGroupMeshIds, groups.mGroupMeshIds);
    EXPECT_EQ(copy.mMeshGroupId, groups.mMeshGroupId);
}

TEST(MeshGroups, AllOnesGroupIdFormsNoGroups)
{
    auto meshes = boxes(1);
    const std::vector<unsigned> ids = {0xFFFFFFFFu};
    kxMeshGroups groups(velmora_test::rawPointers(meshes), &ids);
    EXPECT_EQ(groups.getNoGroups(), 0u);
}

}  // namespace
