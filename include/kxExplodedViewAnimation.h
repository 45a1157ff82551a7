// kxExplodedViewAnimation: keyframe animation of an exploded view. The splits
// of the hierarchy are scheduled on a discrete time axis (one time index per
// split); in its time slot a split's moving side travels by its per-split
// translation of the explosion diagram. Every group gets a key sequence that
// ends at its final explosion translation, carried by kx::kxKeyframeController
// objects attached to the group's meshes.
//
// Scheduling policies (tAnimationPolicy):
// - 0, sequential: every split its own time index, in preorder (1 … s).
// - 1, by depth: a split's children one time index after it.
// - 2, optimal (default): every split gets the earliest time index after the
//   splits it must follow, so that independent splits move at the same time.
//   A split must follow its parent when it lies on the parent's moving side
//   (that side first has to leave as a whole); it may start together with an
//   enclosing split on whose staying side it lies, unless its own moving side
//   touches or blocks (a contact or distant edge across the enclosing split)
//   the enclosing split's moving side: then it follows that split.
//
// Play styles (tAnimationPlayStyle): 1 explodes (assembled → exploded),
// 0 assembles (the same keys run backwards in time), 3 explodes and comes
// back, 2 assembles and goes back out. Key times are time indices times
// one time unit (1 s) divided by the base speed.
//
// Keys of one group: time 0 with no translation; for every split that moves
// the group, a key at its time index with the running sum (preceded by a
// hold key one index earlier when the previous key is further away); when
// the group's last key is before the last time index, a final hold key there,
// so every group's keys span the whole animation.
//
// Translation clamping: before the keys are written, the increments of every
// group are made to add up to its final explosion translation exactly: the
// rounding residual (the increments are summed in another order than the
// diagram sums its translations) is put on the group's increment at the time
// of the split that governs it (its reference split; without one, its last
// increment). Groups are clamped in the clamping processing order (staying
// subtrees before the subtrees that move away from them), then the groups
// that order does not list. A remaining miss over 0.001 is reported as an
// "error: " line and the animation is still built.
//
// Controllers: one per mesh, all meshes of a group sharing the group's time
// and translation arrays; a key is the group's world-space offset, mapped to
// the mesh's local translation as baking maps it (local matrix times inverse
// world matrix, plus the local translation the mesh had). Keyframe controllers
// attached by an earlier call are detached first and the local translation
// they started from is restored.
//
// The animation borrows the explosion diagram (and through it the hierarchy
// and mesh groups); it must be computed before createKeyFrameControllers.
#pragma once

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "Wm4.h"
#include "kxBBox.h"
#include "kxExplosionDiagram.h"
#include "kxSceneGraph.h"

class kxExplodedViewAnimation {
public:
    enum tAnimationPolicy : uint32_t {
        kSequentialPolicy = 0,
        kByDepthPolicy = 1,
        kOptimalPolicy = 2,
    };
    enum tAnimationPlayStyle : uint32_t {
        kPlayAssembly = 0,
        kPlayExplosion = 1,
        kPlayAssemblyAndBack = 2,
        kPlayExplosionAndBack = 3,
    };

    explicit kxExplodedViewAnimation(const kxExplosionDiagram& diagram);
    kxExplodedViewAnimation(const kxExplodedViewAnimation&) = default;
    kxExplodedViewAnimation& operator=(const kxExplodedViewAnimation&) = default;
    ~kxExplodedViewAnimation() = default;

    void setAnimationPolicy(tAnimationPolicy policy) { mPolicy = policy; }
    void setAnimationPlayStyle(tAnimationPlayStyle style) { mPlayStyle = style; }
    // Time indices per second; must be positive.
    void setAnimationBaseSpeed(float speed) { mBaseSpeed = speed; }
    tAnimationPolicy getAnimationPolicy() const { return mPolicy; }
    tAnimationPlayStyle getAnimationPlayStyle() const { return mPlayStyle; }
    float getAnimationBaseSpeed() const { return mBaseSpeed; }

    // The box of every vertex of every animated mesh (vertex-buffer
    // coordinates), from the last createKeyFrameControllers.
    const kx::kxBBox& getGlobalBBox() const { return mGlobalBBox; }

    // Schedules the splits, builds every group's keys and attaches one
    // kx::kxKeyframeController per mesh.
    void createKeyFrameControllers();

private:
    friend class kxExplodedViewAnimationTestAccess;

    // Per group: time index -> (reference group of the moving side, translation increment).
    using tKeyFrameMap = std::map<unsigned, std::pair<unsigned, Wm4::Vector3<float>>>;

    struct tKeyFrames {
        std::vector<float> times;  // in time indices until scaled
        std::vector<Wm4::Vector3<float>> translations;
    };

    void computePerGroupReferenceSplit(std::vector<unsigned>& referenceSplit) const;
    unsigned computeTimeIndexPerSplit(unsigned node, unsigned time, std::vector<unsigned>& timeIndex) const;
    void computeOptimalTimeIndex(std::vector<unsigned>& timeIndex) const;
    // Preorder pass of policy 2: `delay` is how much later than the child
    // rule the parent was scheduled; `stayingAncestors` the enclosing splits
    // on whose staying side `node` lies.
    void splitTimeConstraintsIteration(unsigned node, unsigned delay, std::vector<unsigned>& stayingAncestors,
                                       std::vector<unsigned>& timeIndex) const;
    // Whether a crossing edge of `enclosing` joins a group of the moving side of `node`.
    bool movingSideCrossesSplit(unsigned node, unsigned enclosing) const;

    void createKeyFramesIteration(unsigned node, const std::vector<unsigned>& timeIndex,
                                  std::vector<tKeyFrameMap>& keyFrames) const;
    void computeTranslationClamping(const std::vector<unsigned>& referenceSplit,
                                    const std::vector<unsigned>& timeIndex,
                                    std::vector<tKeyFrameMap>& keyFrames) const;
    void computeTranslationClampingProcessingOrder(unsigned node, unsigned group, std::vector<unsigned>& order) const;
    void clampGroupTranslation(unsigned group, unsigned governingTime, tKeyFrameMap& keyFrames) const;

    // Keys of one group in time indices (time 0, holds, final hold at
    // finalTime); reports a miss of the group's final translation.
    tKeyFrames buildGroupKeyFrames(unsigned group, const tKeyFrameMap& keyFrames, unsigned finalTime) const;
    // Applies the play style and turns time indices into seconds.
    void applyPlayStyle(tKeyFrames& keys, unsigned finalTime) const;
    // Hands the keys to the controllers of the group's meshes.
    void attachControllers(unsigned group, tKeyFrames&& keys);

    const kxMeshGroups* mMeshGroups;
    const kxDisassemblyHierarchy* mHierarchy;
    const kxExplosionDiagram* mExplosionDiagram;
    tAnimationPolicy mPolicy;
    tAnimationPlayStyle mPlayStyle;
    float mBaseSpeed;
    float mTimeUnit;  // seconds per time index at base speed 1
    kx::kxBBox mGlobalBBox;
};
