// Mesh builders for the geometry tests and benchmarks: tessellated planar
// patches, boxes and cylinders, spheres, random triangle soups, and brute-force
// helpers over all triangles of a mesh.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "kxSceneGraph.h"

namespace velmora_test {

using Vec3f = Wm4::Vector3<float>;

// The corners of triangle t of `mesh`, in index order.
void triangleCorners(const kx::kxTriMesh& mesh, int t, Vec3f out[3]);

// A parallelogram origin + a·edgeU + b·edgeV (a, b in [0, 1]) cut into
// nu × nv cells of two triangles each, facing edgeU × edgeV (or the opposite
// way when `flip`).
kx::kxPointer<kx::kxTriMesh> makeGrid(const Vec3f& origin, const Vec3f& edgeU, const Vec3f& edgeV, int nu, int nv,
                                      bool flip = false);

// An axis-aligned box whose six faces are each cut into n × n cells of two
// triangles (12·n² triangles), facing outwards. Faces do not share vertices.
kx::kxPointer<kx::kxTriMesh> makeTessellatedBox(const Vec3f& lo, const Vec3f& hi, int n);

// A closed cylinder around the z axis from z = 0 to `height`: `segments`
// side quads (two triangles each, sharing the ring vertices) and two fans
// around a centre vertex, all facing outwards.
kx::kxPointer<kx::kxTriMesh> makeCylinder(int segments, float radius, float height);

// A latitude-longitude sphere with 2·rings·segments triangles (minus the
// degenerate pole cells), facing outwards.
kx::kxPointer<kx::kxTriMesh> makeSphere(const Vec3f& centre, float radius, int rings, int segments);

// `count` independent triangles: each has a random centre in the box
// [lo, hi] and corners within `size` of its centre.
kx::kxPointer<kx::kxTriMesh> makeRandomSoup(std::mt19937& rng, int count, const Vec3f& lo, const Vec3f& hi,
                                            float size);

// A copy of `mesh` in which every triangle has three vertices of its own.
kx::kxPointer<kx::kxTriMesh> makeSoupCopy(const kx::kxTriMesh& mesh);

// A copy of `mesh` with every vertex moved by `offset`.
kx::kxPointer<kx::kxTriMesh> makeTranslatedCopy(const kx::kxTriMesh& mesh, const Vec3f& offset);

// A uniformly random point of the box [lo, hi] and a random unit vector.
Vec3f randomPoint(std::mt19937& rng, const Vec3f& lo, const Vec3f& hi);
Vec3f randomUnitVector(std::mt19937& rng);

}  // namespace velmora_test
