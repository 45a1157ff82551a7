// Part colours from the inputs: an OBJ's MTL diffuse colour and opacity; no
// colour for a file without materials.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "velmora/Import.h"

namespace {

namespace fs = std::filesystem;

const char* kTriangleObj = "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1\nf 1 3 2\nf 1 2 4\nf 1 4 3\nf 2 3 4\n";

TEST(ColourImport, ObjMaterialsGiveTheirDiffuseColour)
{
    const fs::path dir = fs::temp_directory_path() / ("velmora-colour-" + std::to_string(::getpid()));
    fs::create_directories(dir);
    std::ofstream(dir / "paint.mtl") << "newmtl red\nKd 0.8 0.1 0.2\nd 0.5\n";
    std::ofstream(dir / "coloured.obj") << "mtllib paint.mtl\no tetra\nusemtl red\n" << kTriangleObj;
    std::ofstream(dir / "bare.obj") << "o tetra\n" << kTriangleObj;

    const velmora::Assembly coloured = velmora::importAssembly({(dir / "coloured.obj").string()});
    ASSERT_EQ(1u, coloured.parts.size());
    ASSERT_TRUE(coloured.parts[0].colour.has_value());
    EXPECT_FLOAT_EQ(0.8f, coloured.parts[0].colour->r);
    EXPECT_FLOAT_EQ(0.1f, coloured.parts[0].colour->g);
    EXPECT_FLOAT_EQ(0.2f, coloured.parts[0].colour->b);
    EXPECT_FLOAT_EQ(0.5f, coloured.parts[0].colour->a);
    EXPECT_EQ("", coloured.units);

    const velmora::Assembly bare = velmora::importAssembly({(dir / "bare.obj").string()});
    EXPECT_FALSE(bare.parts[0].colour.has_value());
    fs::remove_all(dir);
}

}  // namespace
