// Hand-made builder states for the single-part procedure tests: groups
// without meshes, contact edges with chosen removal directions, distant
// constraints, and a hierarchy whose splits the test dictates (copied into
// the builder, so no split search runs).
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "kxContactDiagram.h"
#include "kxDisassemblyHierarchy.h"
#include "kxDisassemblyHierarchyBuilder.h"
#include "kxMeshGroups.h"
#include "kxSinglePartDisassemblyProcedure.h"

// Splits a hierarchy node the way the builder does: stable partition of the
// node's range (groups outside `second` first), then both children.
class kxDisassemblyHierarchyTestAccess
{
public:
    static void split(kxDisassemblyHierarchy& h, unsigned id, const std::vector<unsigned>& second, unsigned splitId)
    {
        using tTreeNode = kxDisassemblyHierarchy::tTreeNode;
        constexpr unsigned kNone = kxDisassemblyHierarchy::kNoNode;
        const tTreeNode node = h.mNodes[id];
        const auto begin = h.mGroupIdFromOrderedIndex.begin() + node.start;
        const auto middle = std::stable_partition(begin, begin + node.noGroups, [&](unsigned g) {
            return std::find(second.begin(), second.end(), g) == second.end();
        });
        const unsigned noFirst = unsigned(middle - begin);
        const unsigned first = h.requestNewNode({node.start, noFirst, kNone, kNone, id, kNone});
        const unsigned other =
            h.requestNewNode({node.start + noFirst, node.noGroups - noFirst, kNone, kNone, id, kNone});
        h.mNodes[id].firstChild = first;
        h.mNodes[id].secondChild = other;
        h.mNodes[id].splitId = splitId;
        h.computeHierarchyIndexing(0);
    }
};

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

// A builder over `n` mesh-less groups (group g = mesh g) whose contact edges,
// distant constraints and hierarchy splits the test gives one by one:
// addContact / addDistant, then finishEdges(), then split(...) per node, and
// finally commit() to copy the hierarchy into the builder.
class HandAssembly
{
public:
    explicit HandAssembly(unsigned n)
        : mGroups(std::vector<kx::kxTriMesh*>(n, nullptr), nullptr), mDiagram(0, 16, mGroups), mHierarchy(mGroups),
          mReference(mGroups)
    {
    }

    // A contact in which group a may leave group b along each of `directions`.
    void addContact(unsigned a, unsigned b, const std::vector<Wm4::Vector3<double>>& directions)
    {
        mDiagram.pushContactEdge(a, b, directions.empty() ? nullptr : directions.data(), unsigned(directions.size()),
                                 Wm4::Vector3<float>(0, 0, 0));
    }
    // Computes the direction set and makes the builder (1 thread).
    void finishEdges()
    {
        mDiagram.computeDirectionSet(5.0f);
        mBuilder = std::make_unique<kxDisassemblyHierarchyBuilder>(mHierarchy, mDiagram, 1);
    }
    // A distant constraint: a moving along any of `blocked` runs into b.
    void addDistant(unsigned a, unsigned b, const std::vector<Wm4::Vector3<double>>& blocked)
    {
        std::vector<unsigned> words;
        for (const auto& d : blocked)
            words.push_back(directionWord(d));
        std::vector<unsigned> penalties(words.size(), 1u);
        mBuilder->pushDistantConstraint(a, b, words, penalties);
    }
    // Splits `node` so that `moving` leaves the rest along `direction`.
    void split(unsigned node, const std::vector<unsigned>& moving, const Wm4::Vector3<double>& direction)
    {
        const unsigned signedDirection = signedDirectionOf(direction);
        splitRaw(node, (signedDirection & 1u) ? complementIn(node, moving) : moving, signedDirection >> 1);
    }
    // Splits `node` with `second` as its second child and split direction id k.
    void splitRaw(unsigned node, const std::vector<unsigned>& second, unsigned k)
    {
        kxDisassemblyHierarchyTestAccess::split(mReference, node, second, k);
    }
    // Solvers, then the hierarchy is taken from the splits given.
    void commit()
    {
        mBuilder->initSolver();
        testing::internal::CaptureStdout();  // the builder's timing lines
        mBuilder->copyGroupsHierarchy(mReference);
        testing::internal::GetCapturedStdout();
    }

    // 2k + s of a vector along line k of the direction set (s = 1 against it).
    unsigned signedDirectionOf(const Wm4::Vector3<double>& v) const
    {
        for (unsigned k = 0; k < mDiagram.getNoDirections(); ++k)
        {
            const double dot = mDiagram.getDirectionFromId(k).Dot(v);
            if (std::fabs(dot) > 0.99)
                return 2 * k + (dot < 0 ? 1u : 0u);
        }
        ADD_FAILURE() << "direction not in the set";
        return kNone;
    }
    unsigned directionWord(const Wm4::Vector3<double>& v) const
    {
        const unsigned s = signedDirectionOf(v);
        return (s >> 1) | ((s & 1u) << 31);
    }

    unsigned leafOf(unsigned group) const { return mHierarchy.getLeafNodeIndexFromGroupId(group); }
    const kxMeshGroups& groups() const { return mGroups; }
    const kxContactDiagram& diagram() const { return mDiagram; }
    const kxDisassemblyHierarchy& hierarchy() const { return mHierarchy; }
    const kxDisassemblyHierarchy& reference() const { return mReference; }
    const kxDisassemblyHierarchyBuilder& builder() const { return *mBuilder; }

private:
    std::vector<unsigned> complementIn(unsigned node, const std::vector<unsigned>& groups) const
    {
        std::vector<unsigned> rest;
        const auto& treeNode = mReference.getNode(node);
        for (unsigned k = treeNode.start; k < treeNode.start + treeNode.noGroups; ++k)
        {
            const unsigned g = mReference.getGroupIdFromOrderedIndex(k);
            if (std::find(groups.begin(), groups.end(), g) == groups.end())
                rest.push_back(g);
        }
        return rest;
    }

    kxMeshGroups mGroups;
    kxContactDiagram mDiagram;
    kxDisassemblyHierarchy mHierarchy;
    kxDisassemblyHierarchy mReference;
    std::unique_ptr<kxDisassemblyHierarchyBuilder> mBuilder;
};

// The groups removed by step s, ascending.
inline std::vector<unsigned> stepGroups(const kxSinglePartDisassemblyProcedure& p, const kxDisassemblyHierarchy& h,
                                        unsigned s)
{
    std::vector<unsigned> groups;
    const auto& step = p.getSteps()[s];
    for (unsigned i = step.start; i < step.start + step.noNodes; ++i)
    {
        const auto& node = h.getNode(p.getOrdering()[i]);
        for (unsigned k = node.start; k < node.start + node.noGroups; ++k)
            groups.push_back(h.getGroupIdFromOrderedIndex(k));
    }
    std::sort(groups.begin(), groups.end());
    return groups;
}

inline const Wm4::Vector3<double> kX(1, 0, 0);
inline const Wm4::Vector3<double> kY(0, 1, 0);
inline const Wm4::Vector3<double> kZ(0, 0, 1);

}  // namespace procedure_test
