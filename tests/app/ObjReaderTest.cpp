// The OBJ reader: how objects, groups and materials become meshes and
// placements, which corners become one vertex, how polygons are split, how
// numbers are rounded and which colour each mesh gets. Expectations follow
// the rules in the reader's header comment, worked out by hand.
#include <gtest/gtest.h>

#include <cstring>
#include <map>

#include "SourceFile.h"

namespace {

using velmora::SourceFile;

const std::string kTetra = "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1\n";

SourceFile parse(const std::string& text, const std::map<std::string, std::string>& libraries = {})
{
    return velmora::parseObj(text, "t.obj", [&](const std::string& name, std::string& where) {
        where = name;
        const auto it = libraries.find(name);
        return it == libraries.end() ? std::nullopt : std::optional<std::string>(it->second);
    });
}

// "node:mesh:triangles" per placement, '*' after the node when it has several meshes.
std::string placements(const SourceFile& file)
{
    std::string out;
    for (const velmora::SourceInstance& i : file.instances) {
        EXPECT_EQ(i.node, i.nodePath);
        out += (out.empty() ? "" : " ") + i.node + (i.nodeHasOneMesh ? "" : "*") + ":" + i.mesh + ":" +
               std::to_string(file.meshes.at(size_t(i.meshIndex)).indices.size() / 3);
    }
    return out;
}

TEST(ObjReader, ObjectsGroupsAndMaterialsMakeTheMeshesOfEachNode)
{
    const std::string f = "f 1 2 3\n";
    const struct {
        std::string text, expected;
    } cases[] = {
        {kTetra + f + f, "defaultobject:defaultobject:2"},
        {kTetra + "o a\n" + f + "o b\n" + f + f, "a:a:1 b:b:2"},
        // Back to a known object: its faces go on into the mesh in use.
        {kTetra + "o a\n" + f + "o b\n" + f + "o a\n" + f, "a:a:1 b:b:2"},
        {kTetra + "g x\n" + f + "o x\n" + f + "g y\no x\n" + f, "x:x:2 y:y:1"},
        // A group always starts a node, even under a name seen before.
        {kTetra + "g x\n" + f + "g y\n" + f + "g x\n" + f + "g x\n" + f, "x:x:1 y:y:1 x:x:2"},
        {kTetra + "g two words \r\n" + f + "o one two\n" + f, "two words :two words :1 one:one:1"},
        // A material switch after faces starts a mesh; before faces it does not.
        {kTetra + "o a\nusemtl red\n" + f + "usemtl blue\n" + f + "usemtl blue\n" + f + "o b\n" + f,
         "a*:a:1 a*:blue:2 b:b:1"},
        {kTetra + "o a\nusemtl red\nusemtl blue\n" + f + "usemtl red\n" + f, "a*:a:1 a*:red:1"},
        {kTetra + "usemtl red\n" + f, "defaultobject:defaultobject:1"},
        // Lines, points, smoothing groups and comments are passed over;
        // objects without faces place nothing.
        {kTetra + "o lines\nl 1 2\np 1\ns 1\n# f 1 2 3\no a\n" + f, "a:a:1"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(placements(parse(c.text)), c.expected) << c.text;
}

TEST(ObjReader, CornersWithTheSameAttributesAreOneVertexInOrderOfFirstUse)
{
    // Vertices 1 and 5 are one point (-0 is 0), with the coordinates of its
    // first use; relative and forward indices.
    const SourceFile file = parse("f 3 5 2\nv 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1\nv -0 0 0\nf -2 -4 -1\n");
    ASSERT_EQ(file.meshes.size(), 1u);
    const velmora::SourceMesh& mesh = file.meshes[0];
    EXPECT_EQ(mesh.indices, (std::vector<unsigned>{0, 1, 2, 3, 2, 1}));
    ASSERT_EQ(mesh.positions.size(), 4u);
    EXPECT_EQ(mesh.positions[0], Wm4::Vector3<float>(0, 1, 0));
    EXPECT_EQ(mesh.positions[1], Wm4::Vector3<float>(-0.0f, 0, 0));
    EXPECT_EQ(mesh.positions[3], Wm4::Vector3<float>(0, 0, 1));

    // With normals, one point with two normals is two vertices; a corner
    // without a normal has the zero normal.
    const SourceFile normals = parse(kTetra + "vn 0 0 1\nvn 0 1 0\nf 1//1 2//1 3//1\nf 1//2 2//1 4\nf 4 1 2\n");
    EXPECT_EQ(normals.meshes[0].indices, (std::vector<unsigned>{0, 1, 2, 3, 1, 4, 4, 5, 6}));
    // Texture coordinates likewise, and only in the mesh that uses them.
    const SourceFile uvs = parse(kTetra + "vt 0 0\nvt 1 0\nf 1/1 2/1 3/1\nf 1/2 2/1 3/1\no b\nf 1 2 3\nf 1 2 3\n");
    EXPECT_EQ(uvs.meshes[0].indices, (std::vector<unsigned>{0, 1, 2, 3, 1, 2}));
    EXPECT_EQ(uvs.meshes[1].indices, (std::vector<unsigned>{0, 1, 2, 0, 1, 2}));
}

TEST(ObjReader, QuadsSplitAtTheirConcaveCornerAndLargerPolygonsAsAFan)
{
    const std::string square = "v 0 0 0\nv 2 0 0\nv 2 2 0\nv 0 2 0\n";
    // Corner 3 of the dart (1, 0.5) points inwards.
    const std::string dart = "v 0 0 0\nv 2 0 0\nv 1 0.5 0\nv 1 2 0\n";
    const struct {
        std::string text;
        std::vector<unsigned> indices;
    } cases[] = {
        {square + "f 1 2 3 4\n", {0, 1, 2, 0, 2, 3}},
        {dart + "f 1 2 3 4\n", {2, 3, 0, 2, 0, 1}},
        {dart + "f 2 3 4 1\n", {1, 2, 3, 1, 3, 0}},
        {square + "v 1 -1 0\nf 1 5 2 3 4\n", {0, 1, 2, 0, 2, 3, 0, 3, 4}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(parse(c.text).meshes.at(0).indices, c.indices) << c.text;
}

TEST(ObjReader, NumbersAreRoundedAsTheWholePartPlusTheFraction)
{
    // 1 + 0.19899971 added in single precision is 1.19899964, one step
    // below the float nearest to 1.19899971 (1.19899976).
    const struct {
        const char* word;
        float value;
    } cases[] = {
        {"1.19899971", 1.19899964f}, {"-11.68619871", -11.6861992f}, {"0.5", 0.5f}, {"+2.", 2.0f},
        {"25e-1", 2.5f},             {"1.5E+2", 150.0f},            {"-0", -0.0f}, {"7", 7.0f},
    };
    for (const auto& c : cases) {
        const SourceFile file = parse(std::string("v ") + c.word + " 0 0\nv 1 1 0\nv 0 1 1\nf 1 2 3\n");
        const float got = file.meshes.at(0).positions.at(0)[0];
        EXPECT_EQ(std::memcmp(&got, &c.value, sizeof got), 0) << c.word << " read as " << got;
    }
    // A weight divides the position; a colour after it is not used.
    const SourceFile weighted = parse("v 2 4 6 2\nv 1 0 0 0.5 0.5 0.5\nv 0 1 0\nf 1 2 3\n");
    EXPECT_EQ(weighted.meshes[0].positions[0], Wm4::Vector3<float>(1, 2, 3));
}

TEST(ObjReader, EachMeshHasTheColourOfItsMaterial)
{
    const std::map<std::string, std::string> libraries = {
        {"paint.mtl", "newmtl red\nKd 0.8 0.1 0.2\nd 0.5\nnewmtl glass\nKd 2 -1 0.5\nTr 0.25\nnewmtl bare\nNs 10\n"},
        {"last.mtl", "newmtl first\nKd 1 0 0\nnewmtl second\nKd 0 1 0\n"},
    };
    const std::string f = "f 1 2 3\n";
    const struct {
        std::string text;
        std::optional<velmora::Colour> colour;
    } cases[] = {
        {"mtllib paint.mtl\nusemtl red\n" + f, velmora::Colour{0.8f, 0.1f, 0.2f, 0.5f}},
        {"mtllib paint.mtl\nusemtl glass\n" + f, velmora::Colour{1, 0, 0.5f, 0.75f}},
        // A material the library does not describe, or that no library
        // defines, is grey; a missing library is no error.
        {"mtllib paint.mtl\nusemtl bare\n" + f, velmora::Colour{0.6f, 0.6f, 0.6f, 1}},
        {"mtllib gone.mtl\nusemtl red\n" + f, velmora::Colour{0.6f, 0.6f, 0.6f, 1}},
        {f, std::nullopt},
        {"usemtl DefaultMaterial\n" + f, std::nullopt},
        // After a library, its last material is in use.
        {"mtllib last.mtl\n" + f, velmora::Colour{0, 1, 0, 1}},
        {"o a\nmtllib last.mtl\n" + f + "o b\n" + f, velmora::Colour{0, 1, 0, 1}},
        {"mtllib last.mtl\nusemtl first\n" + f + "mtllib last.mtl\no b\n" + f, velmora::Colour{0, 1, 0, 1}},
    };
    for (const auto& c : cases) {
        const SourceFile file = parse(kTetra + c.text, libraries);
        const std::optional<velmora::Colour>& got = file.meshes.back().colour;
        ASSERT_EQ(got.has_value(), c.colour.has_value()) << c.text;
        if (got) {
            EXPECT_FLOAT_EQ(got->r, c.colour->r) << c.text;
            EXPECT_FLOAT_EQ(got->g, c.colour->g) << c.text;
            EXPECT_FLOAT_EQ(got->b, c.colour->b) << c.text;
            EXPECT_FLOAT_EQ(got->a, c.colour->a) << c.text;
        }
    }
}

}  // namespace
