// The planning frame: the world-space group meshes scaled by a power of two so
// that the assembly has the same size whatever unit it was drawn in.
//
// The library's contact and motion stages mix relative tolerances (the contact
// tolerance is a thousandth of the largest part) with absolute ones: a face
// normal is only computed for a triangle whose doubled area exceeds 1e-6, and
// squared lengths of float vectors overflow beyond about 1.8e19. A plan
// therefore changes with the unit of its input: a millimetre part drawn in
// metres loses its face normals and locks, coordinates of 1e30 give no
// contact at all. Planning in a frame where the assembly always spans about
// kPlanningExtent units keeps every absolute threshold at the same place
// relative to the assembly.
//
// Invariant: the factor is an exact power of two, so scaling a float
// coordinate by it (and back) is exact, and the plan of an assembly scaled by
// any factor is the plan of the original with its lengths scaled.
#pragma once

#include <vector>

#include "kxSceneGraph.h"
#include "velmora/Assembly.h"

namespace velmora {

// Largest side of the assembly's bounding box in the planning frame lies in
// [kPlanningExtent, 2 kPlanningExtent). At 1024, the 1e-6 area floor of a
// face normal matches triangles a millionth of the assembly's size, about
// where float coordinates stop resolving them anyway, while the largest
// triangles stay many orders of magnitude below float overflow.
inline constexpr double kPlanningExtent = 1024.0;

// The power of two that takes the world-space group meshes to the planning
// frame. Throws InputError naming the group when a coordinate is not finite,
// and when the assembly's size cannot be represented (every vertex in one
// point, a size in the range of denormal floats, or coordinates that would
// overflow once scaled).
double planningScale(const Assembly& assembly, const std::vector<kx::kxPointer<kx::kxTriMesh>>& groupMeshes);

// Only the checks of planningScale: non-finite coordinates throw InputError.
void checkFiniteCoordinates(const Assembly& assembly, const std::vector<kx::kxPointer<kx::kxTriMesh>>& groupMeshes);

// Multiplies every vertex position of the meshes by `factor` (World must be
// the identity, as for the merged group meshes).
void scalePositions(const std::vector<kx::kxPointer<kx::kxTriMesh>>& meshes, double factor);

}  // namespace velmora
