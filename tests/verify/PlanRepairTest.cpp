// Verify-and-repair on a hand-built assembly that the specified distant
// search cannot see through, and the contacts reported as stuck.
#include <gtest/gtest.h>

#include "VerifyFixtures.h"
#include "velmora/PlanRepair.h"
#include "velmora/Planner.h"
#include "velmora/PlanVerifier.h"

namespace {

using namespace verify_test;

// Group 0, the base slab, with group 3, a gantry fixed to it whose beam
// passes over group 2's arm. Group 1 stands on the base and may leave it
// upwards (the builder's first choice) or along +y. The arm is glued to
// group 1's side and the gantry to the base (their contacts admit no
// direction), so each pair moves as one. The distant search casts rays from
// a part only along its own contact directions: the arm and the gantry have
// none, and group 1's rays pass beside the beam. So nothing tells the
// builder that lifting 1 and 2 drives the arm into the beam after 1.
HandPlan gantryOverArmPlan(const std::vector<Vec3d>& waysOffTheBase)
{
    HandPlan plan({boxMesh({-5, -5, -1}, {5, 5, 0}), boxMesh({0, -1, 0}, {2, 1, 2}), boxMesh({-3, -1, 1}, {0, 1, 2}),
                   boxesMesh({{{-3, -5, 0}, {-2, -4, 3}}, {{-3, -5, 3}, {-2, 1, 4}}})});
    plan.addContact(1, 0, waysOffTheBase);
    plan.addContact(2, 1, {});
    plan.addContact(3, 0, {});
    return plan;
}

std::vector<Wm4::Vector3<double>> directionsOf(const kxContactDiagram& diagram)
{
    std::vector<Wm4::Vector3<double>> directions;
    for (unsigned k = 0; k < diagram.getNoDirections(); ++k)
        directions.push_back(diagram.getDirectionFromId(k));
    return directions;
}

TEST(PlanRepair, SplitIntoAnUnseenBlockerIsReplanned)
{
    HandPlan plan = gantryOverArmPlan({Vec3d(0, 0, 1), Vec3d(0, 1, 0)});
    plan.plan(1);
    kxDisassemblyHierarchyBuilder& builder = plan.builder();
    const velmora::PlanVerifier verifier(plan.groups(), 0.01, 5.0, 1);
    const auto directions = directionsOf(builder.getContactDiagram());

    // As planned: the root lifts {1, 2} into the beam.
    const kxDisassemblyHierarchy::tTreeNode& root = plan.hierarchy().getNode(0);
    ASSERT_NE(root.firstChild, kxDisassemblyHierarchy::kNoNode);
    EXPECT_NEAR(directions[root.splitId].Dot(Vec3d(0, 0, 1)), 1.0, 1e-9);
    const auto before = verifier.verifyHierarchy(plan.hierarchy(), directions);
    ASSERT_EQ(before.size(), 1u);
    ASSERT_FALSE(before[0].sweep.clear);
    EXPECT_EQ(before[0].sweep.movingGroup, 2u);
    EXPECT_EQ(before[0].sweep.stayingGroup, 3u);
    EXPECT_NEAR(before[0].sweep.travel, 1.0, 1e-4);

    velmora::RepairOutcome outcome;
    {
        velmora_test::StdoutCapture quiet;
        outcome = velmora::verifyAndRepair(builder, verifier);
    }
    EXPECT_EQ(outcome.initiallyFailing, 1u);
    EXPECT_EQ(outcome.repaired, 1u);
    // The first collision of a pair teaches only its own direction.
    EXPECT_EQ(outcome.learntConstraints, 1u);
    EXPECT_EQ(outcome.rounds, 2u);
    ASSERT_EQ(outcome.verdicts.size(), 1u);
    EXPECT_TRUE(outcome.verdicts[0].sweep.clear);
    // Now {1, 2} slide out along +y; each glued pair stays one leaf.
    const kxDisassemblyHierarchy::tTreeNode& repaired = plan.hierarchy().getNode(0);
    EXPECT_NEAR(directions[repaired.splitId].Dot(Vec3d(0, 1, 0)), 1.0, 1e-9);
    EXPECT_EQ(velmora::groupsOfNode(plan.hierarchy(), repaired.secondChild), (std::vector<unsigned>{1, 2}));
    EXPECT_EQ(builder.getNoDistantConstraints(), plan.distantConstraints() + 1);
}

TEST(PlanRepair, APairCollidingAgainIsLearntAlongEveryDirection)
{
    // A taller arm under the beam, and a wall ahead of it along +x that
    // group 1 passes under (the wall wider than the arm, so that they
    // truly cross). Group 1 may leave the base along +z, +x or -y:
    // each drives the arm into the gantry (beam, wall, post). The first
    // collision teaches its own direction; the second sweeps the pair along
    // every direction and teaches the two left at once, so the third round
    // already finds no way out and keeps the pair together.
    HandPlan plan({boxMesh({-5, -5, -1}, {5, 5, 0}), boxMesh({0, -1, 0}, {2, 1, 2}), boxMesh({-3, -1, 1}, {0, 1, 3}),
                   boxesMesh({{{-3, -5, 0}, {-2, -4, 3}}, {{-3, -5, 3}, {-2, 1, 4}}, {{3, -2, 2.2f}, {4, 2, 4}}})});
    plan.addContact(1, 0, {Vec3d(0, 0, 1), Vec3d(1, 0, 0), Vec3d(0, -1, 0)});
    plan.addContact(2, 1, {});
    plan.addContact(3, 0, {});
    plan.plan(1);
    const velmora::PlanVerifier verifier(plan.groups(), 0.01, 5.0, 1);
    velmora::RepairOutcome outcome;
    {
        velmora_test::StdoutCapture quiet;
        outcome = velmora::verifyAndRepair(plan.builder(), verifier);
    }
    EXPECT_EQ(outcome.learntConstraints, 3u);
    EXPECT_EQ(outcome.rounds, 4u);
    EXPECT_EQ(outcome.keptTogether, (std::vector<std::pair<unsigned, unsigned>>{{2, 3}}));
    EXPECT_TRUE(outcome.verdicts.empty());
}

TEST(PlanRepair, WithoutAnyWayOutTheCollidingPairIsKeptTogether)
{
    // As above, but group 1 may only lift off: every split of the root
    // drives the arm into the beam.
    for (bool keepInseparable : {false, true}) {
        SCOPED_TRACE(keepInseparable);
        HandPlan plan = gantryOverArmPlan({Vec3d(0, 0, 1)});
        plan.plan(1);
        const velmora::PlanVerifier verifier(plan.groups(), 0.01, 5.0, 1);
        velmora::RepairOutcome outcome;
        {
            velmora_test::StdoutCapture quiet;
            outcome = velmora::verifyAndRepair(plan.builder(), verifier, 32, keepInseparable);
        }
        EXPECT_EQ(outcome.initiallyFailing, 1u);
        EXPECT_EQ(outcome.learntConstraints, 1u);  // the only direction is z: +z collides, -z is clear
        // The glued pairs are stuck: their contacts admit no direction.
        EXPECT_EQ(velmora::stuckContacts(plan.builder().getContactDiagram()), (std::vector<unsigned>{1, 2}));
        if (!keepInseparable) {
            // The builder's best split stays, reported unverified.
            EXPECT_EQ(outcome.repaired, 0u);
            EXPECT_TRUE(outcome.keptTogether.empty());
            ASSERT_EQ(outcome.verdicts.size(), 1u);
            EXPECT_FALSE(outcome.verdicts[0].sweep.clear);
            EXPECT_EQ(outcome.verdicts[0].sweep.movingGroup, 2u);
            continue;
        }
        // The arm and the beam stay together, and with the glued pairs that
        // leaves no split at all: one leaf, nothing unverified.
        EXPECT_EQ(outcome.keptTogether, (std::vector<std::pair<unsigned, unsigned>>{{2, 3}}));
        EXPECT_EQ(outcome.repaired, 1u);
        EXPECT_TRUE(outcome.verdicts.empty());
        EXPECT_EQ(plan.hierarchy().getNode(0).firstChild, kxDisassemblyHierarchy::kNoNode);
        ASSERT_TRUE(outcome.clustering);
        EXPECT_EQ(plan.builder().getGroupsClustering(), outcome.clustering.get());
    }
}

TEST(PlanRepair, AKeptPairJoinsTheClustersItCrosses)
{
    // A fifth part, free on the base, kept together with the arm by the
    // caller: the kept pair {2, 3} crosses {2, 4} and is widened to hold it,
    // so both stay clusters.
    HandPlan plan({boxMesh({-5, -5, -1}, {5, 5, 0}), boxMesh({0, -1, 0}, {2, 1, 2}), boxMesh({-3, -1, 1}, {0, 1, 2}),
                   boxesMesh({{{-3, -5, 0}, {-2, -4, 3}}, {{-3, -5, 3}, {-2, 1, 4}}}), boxMesh({3, 3, 0}, {4, 4, 1})});
    plan.addContact(1, 0, {Vec3d(0, 0, 1)});
    plan.addContact(2, 1, {});
    plan.addContact(3, 0, {});
    plan.addContact(4, 0, {Vec3d(0, 0, 1)});
    kxGroupsClustering clustering(5);
    kx2SATState set(5);
    set.setTrue(2);
    set.setTrue(4);
    clustering.pushCluster(set, true);
    plan.plan(1, &clustering);
    const velmora::PlanVerifier verifier(plan.groups(), 0.01, 5.0, 1);
    velmora::RepairOutcome outcome;
    {
        velmora_test::StdoutCapture quiet;
        outcome = velmora::verifyAndRepair(plan.builder(), verifier);
    }
    EXPECT_EQ(outcome.keptTogether, (std::vector<std::pair<unsigned, unsigned>>{{2, 3}}));
    EXPECT_FALSE(outcome.clustering);
    std::vector<std::vector<unsigned>> clusters;
    for (unsigned id = 0; id < clustering.getNoClusters(); ++id) {
        clustering.getCluster(id, set);
        clusters.emplace_back();
        set.forEachTrueVar([&](unsigned g) { clusters.back().push_back(g); });
    }
    EXPECT_EQ(clusters, (std::vector<std::vector<unsigned>>{{2, 3, 4}, {2, 4}}));
    for (const velmora::SplitVerdict& verdict : outcome.verdicts)
        EXPECT_TRUE(verdict.sweep.clear) << "split " << verdict.node;
}

TEST(PlanRepair, RepairDoesNotDependOnTheThreadCount)
{
    std::vector<std::vector<unsigned>> splits;
    for (unsigned threads : {1u, 2u}) {
        HandPlan plan = gantryOverArmPlan({Vec3d(0, 0, 1), Vec3d(0, 1, 0)});
        plan.plan(threads);
        const velmora::PlanVerifier verifier(plan.groups(), 0.01, 5.0, threads);
        velmora_test::StdoutCapture quiet;
        const velmora::RepairOutcome outcome = velmora::verifyAndRepair(plan.builder(), verifier);
        std::vector<unsigned> record{outcome.repaired, outcome.learntConstraints, outcome.rounds};
        for (unsigned n = 0; n < plan.hierarchy().getNoNodes(); ++n)
            record.push_back(plan.hierarchy().getNode(n).splitId);
        splits.push_back(record);
    }
    EXPECT_EQ(splits[0], splits[1]);
}

}  // namespace
