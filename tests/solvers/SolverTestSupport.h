// Shared pieces of the partition solver tests: adapters giving both solvers
// one interface, random systems and clusterings, and inspectors of the
// solvers' internal structures.
#pragma once

#include "PartitionReference.h"
#include "kx2SATSolver.h"
#include "kx2SATSolverV2.h"
#include "kxGroupsClustering.h"

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

// Reads the dancing-links solver's structures.
class kx2SATSolverTestAccess
{
public:
    struct Snapshot
    {
        std::vector<uint64_t> words;
        std::vector<uint32_t> links;
        std::vector<uint64_t> literalCosts;
        bool operator==(const Snapshot&) const = default;
    };

    static Snapshot snapshot(const kx2SATSolver& solver)
    {
        Snapshot s;
        for (const kxDLXNode& node : solver.mNodes)
        {
            s.words.push_back(node.getPackedWord());
            s.links.insert(s.links.end(), {node.up, node.down, node.left, node.right});
        }
        s.literalCosts = solver.mLiteralCost;
        return s;
    }

    // Columns of the header ring, in ring order.
    static std::vector<unsigned> ringColumns(const kx2SATSolver& solver)
    {
        std::vector<unsigned> columns;
        for (unsigned h = solver.mNodes[0].right; h != 0; h = solver.mNodes[h].right)
            columns.push_back(h - 1);
        return columns;
    }

    static const kxDLXNode& header(const kx2SATSolver& solver, unsigned column) { return solver.header(column); }
    static void removeRedundantConstraints(kx2SATSolver& solver) { solver.removeRedundantConstraints(); }
    static void pushBackRedundantConstraints(kx2SATSolver& solver) { solver.pushBackRedundantConstraints(); }
    static uint32_t penalty(const kx2SATSolver& solver, unsigned column) { return solver.mPenalty[column]; }
    static uint64_t visitedNodes(const kx2SATSolver& solver) { return solver.getNoVisitedNodes(); }
    // The search of solve() with every column left in the header ring and the
    // literal rings: what every search walked before the columns it never
    // selects were taken out.
    static void solveWalkingAllColumns(kx2SATSolver& solver)
    {
        const bool indexed = solver.getIndexedColumnSelection();
        solver.setIndexedColumnSelection(false);
        solver.mCurrentAssignment->clear(false);
        solver.mBestSolution->clear(false);
        solver.removeRedundantConstraints();
        solver.mBestCost = ~uint64_t(0);
        solver.mNoVisitedNodes = 0;
        solver.iterateSolve(0, 0, 0, 0);
        solver.pushBackRedundantConstraints();
        solver.setIndexedColumnSelection(indexed);
    }
    static unsigned constraintFirstColumn(const kx2SATSolver& solver, unsigned c)
    {
        return solver.mConstraintFirstColumn[c];
    }
};

// Reads the bitmask solver's structures.
class kx2SATSolverV2TestAccess
{
public:
    struct Snapshot
    {
        std::vector<uint64_t> literalCosts;
        std::vector<uint64_t> excluded;
        std::vector<uint64_t> rowsToRekey;
        std::vector<uint64_t> current;
        unsigned noExcluded;
        unsigned noHighWords;
        bool operator==(const Snapshot&) const = default;
    };

    static std::vector<uint64_t> chunks(const kx2SATState& set)
    {
        return {set.getData(), set.getData() + set.getNoDataChunks()};
    }

    static Snapshot snapshot(const kx2SATSolverV2& solver)
    {
        return {solver.mLiteralCost,           chunks(*solver.mExcludedLiterals), chunks(*solver.mRowsToRekey),
                chunks(*solver.mCurrentAssignment), solver.mNoExcluded,              solver.mNoHighWords};
    }

    static unsigned constraintRow(const kx2SATSolverV2& solver, unsigned c) { return solver.mConstraintRow[c]; }
    static uint32_t rowId(const kx2SATSolverV2& solver, unsigned row) { return solver.mRows[row].flags & 0x3FFFFFFFu; }
};

namespace solver_test
{
using partition_reference::Constraint;

struct Range
{
    unsigned first;
    unsigned count;
};

class BitmaskSolverAdapter
{
public:
    static constexpr bool kHasClustering = false;

    BitmaskSolverAdapter(unsigned noVars, unsigned noConstraints) : mSolver(noVars, noConstraints) {}

