// Reference for the partition solvers: enumerates every assignment of a
// system's variables and prices it with the packed-cost rules, independently
// of the solvers' search code.
//
// Rules: a constraint between groups A and B has two clauses, {A true,
// B false} and {A false, B true}. A hard primary clause needs exactly one of
// its two literals true, a hard secondary clause at most one. A soft clause
// charges its penalty when both of its literals are true: maximum-type
// penalties keep the largest in the high word, additive ones add
// penalty << s to the low word (s = bit length of the solver's variable
// count). A two-sided assignment adds the larger side's size when an additive
// penalty was paid, the smaller side's size otherwise; a one-sided one costs
// 0xFFFFFFFFFFFFFFFE. All ones: no valid assignment.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace partition_reference
{
constexpr uint64_t kNoAssignment = ~uint64_t(0);
constexpr uint64_t kOneSided = 0xFFFFFFFFFFFFFFFEULL;

enum class ClauseKind
{
    HardPrimary,
    HardSecondary,
    SoftMaximum,
    SoftAdditive,
};

struct Clause
{
    unsigned groupA;
    bool valueA; // the clause's literal of A is "A has this value"
    unsigned groupB;
    bool valueB;
    ClauseKind kind;
    uint32_t penalty;
};

// A constraint as a caller configures it.
struct Constraint
{
    unsigned groupA;
    unsigned groupB;
    bool hard = true; // both clauses hard primary (created, or added active)
    bool soft0 = false;
    bool soft1 = false;
    uint32_t penalty0 = 0;
    uint32_t penalty1 = 0;
    bool maxType = false;
};

inline ClauseKind kindOf(const Constraint& c, bool soft, bool otherSoft, uint32_t penalty)
{
    if (c.hard)
        return ClauseKind::HardPrimary;
    if (soft)
        return c.maxType && penalty != 0 ? ClauseKind::SoftMaximum : ClauseKind::SoftAdditive;
    return otherSoft ? ClauseKind::HardSecondary : ClauseKind::HardPrimary;
}

inline void appendClauses(const Constraint& c, std::vector<Clause>& clauses)
{
    const uint32_t penalty0 = c.hard ? 0 : (c.soft0 ? c.penalty0 : 0);
    const uint32_t penalty1 = c.hard ? 0 : (c.soft1 ? c.penalty1 : 0);
    clauses.push_back({c.groupA, true, c.groupB, false, kindOf(c, c.soft0, c.soft1, c.penalty0), penalty0});
    clauses.push_back({c.groupA, false, c.groupB, true, kindOf(c, c.soft1, c.soft0, c.penalty1), penalty1});
}

struct Result
{
    uint64_t bestCost = kNoAssignment;
    std::vector<uint64_t> bestAssignments; // bit g set: group g true
};

inline unsigned bitLength(unsigned x)
{
    unsigned bits = 0;
    for (; x != 0; x >>= 1)
        ++bits;
    return bits;
}

// Price of one assignment, kNoAssignment when a hard clause is broken or a
// cluster is cut.
inline uint64_t priceAssignment(uint64_t assignment, const std::vector<unsigned>& systemGroups,
                                const std::vector<Clause>& clauses,
                                const std::vector<std::vector<unsigned>>& wholeClusters, unsigned shift)
{
    const auto valueOf = [&](unsigned group) { return ((assignment >> group) & 1) != 0; };
    for (const auto& cluster : wholeClusters)
    {
        for (const unsigned group : cluster)
        {
            if (valueOf(group) != valueOf(cluster.front()))
                return kNoAssignment;
        }
    }
    uint32_t maxPenalty = 0;
    uint32_t additive = 0;
    for (const Clause& clause : clauses)
    {
        const unsigned noTrue = (valueOf(clause.groupA) == clause.valueA ? 1 : 0) +
                                (valueOf(clause.groupB) == clause.valueB ? 1 : 0);
        switch (clause.kind)
        {
        case ClauseKind::HardPrimary:
            if (noTrue != 1)
                return kNoAssignment;
            break;
        case ClauseKind::HardSecondary:
            if (noTrue > 1)
                return kNoAssignment;
            break;
        case ClauseKind::SoftMaximum:
            if (noTrue == 2)
                maxPenalty = std::max(maxPenalty, clause.penalty);
            break;
        case ClauseKind::SoftAdditive:
            if (noTrue == 2)
                additive += clause.penalty << shift;
            break;
        }
    }
    unsigned sideTrue = 0;
    for (const unsigned group : systemGroups)
        sideTrue += valueOf(group) ? 1 : 0;
    const unsigned sideFalse = unsigned(systemGroups.size()) - sideTrue;
    if (sideTrue == 0 || sideFalse == 0)
        return kOneSided;
    const bool additivePaid = (additive >> shift) != 0;
    const unsigned balance = additivePaid ? std::max(sideTrue, sideFalse) : std::min(sideTrue, sideFalse);
    return ((uint64_t(maxPenalty) << 32) | additive) + balance;
}

// Every assignment of systemGroups (the other groups stay false). noVars is
// the solver's variable count, which sets the penalty shift.
inline Result solveByEnumeration(unsigned noVars, const std::vector<unsigned>& systemGroups,
                                 const std::vector<Clause>& clauses,
                                 const std::vector<std::vector<unsigned>>& wholeClusters = {})
{
    const unsigned shift = bitLength(noVars);
    Result result;
    const uint64_t noAssignments = uint64_t(1) << systemGroups.size();
    for (uint64_t code = 0; code < noAssignments; ++code)
    {
        uint64_t assignment = 0;
        for (unsigned k = 0; k < systemGroups.size(); ++k)
            assignment |= ((code >> k) & 1) << systemGroups[k];
        const uint64_t cost = priceAssignment(assignment, systemGroups, clauses, wholeClusters, shift);
        if (cost == kNoAssignment)
            continue;
        if (cost < result.bestCost)
        {
            result.bestCost = cost;
            result.bestAssignments.clear();
        }
        if (cost == result.bestCost)
            result.bestAssignments.push_back(assignment);
    }
    return result;
}
} // namespace partition_reference
