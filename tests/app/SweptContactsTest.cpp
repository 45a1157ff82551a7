// Contacts that motion analysis left without a direction, freed by sweeping
// the pair: a lid on a box slides off every way but into the box; a block
// shut in a closed case stays locked; candidate lines are listed once.
#include <gtest/gtest.h>

#include "../verify/VerifyFixtures.h"
#include "velmora/SweptContacts.h"

namespace {

using namespace verify_test;

// Groups with one mesh each and a diagram of locked (directionless) contacts.
struct LockedPairs {
    explicit LockedPairs(std::vector<kx::kxPointer<kx::kxTriMesh>> parts)
        : meshes(std::move(parts)), groups(std::vector<kx::kxTriMesh*>(meshes.begin(), meshes.end()), nullptr),
          diagram(0u, 8u, groups), verifier(groups, 0.0, 5.0, 1)
    {
    }
    void lock(unsigned a, unsigned b) { diagram.pushContactEdge(a, b, nullptr, 0, Vec3f(0, 0, 0)); }

    std::vector<kx::kxPointer<kx::kxTriMesh>> meshes;
    kxMeshGroups groups;
    kxContactDiagram diagram;
    velmora::PlanVerifier verifier;
};

TEST(SweptContacts, LidOnABoxIsFreedEveryWayButIntoTheBox)
{
    LockedPairs pairs({boxMesh({0, 0, 0}, {1, 1, 1}), boxMesh({0, 0, -1}, {1, 1, 0})});
    pairs.lock(0, 1);
    const velmora::SweptContacts swept =
        velmora::freeLockedContactsBySweep(pairs.diagram, pairs.groups, pairs.verifier, 5.0f);
    EXPECT_EQ(swept.freed, (std::vector<unsigned>{0}));
    ASSERT_TRUE(swept.diagram);
    ASSERT_EQ(swept.diagram->getNoContacts(), 1u);
    // Candidates are the three axes, each swept in both senses.
    EXPECT_EQ(swept.diagram->getDisassemblyDirections(0),
              (std::vector<Vec3d>{Vec3d(1, 0, 0), Vec3d(-1, 0, 0), Vec3d(0, 1, 0), Vec3d(0, -1, 0), Vec3d(0, 0, 1)}));
    // A contact without points gets one where the two meet.
    const Vec3f point = swept.diagram->getContactPoint(0);
    EXPECT_NEAR((point - Vec3f(0.5f, 0.5f, 0.0f)).Length(), 0.0f, 1e-6f);
}

TEST(SweptContacts, BlockShutInAClosedCaseStaysLocked)
{
    // Six walls around a 2-unit cavity; the block rests on the floor.
    LockedPairs pairs({boxesMesh({{{-1, -1, -1}, {3, 3, 0}},
                                  {{-1, -1, 2}, {3, 3, 3}},
                                  {{-1, -1, 0}, {0, 3, 2}},
                                  {{2, -1, 0}, {3, 3, 2}},
                                  {{0, -1, 0}, {2, 0, 2}},
                                  {{0, 2, 0}, {2, 3, 2}}}),
                       boxMesh({0.5f, 0.5f, 0}, {1.5f, 1.5f, 1})});
    pairs.lock(1, 0);
    const velmora::SweptContacts swept =
        velmora::freeLockedContactsBySweep(pairs.diagram, pairs.groups, pairs.verifier, 5.0f);
    EXPECT_TRUE(swept.freed.empty());
    EXPECT_FALSE(swept.diagram);
}

TEST(SweptContacts, CandidateLinesAreListedOnceWithinTheAngleTolerance)
{
    LockedPairs pairs({boxMesh({0, 0, 0}, {1, 1, 1}), boxMesh({2, 0, 0}, {3, 1, 1}), boxMesh({4, 0, 0}, {5, 1, 1})});
    const Vec3d diagonal = Vec3d(1, 1, 0) / std::sqrt(2.0);
    const Vec3d nearZ = Vec3d(0.01, 0, 1) / std::sqrt(1.0001);
    const std::vector<Vec3d> first{Vec3d(0, 0, -1), diagonal}, second{-diagonal, nearZ};
    pairs.diagram.pushContactEdge(0, 1, first.data(), 2, Vec3f(0, 0, 0));
    pairs.diagram.pushContactEdge(1, 2, second.data(), 2, Vec3f(0, 0, 0));
    EXPECT_EQ(velmora::candidateDirections(pairs.diagram, 5.0f),
              (std::vector<Vec3d>{Vec3d(1, 0, 0), Vec3d(0, 1, 0), Vec3d(0, 0, 1), diagonal}));
    // Under a tighter tolerance the tilted line is one of its own.
    EXPECT_EQ(velmora::candidateDirections(pairs.diagram, 0.1f).size(), 5u);
}

}  // namespace
