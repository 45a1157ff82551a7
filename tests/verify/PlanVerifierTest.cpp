// The sweep of one side away from another on hand-checked shapes: boxes face
// to face, a thin plate between sweep samples, two bars crossing edge on,
// a peg modelled into its hole, duplicates; and the independence of the
// verdicts from the thread count.
#include <gtest/gtest.h>

#include "VerifyFixtures.h"
#include "velmora/PlanRepair.h"
#include "velmora/PlanVerifier.h"

namespace {

using namespace verify_test;
using velmora::PlanVerifier;
using velmora::SweepOutcome;

constexpr double kTolerance = 0.01;

struct Scene {
    std::vector<kx::kxPointer<kx::kxTriMesh>> meshes;
    std::unique_ptr<kxMeshGroups> groups;
    std::unique_ptr<PlanVerifier> verifier;

    explicit Scene(std::vector<kx::kxPointer<kx::kxTriMesh>> m, unsigned threads = 1) : meshes(std::move(m))
    {
        groups = std::make_unique<kxMeshGroups>(std::vector<kx::kxTriMesh*>(meshes.begin(), meshes.end()), nullptr);
        verifier = std::make_unique<PlanVerifier>(*groups, kTolerance, 5.0, threads);
    }
    SweepOutcome sweep(unsigned moving, unsigned staying, const Vec3d& d) const
    {
        return verifier->sweep({moving}, {staying}, d);
    }
};

TEST(PlanVerifier, BoxesFaceToFaceSeparateOnlyAwayOrAlongTheContact)
{
    // Box 0 stands on box 1.
    const Scene scene({boxMesh({0, 0, 1}, {1, 1, 2}), boxMesh({-1, -1, 0}, {2, 2, 1})});
    struct Case {
        Vec3d direction;
        bool clear;
    };
    const Case cases[] = {{{0, 0, 1}, true}, {{1, 0, 0}, true}, {{0, -1, 0}, true}, {{0, 0, -1}, false},
                          {{1, 0, -1}, false}, {{1, 0, 1}, true}};
    for (const Case& c : cases) {
        const SweepOutcome outcome = scene.sweep(0, 1, c.direction);
        EXPECT_EQ(outcome.clear, c.clear) << c.direction[0] << " " << c.direction[1] << " " << c.direction[2];
        if (!c.clear) {
            EXPECT_EQ(outcome.movingGroup, 0u);
            EXPECT_EQ(outcome.stayingGroup, 1u);
            EXPECT_NEAR(outcome.travel, 0.0, 1e-4);
        }
    }
    EXPECT_TRUE(scene.verifier->interferences().empty());
}

TEST(PlanVerifier, ThinPlateIsNotJumpedOver)
{
    // A unit cube slides 10 along +x; a plate 0.02 thick stands across its
    // path at x = 5: a sampled sweep of a few dozen steps would step over it.
    const Scene wide({boxMesh({0, 0, 0}, {1, 1, 1}), boxMesh({5, -2, -2}, {5.02f, 3, 3})});
    const SweepOutcome hit = wide.sweep(0, 1, {1, 0, 0});
    ASSERT_FALSE(hit.clear);
    EXPECT_NEAR(hit.travel, 4.0, 1e-4);
    // The cube moving the other way, and the plate moving away from it, are clear.
    EXPECT_TRUE(wide.sweep(0, 1, {-1, 0, 0}).clear);
    EXPECT_TRUE(wide.sweep(1, 0, {1, 0, 0}).clear);

    // A thin rod narrower than the cube: only its own vertices meet the cube.
    const Scene narrow({boxMesh({0, 0, 0}, {1, 1, 1}), boxMesh({5, 0.4f, 0.4f}, {5.02f, 0.6f, 0.6f})});
    const SweepOutcome rod = narrow.sweep(0, 1, {1, 0, 0});
    ASSERT_FALSE(rod.clear);
    EXPECT_NEAR(rod.travel, 4.0, 1e-4);
}

TEST(PlanVerifier, BarsCrossingEdgeOnCollide)
{
    // Bar 0 along x, bar 1 along y above it: no vertex of either passes over
    // a face of the other, only their edges cross, at a travel of 2.
    const Scene scene({boxMesh({-5, -0.5f, 0}, {5, 0.5f, 1}), boxMesh({-0.5f, -5, 3}, {0.5f, 5, 4})});
    const SweepOutcome hit = scene.sweep(0, 1, {0, 0, 1});
    ASSERT_FALSE(hit.clear);
    EXPECT_NEAR(hit.travel, 2.0, 1e-4);
    EXPECT_TRUE(scene.sweep(0, 1, {0, 0, -1}).clear);
}

// A block with a square hole of side 1 through it, centred at (2, 2).
kx::kxPointer<kx::kxTriMesh> blockWithHole()
{
    return boxesMesh({{{0, 0, 0}, {1.5f, 4, 2}},
                      {{2.5f, 0, 0}, {4, 4, 2}},
                      {{1.5f, 0, 0}, {2.5f, 1.5f, 2}},
                      {{1.5f, 2.5f, 0}, {2.5f, 4, 2}}});
}

TEST(PlanVerifier, PegModelledIntoItsHoleStillComesOut)
{
    // The peg is 0.05 wider than the hole on every side, as threads drawn
    // into their holes are.
    const Scene scene({boxMesh({1.45f, 1.45f, -1}, {2.55f, 2.55f, 3}), blockWithHole()});
    ASSERT_EQ(scene.verifier->interferences().size(), 1u);
    const velmora::Interference& overlap = scene.verifier->interferences()[0];
    EXPECT_EQ(overlap.groupA, 0u);
    EXPECT_EQ(overlap.groupB, 1u);
    EXPECT_NEAR(overlap.depth, 0.05, 1e-3);
    EXPECT_NEAR(scene.verifier->initialOverlap(1, 0), overlap.depth, 0.0);

    EXPECT_TRUE(scene.sweep(0, 1, {0, 0, 1}).clear);
    EXPECT_TRUE(scene.sweep(0, 1, {0, 0, -1}).clear);
    EXPECT_FALSE(scene.sweep(0, 1, {1, 0, 0}).clear);
    EXPECT_FALSE(scene.sweep(0, 1, {0, 1, 1}).clear);

    // At exploded offsets: apart is fine; moved sideways through a wall (no
    // vertex of either inside the other) is not.
    EXPECT_TRUE(scene.verifier->overlapsAtOffsets({Vec3f(0, 0, 10), Vec3f(0, 0, 0)}).empty());
    EXPECT_TRUE(scene.verifier->overlapsAtOffsets({Vec3f(0, 0, 0), Vec3f(0, 0, 0)}).empty());
    const auto sideways = scene.verifier->overlapsAtOffsets({Vec3f(1.2f, 0, 0), Vec3f(0, 0, 0)});
    ASSERT_EQ(sideways.size(), 1u);
    EXPECT_GT(sideways[0].depth, 0.4);
}

TEST(PlanVerifier, DuplicatesAreCoincidentCopiesOnly)
{
    const auto a = boxMesh({0, 0, 0}, {1, 1, 1});
    const auto b = boxMesh({0, 0, 0}, {1, 1, 1});
    const auto moved = boxMesh({3, 0, 0}, {4, 1, 1});
    const auto other = boxMesh({0, 0, 0}, {1, 1, 1.5f});
    const Scene scene({a, b, moved, other});
    const auto& duplicates = scene.verifier->duplicates();
    ASSERT_EQ(duplicates.size(), 1u);
    EXPECT_EQ(duplicates[0], std::make_pair(0u, 1u));
    // Coincident copies overlap wholly: an interference a side deep, so that
    // sweeping one off the other is not a collision.
    ASSERT_FALSE(scene.verifier->interferences().empty());
    EXPECT_EQ(scene.verifier->interferences()[0].groupA, 0u);
    EXPECT_EQ(scene.verifier->interferences()[0].groupB, 1u);
    EXPECT_NEAR(scene.verifier->interferences()[0].depth, 1.0, 1e-6);
    EXPECT_TRUE(scene.sweep(1, 0, {0, 1, 0}).clear);
}

TEST(PlanVerifier, VerdictsDoNotDependOnTheThreadCount)
{
    // A stack: each box on the one before, the top one under a lintel.
    std::vector<kx::kxPointer<kx::kxTriMesh>> meshes;
    for (int k = 0; k < 6; ++k)
        meshes.push_back(boxMesh({0, 0, float(k)}, {1, 1, float(k + 1)}));
    meshes.push_back(boxMesh({-1, -1, 8}, {2, 2, 9}));
    std::vector<std::vector<velmora::SplitVerdict>> runs;
    for (unsigned threads : {1u, 3u}) {
        const Scene scene(meshes, threads);
        kxDisassemblyHierarchy hierarchy(*scene.groups);
        kxContactDiagram diagram(0, 1, *scene.groups);
        std::vector<unsigned> moving;
        // Sweep every "top part of the stack" split up and down.
        std::vector<velmora::SplitVerdict> verdicts;
        for (unsigned k = 1; k < 6; ++k) {
            std::vector<unsigned> top, bottom;
            for (unsigned g = 0; g < 6; ++g)
                (g >= k ? top : bottom).push_back(g);
            for (const Vec3d& d : {Vec3d(0, 0, 1), Vec3d(0, 0, -1)})
                verdicts.push_back({k, 0, scene.verifier->sweep(top, bottom, d)});
        }
        verdicts.push_back({0, 0, scene.verifier->sweep({0, 1, 2, 3, 4, 5}, {6}, Vec3d(0, 0, 1))});
        runs.push_back(verdicts);
    }
    ASSERT_EQ(runs[0].size(), runs[1].size());
    for (size_t i = 0; i < runs[0].size(); ++i) {
        EXPECT_EQ(runs[0][i].sweep.clear, runs[1][i].sweep.clear);
        EXPECT_EQ(runs[0][i].sweep.travel, runs[1][i].sweep.travel);
    }
    // Upwards every split is clear until the lintel: the whole stack hits it
    // after 2, with the top box.
    const velmora::SweepOutcome lintel = runs[0].back().sweep;
    ASSERT_FALSE(lintel.clear);
    EXPECT_EQ(lintel.movingGroup, 5u);
    EXPECT_EQ(lintel.stayingGroup, 6u);
    EXPECT_NEAR(lintel.travel, 2.0, 1e-4);
}

}  // namespace
