// The dancing-links solver's own steps: node and column records, cluster
// columns, redundant columns, column reordering.
#include "SolverTestSupport.h"

#include <gtest/gtest.h>

#include <memory>
#include <numeric>

using Access = kx2SATSolverTestAccess;

namespace
{
std::vector<unsigned> range(unsigned first, unsigned end)
{
    std::vector<unsigned> values(end - first);
    std::iota(values.begin(), values.end(), first);
    return values;
}

std::unique_ptr<kx2SATState> setOf(unsigned noVars, std::initializer_list<unsigned> ids)
{
    auto set = std::make_unique<kx2SATState>(noVars);
    for (const unsigned id : ids)
        set->setTrue(id);
    return set;
}
} // namespace

TEST(kxDLXNode, PackedFieldsAreMaskedAndIndependent)
{
    kxDLXNode node(eDLXColumnHeader);
    EXPECT_TRUE(node.isColumnHeader());
    EXPECT_FALSE(node.isRowHeader());
    EXPECT_EQ(node.getPackedWord(), uint64_t(2) << 60);
    EXPECT_EQ(node.up, ~0u);
    EXPECT_EQ(node.right, ~0u);

    node.setActive(true);
    node.setSelectable(true);
    node.setConstraintId(0x12345);
    node.setCoordinates(0xFFFFF, 0x1ABCDE); // row1 is cut to 20 bits
    EXPECT_EQ(node.getRow0(), 0xFFFFFu);
    EXPECT_EQ(node.getRow1(), 0xABCDEu);
    EXPECT_EQ(node.getConstraintId(), 0x12345u);
    EXPECT_TRUE(node.isActive());
    EXPECT_TRUE(node.isSelectable());
    EXPECT_TRUE(node.isColumnHeader());
    node.setRow0(7);
    EXPECT_EQ(node.getRow0(), 7u);
    EXPECT_EQ(node.getRow1(), 0xABCDEu);
    node.setActive(false);
    EXPECT_FALSE(node.isActive());
    EXPECT_TRUE(node.isSelectable());
    EXPECT_EQ(node.getConstraintId(), 0x12345u);

    EXPECT_TRUE(kxDLXNode(eDLXRowHeader).isRowHeader());
    EXPECT_EQ(kxDLXNode(eDLXElementNode).getPackedWord(), 0u);
}

TEST(kxDLXColumn, FlagsKeepTheConstraintId)
{
    kxDLXColumn column;
    EXPECT_EQ(column.getHeaderWord(), ~uint64_t(0));
    EXPECT_EQ(column.getConstraintId(), 0x3FFFFFFFu);
    EXPECT_FALSE(column.isActive());
    EXPECT_FALSE(column.isSelectable());

    column.setConstraintId(41);
    column.setActive(false);
    EXPECT_TRUE(column.isActive());
    EXPECT_FALSE(column.isSelectable());
    EXPECT_EQ(column.getConstraintId(), 41u);
    column.setActive(true);
    EXPECT_TRUE(column.isSelectable());
    column.setConstraintId(42);
    EXPECT_TRUE(column.isActive());
    EXPECT_TRUE(column.isSelectable());
    column.setInactive(true);
    EXPECT_FALSE(column.isActive());
    EXPECT_TRUE(column.isSelectable());
    EXPECT_EQ(column.getConstraintId(), 42u);
    column.setPenalty(9);
    EXPECT_EQ(column.getPenalty(), 9u);
}

TEST(kx2SATSolver, ClusterBecomesAChainOfColumns)
{
    const unsigned n = 10;
    kxGroupsClustering clustering(n);
    clustering.pushCluster(*setOf(n, {2, 5, 9}), false);

    kx2SATSolver solver(n, 1);
    solver.addNewConstraint(0, 0, 1, true);
    solver.bakeSystem(solver.getGlobalSystemRoot(), &clustering, false);

    // The system's 12 columns, then exactly two cluster columns.
    EXPECT_EQ(Access::ringColumns(solver), range(0, 14));
    const kxDLXNode& first = Access::header(solver, 12);
    const kxDLXNode& second = Access::header(solver, 13);
    EXPECT_EQ(first.getRow0(), 2 * 2 + 1u); // 2 false
    EXPECT_EQ(first.getRow1(), 2 * 5u);     // 5 true
    EXPECT_EQ(second.getRow0(), 2 * 5 + 1u);
    EXPECT_EQ(second.getRow1(), 2 * 9u);
    EXPECT_TRUE(first.isActive() && first.isSelectable());
    EXPECT_TRUE(second.isActive() && second.isSelectable());

    solver.solve();
    EXPECT_EQ(solver.getBestCost(), 1u);
    const kx2SATState& solution = solver.getBestSolution();
    EXPECT_EQ(solution.getVar(2), solution.getVar(5));
    EXPECT_EQ(solution.getVar(5), solution.getVar(9));

    // Baking again without the clustering drops the cluster columns.
    solver.bakeSystem(solver.getGlobalSystemRoot(), nullptr, false);
    EXPECT_EQ(Access::ringColumns(solver), range(0, 12));
}

