#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "TestMeshes.h"
#include "velmora/Import.h"
#include "TempDirTest.h"

namespace fs = std::filesystem;

namespace {

class ImportTest : public velmora_test::TempDirTest {
protected:
    ImportTest() : TempDirTest("velmora-import-") {}

    std::string write(const std::string& name, const std::string& text)
    {
        const fs::path path = dir / name;
        std::ofstream(path, std::ios::binary) << text;
        return path.string();
    }

};

// A unit cube as an ASCII STL solid, shifted by `dx` along x.
std::string asciiCube(const std::string& solid, float dx)
{
    static const float corner[8][3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0},
                                       {0, 0, 1}, {1, 0, 1}, {0, 1, 1}, {1, 1, 1}};
    static const int tris[12][3] = {{0, 2, 3}, {0, 3, 1}, {4, 5, 7}, {4, 7, 6}, {0, 1, 5}, {0, 5, 4},
                                    {2, 6, 7}, {2, 7, 3}, {0, 4, 6}, {0, 6, 2}, {1, 3, 7}, {1, 7, 5}};
    std::string s = "solid " + solid + "\n";
    for (const auto& t : tris) {
        s += " facet normal 0 0 0\n  outer loop\n";
        for (int k : t) {
            s += "   vertex " + std::to_string(corner[k][0] + dx) + " " + std::to_string(corner[k][1]) + " " +
                 std::to_string(corner[k][2]) + "\n";
        }
        s += "  endloop\n endfacet\n";
    }
    return s + "endsolid " + solid + "\n";
}

std::string binaryStl(const std::vector<std::array<float, 9>>& triangles)
{
    std::string s(80, ' ');
    const uint32_t count = static_cast<uint32_t>(triangles.size());
    s.append(reinterpret_cast<const char*>(&count), 4);
    for (const auto& t : triangles) {
        const float normal[3] = {0, 0, 0};
        s.append(reinterpret_cast<const char*>(normal), 12);
        s.append(reinterpret_cast<const char*>(t.data()), 36);
        s.append(2, '\0');
    }
    return s;
}

TEST_F(ImportTest, StlAsciiAndBinaryAsOneAssemblyWithFileNames)
{
    const std::string a = write("a_cube.stl", asciiCube("cube", 0));
    const std::string b = write("b_tri.stl", binaryStl({{0, 0, 2, 1, 0, 2, 0, 1, 2}, {0, 0, 3, 1, 0, 3, 0, 1, 3}}));
    velmora::Assembly assembly = velmora::importAssembly({a, b});
    ASSERT_EQ(assembly.parts.size(), 2u);
    EXPECT_EQ(assembly.parts[0].name, "a_cube");
    EXPECT_EQ(assembly.parts[1].name, "b_tri");
    EXPECT_EQ(assembly.parts[0].mesh->GetTriangleQuantity(), 12);
    EXPECT_EQ(assembly.parts[0].mesh->GetVertexBuffer()->GetVertexQuantity(), 8) << "shared corners are joined";
    EXPECT_EQ(assembly.parts[1].mesh->GetTriangleQuantity(), 2);
    EXPECT_EQ(assembly.groups.size(), 2u);
    EXPECT_EQ(assembly.triangleCount(), 14u);

    // The same files as a directory, read in file-name order.
    velmora::Assembly fromDir = velmora::importAssembly({dir.string()});
    ASSERT_EQ(fromDir.parts.size(), 2u);
    EXPECT_EQ(fromDir.parts[0].name, "a_cube");
}

TEST_F(ImportTest, ObjObjectsAndGroupingModes)
{
    std::string obj = "o left\nv 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1\nf 1 2 3\nf 1 2 4\nf 1 3 4\nf 2 3 4\n"
                      "o right\nv 2 0 0\nv 3 0 0\nv 2 1 0\nv 2 0 1\nf 5 6 7\nf 5 6 8\nf 5 7 8\nf 6 7 8\n";
    const std::string file = write("pair.obj", obj);
    velmora::Assembly byMesh = velmora::importAssembly({file}, {velmora::GroupBy::Mesh});
    ASSERT_EQ(byMesh.parts.size(), 2u);
    EXPECT_EQ(byMesh.groups.size(), 2u);
    EXPECT_NE(byMesh.parts[0].name, byMesh.parts[1].name);
    EXPECT_EQ(byMesh.groups[1].parts, std::vector<unsigned>{1});

    velmora::Assembly byFile = velmora::importAssembly({file}, {velmora::GroupBy::File});
    ASSERT_EQ(byFile.groups.size(), 1u);
    EXPECT_EQ(byFile.groups[0].parts, (std::vector<unsigned>{0, 1}));

    // Merging puts every group into one world-space mesh.
    auto merged = velmora::mergeGroups(byFile);
    ASSERT_EQ(merged.size(), 1u);
    EXPECT_EQ(merged[0]->GetTriangleQuantity(), 8);
    EXPECT_EQ(merged[0]->GetVertexBuffer()->GetVertexQuantity(), 8);
    EXPECT_TRUE(merged[0]->World.IsIdentity());

    EXPECT_EQ(velmora::parseGroupBy("node"), velmora::GroupBy::Node);
    EXPECT_THROW(velmora::parseGroupBy("part"), velmora::InputError);
}

