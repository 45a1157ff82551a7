#include "velmora/MeshAssembly.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "velmora/Planner.h"

namespace {

using Vec3f = Wm4::Vector3<float>;

// A unit cube lifted by `z`, outward triangles.
velmora::NamedMesh cube(const std::string& name, float z)
{
    velmora::NamedMesh mesh{name, {}, {0, 2, 3, 0, 3, 1, 4, 5, 7, 4, 7, 6, 0, 1, 5, 0, 5, 4,
                                       2, 6, 7, 2, 7, 3, 0, 4, 6, 0, 6, 2, 1, 3, 7, 1, 7, 5}};
    for (int k = 0; k < 8; ++k)
        mesh.positions.emplace_back(float(k & 1), float((k >> 1) & 1), float(k >> 2) + z);
    return mesh;
}

TEST(MeshAssembly, EveryMeshIsOnePartAndOneGroup)
{
    velmora::NamedMesh lower = cube("lower", 0), upper = cube("upper", 1);
    // A degenerate triangle is dropped, as on import.
    upper.indices.insert(upper.indices.end(), {0, 0, 1});
    const velmora::Assembly assembly = velmora::assemblyFromMeshes({lower, upper});
    ASSERT_EQ(assembly.parts.size(), 2u);
    EXPECT_EQ(assembly.parts[1].name, "upper");
    EXPECT_EQ(assembly.parts[1].mesh->GetName(), "upper");
    EXPECT_EQ(assembly.parts[1].mesh->GetTriangleQuantity(), 12);
    ASSERT_EQ(assembly.groups.size(), 2u);
    EXPECT_EQ(assembly.groups[1].parts, std::vector<unsigned>{1});

    velmora::PlanOptions options;
    options.threads = 1;
    options.hierarchy = true;
    const auto plan = velmora::planAssembly(assembly, options);
    EXPECT_EQ(plan->diagram().getNoContacts(), 1u);
}

TEST(MeshAssembly, BadMeshesAreRejectedWithTheirName)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    velmora::NamedMesh nonFinite = cube("a", 0), badIndex = cube("a", 0), badCount = cube("a", 0);
    nonFinite.positions[3] = Vec3f(nan, 0, 0);
    badIndex.indices[5] = 8;
    badCount.indices.pop_back();
    const velmora::NamedMesh flat{"a", {Vec3f(0, 0, 0), Vec3f(1, 0, 0), Vec3f(2, 0, 0)}, {0, 1, 2}};
    const struct {
        std::vector<velmora::NamedMesh> meshes;
        const char* message;
    } cases[] = {
        {{}, "no mesh given"},
        {{cube("", 0)}, "a mesh has no name"},
        {{cube("a", 0), cube("a", 1)}, "a: two meshes have this name"},
        {{nonFinite}, "a: non-finite vertex coordinate"},
        {{badIndex}, "a: a triangle refers to a vertex that does not exist"},
        {{badCount}, "a: the corner count is not a multiple of three"},
        {{flat}, "a: no usable triangle"},
    };
    for (const auto& c : cases) {
        try {
            velmora::assemblyFromMeshes(c.meshes);
            ADD_FAILURE() << "accepted: " << c.message;
        } catch (const velmora::InputError& e) {
            EXPECT_STREQ(e.what(), c.message);
        }
    }
}

}  // namespace