TEST(kx2SATSolver, RedundantSecondColumnIsLeftOutOfTheSearchAndRelinked)
{
    kx2SATSolver solver(3, 2);
    solver.addNewConstraint(0, 0, 1, true);
    solver.addNewConstraint(1, 1, 2, true);
    solver.desactivateConstraint(1, true, false, 2, 0, false);
    solver.bakeSystem(solver.getGlobalSystemRoot(), nullptr, false);
    const auto baked = Access::snapshot(solver);

    Access::removeRedundantConstraints(solver);
    // Constraint 0 is hard and primary on both columns: its second column
    // (4) goes; constraint 1 has a soft column and keeps both.
    EXPECT_EQ(Access::ringColumns(solver), (std::vector<unsigned>{0, 1, 2, 3, 5, 6}));
    Access::pushBackRedundantConstraints(solver);
    EXPECT_TRUE(Access::snapshot(solver) == baked);

    solver.solve();
    EXPECT_TRUE(Access::snapshot(solver) == baked);

    // With its first column softened, constraint 0's second column alone
    // must still forbid {0 false, 1 true}: it was linked back.
    solver.desactivateConstraint(0, true, false, 1, 0, false);
    solver.solve();
    const auto reference = partition_reference::solveByEnumeration(
        3, {0, 1, 2},
        [] {
            std::vector<partition_reference::Clause> clauses;
            partition_reference::Constraint c0{0, 1};
            c0.hard = false;
            c0.soft0 = true;
            c0.penalty0 = 1;
            partition_reference::Constraint c1{1, 2};
            c1.hard = false;
            c1.soft0 = true;
            c1.penalty0 = 2;
            partition_reference::appendClauses(c0, clauses);
            partition_reference::appendClauses(c1, clauses);
            return clauses;
        }());
    EXPECT_EQ(solver.getBestCost(), reference.bestCost);
}

TEST(kx2SATSolver, ReorderPutsVariableColumnsFirstThenConstraintsById)
{
    const unsigned n = 12;
    const unsigned m = 40;
    std::mt19937 rng(5);
    const auto constraints = solver_test::randomConstraints(rng, n, m);
    kx2SATSolver solver(n, m);
    for (unsigned c = 0; c < m; ++c)
        solver.addNewConstraint(c, constraints[c].groupA, constraints[c].groupB, true);

    // Shuffle the columns with a few splits of the whole range.
    const kx2SATSystemRoot root = solver.getGlobalSystemRoot();
    kx2SATState solution(n);
    for (unsigned round = 0; round < 3; ++round)
    {
        solution.clear(false);
        for (unsigned g = 0; g < n; ++g)
        {
            if (rng() % 2 == 0)
                solution.setTrue(g);
        }
        kx2SATSystemRoot falseSide{}, trueSide{};
        solver.splitSystem(root, solution, falseSide, trueSide);
    }
    std::vector<unsigned> variableOrder;
    for (unsigned c = 0; c < root.noColumns; ++c)
    {
        const kxDLXNode& h = Access::header(solver, c);
        if (h.getRow0() / 2 == h.getRow1() / 2)
            variableOrder.push_back(h.getRow0() / 2);
    }

    solver.reorderColumns(root);
    for (unsigned c = 0; c < n; ++c)
        EXPECT_EQ(Access::header(solver, c).getRow0(), 2 * variableOrder[c]);
    for (unsigned c = n; c < root.noColumns; ++c)
        EXPECT_EQ(Access::header(solver, c).getConstraintId(), c - n);
    for (unsigned c = 0; c < m; ++c)
        EXPECT_EQ(Access::constraintFirstColumn(solver, c), n + 2 * c);
}

