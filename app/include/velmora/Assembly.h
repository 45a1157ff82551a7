// The app layer's view of an assembly: named parts, each one triangle mesh in
// world coordinates, and the rigid groups the planner works with.
//
// Invariants of an Assembly returned by the importer: every part has a unique
// non-empty name, a mesh with at least one non-degenerate triangle, finite
// coordinates, and a World transform that places it in the assembly's frame.
// Groups partition the parts: group g lists part indices in ascending order,
// and every part is in exactly one group.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "kxSceneGraph.h"

namespace velmora {

// Bad input from a user (a file, an option): the message names the file and
// the problem and is meant to be shown as it is.
class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A part's surface colour: linear RGB and alpha in [0, 1], as glTF's base colour factor.
struct Colour {
    float r = 0.8f, g = 0.8f, b = 0.8f, a = 1.0f;
};

struct Part {
    std::string name;      // unique within the assembly
    std::string file;      // the file it came from
    std::string node;      // '/'-separated path of the scene nodes above it ("" for formats without nodes)
    kx::kxPointer<kx::kxTriMesh> mesh;  // World = the node's world transform
    std::optional<Colour> colour;       // the input's colour for this part, when it gives one
};

// How parts are gathered into rigid groups that move as one.
enum class GroupBy {
    Mesh,  // every mesh is its own group
    Node,  // meshes placed by the same scene node form one group
    File,  // every input file is one group
    Level, // the parts below one node at a given depth of the tree below the top assembly form one group
};

// "mesh", "node", "file", "subassembly" (Level 1) or "level:N" (N ≥ 1);
// InputError otherwise.
GroupBy parseGroupBy(const std::string& text);
// The depth of a "subassembly" or "level:N" grouping (1 for any other text).
unsigned parseGroupLevel(const std::string& text);
const char* toString(GroupBy mode);

struct Group {
    std::string name;           // the part's name for single-part groups, else the node or file
    std::vector<unsigned> parts;
};

struct Assembly {
    std::vector<Part> parts;
    std::vector<Group> groups;
    std::vector<std::string> warnings;  // things dropped on import, for the user to see
    // Length unit of the coordinates ("mm", "cm", "m", "in") when the input states
    // one; empty when it does not.
    std::string units;

    size_t triangleCount() const;
};

// Forms the groups of `assembly` by `mode` (replacing any it had). With
// GroupBy::Level, the parts whose node path reaches `level` nodes below the
// top assembly (the single first node all parts of a file share, if any)
// group by those nodes: level 1 makes every child of the top assembly one
// group. Parts higher up in the tree stay groups of their own.
void assignGroups(Assembly& assembly, GroupBy mode, unsigned level = 1);

// The group that holds part `part`.
unsigned groupOfPart(const Assembly& assembly, unsigned part);

// The names of the parts of `groups`, group by group.
std::vector<std::string> partNamesOf(const Assembly& assembly, const std::vector<unsigned>& groups);

// One mesh per group with every vertex in world coordinates (World identity),
// in group order: the form the planner takes, since each group must be a
// single mesh. Single-part groups still get a world-space copy.
std::vector<kx::kxPointer<kx::kxTriMesh>> mergeGroups(const Assembly& assembly);

// Axis-aligned bounds of all parts in world coordinates.
void assemblyBounds(const Assembly& assembly, Wm4::Vector3<float>& lo, Wm4::Vector3<float>& hi);

}  // namespace velmora
