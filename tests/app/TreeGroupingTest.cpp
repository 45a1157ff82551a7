// Node trees, whatever the format: grouping by sub-assembly and tree level,
// nodes that share a name, and mirrored placements that must keep parts
// facing outwards.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "GltfTree.h"
#include "AssemblyChecks.h"
#include "velmora/Import.h"
#include "TempDirTest.h"

namespace fs = std::filesystem;
using gltf_test::Node;
using velmora::Assembly;
using velmora::GroupBy;

using namespace assembly_test;

namespace {

class TreeGroupingTest : public velmora_test::TempDirTest {
protected:
    TreeGroupingTest() : TempDirTest("velmora-tree-") {}
    std::string path(const std::string& name) const { return (dir / name).string(); }
};

TEST(GroupingParse, SubassemblyAndLevels)
{
    EXPECT_EQ(velmora::parseGroupBy("subassembly"), GroupBy::Level);
    EXPECT_EQ(velmora::parseGroupLevel("subassembly"), 1u);
    EXPECT_EQ(velmora::parseGroupBy("level:3"), GroupBy::Level);
    EXPECT_EQ(velmora::parseGroupLevel("level:3"), 3u);
    EXPECT_EQ(velmora::parseGroupBy("level:1"), GroupBy::Level);
    for (const char* bad : {"level:", "level:0", "level:x", "level:-2", "levels:2", "sub"})
        EXPECT_THROW(velmora::parseGroupBy(bad), velmora::InputError) << bad;
}

TEST_F(TreeGroupingTest, SubassemblyAndLevelGroupsFollowTheTree)
{
    gltf_test::writeMachine(path("machine.gltf"));
    const Assembly mesh = velmora::importAssembly({path("machine.gltf")});
    EXPECT_EQ(groupsByName(mesh), (std::set<std::set<std::string>>{{"base"}, {"housing"}, {"shaft"}}));
    const Assembly sub = velmora::importAssembly({path("machine.gltf")}, {GroupBy::Level, 1});
    EXPECT_EQ(groupsByName(sub), (std::set<std::set<std::string>>{{"base"}, {"housing", "shaft"}}));
    ASSERT_EQ(sub.groups.size(), 2u);
    EXPECT_EQ(sub.groups[1].name, "machine/motor");
    const Assembly deeper = velmora::importAssembly({path("machine.gltf")}, {GroupBy::Level, 2});
    EXPECT_EQ(deeper.groups.size(), 3u);

    // Without a single top node, the scene's roots are the top's children.
    gltf_test::writeTree(path("roots.gltf"),
                         {{"left", false, {2, 3}}, {"right", true, {}}, {"a", true, {}}, {"b", true, {}}}, {0, 1});
    const Assembly roots = velmora::importAssembly({path("roots.gltf")}, {GroupBy::Level, 1});
    EXPECT_EQ(groupsByName(roots), (std::set<std::set<std::string>>{{"a", "b"}, {"right"}}));
}

TEST_F(TreeGroupingTest, NodesThatShareANameStayApart)
{
    // Two distinct "bolt" nodes, each with two meshes below it.
    gltf_test::writeTree(path("bolts.gltf"),
                         {{"top", false, {1, 2}},
                          {"bolt", false, {3, 4}, {0, 0, 0}},
                          {"bolt", false, {5, 6}, {5, 0, 0}},
                          {"head", true, {}},
                          {"shank", true, {}},
                          {"head", true, {}},
                          {"shank", true, {}}},
                         {0});
    const Assembly assembly = velmora::importAssembly({path("bolts.gltf")}, {GroupBy::Level, 1});
    ASSERT_EQ(assembly.parts.size(), 4u);
    EXPECT_EQ(assembly.parts[0].node, "top/bolt/head");
    EXPECT_EQ(assembly.parts[2].node, "top/bolt#2/head");
    ASSERT_EQ(assembly.groups.size(), 2u);
    EXPECT_EQ(assembly.groups[0].parts, (std::vector<unsigned>{0, 1}));
    EXPECT_EQ(assembly.groups[1].parts, (std::vector<unsigned>{2, 3}));
    EXPECT_EQ(velmora::importAssembly({path("bolts.gltf")}, {GroupBy::Node}).groups.size(), 4u);
}

TEST_F(TreeGroupingTest, MirroredNodesKeepTrianglesFacingOutwards)
{
    const float s = 0.70710678f;
    gltf_test::writeTree(path("mirror.gltf"),
                         {{"plain", true, {}},
                          {"mirrored", true, {}, {3, 0, 0}, {0, 0, 0, 1}, {-1, 1, 1}},
                          {"turned-mirror", true, {}, {0, 3, 0}, {0, 0, s, s}, {1, 1, -2}}},
                         {0, 1, 2});
    const Assembly assembly = velmora::importAssembly({path("mirror.gltf")});
    ASSERT_EQ(assembly.parts.size(), 3u);
    EXPECT_NEAR(signedVolume(assembly.parts[0]), 1.0 / 6.0, 1e-6);
    EXPECT_NEAR(signedVolume(assembly.parts[1]), 1.0 / 6.0, 1e-6);
    EXPECT_NEAR(signedVolume(assembly.parts[2]), 2.0 / 6.0, 1e-6);
    // The mirrored instances share the vertices and the reversed triangles.
    EXPECT_EQ(assembly.parts[1].mesh->GetVertexBuffer(), assembly.parts[0].mesh->GetVertexBuffer());
    EXPECT_EQ(assembly.parts[1].mesh->GetIndexBuffer(), assembly.parts[2].mesh->GetIndexBuffer());
    EXPECT_NE(assembly.parts[1].mesh->GetIndexBuffer(), assembly.parts[0].mesh->GetIndexBuffer());
}

}  // namespace

namespace {

TEST_F(TreeGroupingTest, AnObjectSplitByMaterialStaysOnePart)
{
    // A unit cube whose bottom and top faces use another material than its sides,
    // beside a second object.
    std::ofstream(path("parts.mtl")) << "newmtl steel\nKd 0.5 0.5 0.5\nnewmtl paint\nKd 1 0 0\n";
    std::ofstream(path("parts.obj"))
        << "mtllib parts.mtl\n"
           "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0 0 1\nv 1 0 1\nv 1 1 1\nv 0 1 1\n"
           "v 3 0 0\nv 4 0 0\nv 3 1 0\n"
           "o cube\nusemtl steel\nf 1 4 3\nf 1 3 2\nf 5 6 7\nf 5 7 8\n"
           "usemtl paint\nf 1 2 6\nf 1 6 5\nf 2 3 7\nf 2 7 6\nf 3 4 8\nf 3 8 7\nf 4 1 5\nf 4 5 8\n"
           "o flat\nusemtl steel\nf 9 10 11\n";
    const Assembly assembly = velmora::importAssembly({path("parts.obj")});
    ASSERT_EQ(assembly.parts.size(), 2u);
    EXPECT_EQ(assembly.parts[0].name, "cube");
    EXPECT_EQ(assembly.parts[0].mesh->GetTriangleQuantity(), 12);
    EXPECT_NEAR(signedVolume(assembly.parts[0]), 1.0, 1e-6);
    EXPECT_EQ(assembly.parts[1].name, "flat");
    EXPECT_EQ(assembly.groups.size(), 2u);
}

}  // namespace
