// kx::kxQBVH: the ray-query tree of one triangle mesh (a four-wide tree built
// by the Embree ray-tracing kernel, which stays hidden behind this class).
//
// Invariants: after a build the tree holds a private copy of the mesh's
// triangles (positions as stored in the vertex buffer, World ignored), so it
// stays valid when the mesh changes or dies; the triangle reported by a query
// is the mesh's triangle index. Queries are const and may run on any number of
// threads at once; builds must not overlap queries on the same object.
//
// Barycentric convention of every query: the hit point is
//   u·p0 + v·p1 + (1 − u − v)·p2,
// with (u, v) the reported pair and p0, p1, p2 the triangle's corners in the
// order of its vertex indices. Distances are ray parameters: for a unit
// direction they are lengths.
#pragma once

#include <memory>

#include "Wm4Vector2.h"
#include "Wm4Vector3.h"
#include "kxGenericBVH.h"
#include "kxTriMesh.h"

namespace kx {

class kxQBVHScene;

// Build flags, combined with |.
typedef unsigned tQBVHDataFlags;
// Ray query policies.
typedef unsigned tQBVHRayPolicy;

class kxQBVH {
public:
    // Smaller tree in memory, slightly slower queries.
    static constexpr tQBVHDataFlags QBVH_COMPACT = 1;
    // Watertight intersection: a ray through a shared edge or vertex of two
    // triangles never slips between them (the flags value the library uses).
    static constexpr tQBVHDataFlags QBVH_ROBUST = 2;

    // Some hit in range is reported, as fast as possible; t, barycentric and
    // triangle are left unchanged.
    static constexpr tQBVHRayPolicy RAY_ANY_HIT = 0;
    // The nearest hit in range is reported with its distance, barycentric
    // coordinates and triangle.
    static constexpr tQBVHRayPolicy RAY_NEAREST_HIT = 1;

    // An empty tree: every query misses.
    kxQBVH();
    ~kxQBVH();
    kxQBVH(const kxQBVH&) = delete;
    kxQBVH& operator=(const kxQBVH&) = delete;

    // Builds the tree over the triangles of `mesh` (the triangles `bvh` was
    // built over; the ray kernel lays out its own four-wide tree).
    void buildFromBVH(tQBVHDataFlags flags, const kxGenericBVH& bvh, const kxTriMesh& mesh);
    // Builds the tree over the triangles of `mesh`. `leafSize` is a hint that
    // the ray kernel may override with its own leaf sizes.
    void buildFromMesh(tQBVHDataFlags flags, const kxTriMesh& mesh, unsigned leafSize);

    unsigned getNoTriangles() const { return mNoTriangles; }

    // Casts the ray origin + s·direction, s in [tMin, ∞). On a hit returns
    // true and, with RAY_NEAREST_HIT, writes the nearest hit's parameter s to
    // `t`, its barycentric pair to `barycentric` and its triangle index to
    // `triangle`. On a miss returns false and writes nothing.
    bool intersectRay(const Wm4::Vector3<float>& origin, const Wm4::Vector3<float>& direction, float tMin, float& t,
                      Wm4::Vector2<float>& barycentric, unsigned& triangle, tQBVHRayPolicy policy) const;
    // Searches both senses: the nearest hit of origin ± s·direction with
    // 0 <= s <= maxDist. Writes the unsigned distance s, the barycentric pair
    // and the triangle; on equal distances the hit along +direction wins.
    // Returns false (writing nothing) when neither sense hits within maxDist.
    bool intersectRaySymmetric(const Wm4::Vector3<float>& origin, const Wm4::Vector3<float>& direction,
                               float maxDist, float& t, Wm4::Vector2<float>& barycentric, unsigned& triangle) const;

private:
    std::unique_ptr<kxQBVHScene> mScene;
    unsigned mNoTriangles = 0;
};

}  // namespace kx
