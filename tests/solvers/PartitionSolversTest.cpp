// Both partition solvers against exhaustive enumeration, and the small cases
// whose answers follow directly from the cost rules.
#include "SolverTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <string>

using namespace solver_test;
using partition_reference::kNoAssignment;
using partition_reference::kOneSided;

namespace
{
std::vector<unsigned> allGroups(unsigned noVars)
{
    std::vector<unsigned> groups(noVars);
    std::iota(groups.begin(), groups.end(), 0u);
    return groups;
}

template <typename Adapter>
void expectMatchesEnumeration(const Adapter& solver, unsigned noVars, const std::vector<Constraint>& constraints,
                              const std::vector<unsigned>& system,
                              const std::vector<std::vector<unsigned>>& wholeClusters, const std::string& context)
{
    const auto reference = partition_reference::solveByEnumeration(noVars, system, clausesInside(constraints, system),
                                                                   wholeClusters);
    ASSERT_EQ(solver.cost(), reference.bestCost) << context;
    ASSERT_NE(reference.bestCost, kNoAssignment) << context; // uniform assignments always satisfy the clauses
    // The solver's assignment must be one of the optimal ones (so the optimal
    // one whenever it is unique).
    const uint64_t found = maskOf(solver.solution());
    EXPECT_NE(std::find(reference.bestAssignments.begin(), reference.bestAssignments.end(), found),
              reference.bestAssignments.end())
        << context << " assignment " << found;
}

struct RandomSystem
{
    unsigned noVars;
    std::vector<Constraint> constraints;
    std::vector<DeclaredCluster> clusters;
    bool flag;
};

RandomSystem makeRandomSystem(std::mt19937& rng, unsigned minVars, bool withClusters)
{
    RandomSystem system;
    system.noVars = minVars + pick(rng, 13 - minVars);
    system.constraints = randomConstraints(rng, system.noVars, pick(rng, 2 * system.noVars + 1));
    if (withClusters && pick(rng, 2) == 0)
        system.clusters = randomClusters(rng, system.noVars);
    system.flag = pick(rng, 2) == 0;
    return system;
}

kxGroupsClustering makeClustering(const RandomSystem& system)
{
    kxGroupsClustering clustering(system.noVars);
    kx2SATState groups(system.noVars);
    for (const DeclaredCluster& cluster : system.clusters)
    {
        groups.clear(false);
        for (const unsigned g : cluster.groups)
            groups.setTrue(g);
        clustering.pushCluster(groups, cluster.disassemblable);
    }
    return clustering;
}

template <typename Adapter>
Adapter makeSolver(const RandomSystem& system)
{
    Adapter solver(system.noVars, unsigned(system.constraints.size()));
    for (unsigned c = 0; c < system.constraints.size(); ++c)
        solver.add(c, system.constraints[c]);
    return solver;
}

// Solves the sides of the last split again, recursively.
template <typename Adapter>
void splitAndCheckSides(std::mt19937& rng, Adapter& solver, RandomSystem& system, kxGroupsClustering* clustering,
                        Range range, const std::vector<unsigned>& groups, unsigned depth, const std::string& context)
{
    if (solver.cost() >= kOneSided || depth == 3)
        return;
    const auto solution = solver.solution().clone();
    Range sides[2]{};
    solver.split(range, *solution, sides[0], sides[1]);
    ASSERT_TRUE(solver.constraintMapIsCurrent(unsigned(system.constraints.size()))) << context;

    for (unsigned side = 0; side < 2; ++side)
    {
        std::vector<unsigned> sideGroups;
        for (const unsigned g : groups)
        {
            if (solution->getVar(g) == side)
                sideGroups.push_back(g);
        }
        const unsigned noClauses = unsigned(clausesInside(system.constraints, sideGroups).size());
        ASSERT_EQ(sides[side].count, sideGroups.size() + noClauses) << context;

        // Reconfigure part of the side's constraints: the maps must find them.
        for (unsigned c = 0; c < system.constraints.size(); ++c)
        {
            Constraint& constraint = system.constraints[c];
            if (isSubset({constraint.groupA, constraint.groupB}, sideGroups) && pick(rng, 2) == 0)
            {
                randomizeConfiguration(rng, constraint);
                solver.configure(c, constraint);
            }
        }
        solver.bake(sides[side], clustering, system.flag);
        solver.solve(sides[side]);
        const std::string sideContext = context + " depth " + std::to_string(depth) + " side " + std::to_string(side);
        expectMatchesEnumeration(solver, system.noVars, system.constraints, sideGroups,
                                 clustersKeptWhole(system.clusters, sideGroups, system.flag), sideContext);
        splitAndCheckSides(rng, solver, system, clustering, sides[side], sideGroups, depth + 1, context);
    }
}
} // namespace

