// Support of the single-part procedure tests: access to the procedure's
// private steps, hand-made builder states over groups without meshes, and
// the groups of a step.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "HandAssembly.h"
#include "kxSinglePartDisassemblyProcedure.h"
#include "velmora/Planner.h"

// Reads the procedure's constraint table and drives its private steps.
class kxSinglePartDisassemblyProcedureTestAccess
{
public:
    using Procedure = kxSinglePartDisassemblyProcedure;

    static void initializeRemovalOrdering(Procedure& p, unsigned node) { p.initializeRemovalOrdering(node); }
    static void initializeConstraintList(Procedure& p) { p.initializeConstraintList(); }
    static void simplifyOrderingIteration(Procedure& p, unsigned step) { p.simplifyOrderingIteration(step); }
    static bool tryAndMergeNodeToStep(Procedure& p, unsigned node, unsigned step)
    {
        return p.tryAndMergeNodeToStep(node, step);
    }
    static bool checkMerge(const Procedure& p, unsigned step, unsigned otherStep)
    {
        return p.checkMerge(step, otherStep);
    }
    static bool checkNodeAndStepConstraints(const Procedure& p, unsigned node, unsigned step)
    {
        return p.checkNodeAndStepConstraints(node, step);
    }
    static unsigned findRequestedNodeCst(const Procedure& p, unsigned otherNode, unsigned node)
    {
        return p.findRequestedNodeCst(otherNode, node);
    }

    // The constraints of `node`: other node ids with the touch bit.
    static std::vector<unsigned> constraintsOf(const Procedure& p, unsigned node)
    {
        const auto& range = p.mNodeConstraintRanges[node];
        return std::vector<unsigned>(p.mConstraints.begin() + range.first,
                                     p.mConstraints.begin() + range.first + range.count);
    }
    static unsigned firstConstraintOf(const Procedure& p, unsigned node) { return p.mNodeConstraintRanges[node].first; }
    static unsigned noConstraints(const Procedure& p) { return unsigned(p.mConstraints.size()); }
    static unsigned constraintWord(const Procedure& p, unsigned c) { return p.mConstraints[c]; }
    // The signed directions (below 2 * number of directions) set in row c.
    static std::vector<unsigned> rowDirections(const Procedure& p, unsigned c)
    {
        std::vector<unsigned> bits;
        const uint64_t* row = p.constraintRow(c);
        for (unsigned s = 0; s < 2 * p.mNoDirections; ++s)
        {
            if ((row[s >> 6] >> (s & 63)) & 1u)
                bits.push_back(s);
        }
        return bits;
    }
};

namespace procedure_test
{
using Access = kxSinglePartDisassemblyProcedureTestAccess;
constexpr unsigned kNone = 0xFFFFFFFFu;
constexpr unsigned kTouch = 0x80000000u;
using velmora_test::HandAssembly;

// The groups removed by step s, ascending.
inline std::vector<unsigned> stepGroups(const kxSinglePartDisassemblyProcedure& p, const kxDisassemblyHierarchy& h,
                                        unsigned s)
{
    std::vector<unsigned> groups;
    const auto& step = p.getSteps()[s];
    for (unsigned i = step.start; i < step.start + step.noNodes; ++i)
    {
        const std::vector<unsigned> nodeGroups = velmora::groupsOfNode(h, p.getOrdering()[i]);
        groups.insert(groups.end(), nodeGroups.begin(), nodeGroups.end());
    }
    std::sort(groups.begin(), groups.end());
    return groups;
}

inline const Wm4::Vector3<double> kX(1, 0, 0);
inline const Wm4::Vector3<double> kY(0, 1, 0);
inline const Wm4::Vector3<double> kZ(0, 0, 1);

}  // namespace procedure_test