// A minimal glTF with one mesh placed twice by two translated nodes.
TEST_F(ImportTest, GltfInstancesKeepTheirNodeTransforms)
{
    const float positions[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    std::string buffer(reinterpret_cast<const char*>(positions), sizeof(positions));
    write("tri.bin", buffer);
    const std::string gltf = R"({
      "asset": {"version": "2.0"},
      "scene": 0,
      "scenes": [{"nodes": [0, 1]}],
      "nodes": [{"name": "near", "mesh": 0, "translation": [0, 0, 5]},
                {"name": "far", "mesh": 0, "translation": [10, 0, 0]}],
      "meshes": [{"name": "tri", "primitives": [{"attributes": {"POSITION": 0}}]}],
      "accessors": [{"bufferView": 0, "componentType": 5126, "count": 3, "type": "VEC3",
                     "min": [0, 0, 0], "max": [1, 1, 0]}],
      "bufferViews": [{"buffer": 0, "byteLength": 36}],
      "buffers": [{"uri": "tri.bin", "byteLength": 36}]
    })";
    const std::string file = write("two.gltf", gltf);
    velmora::Assembly assembly = velmora::importAssembly({file}, {velmora::GroupBy::Node});
    ASSERT_EQ(assembly.parts.size(), 2u);
    EXPECT_EQ(assembly.parts[0].name, "near");
    EXPECT_EQ(assembly.parts[1].name, "far");
    EXPECT_EQ(assembly.parts[0].mesh->GetVertexBuffer(), assembly.parts[1].mesh->GetVertexBuffer());
    EXPECT_FLOAT_EQ(assembly.parts[0].mesh->World.GetTranslate().Z(), 5.0f);
    EXPECT_FLOAT_EQ(assembly.parts[1].mesh->World.GetTranslate().X(), 10.0f);
    Wm4::Vector3<float> lo, hi;
    velmora::assemblyBounds(assembly, lo, hi);
    EXPECT_EQ(lo, Wm4::Vector3<float>(0, 0, 0));
    EXPECT_EQ(hi, Wm4::Vector3<float>(11, 1, 5));
    EXPECT_EQ(assembly.groups.size(), 2u);
}

TEST_F(ImportTest, StlSolidsAndBinaryHeadersThatSaySolid)
{
    // Two solids in one ASCII file are two parts named after them.
    const std::string two = write("two.stl", asciiCube("left", 0) + asciiCube("right", 1));
    velmora::Assembly solids = velmora::importAssembly({two});
    ASSERT_EQ(solids.parts.size(), 2u);
    EXPECT_EQ(solids.parts[0].name, "left");
    EXPECT_EQ(solids.parts[1].name, "right");
    EXPECT_EQ(solids.parts[1].mesh->GetVertexBuffer()->GetVertexQuantity(), 8);

    // A binary file whose header starts with "solid" is binary when its size says so.
    std::string binary = binaryStl({{0, 0, 0, 1, 0, 0, 0, 1, 0}, {1, 0, 0, 1, 1, 0, 0, 1, 0}});
    binary.replace(0, 12, "solid binary");
    velmora::Assembly quad = velmora::importAssembly({write("quad.stl", binary)});
    ASSERT_EQ(quad.parts.size(), 1u);
    EXPECT_EQ(quad.parts[0].mesh->GetTriangleQuantity(), 2);
    EXPECT_EQ(quad.parts[0].mesh->GetVertexBuffer()->GetVertexQuantity(), 4) << "shared corners are joined";
    Wm4::Vector3<float> lo, hi;
    velmora::assemblyBounds(quad, lo, hi);
    EXPECT_EQ(hi, Wm4::Vector3<float>(1, 1, 0));
}

