#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "kxContactDiagram.h"

namespace {

using Vec3d = Wm4::Vector3<double>;

// Groups over placeholder meshes: the diagram only reads group ids here.
kxMeshGroups groupsOf(const std::vector<unsigned>& groupIds)
{
    return kxMeshGroups(std::vector<kx::kxTriMesh*>(groupIds.size(), nullptr), &groupIds);
}

Vec3d tilted(double degrees)
{
    const double a = degrees * M_PI / 180.0;
    return {std::sin(a), 0.0, std::cos(a)};
}

std::string captureStdout(const std::function<void()>& body)
{
    std::ostringstream captured;
    std::streambuf* old = std::cout.rdbuf(captured.rdbuf());
    body();
    std::cout.rdbuf(old);
    return captured.str();
}

TEST(ContactDiagram, PushDropsContactsInsideOneGroup)
{
    const std::vector<unsigned> ids = {0, 1, 2};
    kxMeshGroups groups(std::vector<kx::kxTriMesh*>(3, nullptr), &ids);
    kxContactDiagram diagram(0, 4, groups);
    const Vec3d up(0, 0, 1);
    diagram.pushContactEdge(0, 0, &up, 1, {1, 2, 3});
    EXPECT_EQ(diagram.getNoContacts(), 0u);
    diagram.pushContactEdge(2, 1, &up, 1, {1, 2, 3});
    diagram.pushContactEdge(0, 1, nullptr, 0, {4, 5, 6});
    ASSERT_EQ(diagram.getNoContacts(), 2u);
    EXPECT_EQ(diagram.getEdgeData(0).meshId0, 2u);
    EXPECT_EQ(diagram.getEdgeData(0).groupId0, 2u);
    EXPECT_EQ(diagram.getEdgeData(0).groupId1, 1u);
    EXPECT_EQ(diagram.getDisassemblyDirections(0), std::vector<Vec3d>{up});
    EXPECT_EQ(diagram.getDisassemblyDirectionIds(0), std::vector<unsigned>{0});
    EXPECT_TRUE(diagram.getDisassemblyDirections(1).empty());
    EXPECT_EQ(diagram.getContactPoint(1), Wm4::Vector3<float>(4, 5, 6));

    // Shared groups: meshes 0 and 1 are one group, so their contact is dropped.
    auto shared = groupsOf({0, 0, 1});
    kxContactDiagram inGroup(0, 1, shared);
    inGroup.pushContactEdge(0, 1, &up, 1, {0, 0, 0});
    EXPECT_EQ(inGroup.getNoContacts(), 0u);
}

TEST(ContactDiagram, OppositeDirectionsShareOneLine)
{
    auto groups = groupsOf({0, 1, 2});
    kxContactDiagram diagram(0, 2, groups);
    const Vec3d up(0, 0, 1), down(0, 0, -1);
    diagram.pushContactEdge(0, 1, &up, 1, {});
    diagram.pushContactEdge(1, 2, &down, 1, {});
    diagram.computeDirectionSet(5.0f);
    ASSERT_EQ(diagram.getNoDirections(), 1u);
    EXPECT_EQ(diagram.getDirectionFromId(0), up);
    EXPECT_EQ(diagram.getDisassemblyDirectionIds(0), std::vector<unsigned>{0});
    EXPECT_EQ(diagram.getDisassemblyDirectionIds(1), std::vector<unsigned>{1});
    EXPECT_FLOAT_EQ(diagram.getAngleTolerance(), 5.0f);
}

TEST(ContactDiagram, ToleranceDecidesWhetherNearbyDirectionsMerge)
{
    auto groups = groupsOf({0, 1, 2});
    kxContactDiagram diagram(0, 2, groups);
    const Vec3d a = tilted(0.0), b = tilted(3.0);
    diagram.pushContactEdge(0, 1, &a, 1, {});
    diagram.pushContactEdge(1, 2, &b, 1, {});

    diagram.computeDirectionSet(5.0f);
    ASSERT_EQ(diagram.getNoDirections(), 1u);
    // The representative is the refined mean of both, 1.5 degrees from each.
    EXPECT_NEAR(diagram.getDirectionFromId(0).Dot(tilted(1.5)), 1.0, 1e-12);
    EXPECT_EQ(diagram.getDisassemblyDirectionIds(1), std::vector<unsigned>{0});

    diagram.computeDirectionSet(2.0f);
    ASSERT_EQ(diagram.getNoDirections(), 2u);
    EXPECT_EQ(diagram.getDirectionFromId(0), a);
    EXPECT_NEAR(diagram.getDirectionFromId(1).Dot(b), 1.0, 1e-15);
    EXPECT_EQ(diagram.getDisassemblyDirectionIds(0), std::vector<unsigned>{0});
    EXPECT_EQ(diagram.getDisassemblyDirectionIds(1), std::vector<unsigned>{2});
    // Edge directions themselves never change.
    EXPECT_EQ(diagram.getDisassemblyDirections(1), std::vector<Vec3d>{b});
}

// Clusters open in flattening order: the first entry not absorbed seeds the
// next line; ids follow every entry of every edge.
TEST(ContactDiagram, ClustersOpenInFlatteningOrder)
{
    auto groups = groupsOf({0, 1, 2, 3});
    kxContactDiagram diagram(0, 3, groups);
    const Vec3d x(1, 0, 0), y(0, 1, 0), z(0, 0, 1);
    const Vec3d first[3] = {y, -x, z};
    const Vec3d second[2] = {x, -y};
    diagram.pushContactEdge(0, 1, first, 3, {});
    diagram.pushContactEdge(1, 2, second, 2, {});
    diagram.pushContactEdge(2, 3, &z, 1, {});
    diagram.computeDirectionSet(1.0f);
    ASSERT_EQ(diagram.getNoDirections(), 3u);
    EXPECT_EQ(diagram.getDirectionFromId(0), y);
    EXPECT_EQ(diagram.getDirectionFromId(1), -x);
    EXPECT_EQ(diagram.getDirectionFromId(2), z);
    EXPECT_EQ(diagram.getDisassemblyDirectionIds(0), (std::vector<unsigned>{0, 2, 4}));
    EXPECT_EQ(diagram.getDisassemblyDirectionIds(1), (std::vector<unsigned>{3, 1}));
    EXPECT_EQ(diagram.getDisassemblyDirectionIds(2), (std::vector<unsigned>{4}));

    kxContactDiagram copy(diagram);
    EXPECT_EQ(copy.getNoDirections(), 3u);
    EXPECT_EQ(copy.getDisassemblyDirectionIds(1), (std::vector<unsigned>{3, 1}));
}

TEST(ContactDiagram, VerboseLinesOfAnEmptyDiagram)
{
    auto groups = groupsOf({0, 1});
    kxContactDiagram diagram(0, 0, groups);
    EXPECT_EQ(captureStdout([&] { diagram.computeDirectionSet(5.0f); }), "");
    diagram.setVerbose(true);
    EXPECT_EQ(captureStdout([&] { diagram.computeDirectionSet(5.0f); }),
              "computing direction set\nno directions: 0\nno unique directions: 0\n");
    EXPECT_EQ(diagram.getNoDirections(), 0u);
}

}  // namespace
