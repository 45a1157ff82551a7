#include <gtest/gtest.h>

#include <cmath>
#include <map>

#include "velmora/DemoAssemblies.h"

namespace {

// Signed volume enclosed by a mesh (positive when its faces point outward).
double signedVolume(const kx::kxTriMesh& mesh)
{
    double volume = 0.0;
    for (int t = 0; t < mesh.GetTriangleQuantity(); ++t) {
        int i[3];
        mesh.GetTriangle(t, i[0], i[1], i[2]);
        const Wm4::Vector3<double> a(mesh.GetVertexBuffer()->Position3(i[0])),
            b(mesh.GetVertexBuffer()->Position3(i[1])), c(mesh.GetVertexBuffer()->Position3(i[2]));
        volume += a.Dot(b.Cross(c)) / 6.0;
    }
    return volume;
}

// Every directed edge is matched by exactly one opposite edge: closed and
// consistently oriented.
bool isClosedAndOriented(const kx::kxTriMesh& mesh)
{
    std::map<std::pair<int, int>, int> directed;
    for (int t = 0; t < mesh.GetTriangleQuantity(); ++t) {
        int i[3];
        mesh.GetTriangle(t, i[0], i[1], i[2]);
        for (int k = 0; k < 3; ++k)
            directed[{i[k], i[(k + 1) % 3]}] += 1;
    }
    for (const auto& [edge, count] : directed) {
        auto back = directed.find({edge.second, edge.first});
        if (count != 1 || back == directed.end() || back->second != 1)
            return false;
    }
    return true;
}

double ngonArea(double r, unsigned n) { return 0.5 * n * r * r * std::sin(2.0 * M_PI / n); }

TEST(DemoAssemblies, PartsAreClosedOutwardSolidsOfTheIntendedSize)
{
    const double a32 = ngonArea(1.0, 32);  // area of the unit 32-gon
    const std::map<std::string, double> expectedVolume = {
        {"box", 32.0},
        {"lid", 8.0},
        {"plate", (16.0 - 1.0) * a32},
        {"washer", (1.8 * 1.8 - 1.0) * a32 * 0.3},
        {"peg", a32 * 1.8 + 2.25 * a32 * 0.3},
        {"housing", 25.0 * a32 * 9.0 - 16.0 * a32 * 8.0},
        {"plate-1", (16.0 - 0.25) * a32},
        {"pin", 0.25 * a32 * 8.0},
        {"cover", 25.0 * a32 * 0.5},
    };
    for (const char* name : {"lid-on-box", "peg-in-hole", "stack"}) {
        velmora::Assembly assembly = velmora::makeDemoAssembly(name);
        ASSERT_EQ(assembly.groups.size(), assembly.parts.size());
        for (const velmora::Part& part : assembly.parts) {
            EXPECT_TRUE(isClosedAndOriented(*part.mesh)) << name << "/" << part.name;
            const double volume = signedVolume(*part.mesh);
            EXPECT_GT(volume, 0.0) << name << "/" << part.name;
            auto expected = expectedVolume.find(part.name);
            if (expected != expectedVolume.end()) {
                EXPECT_NEAR(volume, expected->second, 1e-4 * expected->second) << name << "/" << part.name;
            }
        }
    }
    EXPECT_EQ(velmora::makeDemoAssembly("stack").parts.size(), 11u);
    EXPECT_THROW(velmora::makeDemoAssembly("teapot"), velmora::InputError);
}

}  // namespace
