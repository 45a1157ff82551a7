// Hand-made builder states: groups (one mesh each, possibly without
// vertices), contact edges with chosen removal directions, distant
// constraints, and a hierarchy whose splits the test dictates (copied into
// the builder, so no split search runs). Also the tests' access to the
// hierarchy's private tree edits.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "StdoutCapture.h"
#include "TestMeshes.h"
#include "kxContactDiagram.h"
#include "kxDisassemblyHierarchy.h"
#include "kxDisassemblyHierarchyBuilder.h"
#include "kxMeshGroups.h"

// The hierarchy's private tree edits, for tests.
class kxDisassemblyHierarchyTestAccess {
public:
    // Splits a node the way the builder does: stable partition of the node's
    // range (groups outside `second` first), then both children. The index
    // maps are left as they were.
    static void split(kxDisassemblyHierarchy& h, unsigned id, const std::vector<unsigned>& second,
                      unsigned splitId = 0)
    {
        constexpr unsigned kNone = kxDisassemblyHierarchy::kNoNode;
        const kxDisassemblyHierarchy::tTreeNode node = h.mNodes[id];
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
    }
    static void clearSubHierarchy(kxDisassemblyHierarchy& h, unsigned id) { h.clearSubHierarchy(id); }
    static void index(kxDisassemblyHierarchy& h, unsigned id) { h.computeHierarchyIndexing(id); }
};

namespace velmora_test {

// addContact..., finishEdges(), addDistant..., split or splitRaw per node,
// then commit().
class HandAssembly {
public:
    using Vec3f = Wm4::Vector3<float>;
    using Vec3d = Wm4::Vector3<double>;
    static constexpr unsigned kNone = 0xFFFFFFFFu;

    // Group g is meshes[g]; a null mesh is a group without vertices.
    explicit HandAssembly(std::vector<kx::kxPointer<kx::kxTriMesh>> meshes)
        : mMeshes(std::move(meshes)),
          mGroups(rawPointers(mMeshes), nullptr),
          mDiagram(0, 16, mGroups),
          mHierarchy(mGroups),
          mReference(mGroups)
    {
    }
    // `n` groups without vertices.
    explicit HandAssembly(unsigned n) : HandAssembly(std::vector<kx::kxPointer<kx::kxTriMesh>>(n)) {}

    // A contact in which group a may leave group b along each of `directions`.
    void addContact(unsigned a, unsigned b, const std::vector<Vec3d>& directions, const Vec3f& point = Vec3f::ZERO)
    {
        mDiagram.pushContactEdge(a, b, directions.empty() ? nullptr : directions.data(), unsigned(directions.size()),
                                 point);
    }
    // Computes the direction set and makes the builder (1 thread).
    void finishEdges()
    {
        mDiagram.computeDirectionSet(5.0f);
        mBuilder = std::make_unique<kxDisassemblyHierarchyBuilder>(mHierarchy, mDiagram, 1);
    }
    // A distant constraint: a moving along any of `blocked` runs into b.
    void addDistant(unsigned a, unsigned b, const std::vector<Vec3d>& blocked)
    {
        std::vector<unsigned> words;
        for (const Vec3d& d : blocked)
            words.push_back(directionWord(d));
        std::vector<unsigned> penalties(words.size(), 1u);
        mBuilder->pushDistantConstraint(a, b, words, penalties);
    }
    // Splits `node` so that `moving` leaves the rest along `direction`.
    void split(unsigned node, const std::vector<unsigned>& moving, const Vec3d& direction)
    {
        const unsigned signedDirection = signedDirectionOf(direction);
        splitRaw(node, (signedDirection & 1u) ? complementIn(node, moving) : moving, signedDirection >> 1);
    }
    // Splits `node`: `second` becomes its second child, leaving along line k.
    void splitRaw(unsigned node, const std::vector<unsigned>& second, unsigned k)
    {
        kxDisassemblyHierarchyTestAccess::split(mReference, node, second, k);
        kxDisassemblyHierarchyTestAccess::index(mReference, 0);
    }
    // Solvers, then the hierarchy is taken from the splits given.
    void commit()
    {
        mBuilder->initSolver();
        StdoutCapture quiet;  // the builder's timing lines
        mBuilder->copyGroupsHierarchy(mReference);
    }

    // 2k + s of a vector along line k of the direction set (s = 1 against it).
    unsigned signedDirectionOf(const Vec3d& v) const
    {
        for (unsigned k = 0; k < mDiagram.getNoDirections(); ++k) {
            const double dot = mDiagram.getDirectionFromId(k).Dot(v);
            if (std::fabs(dot) > 0.99)
                return 2 * k + (dot < 0 ? 1u : 0u);
        }
        ADD_FAILURE() << "direction not in the set";
        return kNone;
    }
    // The line of the direction set along `v`.
    unsigned lineOf(const Vec3d& v) const { return signedDirectionOf(v) >> 1; }
    // The builder's word for `v`: its line, the sense in bit 31.
    unsigned directionWord(const Vec3d& v) const
    {
        const unsigned s = signedDirectionOf(v);
        return (s >> 1) | ((s & 1u) << 31);
    }

    kx::kxTriMesh* mesh(unsigned group) const { return mMeshes[group]; }
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
        const kxDisassemblyHierarchy::tTreeNode& treeNode = mReference.getNode(node);
        for (unsigned k = treeNode.start; k < treeNode.start + treeNode.noGroups; ++k) {
            const unsigned g = mReference.getGroupIdFromOrderedIndex(k);
            if (std::find(groups.begin(), groups.end(), g) == groups.end())
                rest.push_back(g);
        }
        return rest;
    }

    std::vector<kx::kxPointer<kx::kxTriMesh>> mMeshes;
    kxMeshGroups mGroups;
    kxContactDiagram mDiagram;
    kxDisassemblyHierarchy mHierarchy;
    kxDisassemblyHierarchy mReference;
    std::unique_ptr<kxDisassemblyHierarchyBuilder> mBuilder;
};

}  // namespace velmora_test
