#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "TestMeshes.h"
#include "velmora/Import.h"
#include "velmora/Planner.h"

namespace {

using Vec3f = Wm4::Vector3<float>;

velmora::PlanOptions options(unsigned threads, float angleTolerance = 5.0f)
{
    velmora::PlanOptions o;
    o.threads = threads;
    o.angleTolerance = angleTolerance;
    return o;
}

velmora::Part partOf(const std::string& name, kx::kxPointer<kx::kxTriMesh> mesh)
{
    mesh->SetName(name);
    return {name, "(test)", "", mesh, std::nullopt};
}

// A mesh holding both given meshes (same vertices and triangles, one buffer).
kx::kxPointer<kx::kxTriMesh> joined(const kx::kxTriMesh& a, const kx::kxTriMesh& b)
{
    std::vector<Vec3f> positions;
    std::vector<unsigned> indices;
    for (const kx::kxTriMesh* mesh : {&a, &b}) {
        const unsigned base = unsigned(positions.size());
        for (int v = 0; v < mesh->GetVertexBuffer()->GetVertexQuantity(); ++v)
            positions.push_back(mesh->GetVertexBuffer()->Position3(v));
        for (int k = 0; k < 3 * mesh->GetTriangleQuantity(); ++k)
            indices.push_back(base + mesh->GetIndexBuffer()->GetData()[k]);
    }
    return velmora_test::makeMesh(positions, indices);
}

void expectSameContacts(const velmora::Plan& a, const velmora::Plan& b)
{
    ASSERT_EQ(a.diagram().getNoContacts(), b.diagram().getNoContacts());
    for (unsigned e = 0; e < a.diagram().getNoContacts(); ++e) {
        EXPECT_EQ(a.diagram().getEdgeData(e).groupId0, b.diagram().getEdgeData(e).groupId0);
        EXPECT_EQ(a.diagram().getEdgeData(e).groupId1, b.diagram().getEdgeData(e).groupId1);
        EXPECT_EQ(a.diagram().getDisassemblyDirections(e), b.diagram().getDisassemblyDirections(e));
        EXPECT_EQ(a.diagram().getContactPoint(e), b.diagram().getContactPoint(e));
    }
}

// Two blocks side by side form one rigid group under a lid: given as two
// parts grouped together, or as one mesh, the plan is the same.
TEST(Planner, MergedGroupPlansLikeTheSingleMesh)
{
    auto left = velmora_test::makeBox({0, 0, 0}, {2, 4, 1});
    auto right = velmora_test::makeBox({2, 0, 0}, {4, 4, 1});
    auto lid = velmora_test::makeBox({0, 0, 1}, {4, 4, 1.5f});

    velmora::Assembly grouped;
    grouped.parts = {partOf("left", left), partOf("right", right), partOf("lid", lid)};
    grouped.groups = {{"base", {0, 1}}, {"lid", {2}}};
    velmora::Assembly single;
    single.parts = {partOf("base", joined(*left, *right)), partOf("lid", velmora_test::makeBox({0, 0, 1}, {4, 4, 1.5f}))};
    velmora::assignGroups(single, velmora::GroupBy::Mesh);

    auto a = velmora::planAssembly(grouped, options(2, 5.0f));
    auto b = velmora::planAssembly(single, options(2, 5.0f));
    ASSERT_EQ(a->diagram().getNoContacts(), 1u);
    expectSameContacts(*a, *b);
    EXPECT_EQ(a->groups().getNoGroups(), 2u);
}

TEST(Planner, SameResultForAnyThreadCountAndOptionsAreChecked)
{
    velmora::Assembly assembly;
    assembly.parts = {partOf("a", velmora_test::makeBox({0, 0, 0}, {2, 2, 1})),
                      partOf("b", velmora_test::makeBox({0, 0, 1}, {1, 2, 2})),
                      partOf("c", velmora_test::makeBox({1, 0, 1}, {2, 2, 2}))};
    velmora::assignGroups(assembly, velmora::GroupBy::Mesh);
    auto one = velmora::planAssembly(assembly, options(1, 5.0f));
    for (unsigned threads : {2u, 4u, 8u})
        expectSameContacts(*one, *velmora::planAssembly(assembly, options(threads, 5.0f)));
    EXPECT_GE(one->threads(), 1u);
    EXPECT_THROW(velmora::planAssembly(assembly, options(1, 0.0f)), velmora::InputError);
    EXPECT_THROW(velmora::planAssembly(assembly, options(1, 90.0f)), velmora::InputError);
    EXPECT_THROW(velmora::planAssembly(assembly, options(1000, 5.0f)), velmora::InputError);
}

TEST(Planner, SinglePartHasNoContacts)
{
    velmora::Assembly assembly;
    assembly.parts = {partOf("only", velmora_test::makeBox({0, 0, 0}, {1, 1, 1}))};
    velmora::assignGroups(assembly, velmora::GroupBy::Mesh);
    auto plan = velmora::planAssembly(assembly, options(1, 5.0f));
    EXPECT_EQ(plan->diagram().getNoContacts(), 0u);
}

// Every corpus assembly: parts that touch are joined by contacts, and every
// contact joins parts that really are within the contact tolerance.
TEST(PlannerCorpus, ContactsConnectTheTouchingParts)
{
    const std::string corpus = velmora_test::corpusDir();
    if (corpus.empty())
        GTEST_SKIP() << "the shared corpus is not beside this checkout";
    struct Case {
        const char* input;
        size_t minContacts;  // at least this many touching pairs
        size_t floating;     // parts that touch nothing (measured gaps of 0.7 to 2.3 mm)
    };
    std::vector<Case> cases = {{"beam_assembly", 4, 0}, {"pins.glb", 6, 0}};
#if !defined(__SANITIZE_ADDRESS__)
    // The large ones take seconds in an optimised build, minutes under sanitizers.
    cases.push_back({"rod_linkage", 28, 0});
    cases.push_back({"fm1_satellite", 50, 4});
    cases.push_back({"cycloidal_drive", 71, 0});
#endif
    for (const Case& c : cases) {
        velmora::Assembly assembly = velmora::importAssembly({corpus + "/" + c.input});
        auto plan = velmora::planAssembly(assembly, options(2, 5.0f));
        const kxContactDiagram& diagram = plan->diagram();
        EXPECT_GE(diagram.getNoContacts(), c.minContacts) << c.input;
        std::set<unsigned> touched;
        for (unsigned e = 0; e < diagram.getNoContacts(); ++e) {
            touched.insert(diagram.getEdgeData(e).groupId0);
            touched.insert(diagram.getEdgeData(e).groupId1);
            EXPECT_NE(diagram.getEdgeData(e).groupId0, diagram.getEdgeData(e).groupId1);
        }
        EXPECT_EQ(touched.size() + c.floating, assembly.groups.size()) << c.input;
    }
}

}  // namespace
