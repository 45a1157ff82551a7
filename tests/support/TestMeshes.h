// Mesh builders and paths shared by the test programs.
#pragma once

#include <string>
#include <vector>

#include "kxSceneGraph.h"

namespace velmora_test {

// A mesh with positions and normals (normals zero) from flat coordinate and
// index lists; World and Local are identity.
kx::kxPointer<kx::kxTriMesh> makeMesh(const std::vector<Wm4::Vector3<float>>& positions,
                                      const std::vector<unsigned>& indices);

// An axis-aligned box as 12 outward-facing triangles over 8 shared corners.
kx::kxPointer<kx::kxTriMesh> makeBox(const Wm4::Vector3<float>& minCorner, const Wm4::Vector3<float>& maxCorner);

// Raw pointers of a list of meshes, in order (the form the library takes).
std::vector<kx::kxTriMesh*> rawPointers(const std::vector<kx::kxPointer<kx::kxTriMesh>>& meshes);

// The shared corpus of real assemblies, or "" when it is not beside this checkout.
std::string corpusDir();

}  // namespace velmora_test
