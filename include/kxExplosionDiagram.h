// kxExplosionDiagram: the exploded view of a finished disassembly hierarchy.
// Every group gets one translation such that, once every group is moved by
// its translation, the two sides of every split of the hierarchy stand apart
// along the split's removal direction by at least the split distance,
// measured on bounding prisms (octagonal prisms around each direction of the
// contact diagram's set).
//
// How: every split gets a pair of reference groups (one per side), an anchor
// point, a direction and the side that moves; a bottom-up pass gives each
// moving side a translation that clears it from the other side; the per-split
// translations are summed down the tree into per-group translations; a final
// pass (children before parents) shifts each moving side to the smallest
// admissible distance. The translations can be written into (and taken back
// out of) the local transforms of the meshes.
//
// Invariants after computeTranslationHierarchy:
// - a group's final translation is the sum of the per-split translations on
//   the path from the root to its leaf; only moving sides carry a non-zero
//   per-split translation;
// - a split without a reference pair, and every split below it, has zero
//   per-split translations (its subtree is not exploded);
// - no group is both a node's first and second reference group.
// The diagram borrows the builder, its hierarchy, contact diagram and mesh
// groups; they must outlive it and the hierarchy must not change between
// computeTranslationHierarchy and the getters. Indices are not checked.
#pragma once

#include <vector>

#include "Wm4.h"
#include "kx2SATState.h"
#include "kxContactDiagram.h"
#include "kxDisassemblyHierarchy.h"
#include "kxDisassemblyHierarchyBuilder.h"
#include "kxMeshGroups.h"

class kxExplosionDiagram {
public:
    static constexpr unsigned kNone = 0xFFFFFFFFu;
    // The group bits of a split's first word when it has no first group.
    static constexpr unsigned kNoGroupBits = 0x7FFFFFFFu;

    // Five unit directions around one removal direction d: d, then four
    // directions perpendicular to it, 45 degrees apart (v, (u+v)/√2, u,
    // (u-v)/√2 with u, v an orthonormal pair across d).
    struct tOrthogonalDirectionSet {
        Wm4::Vector3<float> directions[5];
    };

    // One group's extent on the five directions of one set: the smallest and
    // largest projection of its vertices on each direction.
    struct tBoundingPlanesMinMax {
        struct tRange {
            float min;
            float max;
        };
        tRange range[5];
    };

    // What the explosion decided for one node of the hierarchy.
    struct tSplitData {
        Wm4::Vector3<float> point;      // anchor between the two reference groups
        Wm4::Vector3<float> direction;  // unit separation direction (second side leaves along it)
        // (first reference group << 1) | (1 when the first child moves); all
        // ones without a reference pair.
        unsigned firstGroupAndMoveFlag;
        unsigned secondGroup;           // second reference group; all ones when none
    };

    // An open interval of shifts along a split direction.
    struct tInterval {
        float min;
        float max;
    };

    // The explosion axis of one split (bakeAxes).
    struct tAxis {
        Wm4::Vector3<float> start;  // point + final translation of the first reference group
        Wm4::Vector3<float> end;    // point + final translation of the second one (point when none)
        unsigned firstGroup;        // all ones when none
        unsigned secondGroup;       // all ones when none
    };

    // Takes the builder's hierarchy, contact diagram and mesh groups; computes nothing.
    explicit kxExplosionDiagram(const kxDisassemblyHierarchyBuilder& builder);
    ~kxExplosionDiagram();
    kxExplosionDiagram(const kxExplosionDiagram&) = default;
    kxExplosionDiagram(kxExplosionDiagram&&) noexcept = default;
    kxExplosionDiagram& operator=(const kxExplosionDiagram&) = default;
    kxExplosionDiagram& operator=(kxExplosionDiagram&&) noexcept = default;

    // Computes every result from the hierarchy, `splitDistance` being the
    // smallest gap between separated sides. May be called again.
    void computeTranslationHierarchy(float splitDistance);

    // Rebuilds the axes: one per inner node, in node-id order.
    void bakeAxes();
    unsigned getNoAxes() const { return static_cast<unsigned>(mAxes.size()); }
    const tAxis& getAxis(unsigned i) const { return mAxes[i]; }

    const tSplitData& getSplitData(unsigned node) const { return mSplitData[node]; }
    const Wm4::Vector3<float>& getPerSplitTranslation(unsigned node) const { return mPerSplitTranslations[node]; }
    const Wm4::Vector3<float>& getFinalPerGroupTranslation(unsigned group) const
    {
        return mFinalPerGroupTranslations[group];
    }
    // The group that represents `group`'s leaf (the leaf's first group).
    unsigned getReferenceGroup(unsigned group) const { return mReferenceGroups[group]; }
    // The largest (first-side max + split distance - second-side min) over
    // the leaves of a split's reference pair, stored for the reference group
    // of the moving one; -1 for a group no split stored one for.
    float getGroupMinSplitDistance(unsigned group) const { return mGroupMinSplitDistances[group]; }
    float getSplitDistance() const { return mSplitDistance; }