    void add(unsigned id, const Constraint& c)
    {
        mSolver.createConstraint(id, c.groupA, c.groupB, true);
        configure(id, c);
    }
    void configure(unsigned id, const Constraint& c)
    {
        if (c.hard)
            mSolver.setConstraintParameters(id, false, false, 0, 0, false);
        else
            mSolver.setConstraintParameters(id, c.soft0, c.soft1, c.penalty0, c.penalty1, c.maxType);
    }
    Range global() const { return convert(mSolver.getGlobalSystemRoot()); }
    void bake(Range range, kxGroupsClustering*, bool) { mSolver.bakeSystem(convert(range)); }
    void reorder(Range) {}
    void solve(Range range) { mSolver.solve(convert(range)); }
    void split(Range range, const kx2SATState& solution, Range& falseSide, Range& trueSide)
    {
        kx2SATSolverV2::tSystemRoot f{}, t{};
        mSolver.splitSystem(convert(range), solution, f, t);
        falseSide = convert(f);
        trueSide = convert(t);
    }
    uint64_t cost() const { return mSolver.getBestCost(); }
    const kx2SATState& solution() const { return mSolver.getBestSolution(); }
    kx2SATSolverV2TestAccess::Snapshot snapshot() const { return kx2SATSolverV2TestAccess::snapshot(mSolver); }
    // Every constraint's first row is where the map says.
    bool constraintMapIsCurrent(unsigned noConstraints) const
    {
        for (unsigned c = 0; c < noConstraints; ++c)
        {
            const unsigned row = kx2SATSolverV2TestAccess::constraintRow(mSolver, c);
            if (kx2SATSolverV2TestAccess::rowId(mSolver, row) != 2 * c ||
                kx2SATSolverV2TestAccess::rowId(mSolver, row + 1) != 2 * c + 1)
                return false;
        }
        return true;
    }

private:
    static kx2SATSolverV2::tSystemRoot convert(Range r) { return {r.first, r.count}; }
    static Range convert(kx2SATSolverV2::tSystemRoot r) { return {r.firstRow, r.noRows}; }
    kx2SATSolverV2 mSolver;
};

class DancingLinksSolverAdapter
{
public:
    static constexpr bool kHasClustering = true;

    DancingLinksSolverAdapter(unsigned noVars, unsigned noConstraints) : mSolver(noVars, noConstraints) {}