TEST(kx2SATSolver, ReorderOfASideKeepsItsRangeAndPenalties)
{
    // Groups {0, 1} false and {2, 3} true; constraints 2 and 3 cross.
    kx2SATSolver solver(4, 4);
    solver.addNewConstraint(0, 0, 1, true);
    solver.addNewConstraint(1, 2, 3, true);
    solver.addNewConstraint(2, 0, 2, true);
    solver.addNewConstraint(3, 1, 3, true);
    solver.desactivateConstraint(0, true, true, 3, 4, false);
    kx2SATState solution(4);
    solution.setTrue(2);
    solution.setTrue(3);
    kx2SATSystemRoot falseSide{}, trueSide{};
    solver.splitSystem(solver.getGlobalSystemRoot(), solution, falseSide, trueSide);
    EXPECT_EQ(falseSide.firstColumn, 4u);
    EXPECT_EQ(falseSide.noColumns, 4u);
    EXPECT_EQ(trueSide.firstColumn, 8u);
    EXPECT_EQ(trueSide.noColumns, 4u);
    // Crossing columns first: constraint 2 then 3.
    EXPECT_EQ(Access::header(solver, 0).getConstraintId(), 4u);
    EXPECT_EQ(Access::header(solver, 3).getConstraintId(), 7u);
    // False side: variable 0, variable 1, constraint 0's two columns.
    EXPECT_EQ(Access::header(solver, 5).getRow0(), 2u);
    EXPECT_EQ(Access::header(solver, 6).getConstraintId(), 0u);
    EXPECT_EQ(Access::penalty(solver, 6), 3u);
    EXPECT_EQ(Access::penalty(solver, 7), 4u);
    EXPECT_EQ(Access::constraintFirstColumn(solver, 0), 6u);
    EXPECT_EQ(Access::constraintFirstColumn(solver, 2), 0u);

    solver.reorderColumns(falseSide);
    EXPECT_EQ(Access::header(solver, 4).getRow0(), 0u);
    EXPECT_EQ(Access::header(solver, 5).getRow0(), 2u);
    EXPECT_EQ(Access::header(solver, 6).getConstraintId(), 0u);
    EXPECT_EQ(Access::penalty(solver, 6), 3u);

    // The false side alone: groups 0 and 1 joined by a soft constraint.
    solver.bakeSystem(falseSide, nullptr, false);
    solver.solve();
    EXPECT_EQ(solver.getBestCost(), (3u << 3) + 1u);
    EXPECT_EQ(solver.getBestSolution().getNoTrueVars(), 1u);
    EXPECT_EQ(solver.getBestSolution().getVar(2) + solver.getBestSolution().getVar(3), 0u);
}

// Systems as the hierarchy builder sees them: most constraints are soft and
// cost nothing (blocking pairs that do not touch), the rest hard or priced.
// The search that leaves the columns it never selects (soft, hard secondary)
// out of the header ring, and the penalty-free ones out of their literal rings
// too, must find the same cost and the same assignment after visiting exactly
// the same search nodes as the one that walks past them, and leave the matrix
// as it found it. Sizes go beyond what enumeration can check.
TEST(kx2SATSolver, SearchOnlyOverSelectableColumnsVisitsTheSameNodes)
{
    unsigned noInertConstraints = 0;
    for (unsigned seed = 0; seed < 120; ++seed)
    {
        std::mt19937 rng(seed);
        const unsigned noVars = 10 + solver_test::pick(rng, 40);
        std::vector<solver_test::Constraint> constraints =
            solver_test::randomConstraints(rng, noVars, noVars + solver_test::pick(rng, 3 * noVars));
        for (solver_test::Constraint& c : constraints)
        {
            const unsigned kind = solver_test::pick(rng, 5);
            const bool maxType = solver_test::pick(rng, 3) == 0;
            if (kind == 0)
                continue;
            if (kind == 1)
            {
                c = {c.groupA, c.groupB, false, true, true, 1 + solver_test::pick(rng, 6), solver_test::pick(rng, 6),
                     maxType};
                continue;
            }
            c = {c.groupA, c.groupB, false, true, true, 0, 0, maxType};
            ++noInertConstraints;
        }
        kx2SATSolver solver(noVars, unsigned(constraints.size()));
        for (unsigned id = 0; id < constraints.size(); ++id)
        {
            const solver_test::Constraint& c = constraints[id];
            solver.addNewConstraint(id, c.groupA, c.groupB, c.hard);
            if (!c.hard)
                solver.desactivateConstraint(id, c.soft0, c.soft1, c.penalty0, c.penalty1, c.maxType);
        }
        solver.reorderColumns(solver.getGlobalSystemRoot());
        solver.bakeSystem(solver.getGlobalSystemRoot(), nullptr, false);
        const Access::Snapshot before = Access::snapshot(solver);

        Access::solveWalkingAllColumns(solver);
        const uint64_t walkedCost = solver.getBestCost();
        const uint64_t walkedAssignment = solver_test::maskOf(solver.getBestSolution());
        const uint64_t walkedNodes = Access::visitedNodes(solver);
        ASSERT_TRUE(Access::snapshot(solver) == before) << "seed " << seed;

        solver.solve();
        EXPECT_EQ(solver.getBestCost(), walkedCost) << "seed " << seed;
        EXPECT_EQ(solver_test::maskOf(solver.getBestSolution()), walkedAssignment) << "seed " << seed;
        EXPECT_EQ(Access::visitedNodes(solver), walkedNodes) << "seed " << seed;
        EXPECT_TRUE(Access::snapshot(solver) == before) << "seed " << seed << ": the matrix changed";
    }
    EXPECT_GT(noInertConstraints, 1000u);
}