    const kxDisassemblyHierarchy& getHierarchy() const { return *mHierarchy; }
    const kxDisassemblyHierarchyBuilder& getBuilder() const { return *mBuilder; }
    const kxContactDiagram& getContactDiagram() const { return *mContactDiagram; }
    const kxMeshGroups& getMeshGroups() const { return *mMeshGroups; }

    // Adds every group's final translation to the local translation of each
    // of its meshes (taken from world space into the mesh's local frame
    // through the inverse of its world matrix; a singular world matrix moves
    // nothing). unbakeTranslations subtracts the same amounts. Both change
    // only the scene.
    void bakeTranslations() const;
    void unbakeTranslations() const;

    // Split data accessors shared with the animation.
    static unsigned firstReferenceGroup(const tSplitData& split);
    static bool firstChildMoves(const tSplitData& split) { return (split.firstGroupAndMoveFlag & 1u) != 0; }
    static bool hasReferencePair(const tSplitData& split);
    // The reference group of the moving side (all ones when the split has no pair).
    static unsigned movingReferenceGroup(const tSplitData& split);

private:
    friend class kxExplosionDiagramTestAccess;

    using tDirectionSets = std::vector<tOrthogonalDirectionSet>;
    using tPrisms = std::vector<tBoundingPlanesMinMax>;

    void computeReferenceGroups();
    void resetResults(float splitDistance);
    void computeBoundingPrisms(tDirectionSets& directions, tPrisms& planes) const;
    static tOrthogonalDirectionSet makeOrthogonalDirectionSet(const Wm4::Vector3<double>& direction);
    std::vector<float> computeGroupSizes(const tPrisms& planes, unsigned noDirections) const;

    void splitHierarchyIteration(unsigned node, const tDirectionSets& directions, const tPrisms& planes,
                                 const std::vector<float>& groupSizes);
    tSplitData computeSplitData(unsigned node, const tDirectionSets& directions, const tPrisms& planes,
                                const std::vector<float>& groupSizes);
    bool findContactPair(unsigned node, const tPrisms& planes, tSplitData& split, unsigned& a, unsigned& b) const;
    void findProximityPair(unsigned node, const tDirectionSets& directions, const tPrisms& planes,
                           tSplitData& split, unsigned& a, unsigned& b);
    void markProximityCandidates(unsigned node);
    unsigned movingChildFlag(unsigned node, const std::vector<float>& groupSizes) const;

    void computePerSplitMovingChild();
    // Runs between the moving-side choice and the translation passes; the
    // split data already line up, so it leaves them as they are.
    void fixTranslationAlignment(const tDirectionSets& directions, const tPrisms& planes,
                                 std::vector<tSplitData>& splitData) const;

    void translationHierarchyIterationBottomUp(unsigned node, const tDirectionSets& directions,
                                               const tPrisms& planes, tPrisms& workPlanes, float splitDistance);
    void computeFinalTranslations(unsigned node, const Wm4::Vector3<float>& parentSum);
    // forbiddenShifts: scratch for the sorted list of forbidden shift intervals.
    void translationHierarchyIterationTopDown(unsigned node, const tDirectionSets& directions,
                                              const tPrisms& planes, tPrisms& workPlanes,
                                              std::vector<tInterval>& forbiddenShifts, float splitDistance);
    Wm4::Vector3<float> computeBakedTranslation(unsigned group, unsigned node) const;

    // Helpers of the passes.
    bool isInSecondChild(unsigned node, unsigned group) const;
    const tBoundingPlanesMinMax& prism(const tPrisms& planes, unsigned group, unsigned dirId) const;
    // Work prisms of the node's groups on the node's direction set: shifted by
    // their final translations (fromFinal) or by their translations relative
    // to the node, plus `secondChildCorrection` in the second child.
    void shiftNodePrisms(unsigned node, const tOrthogonalDirectionSet& directions, const tPrisms& planes,
                         tPrisms& workPlanes, bool fromFinal, const Wm4::Vector3<float>& secondChildCorrection) const;
    float computeMinSplitDistance(unsigned a, unsigned b, const tPrisms& planes, unsigned dirId) const;
    void applyTranslationToMeshes(float sign) const;

    const kxDisassemblyHierarchy* mHierarchy;
    const kxDisassemblyHierarchyBuilder* mBuilder;
    const kxContactDiagram* mContactDiagram;
    const kxMeshGroups* mMeshGroups;
    float mSplitDistance;
    kx2SATStateValue mGroupMarks;
    std::vector<tSplitData> mSplitData;
    std::vector<unsigned> mReferenceGroups;
    std::vector<Wm4::Vector3<float>> mPerSplitTranslations;
    std::vector<Wm4::Vector3<float>> mFinalPerGroupTranslations;
    std::vector<float> mGroupMinSplitDistances;
    std::vector<tAxis> mAxes;
};
