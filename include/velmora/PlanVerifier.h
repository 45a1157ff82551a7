// PlanVerifier: proves that the splits of a disassembly hierarchy can really
// be carried out, by sweeping each split's moving side along its direction
// until it clears the staying side, and finds the pairs of groups that
// already overlap in the assembled pose.
//
// The sweep is continuous, not sampled: every vertex of either side is cast
// as a ray along the relative motion against the other side's ray tree
// (vertex-face), and every edge of the moving side is crossed with the edges
// of the staying side in the plane across the motion (edge-edge), so a thin
// part cannot be jumped over. A crossing counts as a collision only when it
// reaches deeper than the tolerance plus the pair's overlap in the assembled
// pose: parts modelled into each other (screws in their holes, press fits)
// may come apart as long as the motion does not make the overlap worse.
//
// Invariants: meshes are read once, through their World transformation, into
// world-space copies with outward triangle normals; every query is const and
// thread-safe; results do not depend on the number of threads (a split's
// result depends only on the split, and ties between colliding pairs go to
// the earliest travel, then the lowest group ids).
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "Wm4.h"
#include "kxDisassemblyHierarchy.h"
#include "kxMeshGroups.h"

namespace velmora {

// Two groups whose solids already overlap in the assembled pose.
struct Interference {
    unsigned groupA;  // groupA < groupB
    unsigned groupB;
    double depth;     // estimate of how deep the deepest vertex lies inside the other
};

// One pair of groups that collide on a sweep.
struct Collision {
    unsigned movingGroup;
    unsigned stayingGroup;
    double travel;  // the pair's first collision
};

// The outcome of sweeping one side of a split away from the other.
struct SweepOutcome {
    bool clear = true;          // no collision on the whole path
    unsigned movingGroup = 0;   // when !clear: the pair that collides first
    unsigned stayingGroup = 0;
    double travel = 0.0;        // when !clear: travel at which they first cross
    std::vector<Collision> blockers;  // every colliding pair, in (moving, staying) order
};

// The verdict on one split of a hierarchy.
struct SplitVerdict {
    unsigned node = 0;          // the split node
    unsigned direction = 0;     // its splitId
    SweepOutcome sweep;
};

class PlanVerifier {
public:
    // `groups` is borrowed only during construction. `tolerance` is the depth
    // a crossing may reach without counting (0: the contact tolerance, 1e-3
    // of the largest side of any group's bounds); `nThreads` workers (0 taken
    // as 1) share the per-split work. A vertex whose path meets a face at
    // less than `slidingAngle` degrees slides along it rather than entering
    // it: split directions are representatives of directions merged under an
    // angle tolerance, so a part slid along its own fit is swept up to that
    // angle off its true axis.
    PlanVerifier(const kxMeshGroups& groups, double tolerance, double slidingAngle, unsigned nThreads);
    ~PlanVerifier();
    PlanVerifier(const PlanVerifier&) = delete;
    PlanVerifier& operator=(const PlanVerifier&) = delete;

    double tolerance() const { return mTolerance; }
    double slidingCosine() const { return mSlidingCosine; }
    unsigned noGroups() const;

    // Pairs overlapping in the assembled pose deeper than the tolerance,
    // ascending by (groupA, groupB).
    const std::vector<Interference>& interferences() const { return mInterferences; }
    // Pairs of groups that are copies of one part in one place (same vertex
    // and triangle counts, bounds and vertex centroid within the tolerance),
    // ascending; each is also an interference.
    const std::vector<std::pair<unsigned, unsigned>>& duplicates() const { return mDuplicates; }
    // The assembled-pose overlap of two groups (0 when they do not overlap).
    double initialOverlap(unsigned a, unsigned b) const;

    // Sweeps `moving` along `direction` (any length but zero) away from
    // `staying` until their bounds along it clear.
    SweepOutcome sweep(const std::vector<unsigned>& moving, const std::vector<unsigned>& staying,
                       const Wm4::Vector3<double>& direction) const;

    // The same sweep along each of `directions`, in that order, the
    // directions shared out among the workers. With `anyCollision`, each
    // sweep stops at the first collision it finds: `clear` is the same, the
    // collision reported is one of them, not necessarily the first.
    std::vector<SweepOutcome> sweepAlong(const std::vector<unsigned>& moving, const std::vector<unsigned>& staying,
                                         const std::vector<Wm4::Vector3<double>>& directions,
                                         bool anyCollision = false) const;

    // Every split of `hierarchy`, by node id, its moving side (second child)
    // swept along +directions[splitId] away from its first child.
    std::vector<SplitVerdict> verifyHierarchy(const kxDisassemblyHierarchy& hierarchy,
                                              const std::vector<Wm4::Vector3<double>>& directions) const;

    // The splits of the given nodes only (each must be split), in that order.
    std::vector<SplitVerdict> verifySplits(const kxDisassemblyHierarchy& hierarchy,
                                           const std::vector<Wm4::Vector3<double>>& directions,
                                           const std::vector<unsigned>& nodes) const;

    // Pairs that overlap with every group g translated by offsets[g], deeper
    // than their assembled-pose overlap plus the tolerance.
    std::vector<Interference> overlapsAtOffsets(const std::vector<Wm4::Vector3<float>>& offsets) const;

    struct tGroupGeometry;

private:
    void findInterferences();
    double overlapDepth(unsigned a, unsigned b, const Wm4::Vector3<double>& shift) const;

    std::vector<std::unique_ptr<tGroupGeometry>> mGeometry;
    std::vector<Interference> mInterferences;
    std::vector<std::pair<unsigned, unsigned>> mDuplicates;
    double mTolerance;
    double mSlidingCosine;
    unsigned mNoThreads;
};

}  // namespace velmora
