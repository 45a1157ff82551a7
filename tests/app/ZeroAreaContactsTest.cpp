#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "CliRun.h"
#include "TestMeshes.h"
#include "velmora/Planner.h"
#include "velmora/ZeroAreaContacts.h"

namespace {

using Vec3d = Wm4::Vector3<double>;
using Vec3f = Wm4::Vector3<float>;
using Cell = std::array<int, 3>;

// Unit cubes, one part each, on the given integer cells.
velmora::Assembly cubes(const std::vector<Cell>& cells)
{
    velmora::Assembly assembly;
    for (size_t i = 0; i < cells.size(); ++i) {
        const Vec3f lo(float(cells[i][0]), float(cells[i][1]), float(cells[i][2]));
        std::string name = "c";
        name += std::to_string(i);
        kx::kxPointer<kx::kxTriMesh> mesh = velmora_test::makeBox(lo, lo + Vec3f(1, 1, 1));
        mesh->SetName(name);
        assembly.parts.push_back({name, "(test)", "", mesh, std::nullopt});
    }
    velmora::assignGroups(assembly, velmora::GroupBy::Mesh);
    return assembly;
}

std::unique_ptr<velmora::Plan> planHierarchy(const velmora::Assembly& assembly, bool freeZeroArea)
{
    velmora::PlanOptions options;
    options.threads = 2;
    options.hierarchy = true;
    options.freeZeroAreaContacts = freeZeroArea;
    return velmora::planAssembly(assembly, options);
}

unsigned splitsOf(const velmora::Plan& plan)
{
    unsigned splits = 0;
    for (unsigned id = 0; id < plan.hierarchy().getNoNodes(); ++id) {
        const kxDisassemblyHierarchy::tTreeNode& node = plan.hierarchy().getNode(id);
        splits +=
            node.noGroups != kxDisassemblyHierarchy::kNoNode && node.firstChild != kxDisassemblyHierarchy::kNoNode;
    }
    return splits;
}

// Whether the cube on `moved`, shifted by `step`, shares interior with the cube on `fixed`.
bool cubesOverlap(const Cell& moved, const Vec3d& step, const Cell& fixed)
{
    for (int k = 0; k < 3; ++k) {
        const double lo = std::max(moved[k] + step[k], double(fixed[k]));
        const double hi = std::min(moved[k] + 1 + step[k], double(fixed[k] + 1));
        if (hi - lo <= 1e-9)
            return false;
    }
    return true;
}

// Squared distance from p to the cube on `cell`.
double distanceToCube(const Vec3f& p, const Cell& cell)
{
    double squared = 0.0;
    for (int k = 0; k < 3; ++k) {
        const double gap = std::max({cell[k] - double(p[k]), double(p[k]) - (cell[k] + 1), 0.0});
        squared += gap * gap;
    }
    return std::sqrt(squared);
}

std::vector<Cell> grid(int nx, int ny)
{
    std::vector<Cell> cells;
    for (int x = 0; x < nx; ++x)
        for (int y = 0; y < ny; ++y)
            cells.push_back({x, y, 0});
    return cells;
}

// Cubes meeting face to face, along an edge, at a corner, in an L and in a
// grid: with the fix every assembly comes apart completely; without it (the
// library's own behaviour) the edge and corner contacts lock their pairs.
TEST(ZeroAreaContacts, CubesTouchingAlongEdgesAndCornersComeApart)
{
    struct Case {
        const char* name;
        std::vector<Cell> cells;
        unsigned contacts;
        unsigned zeroArea;      // edge and corner contacts among them
        unsigned lockedSplits;  // splits when they stay locked
    };
    const std::vector<Case> cases = {
        {"face to face", {{0, 0, 0}, {1, 0, 0}}, 1, 0, 1},
        {"along an edge", {{0, 0, 0}, {1, 1, 0}}, 1, 1, 0},
        {"at a corner", {{0, 0, 0}, {1, 1, 1}}, 1, 1, 0},
        {"L of three", {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}}, 3, 1, 1},
        // 12 face contacts and 8 diagonal neighbours along an edge.
        {"3 x 3 grid", grid(3, 3), 20, 8, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const velmora::Assembly assembly = cubes(c.cells);
        const auto plan = planHierarchy(assembly, true);
        const kxContactDiagram& diagram = plan->diagram();
        ASSERT_EQ(diagram.getNoContacts(), c.contacts);
        unsigned zeroArea = 0;
        for (unsigned e = 0; e < diagram.getNoContacts(); ++e) {
            if (!plan->zeroAreaContact(e))
                continue;
            ++zeroArea;
            const Cell& a = c.cells[diagram.getEdgeData(e).groupId0];
            const Cell& b = c.cells[diagram.getEdgeData(e).groupId1];
            // The point is where the cubes touch; no direction moves the
            // first cube into the second.
            EXPECT_LT(distanceToCube(plan->contactPoint(e), a), 1e-6);
            EXPECT_LT(distanceToCube(plan->contactPoint(e), b), 1e-6);
            ASSERT_FALSE(diagram.getDisassemblyDirections(e).empty());
            for (const Vec3d& d : diagram.getDisassemblyDirections(e))
                EXPECT_FALSE(cubesOverlap(a, d * 0.25, b)) << d[0] << " " << d[1] << " " << d[2];
        }
        EXPECT_EQ(zeroArea, c.zeroArea);
        EXPECT_EQ(splitsOf(*plan), c.cells.size() - 1);

        const auto locked = planHierarchy(assembly, false);
        EXPECT_FALSE(locked->freesZeroAreaContacts());
        EXPECT_EQ(splitsOf(*locked), c.lockedSplits);
        for (unsigned e = 0; e < locked->diagram().getNoContacts(); ++e) {
            EXPECT_FALSE(locked->zeroAreaContact(e));
            // The library leaves exactly these contacts without directions.
            EXPECT_EQ(locked->diagram().getDisassemblyDirections(e).empty(), plan->zeroAreaContact(e));
        }
    }
}

// The directions a set of touching faces leaves free never push into any of
// them; the first is straight away from them.
TEST(ZeroAreaContacts, FreeDirectionsOfTouchingFaces)
{
    const double r2 = 1.0 / std::sqrt(2.0), r3 = 1.0 / std::sqrt(3.0);
    struct Case {
        const char* name;
        std::vector<Vec3d> normals;
        std::vector<Vec3d> expected;  // directions that must be among the result (the first one first)
        size_t count;
    };
    const std::vector<Case> cases = {
        // One face: away from it, and both senses of two lines in its plane.
        {"a face", {{1, 0, 0}, {1, 0, 0}}, {{-1, 0, 0}}, 5},
        // An edge: away from both faces, and both senses along the edge.
        {"an edge", {{1, 0, 0}, {0, 1, 0}}, {{-r2, -r2, 0}, {0, 0, 1}, {0, 0, -1}}, 0},
        {"a corner", {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {{-r3, -r3, -r3}}, 0},
        // Squeezed between two opposite faces: only the four senses of the plane between them.
        {"between two faces", {{1, 0, 0}, {-1, 0, 0}}, {}, 4},
    };
    const double pushSine = std::sin(10.0 * M_PI / 180.0);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::vector<Vec3d> free = velmora::freeDirectionsOfTouchingFaces(c.normals);
        if (c.count != 0) {
            EXPECT_EQ(free.size(), c.count);
        }
        for (size_t i = 0; i < c.expected.size(); ++i) {
            const auto close = [&](const Vec3d& d) { return (d - c.expected[i]).Length() < 1e-9; };
            if (i == 0) {
                ASSERT_TRUE(!free.empty() && close(free[0]));
            }
            EXPECT_TRUE(std::any_of(free.begin(), free.end(), close)) << i;
        }
        for (const Vec3d& d : free) {
            EXPECT_NEAR(d.Length(), 1.0, 1e-12);
            for (const Vec3d& n : c.normals)
                EXPECT_LE(d.Dot(n), pushSine);
        }
    }
}

// The command line: an L of cubes written as one OBJ per cube comes apart by
// default, stays locked with --lock-zero-area, and the report says which;
// --no-normalise-scale is reported and, for a unit-sized input, changes nothing.
TEST(ZeroAreaContacts, CommandLineSwitch)
{
    namespace fs = std::filesystem;
    const fs::path dir = fs::temp_directory_path() / "velmora-zero-area-cli";
    fs::remove_all(dir);
    fs::create_directories(dir);
    const velmora::Assembly assembly = cubes({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}});
    for (const velmora::Part& part : assembly.parts) {
        std::ofstream obj(dir / (part.name + ".obj"));
        const kx::kxVertexBuffer& vertices = *part.mesh->GetVertexBuffer();
        for (int v = 0; v < vertices.GetVertexQuantity(); ++v)
            obj << "v " << vertices.Position3(v)[0] << " " << vertices.Position3(v)[1] << " "
                << vertices.Position3(v)[2] << "\n";
        for (int t = 0; t < part.mesh->GetTriangleQuantity(); ++t) {
            int i0, i1, i2;
            part.mesh->GetTriangle(t, i0, i1, i2);
            obj << "f " << i0 + 1 << " " << i1 + 1 << " " << i2 + 1 << "\n";
        }
    }
    const auto leaves = [](const nlohmann::json& report) {
        size_t n = 0;
        for (const nlohmann::json& node : report["hierarchy"]["nodes"])
            n += node["split"].is_null();
        return n;
    };
    const auto zeroAreaNames = [](const nlohmann::json& report) {
        std::vector<std::vector<std::string>> names;
        for (const nlohmann::json& contact : report["contacts"])
            if (contact["zeroArea"])
                names.push_back(contact["names"]);
        return names;
    };
    const cli_test::CliRun freed = cli_test::run({"plan", dir.string(), "--threads", "2"});
    ASSERT_EQ(freed.status, 0) << freed.err;
    const nlohmann::json freedReport = nlohmann::json::parse(freed.out);
    EXPECT_EQ(leaves(freedReport), 3u);
    EXPECT_EQ(zeroAreaNames(freedReport), (std::vector<std::vector<std::string>>{{"c0", "c2"}}));
    EXPECT_EQ(freedReport["settings"]["freeZeroAreaContacts"], true);

    const cli_test::CliRun locked = cli_test::run({"plan", dir.string(), "--threads", "2", "--lock-zero-area"});
    ASSERT_EQ(locked.status, 0) << locked.err;
    const nlohmann::json lockedReport = nlohmann::json::parse(locked.out);
    EXPECT_EQ(leaves(lockedReport), 2u);
    EXPECT_TRUE(zeroAreaNames(lockedReport).empty());
    EXPECT_EQ(lockedReport["settings"]["freeZeroAreaContacts"], false);

    // Planned in its own units, a unit-sized assembly gives the very same contacts.
    const cli_test::CliRun unscaled =
        cli_test::run({"contacts", dir.string(), "--threads", "2", "--no-normalise-scale"});
    ASSERT_EQ(unscaled.status, 0) << unscaled.err;
    const nlohmann::json unscaledReport = nlohmann::json::parse(unscaled.out);
    EXPECT_EQ(unscaledReport["settings"]["normaliseScale"], false);
    EXPECT_EQ(freedReport["settings"]["normaliseScale"], true);
    EXPECT_EQ(unscaledReport["contacts"], freedReport["contacts"]);
    fs::remove_all(dir);
}

}  // namespace
