// The animated view of a removal: it plays exactly the instructions that
// `remove` prints, one stretch per instruction.
//
// During stretch i only the groups of instruction i move, all by the same
// translation along its direction; every other group keeps its place, and
// the base (which no instruction names) is exactly zero at every key. All
// groups share the key times, one key at each end of every stretch, so a
// linear interpolation between keys is the motion itself. Groups moved once
// stay where they were moved.
#pragma once

#include <vector>

#include "velmora/Explode.h"
#include "velmora/RemovalInstructions.h"

namespace velmora {

// Per group, the keys of playing `instructions` in order, each moving its
// groups by `travel` along its direction in `seconds`. Throws
// std::invalid_argument on a group id of `groupCount` or more, or a travel
// or duration that is not positive and finite.
std::vector<GroupKeyframes> removalKeyframes(unsigned groupCount, const std::vector<RemovalInstruction>& instructions,
                                             float travel, float seconds);

// The view of the removal with `base` still: the keys above (a static pose:
// every group at its final place), its GLB and report figures. The travel of
// a stretch is the options' split distance (0: a tenth of the diagonal); it
// lasts travel / (speed × diagonal) seconds, at least a fifth of a second,
// or one second when the speed is 0. The options' policy and play style do
// not apply. Throws InputError on a negative or non-finite distance or speed.
ExplodedView removalView(const Assembly& assembly, const std::vector<RemovalInstruction>& instructions,
                         unsigned base, const ExplodeOptions& options);

}  // namespace velmora