// PLY goes through the header check and the contained importer: a tetrahedron
// in text and in binary, with a face list, reads as one part of four triangles.
TEST_F(ImportTest, PlyTextAndBinary)
{
    const std::string header = "element vertex 4\nproperty float x\nproperty float y\nproperty float z\n"
                               "element face 4\nproperty list uchar int vertex_indices\nend_header\n";
    const std::string text = write("text.ply", "ply\nformat ascii 1.0\n" + header +
                                                   "0 0 0\n1 0 0\n0 1 0\n0 0 1\n3 0 2 1\n3 0 1 3\n3 0 3 2\n3 1 2 3\n");
    std::string binary = "ply\nformat binary_little_endian 1.0\n" + header;
    const float corners[12] = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};
    binary.append(reinterpret_cast<const char*>(corners), sizeof corners);
    for (const std::array<int, 3>& face : {std::array<int, 3>{0, 2, 1}, {0, 1, 3}, {0, 3, 2}, {1, 2, 3}}) {
        binary.push_back(3);
        binary.append(reinterpret_cast<const char*>(face.data()), sizeof(int) * 3);
    }
    for (const std::string& file : {text, write("binary.ply", binary)}) {
        velmora::Assembly assembly = velmora::importAssembly({file});
        ASSERT_EQ(assembly.parts.size(), 1u) << file;
        EXPECT_EQ(assembly.parts[0].mesh->GetTriangleQuantity(), 4) << file;
        Wm4::Vector3<float> lo, hi;
        velmora::assemblyBounds(assembly, lo, hi);
        EXPECT_EQ(hi, Wm4::Vector3<float>(1, 1, 1)) << file;
    }
}

// Positions interleaved with another attribute: a stride of 16 bytes skips the
// fourth float of every vertex.
TEST_F(ImportTest, GltfStridedPositions)
{
    const float interleaved[12] = {0, 0, 0, 99, 2, 0, 0, 99, 0, 3, 0, 99};
    write("strided.bin", std::string(reinterpret_cast<const char*>(interleaved), sizeof interleaved));
    const std::string file = write("strided.gltf", R"({
      "asset": {"version": "2.0"}, "scenes": [{"nodes": [0]}], "nodes": [{"mesh": 0}],
      "meshes": [{"primitives": [{"attributes": {"POSITION": 0}}]}],
      "accessors": [{"bufferView": 0, "componentType": 5126, "count": 3, "type": "VEC3"}],
      "bufferViews": [{"buffer": 0, "byteLength": 44, "byteStride": 16}],
      "buffers": [{"uri": "strided.bin", "byteLength": 48}]
    })");
    velmora::Assembly assembly = velmora::importAssembly({file});
    ASSERT_EQ(assembly.parts.size(), 1u);
    Wm4::Vector3<float> lo, hi;
    velmora::assemblyBounds(assembly, lo, hi);
    EXPECT_EQ(lo, Wm4::Vector3<float>(0, 0, 0));
    EXPECT_EQ(hi, Wm4::Vector3<float>(2, 3, 0));
}

// Bad files, each with its exact message, are in the command line's table of
// bad inputs; here what only the library's callers can do.
TEST_F(ImportTest, NoInputOrAnEmptyFolderIsAnError)
{
    fs::create_directories(dir / "nothing");
    EXPECT_THROW(velmora::importAssembly({(dir / "nothing").string()}), velmora::InputError);
    EXPECT_THROW(velmora::importAssembly({}), velmora::InputError);
}

TEST(ImportCorpus, EveryCorpusAssemblyImports)
{
    const std::string corpus = velmora_test::corpusDir();
    if (corpus.empty())
        GTEST_SKIP() << "the shared corpus is not beside this checkout";
    struct Expected {
        const char* input;
        size_t parts;
    };
    for (const Expected& e : {Expected{"beam_assembly", 5}, Expected{"rod_linkage", 29}, Expected{"pins.glb", 7},
                              Expected{"fm1_satellite", 62}}) {
        velmora::Assembly assembly = velmora::importAssembly({corpus + "/" + e.input});
        EXPECT_EQ(assembly.parts.size(), e.parts) << e.input;
        EXPECT_EQ(assembly.groups.size(), e.parts) << e.input;
        for (const velmora::Part& part : assembly.parts)
            EXPECT_GT(part.mesh->GetTriangleQuantity(), 0) << part.name;
    }
}

}  // namespace