template <typename Adapter>
class PartitionSolverTest : public ::testing::Test
{
};

using SolverAdapters = ::testing::Types<BitmaskSolverAdapter, DancingLinksSolverAdapter>;
TYPED_TEST_SUITE(PartitionSolverTest, SolverAdapters);

// Random systems of 2 to 12 groups with hard, secondary, additive and
// maximum-type clauses (and random clusterings for the solver that bakes
// them), reconfigured and solved several times on one baked system: the best
// cost equals the enumeration's, the assignment is an optimal one, a solve
// leaves every structure as it found it, and solving again gives the same.
TYPED_TEST(PartitionSolverTest, MatchesEnumerationOnRandomSystems)
{
    for (unsigned seed = 0; seed < 300; ++seed)
    {
        std::mt19937 rng(seed);
        RandomSystem system = makeRandomSystem(rng, 2, TypeParam::kHasClustering);
        TypeParam solver = makeSolver<TypeParam>(system);
        kxGroupsClustering clustering = makeClustering(system);
        kxGroupsClustering* clusteringInUse = system.clusters.empty() ? nullptr : &clustering;
        const std::vector<unsigned> groups = allGroups(system.noVars);
        const auto wholeClusters = clustersKeptWhole(system.clusters, groups, system.flag);

        solver.reorder(solver.global());
        solver.bake(solver.global(), clusteringInUse, system.flag);
        for (unsigned round = 0; round < 3; ++round)
        {
            const std::string context = "seed " + std::to_string(seed) + " round " + std::to_string(round);
            for (unsigned c = 0; round > 0 && c < system.constraints.size(); ++c)
            {
                if (pick(rng, 2) == 0)
                {
                    randomizeConfiguration(rng, system.constraints[c]);
                    solver.configure(c, system.constraints[c]);
                }
            }
            const auto before = solver.snapshot();
            solver.solve(solver.global());
            EXPECT_TRUE(solver.snapshot() == before) << context << ": a structure changed during the search";
            expectMatchesEnumeration(solver, system.noVars, system.constraints, groups, wholeClusters, context);

            const uint64_t cost = solver.cost();
            const uint64_t assignment = maskOf(solver.solution());
            solver.solve(solver.global());
            EXPECT_EQ(solver.cost(), cost) << context;
            EXPECT_EQ(maskOf(solver.solution()), assignment) << context;
        }
    }
}

// After splitSystem each side is a range of its own that can be baked and
// solved again, recursively, with constraints reconfigured through the
// constraint maps in between.
TYPED_TEST(PartitionSolverTest, SplitSidesCanBeBakedAndSolvedAgain)
{
    for (unsigned seed = 1000; seed < 1150; ++seed)
    {
        std::mt19937 rng(seed);
        RandomSystem system = makeRandomSystem(rng, 4, TypeParam::kHasClustering);
        TypeParam solver = makeSolver<TypeParam>(system);
        kxGroupsClustering clustering = makeClustering(system);
        kxGroupsClustering* clusteringInUse = system.clusters.empty() ? nullptr : &clustering;
        const std::vector<unsigned> groups = allGroups(system.noVars);
        const std::string context = "seed " + std::to_string(seed);

        solver.bake(solver.global(), clusteringInUse, system.flag);
        solver.solve(solver.global());
        expectMatchesEnumeration(solver, system.noVars, system.constraints, groups,
                                 clustersKeptWhole(system.clusters, groups, system.flag), context);
        splitAndCheckSides(rng, solver, system, clusteringInUse, solver.global(), groups, 0, context);
    }
}

