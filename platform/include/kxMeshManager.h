// kx::kxMeshManager: writing scene geometry to mesh files.
#pragma once

#include <string>

#include "kxSpatial.h"

namespace kx {

class kxMeshManager {
public:
    // Writes every triangle mesh in the subtree of `object` (the object itself
    // when it is a mesh, all descendants of a node) to a Wavefront OBJ file at
    // `path`: one object per mesh, named after it, positions through the
    // mesh's World transformation, normals (when the mesh has them) through
    // its matrix and renormalised, and faces
    // with 1-based indices. Meshes without triangles are written as vertices
    // only (a point cloud). Returns false when the file cannot be written.
    static bool saveMesh(const kxSpatial* object, const std::string& path);
};

}  // namespace kx
