// Writing an exploded view as a binary glTF 2.0 file (.glb).
//
// The file holds one node per part of the assembly, named after the part,
// whose mesh has the part's vertices in the assembly's frame (the part's
// World applied), with the part's own normals when it has usable ones and
// flat (per-triangle) normals otherwise. A part whose mesh is mirrored by its
// World keeps its faces outward (the corner order is reversed).
//
// Animated: one animation "explode" with one LINEAR translation channel per
// part, reproducing the keys of the part's group (the node's translation is
// the group's offset from its assembled place at that time, in the
// assembly's frame); each node's static translation is its group's first key.
// Static pose: no animation, each node translated by its group's offset.
//
// Group g of the keys or offsets is group g of the assembly (assembly.groups).
#pragma once

#include <string>
#include <vector>

#include "kxMeshGroups.h"
#include "velmora/Assembly.h"

namespace velmora {

// The translation keys of one group: strictly ascending, finite times in
// seconds, and the group's world-space offset at each.
struct GroupKeyframes {
    std::vector<float> times;
    std::vector<Wm4::Vector3<float>> translations;
};

// The GLB bytes of the animated exploded view. `keyframes` has one entry per
// group; a group with no key is not animated. Throws std::invalid_argument
// when the counts do not match or the times are not strictly ascending and
// finite.
std::vector<unsigned char> buildAnimatedGlb(const Assembly& assembly, const std::vector<GroupKeyframes>& keyframes);

// The GLB bytes of a static exploded pose: `offsets` has one world-space
// translation per group. Throws std::invalid_argument on a count mismatch.
std::vector<unsigned char> buildExplodedPoseGlb(const Assembly& assembly,
                                                const std::vector<Wm4::Vector3<float>>& offsets);

// Writes `bytes` to `path` ("-": standard output); the file appears only
// when complete. Throws InputError when it cannot be written.
void writeGlbFile(const std::vector<unsigned char>& bytes, const std::string& path);

// The keys that kxExplodedViewAnimation::createKeyFrameControllers attached:
// per group, those of the first kx::kxKeyframeController of its first mesh
// (empty when there is none). The keys of a group are its world-space offsets,
// shared by all of its meshes' controllers.
std::vector<GroupKeyframes> readGroupKeyframes(const kxMeshGroups& groups);

}  // namespace velmora
