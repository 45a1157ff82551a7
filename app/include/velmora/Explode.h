// The exploded view of a planned assembly: every group's final offset, the
// keyframes of its animation and the binary glTF that shows it. Offsets and
// keys are relative to the base group, which stays still (exactly zero).
//
// The plan must hold a hierarchy. The animation attaches keyframe controllers
// to the plan's group meshes (replacing any an earlier call attached); the
// geometry and the hierarchy are not changed.
//
// Unless asked to explode inside them, the plan's keep-together sets move as
// rigid bodies: every group of a set takes the offset and the keys of one
// member (the base when the set holds it), so its parts never move apart.
#pragma once

#include <vector>

#include "velmora/GltfExport.h"
#include "velmora/Planner.h"

namespace velmora {

struct ExplodeOptions {
    unsigned policy = 2;       // 0 sequential, 1 by depth, 2 independent splits together
    unsigned playStyle = 1;    // 0 assemble, 1 explode, 2 assemble and back, 3 explode and back
    float splitDistance = 0;   // gap between the sides of a split; 0: a tenth of the bounds' diagonal
    bool staticPose = false;   // the exploded pose without animation
    int base = -1;             // the group that stays still; -1: that of the largest part
    // Travel speed in diagonals of the assembly's bounds per second: each
    // stretch of the animation lasts in proportion to its travel; 0 keeps
    // the library's timing (one second per split).
    float speed = 0;
    bool explodeInside = false;  // keep-together sets come apart like the rest
    GlbOptions glb;            // how the file is written (its baseGroup is set from `base`)
};

struct ExplodedView {
    float splitDistance = 0;                   // the distance used (see explodeAssembly)
    unsigned base = 0;                         // the group kept still
    unsigned widenings = 0;                    // times it was doubled to pull overlapping parts apart
    std::vector<Interference> overlaps;        // pairs still overlapping in the exploded pose
    std::vector<Wm4::Vector3<float>> offsets;  // per group, in the assembly's frame
    std::vector<GroupKeyframes> keyframes;     // per group; empty for a static pose
    float duration = 0;                        // seconds; 0 for a static pose
    std::vector<unsigned char> glb;
};

// The length of the diagonal of the assembly's bounds.
float diagonal(const Assembly& assembly);

// The default split distance: a tenth of the diagonal of the assembly's bounds.
float defaultSplitDistance(const Assembly& assembly);

// Throws InputError on a policy above 2, a play style above 3, a negative
// or non-finite split distance or speed, or a base that is not a group. When
// the plan was verified, the exploded pose is checked like a split (no two
// parts overlapping deeper than they do assembled) and the split distance
// doubled, up to a few times, while any do.
ExplodedView explodeAssembly(const Plan& plan, const ExplodeOptions& options);

}  // namespace velmora
