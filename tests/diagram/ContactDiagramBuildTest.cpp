#include <gtest/gtest.h>

#include <cmath>

#include "TestMeshes.h"
#include "kxContactDiagram.h"

namespace {

using Vec3d = Wm4::Vector3<double>;
using Vec3f = Wm4::Vector3<float>;

struct Built {
    std::vector<kx::kxPointer<kx::kxTriMesh>> meshes;
    std::unique_ptr<kxMeshGroups> groups;
    std::unique_ptr<kxContactDiagram> diagram;
};

Built buildDiagram(std::vector<kx::kxPointer<kx::kxTriMesh>> meshes, unsigned threads)
{
    Built b;
    b.meshes = std::move(meshes);
    b.groups = std::make_unique<kxMeshGroups>(velmora_test::rawPointers(b.meshes), nullptr);
    b.diagram = std::make_unique<kxContactDiagram>(*b.groups, threads, nullptr);
    b.diagram->computeDirectionSet(5.0f);
    return b;
}

// The edge's directions, each matched to one of `expected` within 1 degree,
// every expected direction present once.
void expectDirections(const kxContactDiagram& diagram, unsigned edge, const std::vector<Vec3d>& expected)
{
    const std::vector<Vec3d>& found = diagram.getDisassemblyDirections(edge);
    ASSERT_EQ(found.size(), expected.size()) << "edge " << edge;
    for (const Vec3d& e : expected) {
        int matches = 0;
        for (const Vec3d& d : found)
            matches += d.Dot(e) > std::cos(1.0 * M_PI / 180.0);
        EXPECT_EQ(matches, 1) << "edge " << edge << " direction " << e[0] << " " << e[1] << " " << e[2];
    }
}

TEST(ContactDiagramBuild, LidOnBoxLiftsUpAndSlides)
{
    Built b = buildDiagram({velmora_test::makeBox({0, 0, 0}, {4, 4, 2}), velmora_test::makeBox({0, 0, 2}, {4, 4, 2.5f})}, 2);
    ASSERT_EQ(b.diagram->getNoContacts(), 1u);
    const auto& edge = b.diagram->getEdgeData(0);
    EXPECT_EQ(edge.meshId0, 0u);
    EXPECT_EQ(edge.meshId1, 1u);
    EXPECT_EQ(edge.groupId0, 0u);
    EXPECT_EQ(edge.groupId1, 1u);
    // The box (first) leaves the lid downwards, and the two slide freely in the plane.
    expectDirections(*b.diagram, 0, {{0, 0, -1}, {1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}});
    const Vec3f point = b.diagram->getContactPoint(0);
    EXPECT_NEAR(point.Z(), 2.0f, 1e-4f);
    EXPECT_TRUE(point.X() > 0 && point.X() < 4 && point.Y() > 0 && point.Y() < 4);
    EXPECT_EQ(b.diagram->getNoDirections(), 3u);
}

// A block in a U-shaped channel made of three boxes: against the floor it
// can lift and slide, against a wall it can leave sideways and slide.
TEST(ContactDiagramBuild, BlockInAChannel)
{
    std::vector<kx::kxPointer<kx::kxTriMesh>> meshes = {
        velmora_test::makeBox({0, 0, 0}, {3, 10, 1}),     // channel floor
        velmora_test::makeBox({0, 0, 1}, {1, 10, 3}),     // left wall
        velmora_test::makeBox({2, 0, 1}, {3, 10, 3}),     // right wall
        velmora_test::makeBox({1, 4, 1}, {2, 6, 2}),      // block
    };
    Built b = buildDiagram(meshes, 2);
    ASSERT_EQ(b.diagram->getNoContacts(), 5u);  // floor-left, floor-right, floor-block, left-block, block-right
    for (unsigned e = 0; e < b.diagram->getNoContacts(); ++e) {
        const auto& edge = b.diagram->getEdgeData(e);
        if (edge.meshId0 == 0 && edge.meshId1 == 3)
            expectDirections(*b.diagram, e, {{0, 0, -1}, {1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}});
        if (edge.meshId0 == 1 && edge.meshId1 == 3)
            expectDirections(*b.diagram, e, {{-1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}, {0, 0, -1}});
    }
}

TEST(ContactDiagramBuild, SameEdgesForAnyThreadCount)
{
    auto make = [] {
        return std::vector<kx::kxPointer<kx::kxTriMesh>>{
            velmora_test::makeBox({0, 0, 0}, {4, 4, 1}), velmora_test::makeBox({0, 0, 1}, {2, 4, 2}),
            velmora_test::makeBox({2, 0, 1}, {4, 4, 2}), velmora_test::makeBox({1, 1, 2}, {3, 3, 3})};
    };
    Built one = buildDiagram(make(), 1);
    ASSERT_GT(one.diagram->getNoContacts(), 3u);
    for (unsigned threads : {2u, 4u}) {
        Built other = buildDiagram(make(), threads);
        ASSERT_EQ(other.diagram->getNoContacts(), one.diagram->getNoContacts());
        for (unsigned e = 0; e < one.diagram->getNoContacts(); ++e) {
            EXPECT_EQ(other.diagram->getEdgeData(e).meshId0, one.diagram->getEdgeData(e).meshId0);
            EXPECT_EQ(other.diagram->getEdgeData(e).meshId1, one.diagram->getEdgeData(e).meshId1);
            EXPECT_EQ(other.diagram->getDisassemblyDirections(e), one.diagram->getDisassemblyDirections(e));
            EXPECT_EQ(other.diagram->getDisassemblyDirectionIds(e), one.diagram->getDisassemblyDirectionIds(e));
            EXPECT_EQ(other.diagram->getContactPoint(e), one.diagram->getContactPoint(e));
        }
        EXPECT_EQ(other.diagram->getNoDirections(), one.diagram->getNoDirections());
    }
}

// Meshes placed by world transforms: contacts and points come out in the
// world frame, the same as for the pre-transformed meshes.
TEST(ContactDiagramBuild, ContactPointsAreInTheCallersFrame)
{
    const Wm4::Matrix3<float> rotZ(0, -1, 0, 1, 0, 0, 0, 0, 1);
    const Vec3f shift(100, -50, 20);
    auto lower = velmora_test::makeBox({0, 0, 0}, {4, 2, 1});
    auto upper = velmora_test::makeBox({0, 0, 0}, {4, 2, 1});
    lower->World = kx::kxGenericTransformation<float>(rotZ, shift);
    upper->World = kx::kxGenericTransformation<float>(rotZ, shift + Vec3f(0, 0, 1));
    Built b = buildDiagram({lower, upper}, 2);
    ASSERT_EQ(b.diagram->getNoContacts(), 1u);
    const Vec3f point = b.diagram->getContactPoint(0);
    // The patch is the rotated rectangle x in [98, 100], y in [-50, -46], z = 21.
    EXPECT_NEAR(point.Z(), 21.0f, 1e-3f);
    EXPECT_TRUE(point.X() > 98 && point.X() < 100) << point.X();
    EXPECT_TRUE(point.Y() > -50 && point.Y() < -46) << point.Y();
    expectDirections(*b.diagram, 0, {{0, 0, -1}, {1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}});
}

TEST(ContactDiagramBuild, SeparatedPartsHaveNoContact)
{
    Built b = buildDiagram({velmora_test::makeBox({0, 0, 0}, {1, 1, 1}), velmora_test::makeBox({0, 0, 1.5f}, {1, 1, 2})}, 2);
    EXPECT_EQ(b.diagram->getNoContacts(), 0u);
    EXPECT_EQ(b.diagram->getNoDirections(), 0u);
}

}  // namespace
