// The sweep test utility itself: crossing depth of two triangles, and sweeps
// that must pass or fail.
#include <gtest/gtest.h>

#include "SweepTest.h"
#include "TestMeshes.h"
#include "velmora/DemoAssemblies.h"

namespace {

using Vec3d = Wm4::Vector3<double>;
using Vec3f = Wm4::Vector3<float>;
using velmora_test::sweepSeparates;
using velmora_test::triangleCrossingDepth;

TEST(SweepTest, CrossingDepthOfTwoTriangles)
{
    const Vec3d floor[3] = {Vec3d(-4, -4, 0), Vec3d(4, -4, 0), Vec3d(0, 4, 0)};
    // A vertical triangle through the floor: 0.5 below, 1 above; its cut is
    // 1.5 long at the cut line, well inside the floor triangle.
    const Vec3d through[3] = {Vec3d(-1, 0, -0.5), Vec3d(1, 0, -0.5), Vec3d(0, 0, 1)};
    EXPECT_NEAR(triangleCrossingDepth(through, floor), 0.5, 1e-12);
    EXPECT_NEAR(triangleCrossingDepth(floor, through), 0.5, 1e-12);

    // Touching only: coplanar, standing on the floor, a corner on it.
    const Vec3d coplanar[3] = {Vec3d(-1, -1, 0), Vec3d(1, -1, 0), Vec3d(0, 1, 0)};
    const Vec3d standing[3] = {Vec3d(-1, 0, 0), Vec3d(1, 0, 0), Vec3d(0, 0, 1)};
    const Vec3d corner[3] = {Vec3d(0, 0, 0), Vec3d(1, 0, 1), Vec3d(0, 1, 1)};
    EXPECT_EQ(triangleCrossingDepth(coplanar, floor), 0.0);
    EXPECT_EQ(triangleCrossingDepth(standing, floor), 0.0);
    EXPECT_EQ(triangleCrossingDepth(corner, floor), 0.0);

    // Piercing both planes but beside each other: the cuts do not overlap.
    const Vec3d beside[3] = {Vec3d(10, 0, -0.5), Vec3d(12, 0, -0.5), Vec3d(11, 0, 1)};
    EXPECT_EQ(triangleCrossingDepth(beside, floor), 0.0);
    // Through the floor's edge: the cuts overlap by 0.25 only (the floor
    // ends at x = 2 on y = 0, the triangle's cut spans 1.75 to 2.25).
    const Vec3d edgeOn[3] = {Vec3d(1.5, 0, -1), Vec3d(2.5, 0, -1), Vec3d(2, 0, 1)};
    EXPECT_NEAR(triangleCrossingDepth(edgeOn, floor), 0.25, 1e-12);
}

std::vector<const kx::kxTriMesh*> pointers(const std::vector<kx::kxPointer<kx::kxTriMesh>>& meshes)
{
    std::vector<const kx::kxTriMesh*> out;
    for (const auto& m : meshes)
        out.push_back(m.get());
    return out;
}

TEST(SweepTest, BoxesSlideApartOrCollide)
{
    const std::vector<kx::kxPointer<kx::kxTriMesh>> meshes{
        velmora_test::makeBox(Vec3f(0, 0, 0), Vec3f(4, 4, 1)),      // 0: floor
        velmora_test::makeBox(Vec3f(1, 1, 1), Vec3f(2, 2, 2)),      // 1: block on it
        velmora_test::makeBox(Vec3f(3, 0, 1), Vec3f(3.2f, 4, 3)),   // 2: thin wall on it
        velmora_test::makeBox(Vec3f(0, 0, 0.9f), Vec3f(1, 1, 1.9f)) // 3: sunk 0.1 into the floor
    };
    const auto all = pointers(meshes);
    EXPECT_TRUE(sweepSeparates(all, {1}, {0, 2}, Vec3f(0, 0, 1)).separates);
    EXPECT_TRUE(sweepSeparates(all, {1}, {0, 2}, Vec3f(-1, 0, 0)).separates);
    EXPECT_TRUE(sweepSeparates(all, {1}, {0, 2}, Vec3f(0, 3, 0)).separates);
    const velmora_test::SweepResult intoWall = sweepSeparates(all, {1}, {0, 2}, Vec3f(1, 0, 0));
    EXPECT_FALSE(intoWall.separates);
    EXPECT_GT(intoWall.deepestCrossing, 0.1);
    // The thin wall is not jumped over: the sweep goes in small steps.
    EXPECT_GT(intoWall.firstCrossingStep, 0u);
    EXPECT_LT(intoWall.firstCrossingStep * intoWall.stepLength, 1.3);
    EXPECT_FALSE(sweepSeparates(all, {1}, {0, 2}, Vec3f(0, 0, -1)).separates);
    EXPECT_FALSE(sweepSeparates(all, {0}, {1}, Vec3f(0, 0, 1)).separates);

    // The start pose's interference is allowed, deeper is not.
    const velmora_test::SweepResult up = sweepSeparates(all, {3}, {0}, Vec3f(0, 0, 1));
    EXPECT_TRUE(up.separates);
    EXPECT_NEAR(up.startDepth, 0.1, 1e-6);
    EXPECT_TRUE(sweepSeparates(all, {3}, {0}, Vec3f(0, -1, 0)).separates);
    EXPECT_FALSE(sweepSeparates(all, {3}, {0}, Vec3f(0, 0, -1)).separates);
}

// Plate, washer on it, headed peg through both: the peg leaves upwards, the
// plate downwards, the washer is trapped; nothing leaves sideways.
TEST(SweepTest, PegLeavesOnlyAlongItsHole)
{
    const velmora::Assembly assembly = velmora::makeDemoAssembly("peg-in-hole");
    const auto meshes = velmora::mergeGroups(assembly);
    const auto all = pointers(meshes);
    ASSERT_EQ(all.size(), 3u);
    const unsigned plate = 0, washer = 1, peg = 2;
    EXPECT_TRUE(sweepSeparates(all, {peg}, {plate, washer}, Vec3f(0, 0, 1)).separates);
    EXPECT_FALSE(sweepSeparates(all, {peg}, {plate, washer}, Vec3f(0, 0, -1)).separates);
    EXPECT_TRUE(sweepSeparates(all, {plate}, {washer, peg}, Vec3f(0, 0, -1)).separates);
    EXPECT_FALSE(sweepSeparates(all, {plate}, {washer, peg}, Vec3f(0, 0, 1)).separates);
    EXPECT_FALSE(sweepSeparates(all, {washer}, {plate, peg}, Vec3f(0, 0, 1)).separates);
    EXPECT_FALSE(sweepSeparates(all, {washer}, {plate, peg}, Vec3f(0, 0, -1)).separates);
    for (const unsigned g : {plate, washer, peg}) {
        std::vector<unsigned> rest;
        for (unsigned k = 0; k < 3; ++k) {
            if (k != g)
                rest.push_back(k);
        }
        for (const Vec3f& d : {Vec3f(1, 0, 0), Vec3f(-1, 0, 0), Vec3f(0, 1, 0), Vec3f(0, -1, 0)})
            EXPECT_FALSE(sweepSeparates(all, {g}, rest, d).separates) << g << ": " << d[0] << " " << d[1];
    }
}

}  // namespace
