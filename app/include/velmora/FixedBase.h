// A base that stays put in an exploded view, and animation timing by travel.
//
// The library separates the two sides of every split by a relative
// translation; which side appears to move is a choice of reference. Taking
// the base group's motion out of every group's keys keeps the base still
// while every relative motion stays exactly what the library computed.
// Key times may then be remapped so that each stretch of the animation lasts
// in proportion to how far the parts travel in it.
#pragma once

#include <vector>

#include "velmora/GltfExport.h"

namespace velmora {

// The part with the largest enclosed volume (ties: the first); the default base.
unsigned largestPart(const Assembly& assembly);

// The absolute volume enclosed by a part's mesh in the assembly's frame.
double partVolume(const Part& part);

// Every offset minus that of group `base` (whose own offset becomes zero).
std::vector<Wm4::Vector3<float>> offsetsRelativeTo(const std::vector<Wm4::Vector3<float>>& offsets, unsigned base);

// The group's translation at `time` under linear interpolation, held before
// the first key and after the last (zero without keys).
Wm4::Vector3<float> translationAt(const GroupKeyframes& keys, float time);

// Every group's keys minus the base group's motion: a group's keys are
// sampled at the union of its own and the base's key times, so the result is
// exact for linear interpolation; the base's keys become exactly zero.
// Groups without keys get the base's negated motion when the base moves.
std::vector<GroupKeyframes> keyframesRelativeTo(const std::vector<GroupKeyframes>& keyframes, unsigned base);

// The keys with their times remapped: between two successive key times of
// the whole animation, the new duration is the longest distance a group
// travels there divided by `speed` (at least `minimumSeconds`).
std::vector<GroupKeyframes> retimedByTravel(const std::vector<GroupKeyframes>& keyframes, float speed,
                                            float minimumSeconds);

}  // namespace velmora