// The selection index must steer the search exactly as the header-ring walk
// does: same cost, same assignment, same number of search nodes, the matrix
// left as found. Systems with clusters, every kind of column, and a few
// reconfigurations between searches, as the hierarchy builder does per
// direction.
TEST(kx2SATSolver, IndexedColumnSelectionSearchesLikeTheRingWalk)
{
    for (unsigned seed = 0; seed < 150; ++seed)
    {
        std::mt19937 rng(seed);
        const unsigned noVars = 8 + solver_test::pick(rng, 40);
        std::vector<solver_test::Constraint> constraints =
            solver_test::randomConstraints(rng, noVars, noVars + solver_test::pick(rng, 2 * noVars));
        kxGroupsClustering clustering(noVars);
        kx2SATState groups(noVars);
        for (const solver_test::DeclaredCluster& cluster : solver_test::randomClusters(rng, noVars))
        {
            groups.clear(false);
            for (const unsigned g : cluster.groups)
                groups.setTrue(g);
            clustering.pushCluster(groups, cluster.disassemblable);
        }
        kx2SATSolver solver(noVars, unsigned(constraints.size()));
        for (unsigned id = 0; id < constraints.size(); ++id)
            solver.addNewConstraint(id, constraints[id].groupA, constraints[id].groupB, true);
        solver.reorderColumns(solver.getGlobalSystemRoot());
        solver.bakeSystem(solver.getGlobalSystemRoot(), seed % 2 == 0 ? &clustering : nullptr, seed % 4 == 0);
        for (unsigned round = 0; round < 3; ++round)
        {
            for (unsigned id = 0; id < constraints.size(); ++id)
            {
                const solver_test::Constraint& c = constraints[id];
                if (c.hard)
                    solver.desactivateConstraint(id, false, false, 0, 0, false);
                else
                    solver.desactivateConstraint(id, c.soft0, c.soft1, c.penalty0, c.penalty1, c.maxType);
                solver_test::randomizeConfiguration(rng, constraints[id]);
            }
            const std::string context = "seed " + std::to_string(seed) + " round " + std::to_string(round);
            const Access::Snapshot before = Access::snapshot(solver);
            solver.setIndexedColumnSelection(false);
            solver.solve();
            const uint64_t walkedCost = solver.getBestCost();
            const uint64_t walkedAssignment = solver_test::maskOf(solver.getBestSolution());
            const uint64_t walkedNodes = Access::visitedNodes(solver);

            solver.setIndexedColumnSelection(true);
            solver.solve();
            EXPECT_EQ(solver.getBestCost(), walkedCost) << context;
            EXPECT_EQ(solver_test::maskOf(solver.getBestSolution()), walkedAssignment) << context;
            EXPECT_EQ(Access::visitedNodes(solver), walkedNodes) << context;
            EXPECT_TRUE(Access::snapshot(solver) == before) << context << ": the matrix changed";
        }
    }
}
