// Hand-made builder states for the explosion tests: box-shaped groups,
// contact edges with chosen removal directions, and a hierarchy whose splits
// the test dictates (copied into the builder, so no split search runs); plus
// access to the private steps of the explosion diagram and its animation.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "ExplosionPipeline.h"
#include "kxExplodedViewAnimation.h"
#include "kxExplosionDiagram.h"
#include "velmora/DemoAssemblies.h"

// Splits a hierarchy node the way the builder does: stable partition of the
// node's range (groups outside `second` first), then both children.
class kxDisassemblyHierarchyTestAccess {
public:
    static void split(kxDisassemblyHierarchy& h, unsigned id, const std::vector<unsigned>& second, unsigned splitId)
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
        h.computeHierarchyIndexing(0);
    }
};

class kxExplosionDiagramTestAccess {
public:
    using Diagram = kxExplosionDiagram;

    static void computeBoundingPrisms(const Diagram& d, std::vector<Diagram::tOrthogonalDirectionSet>& directions,
                                      std::vector<Diagram::tBoundingPlanesMinMax>& planes)
    {
        d.computeBoundingPrisms(directions, planes);
    }
    static std::vector<float> groupSizes(const Diagram& d)
    {
        std::vector<Diagram::tOrthogonalDirectionSet> directions;
        std::vector<Diagram::tBoundingPlanesMinMax> planes;
        d.computeBoundingPrisms(directions, planes);
        return d.computeGroupSizes(planes, unsigned(directions.size()));
    }
    static Diagram::tSplitData& editSplitData(Diagram& d, unsigned node) { return d.mSplitData[node]; }
    static void computePerSplitMovingChild(Diagram& d) { d.computePerSplitMovingChild(); }
};

class kxExplodedViewAnimationTestAccess {
public:
    using Animation = kxExplodedViewAnimation;

    // The time index of every node under the animation's policy.
    static std::vector<unsigned> timeIndices(const Animation& a)
    {
        std::vector<unsigned> times(a.mHierarchy->getNoNodes(), 0u);
        if (a.mPolicy == Animation::kOptimalPolicy)
            a.computeOptimalTimeIndex(times);
        else
            a.computeTimeIndexPerSplit(0, 0, times);
        return times;
    }
    // computeTimeIndexPerSplit alone (under policy 2: the child rule).
    static std::vector<unsigned> timeIndicesPerSplit(const Animation& a, unsigned& noSplits)
    {
        std::vector<unsigned> times(a.mHierarchy->getNoNodes(), 0u);
        noSplits = a.computeTimeIndexPerSplit(0, 0, times);
        return times;
    }
    static std::vector<unsigned> clampingOrder(const Animation& a)
    {
        std::vector<unsigned> order;
        a.computeTranslationClampingProcessingOrder(0, kxExplosionDiagram::kNone, order);
        return order;
    }
    static std::vector<unsigned> referenceSplits(const Animation& a)
    {
        std::vector<unsigned> splits;
        a.computePerGroupReferenceSplit(splits);
        return splits;
    }
    // The keys of `group` from a single increment at time index 1.
    static std::vector<Wm4::Vector3<float>> keysFromOneIncrement(const Animation& a, unsigned group,
                                                                 const Wm4::Vector3<float>& increment)
    {
        Animation::tKeyFrameMap map;
        map.emplace(1u, std::make_pair(group, increment));
        return a.buildGroupKeyFrames(group, map, 1).translations;
    }
};

