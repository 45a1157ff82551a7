// kxMeshAndBVH: one triangle mesh with the two trees that the contact queries
// walk (a binary bounding-volume tree and the ray-query tree) and one unit
// normal per triangle.
//
// The mesh is borrowed; the trees are owned. Copying is shallow: a copy points
// at the same trees, and each copy deletes them when destroyed. Holders
// therefore size their containers once and never let a built element be
// copied and both copies destroyed (or rebuilt through one of them).
#pragma once

#include <vector>

#include "kxCommonAddOns.h"
#include "kxSceneGraph.h"

class kxMeshAndBVH {
public:
    kxMeshAndBVH();
    explicit kxMeshAndBVH(const kx::kxTriMesh* mesh);
    kxMeshAndBVH(const kxMeshAndBVH& other);
    kxMeshAndBVH& operator=(const kxMeshAndBVH& other);
    ~kxMeshAndBVH();

    // Rebuilds the triangle normals and both trees from the mesh's current
    // contents. Normal t is (p1 − p0) × (p2 − p0) / its length, non-finite for
    // a degenerate triangle.
    void updateBVH();

    const kx::kxTriMesh* mMesh;
    kx::kxGenericBVH* mBVH;
    kx::kxQBVH* mQBVH;
    std::vector<Wm4::Vector3<float>> mTriangleNormals;
};
