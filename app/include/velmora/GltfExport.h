// Writing an exploded view as a binary glTF 2.0 file (.glb).
//
// Scene: a root node "assembly" converts the assembly's frame to glTF's
// metres and Y-up (a scale for the length unit and, for Z-up inputs, a turn
// about X), so everything below it stays in the assembly's frame. Below it,
// the input's node tree (Part::node) and, under its node, one node per part
// named after it whose translation is its group's offset (animated or
// static) and whose extras give the part, its group and whether it is the
// base; that node's only child, also named after the part, carries the
// part's World and its mesh. A perspective camera frames the exploded pose.
//
// Meshes: indexed triangles in the part's own frame with shared vertices and
// crease-aware smooth normals; parts sharing their vertex and index buffers
// (instances of one input mesh) share one glTF mesh. Each part has its input
// colour, or one from a fixed palette by order of its distinct mesh; equal
// colours share one material. Compressed files quantise positions to 16-bit
// integers (KHR_mesh_quantization, the dequantisation in the mesh node's
// matrix), normals to bytes, and encode those and the indices with
// EXT_meshopt_compression (both required; the uncompressed sizes live in a
// fallback buffer without data, as that extension prescribes).
//
// Animated: one animation (named by the options) with one LINEAR translation
// channel per part, reproducing the keys of the part's group; each part
// node's static translation is its group's first key. Static pose: no
// animation, each part node translated by its group's offset.
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

struct GlbOptions {
    bool compress = true;          // quantised and meshopt-encoded geometry
    bool lines = false;            // a line per moving part from its assembled to its exploded place
    float creaseAngle = 30.0f;     // degrees between faces above which an edge stays sharp
    std::string units = "mm";      // length unit of the assembly's coordinates: mm, cm, m or in
    bool zUp = true;               // the assembly's up axis is +Z (else +Y, as in glTF)
    std::string animationName = "explode";
    int baseGroup = -1;            // the group kept still, flagged in the node extras; -1: none
};

// Metres per `units` ("mm", "cm", "m", "in"); InputError for anything else.
double metresPer(const std::string& units);

// Whether an assembly's inputs are Z-up, as CAD data is: all but glTF files (Y-up).
bool isZUp(const Assembly& assembly);

// The GLB bytes of the animated exploded view. `keyframes` has one entry per
// group; a group with no key is not animated. Throws std::invalid_argument
// when the counts do not match or the times are not strictly ascending and
// finite.
std::vector<unsigned char> buildAnimatedGlb(const Assembly& assembly, const std::vector<GroupKeyframes>& keyframes,
                                            const GlbOptions& options = {});

// The GLB bytes of a static exploded pose: `offsets` has one world-space
// translation per group. Throws std::invalid_argument on a count mismatch.
std::vector<unsigned char> buildExplodedPoseGlb(const Assembly& assembly,
                                                const std::vector<Wm4::Vector3<float>>& offsets,
                                                const GlbOptions& options = {});

// Writes `bytes` to `path` ("-": standard output); the file appears only
// when complete. Throws InputError when it cannot be written.
void writeGlbFile(const std::vector<unsigned char>& bytes, const std::string& path);

// The keys that kxExplodedViewAnimation::createKeyFrameControllers attached:
// per group, those of the first kx::kxKeyframeController of its first mesh
// (empty when there is none). The keys of a group are its world-space offsets,
// shared by all of its meshes' controllers.
std::vector<GroupKeyframes> readGroupKeyframes(const kxMeshGroups& groups);

}  // namespace velmora
