// Assemblies handed over as raw triangle meshes by a host program (the
// Python package's numpy arrays, an embedding application's own geometry)
// rather than read from files.
//
// The meshes are checked as the importer checks a file's: finite
// coordinates, corner indices that exist, degenerate triangles dropped.
// Every mesh becomes one part (and one group) under its own name, in order.
#pragma once

#include <string>
#include <vector>

#include "velmora/Assembly.h"

namespace velmora {

struct NamedMesh {
    std::string name;
    std::vector<Wm4::Vector3<float>> positions;
    std::vector<unsigned> indices;  // three corners per triangle
};

// Throws InputError (naming the mesh) when there is no mesh, a name is empty
// or repeated, the index count is not a multiple of three, a coordinate is
// not finite, a corner index has no vertex, or a mesh keeps no triangle.
Assembly assemblyFromMeshes(const std::vector<NamedMesh>& meshes);

}  // namespace velmora