    void add(unsigned id, const Constraint& c)
    {
        mSolver.addNewConstraint(id, c.groupA, c.groupB, c.hard);
        configure(id, c);
    }
    void configure(unsigned id, const Constraint& c)
    {
        if (c.hard)
            mSolver.desactivateConstraint(id, false, false, 0, 0, false);
        else
            mSolver.desactivateConstraint(id, c.soft0, c.soft1, c.penalty0, c.penalty1, c.maxType);
    }
    Range global() const { return convert(mSolver.getGlobalSystemRoot()); }
    void bake(Range range, kxGroupsClustering* clustering, bool flag)
    {
        mSolver.bakeSystem(convert(range), clustering, flag);
    }
    void reorder(Range range) { mSolver.reorderColumns(convert(range)); }
    void solve(Range) { mSolver.solve(); }
    void split(Range range, const kx2SATState& solution, Range& falseSide, Range& trueSide)
    {
        kx2SATSystemRoot f{}, t{};
        mSolver.splitSystem(convert(range), solution, f, t);
        falseSide = convert(f);
        trueSide = convert(t);
    }
    uint64_t cost() const { return mSolver.getBestCost(); }
    const kx2SATState& solution() const { return mSolver.getBestSolution(); }
    kx2SATSolverTestAccess::Snapshot snapshot() const { return kx2SATSolverTestAccess::snapshot(mSolver); }
    // Every constraint's first column is where the map says.
    bool constraintMapIsCurrent(unsigned noConstraints) const
    {
        for (unsigned c = 0; c < noConstraints; ++c)
        {
            const unsigned column = kx2SATSolverTestAccess::constraintFirstColumn(mSolver, c);
            if (kx2SATSolverTestAccess::header(mSolver, column).getConstraintId() != 2 * c ||
                kx2SATSolverTestAccess::header(mSolver, column + 1).getConstraintId() != 2 * c + 1)
                return false;
        }
        return true;
    }

private:
    static kx2SATSystemRoot convert(Range r) { return {r.first, r.count}; }
    static Range convert(kx2SATSystemRoot r) { return {r.firstColumn, r.noColumns}; }
    kx2SATSolver mSolver;
};

inline unsigned pick(std::mt19937& rng, unsigned count)
{
    return unsigned(rng() % count);
}

// A random configuration: hard, both clauses soft, or one soft and the other
// hard secondary; small penalties, sometimes maximum-type.
inline void randomizeConfiguration(std::mt19937& rng, Constraint& c)
{
    const unsigned kind = pick(rng, 4);
    c.hard = kind < 2;
    c.soft0 = kind == 2 || (kind == 3 && pick(rng, 2) == 0);
    c.soft1 = kind == 2 || (kind == 3 && !c.soft0);
    c.penalty0 = pick(rng, 7);
    c.penalty1 = pick(rng, 7);
    c.maxType = pick(rng, 3) == 0;
}

inline std::vector<Constraint> randomConstraints(std::mt19937& rng, unsigned noVars, unsigned noConstraints)
{
    std::vector<Constraint> constraints(noConstraints);
    for (Constraint& c : constraints)
    {
        c.groupA = pick(rng, noVars);
        c.groupB = (c.groupA + 1 + pick(rng, noVars - 1)) % noVars;
        randomizeConfiguration(rng, c);
    }
    return constraints;
}

struct DeclaredCluster
{
    std::vector<unsigned> groups;
    bool disassemblable;
};

// Random nested clusters over a random ordering of the groups, enclosing
// clusters first (the order in which a client declares sub-assemblies).
inline void appendNestedClusters(std::mt19937& rng, const std::vector<unsigned>& ordering, unsigned begin,
                                 unsigned end, unsigned depth, std::vector<DeclaredCluster>& out)
{
    if (end - begin < 2 || depth > 3)
        return;
    for (unsigned position = begin; position < end;)
    {
        const unsigned length = 1 + pick(rng, end - position);
        if (length < end - begin && pick(rng, 2) == 0)
        {
            out.push_back({{ordering.begin() + position, ordering.begin() + position + length}, pick(rng, 3) == 0});
            appendNestedClusters(rng, ordering, position, position + length, depth + 1, out);
        }
        position += length;
    }
}

inline std::vector<DeclaredCluster> randomClusters(std::mt19937& rng, unsigned noVars)
{
    std::vector<unsigned> ordering(noVars);
    for (unsigned g = 0; g < noVars; ++g)
        ordering[g] = g;
    std::shuffle(ordering.begin(), ordering.end(), rng);
    std::vector<DeclaredCluster> clusters;
    if (pick(rng, 8) == 0)
        clusters.push_back({ordering, pick(rng, 2) == 0});
    appendNestedClusters(rng, ordering, 0, noVars, 0, clusters);
    return clusters;
}

inline bool isSubset(const std::vector<unsigned>& inner, const std::vector<unsigned>& outer)
{
    for (const unsigned g : inner)
    {
        if (std::find(outer.begin(), outer.end(), g) == outer.end())
            return false;
    }
    return true;
}

// The clusters a system keeps whole: the outermost ones inside the system that
// are not disassemblable or, with flag, are smaller than the system.
inline std::vector<std::vector<unsigned>> clustersKeptWhole(const std::vector<DeclaredCluster>& clusters,
                                                            const std::vector<unsigned>& system, bool flag)
{
    const auto qualifies = [&](const DeclaredCluster& c) {
        return isSubset(c.groups, system) &&
               (!c.disassemblable || (flag && c.groups.size() < system.size()));
    };
    std::vector<std::vector<unsigned>> kept;
    for (const DeclaredCluster& c : clusters)
    {
        if (!qualifies(c))
            continue;
        bool outermost = true;
        for (const DeclaredCluster& d : clusters)
        {
            if (&d != &c && qualifies(d) && d.groups.size() > c.groups.size() && isSubset(c.groups, d.groups))
                outermost = false;
        }
        if (outermost)
            kept.push_back(c.groups);
    }
    return kept;
}

inline uint64_t maskOf(const kx2SATState& set)
{
    uint64_t mask = 0;
    set.forEachTrueVar([&](unsigned id) { mask |= uint64_t(1) << id; });
    return mask;
}

// Clauses of the constraints whose two groups both lie in the system.
inline std::vector<partition_reference::Clause> clausesInside(const std::vector<Constraint>& constraints,
                                                              const std::vector<unsigned>& system)
{
    std::vector<partition_reference::Clause> clauses;
    for (const Constraint& c : constraints)
    {
        if (isSubset({c.groupA, c.groupB}, system))
            partition_reference::appendClauses(c, clauses);
    }
    return clauses;
}
} // namespace solver_test