namespace explosion_test {

using Vec3f = Wm4::Vector3<float>;
using Vec3d = Wm4::Vector3<double>;
constexpr unsigned kNone = 0xFFFFFFFFu;

inline kx::kxPointer<kx::kxTriMesh> box(const Vec3f& lo, const Vec3f& hi) { return velmora::shapes::box(lo, hi); }

// A builder over the given meshes (group g = mesh g; a null mesh is a group
// without vertices) whose contact edges and hierarchy splits the test gives:
// addContact..., finishEdges(), split(...) per node, then commit().
class HandAssembly {
public:
    explicit HandAssembly(std::vector<kx::kxPointer<kx::kxTriMesh>> meshes)
        : mMeshes(std::move(meshes)),
          mGroups(rawPointers(mMeshes), nullptr),
          mDiagram(0, 16, mGroups),
          mHierarchy(mGroups),
          mReference(mGroups)
    {
    }

    // A contact in which group a may leave group b along each of `directions`.
    void addContact(unsigned a, unsigned b, const std::vector<Vec3d>& directions, const Vec3f& point = Vec3f::ZERO)
    {
        mDiagram.pushContactEdge(a, b, directions.empty() ? nullptr : directions.data(), unsigned(directions.size()),
                                 point);
    }
    void finishEdges()
    {
        mDiagram.computeDirectionSet(5.0f);
        mBuilder = std::make_unique<kxDisassemblyHierarchyBuilder>(mHierarchy, mDiagram, 1);
    }
    // Splits `node`: `second` becomes its second child, leaving along line k.
    void split(unsigned node, const std::vector<unsigned>& second, unsigned k)
    {
        kxDisassemblyHierarchyTestAccess::split(mReference, node, second, k);
    }
    void commit()
    {
        mBuilder->initSolver();
        StdoutCapture quiet;
        mBuilder->copyGroupsHierarchy(mReference);
    }
    // The line of the direction set along `v`.
    unsigned lineOf(const Vec3d& v) const
    {
        for (unsigned k = 0; k < mDiagram.getNoDirections(); ++k) {
            if (std::fabs(mDiagram.getDirectionFromId(k).Dot(v)) > 0.99)
                return k;
        }
        ADD_FAILURE() << "direction not in the set";
        return kNone;
    }

    kx::kxTriMesh* mesh(unsigned group) const { return mMeshes[group]; }
    const kxMeshGroups& groups() const { return mGroups; }
    const kxContactDiagram& diagram() const { return mDiagram; }
    const kxDisassemblyHierarchy& hierarchy() const { return mHierarchy; }
    const kxDisassemblyHierarchyBuilder& builder() const { return *mBuilder; }

private:
    static std::vector<kx::kxTriMesh*> rawPointers(const std::vector<kx::kxPointer<kx::kxTriMesh>>& meshes)
    {
        std::vector<kx::kxTriMesh*> raw;
        for (const kx::kxPointer<kx::kxTriMesh>& mesh : meshes)
            raw.push_back(mesh.get());
        return raw;
    }

    std::vector<kx::kxPointer<kx::kxTriMesh>> mMeshes;
    kxMeshGroups mGroups;
    kxContactDiagram mDiagram;
    kxDisassemblyHierarchy mHierarchy;
    kxDisassemblyHierarchy mReference;
    std::unique_ptr<kxDisassemblyHierarchyBuilder> mBuilder;
};

inline void expectVectorEq(const Vec3f& expected, const Vec3f& actual)
{
    EXPECT_FLOAT_EQ(expected.X(), actual.X());
    EXPECT_FLOAT_EQ(expected.Y(), actual.Y());
    EXPECT_FLOAT_EQ(expected.Z(), actual.Z());
}

inline void expectVectorNear(const Vec3f& expected, const Vec3f& actual, float tolerance)
{
    EXPECT_NEAR(expected.X(), actual.X(), tolerance);
    EXPECT_NEAR(expected.Y(), actual.Y(), tolerance);
    EXPECT_NEAR(expected.Z(), actual.Z(), tolerance);
}

// Split distance for a real assembly: a tenth of its diagonal.
inline float splitDistanceFor(const velmora::Assembly& assembly)
{
    Vec3f lo, hi;
    velmora::assemblyBounds(assembly, lo, hi);
    return 0.1f * (hi - lo).Length();
}

}  // namespace explosion_test
