// Finds part meshes that are rigid copies of an earlier one: the same index
// buffer and vertex count, and every vertex of the copy within a small
// tolerance of a rotation and translation of the earlier mesh's vertex with
// the same index. CAD exports often write each instance of a bolt or bearing
// as its own already placed mesh; the glTF export stores such a mesh once and
// places the copies with a node transform, which also gives identical parts
// one material. Internal to the app layer.
//
// Invariants: a copy's source comes before it and is itself no copy; a
// rotation is proper (determinant +1), so a mirrored copy is never matched.
#pragma once

#include <vector>

#include "kxTriMesh.h"

namespace velmora {

// Vertex v of mesh `copy` lies at rotation * (vertex v of mesh `source`) +
// translation, both in the meshes' own frames (World not applied).
struct RigidCopy {
    unsigned source = 0;
    Wm4::Matrix3<float> rotation = Wm4::Matrix3<float>::IDENTITY;
    Wm4::Vector3<float> translation = Wm4::Vector3<float>::ZERO;
};

// One entry per mesh: the mesh itself (identity) when it copies no earlier
// mesh. `relativeTolerance` is measured against the source's bounding-box
// diagonal. Null meshes and meshes without buffers copy nothing.
std::vector<RigidCopy> findRigidCopies(const std::vector<const kx::kxTriMesh*>& meshes, double relativeTolerance);

}  // namespace velmora
