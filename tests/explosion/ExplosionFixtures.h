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
#include "HandAssembly.h"
#include "kxExplodedViewAnimation.h"
#include "kxExplosionDiagram.h"
#include "velmora/DemoAssemblies.h"

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

using velmora_test::HandAssembly;

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