TYPED_TEST(PartitionSolverTest, TwoGroupsWithOneHardConstraintKeepTheFirstOneSidedAssignment)
{
    TypeParam solver(2, 1);
    solver.add(0, {0, 1});
    solver.bake(solver.global(), nullptr, false);
    solver.solve(solver.global());
    EXPECT_EQ(solver.cost(), kOneSided);
    // Both solvers branch on group 0's variable first and try "true" first;
    // the all-false assignment found later does not replace it.
    EXPECT_EQ(maskOf(solver.solution()), 3u);
}

TYPED_TEST(PartitionSolverTest, BalanceTermFollowsThePaidPenalties)
{
    // Without constraints the cheapest split takes one group off: cost 1.
    TypeParam free(2, 0);
    free.bake(free.global(), nullptr, false);
    free.solve(free.global());
    EXPECT_EQ(free.cost(), 1u);
    EXPECT_EQ(free.solution().getNoTrueVars(), 1u);

    TypeParam fourFree(4, 0);
    fourFree.bake(fourFree.global(), nullptr, false);
    fourFree.solve(fourFree.global());
    EXPECT_EQ(fourFree.cost(), 1u);

    // A ring of four soft edges: every split cuts at least two, and among
    // the splits that cut exactly two the balanced one wins (larger side 2):
    // 2 << 3 (shift of 4 groups) + 2.
    TypeParam ring(4, 4);
    for (unsigned c = 0; c < 4; ++c)
    {
        Constraint soft{c, (c + 1) % 4};
        soft.hard = false;
        soft.soft0 = soft.soft1 = true;
        soft.penalty0 = soft.penalty1 = 1;
        ring.add(c, soft);
    }
    ring.bake(ring.global(), nullptr, false);
    ring.solve(ring.global());
    EXPECT_EQ(ring.cost(), (2u << 3) + 2u);
    EXPECT_EQ(ring.solution().getNoTrueVars(), 2u);
}

TYPED_TEST(PartitionSolverTest, MaximumTypePenaltyOutweighsAdditivePenalties)
{
    // Groups 0 and 1 joined by a maximum-type edge of penalty 5, group 2 tied
    // to both by additive edges of penalty 100: cutting both additive edges
    // (200 << 2, larger side 2) is still cheaper than any split paying 5.
    TypeParam solver(3, 3);
    Constraint maxEdge{0, 1};
    maxEdge.hard = false;
    maxEdge.soft0 = maxEdge.soft1 = true;
    maxEdge.penalty0 = maxEdge.penalty1 = 5;
    maxEdge.maxType = true;
    solver.add(0, maxEdge);
    for (unsigned c = 1; c < 3; ++c)
    {
        Constraint additive{c - 1, 2};
        additive.hard = false;
        additive.soft0 = additive.soft1 = true;
        additive.penalty0 = additive.penalty1 = 100;
        solver.add(c, additive);
    }
    solver.bake(solver.global(), nullptr, false);
    solver.solve(solver.global());
    EXPECT_EQ(solver.cost(), (200u << 2) + 2u);
    const uint64_t assignment = maskOf(solver.solution());
    EXPECT_TRUE(assignment == 4u || assignment == 3u) << assignment;
}

TYPED_TEST(PartitionSolverTest, OneSoftClauseLeavesTheOtherAsAnExclusion)
{
    // Constraint {0, 1} with its first clause {0 true, 1 false} soft: the
    // second clause {0 false, 1 true} only forbids 0 false with 1 true. Group
    // 1 alone on the false side pays the soft penalty 3, group 0 alone on the
    // false side is forbidden, so with a free group 2 the best split puts 2
    // alone (cost 1), and without it the answer is the penalised split.
    TypeParam pair(2, 1);
    Constraint oneSoft{0, 1};
    oneSoft.hard = false;
    oneSoft.soft0 = true;
    oneSoft.penalty0 = 3;
    pair.add(0, oneSoft);
    pair.bake(pair.global(), nullptr, false);
    pair.solve(pair.global());
    EXPECT_EQ(pair.cost(), (3u << 2) + 1u);
    EXPECT_EQ(maskOf(pair.solution()), 1u);

    TypeParam triple(3, 1);
    triple.add(0, oneSoft);
    triple.bake(triple.global(), nullptr, false);
    triple.solve(triple.global());
    EXPECT_EQ(triple.cost(), 1u);
}
