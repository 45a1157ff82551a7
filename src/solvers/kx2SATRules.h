// Rules shared by both partition solvers: the literals of a constraint's two
// clauses and the packed partition cost.
//
// Variable v has literals 2v (true) and 2v + 1 (false). Constraint c between
// groups A and B has two clauses, {A true, B false} then {A false, B true},
// the lower-numbered group's literal first in each.
//
// A cost is one unsigned 64-bit number, smaller is better:
// - high 32 bits: the largest maximum-type penalty incurred;
// - low 32 bits: the additive penalties, each shifted left by the penalty
//   shift s, plus (only when an assignment is evaluated) a balance term that
//   is smaller than 2^s and so never carries into the penalty sum.
// An assignment that leaves one side empty costs kOneSidedCost; all ones
// (kNoCost) means that nothing has been found.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>

namespace kx2SATRules
{
constexpr uint64_t kNoCost = ~uint64_t(0);
constexpr uint64_t kOneSidedCost = 0xFFFFFFFFFFFFFFFEULL;
constexpr uint64_t kLowWordMask = 0xFFFFFFFFULL;

inline uint32_t literalOf(unsigned group, bool value)
{
    return 2 * group + (value ? 0u : 1u);
}

struct tClauseLiterals
{
    uint32_t first;
    uint32_t second;
};

// Clause 0 is {A true, B false}, clause 1 {A false, B true}.
inline tClauseLiterals constraintClause(unsigned groupA, unsigned groupB, unsigned clause)
{
    const uint32_t literalA = literalOf(groupA, clause == 0);
    const uint32_t literalB = literalOf(groupB, clause != 0);
    if (groupA < groupB)
        return {literalA, literalB};
    return {literalB, literalA};
}

// Number of bits needed to write noVars, so that 2^shift > noVars.
inline unsigned penaltyShift(unsigned noVars)
{
    return unsigned(std::bit_width(noVars));
}

// Adds a literal's cost to a running cost: the larger high word is kept, the
// low words are summed modulo 2^32.
inline uint64_t combine(uint64_t cost, uint64_t literalCost)
{
    const uint64_t high = std::max(cost, literalCost) & ~kLowWordMask;
    const uint64_t low = (cost + literalCost) & kLowWordMask;
    return high | low;
}

// The larger side's size once an additive penalty has been paid (the most
// balanced split wins among equal penalties), the smaller side's size
// otherwise (splitting off the fewest groups wins).
inline uint64_t balanceTerm(uint64_t cost, unsigned noTrue, unsigned noFalse, unsigned shift)
{
    const bool additivePaid = ((cost & kLowWordMask) >> shift) != 0;
    return additivePaid ? std::max(noTrue, noFalse) : std::min(noTrue, noFalse);
}

// Lower bound of every complete assignment below a choice.
inline uint64_t bound(uint64_t cost, unsigned noTrue, unsigned noFalse, unsigned shift)
{
    return cost + balanceTerm(cost, noTrue, noFalse, shift);
}

// Final cost of a complete assignment.
inline uint64_t evaluate(uint64_t cost, unsigned noTrue, unsigned noFalse, unsigned shift)
{
    if (noTrue == 0 || noFalse == 0)
        return kOneSidedCost;
    return bound(cost, noTrue, noFalse, shift);
}

// Literal cost after a maximum-type penalty: its high word raised to penalty.
inline uint64_t raiseHighWord(uint64_t literalCost, uint32_t penalty)
{
    const uint32_t high = std::max(uint32_t(literalCost >> 32), penalty);
    return (uint64_t(high) << 32) | (literalCost & kLowWordMask);
}

inline uint64_t withHighWord(uint64_t literalCost, uint32_t high)
{
    return (uint64_t(high) << 32) | (literalCost & kLowWordMask);
}
} // namespace kx2SATRules
