// Partition solvers side by side on contact-like systems: groups scattered in
// a unit cube, each touching its nearest neighbours (a spanning tree of
// nearest earlier groups plus two nearest neighbours each), every contact a
// hard constraint except a few that the tested direction relaxes: most of
// those one-sided (one clause soft, the other an exclusion), some free both
// ways. A second family, rings of contacts that are all free both ways, is a
// case where every split pays and only balance tells the splits apart. Each
// benchmark cycles through several baked systems of one size and reports the
// time per solve, the search nodes per solve and the share of systems that
// have a two-sided split.
#include "kx2SATSolver.h"
#include "kx2SATSolverV2.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <random>
#include <set>
#include <utility>
#include <vector>

namespace
{
constexpr unsigned kSystemsPerSize = 8;

struct ContactEdge
{
    unsigned groupA;
    unsigned groupB;
    bool soft0;
    bool soft1;
    unsigned penalty;
};

struct ContactSystem
{
    unsigned noGroups;
    std::vector<ContactEdge> edges;
};

double squaredDistance(const std::array<double, 3>& a, const std::array<double, 3>& b)
{
    double sum = 0.0;
    for (unsigned k = 0; k < 3; ++k)
        sum += (a[k] - b[k]) * (a[k] - b[k]);
    return sum;
}

// softPercent of the contacts are relaxed by the direction under test.
ContactSystem makeContactSystem(unsigned noGroups, unsigned softPercent, unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::vector<std::array<double, 3>> centres(noGroups);
    for (auto& centre : centres)
        centre = {unit(rng), unit(rng), unit(rng)};

    std::set<std::pair<unsigned, unsigned>> pairs;
    const auto addPair = [&](unsigned a, unsigned b) { pairs.insert({std::min(a, b), std::max(a, b)}); };
    for (unsigned i = 0; i < noGroups; ++i)
    {
        std::vector<std::pair<double, unsigned>> byDistance;
        for (unsigned j = 0; j < noGroups; ++j)
        {
            if (j != i)
                byDistance.push_back({squaredDistance(centres[i], centres[j]), j});
        }
        std::sort(byDistance.begin(), byDistance.end());
        for (unsigned k = 0; k < 2 && k < byDistance.size(); ++k)
            addPair(i, byDistance[k].second);
        for (const auto& [distance, j] : byDistance)
        {
            if (j < i)
            {
                addPair(i, j); // nearest earlier group: keeps the graph connected
                break;
            }
        }
    }

    ContactSystem system{noGroups, {}};
    for (const auto& [a, b] : pairs)
    {
        ContactEdge edge{a, b, false, false, 0};
        if (rng() % 100 < softPercent)
        {
            const bool bothWays = rng() % 4 == 0;
            edge.soft0 = bothWays || rng() % 2 == 0;
            edge.soft1 = bothWays || !edge.soft0;
            edge.penalty = 1 + rng() % 2;
        }
        system.edges.push_back(edge);
    }
    return system;
}

// A ring of groups whose contacts are all free both ways with the same
// penalty: every split cuts at least two of them, so every split pays and the
// most balanced of the two-cut splits wins. The seed rotates the ring.
ContactSystem makeSoftRing(unsigned noGroups, unsigned seed)
{
    ContactSystem system{noGroups, {}};
    for (unsigned k = 0; k < noGroups; ++k)
        system.edges.push_back({(k + seed) % noGroups, (k + seed + 1) % noGroups, true, true, 1});
    return system;
}

ContactSystem makeSystem(const benchmark::State& state, unsigned seed)
{
    const unsigned noGroups = unsigned(state.range(0));
    const unsigned softPercent = unsigned(state.range(1));
    return softPercent > 100 ? makeSoftRing(noGroups, seed) : makeContactSystem(noGroups, softPercent, 100 + seed);
}

template <typename Solver>
std::vector<std::unique_ptr<Solver>> makeSolvers(const benchmark::State& state);

template <>
std::vector<std::unique_ptr<kx2SATSolver>> makeSolvers(const benchmark::State& state)
{
    std::vector<std::unique_ptr<kx2SATSolver>> solvers;
    for (unsigned s = 0; s < kSystemsPerSize; ++s)
    {
        const ContactSystem system = makeSystem(state, s);
        const unsigned noGroups = system.noGroups;
        auto solver = std::make_unique<kx2SATSolver>(noGroups, unsigned(system.edges.size()));
        for (unsigned e = 0; e < system.edges.size(); ++e)
        {
            const ContactEdge& edge = system.edges[e];
            solver->addNewConstraint(e, edge.groupA, edge.groupB, true);
            if (edge.soft0 || edge.soft1)
                solver->desactivateConstraint(e, edge.soft0, edge.soft1, edge.penalty, edge.penalty, false);
        }
        solver->reorderColumns(solver->getGlobalSystemRoot());
        solver->bakeSystem(solver->getGlobalSystemRoot(), nullptr, false);
        solvers.push_back(std::move(solver));
    }
    return solvers;
}

template <>
std::vector<std::unique_ptr<kx2SATSolverV2>> makeSolvers(const benchmark::State& state)
{
    std::vector<std::unique_ptr<kx2SATSolverV2>> solvers;
    for (unsigned s = 0; s < kSystemsPerSize; ++s)
    {
        const ContactSystem system = makeSystem(state, s);
        const unsigned noGroups = system.noGroups;
        auto solver = std::make_unique<kx2SATSolverV2>(noGroups, unsigned(system.edges.size()));
        for (unsigned e = 0; e < system.edges.size(); ++e)
        {
            const ContactEdge& edge = system.edges[e];
            solver->createConstraint(e, edge.groupA, edge.groupB, true);
            if (edge.soft0 || edge.soft1)
                solver->setConstraintParameters(e, edge.soft0, edge.soft1, edge.penalty, edge.penalty, false);
        }
        solver->bakeSystem(solver->getGlobalSystemRoot());
        solvers.push_back(std::move(solver));
    }
    return solvers;
}

void solveOnce(kx2SATSolver& solver)
{
    solver.solve();
}

void solveOnce(kx2SATSolverV2& solver)
{
    solver.solve(solver.getGlobalSystemRoot());
}

template <typename Solver>
void BM_Solve(benchmark::State& state)
{
    const auto solvers = makeSolvers<Solver>(state);
    uint64_t nodes = 0;
    uint64_t noTwoSided = 0;
    unsigned next = 0;
    for (auto _ : state)
    {
        Solver& solver = *solvers[next];
        next = (next + 1) % kSystemsPerSize;
        solveOnce(solver);
        nodes += solver.getNoVisitedNodes();
        noTwoSided += solver.getBestCost() < 0xFFFFFFFFFFFFFFFEULL ? 1 : 0;
        benchmark::DoNotOptimize(solver.getBestCost());
    }
    state.counters["nodes"] = benchmark::Counter(double(nodes), benchmark::Counter::kAvgIterations);
    state.counters["twoSided"] = benchmark::Counter(double(noTwoSided), benchmark::Counter::kAvgIterations);
}

void contactSizes(benchmark::internal::Benchmark* b)
{
    for (const int softPercent : {5, 15, 50, 100})
    {
        for (const int groups : {16, 32, 64, 128})
            b->Args({groups, softPercent});
    }
    b->ArgNames({"groups", "soft%"});
    b->Unit(benchmark::kMicrosecond);
}

// soft% above 100 selects the ring of soft contacts.
void softRingSizes(benchmark::internal::Benchmark* b)
{
    for (const int groups : {8, 12, 16, 20, 24, 28})
        b->Args({groups, 101});
    b->ArgNames({"groups", "ring"});
    b->Unit(benchmark::kMicrosecond);
}
} // namespace

BENCHMARK_TEMPLATE(BM_Solve, kx2SATSolver)->Name("DancingLinks")->Apply(contactSizes);
BENCHMARK_TEMPLATE(BM_Solve, kx2SATSolverV2)->Name("Bitmask")->Apply(contactSizes);
BENCHMARK_TEMPLATE(BM_Solve, kx2SATSolver)->Name("DancingLinks/SoftRing")->Apply(softRingSizes);
BENCHMARK_TEMPLATE(BM_Solve, kx2SATSolverV2)->Name("Bitmask/SoftRing")->Apply(softRingSizes);

BENCHMARK_MAIN();
