// kxContactFaces: which triangles of one mesh touch another mesh, and how far
// apart two meshes are.
//
// Two triangles touch when they face each other (the dot product of their
// unit normals is at most mMinNormalDot, i.e. opposed within 45 degrees) and
// their distance is strictly below the tolerance. An object serves one pair of
// parts: a dual-tree search over the parts' binary trees lowers per-triangle
// distances (mTriDistA, mTriDistB) and per-node bounds (mNodeBoundA,
// mNodeBoundB), which start at the tolerance and only ever decrease; a node
// bound is never below the largest triangle distance under the node.
//
// The static members run the whole pass over a list of parts. They are
// re-entrant: several threads may run them at once on different pairs (the
// search's scratch memory is per thread); the parts are only read.
#pragma once

#include <vector>

#include "kxMeshAndBVH.h"

class kxContactFaces {
public:
    struct tContactFacesData {
        unsigned partA;                // smaller part index of the pair
        unsigned partB;                // larger part index
        std::vector<unsigned> facesA;  // touching triangles of partA, in tree-slot order
        std::vector<unsigned> facesB;  // touching triangles of partB, in tree-slot order
    };
    struct tCollisionData {
        unsigned partA;  // smaller part index
        unsigned partB;  // larger part index
    };

    // Either pointer may be null; the vectors of a null side stay empty.
    kxContactFaces(const kxMeshAndBVH* partA, const kxMeshAndBVH* partB, float tolerance);

    // Runs the dual-tree search, then lists the triangles of A (and of B)
    // whose distance to an opposed triangle of the other part is below the
    // tolerance, in slot order of the part's tree. A second call reuses the
    // distances of the first.
    void getContactFacesList(std::vector<unsigned>& facesA, std::vector<unsigned>& facesB);

    // Smallest distance between the two meshes (no normal test), by a
    // best-first search that starts from the diagonal of the union of both
    // root boxes and stops early once the distance is within the tolerance.
    float computeMinDistance() const;
    // The same, also writing a closest point on A and one on B (left
    // unchanged when no triangle pair is closer than the starting bound).
    float computeMinDistance(Wm4::Vector3<float>& pointA, Wm4::Vector3<float>& pointB) const;

    // Replaces `parts` by one entry per mesh, each built over its mesh.
    static void InitializeBVHList(const std::vector<kx::kxTriMesh*>& meshes, std::vector<kxMeshAndBVH>& parts);
    // Lists the touching faces of every pair of parts whose root boxes come
    // within the tolerance (0.001 × the largest root-box side); pairs whose
    // A-side list is empty are dropped. Returns the tolerance.
    static float ProcessParts(const std::vector<kxMeshAndBVH>& parts, std::vector<tContactFacesData>& contacts);
    // Lists the pairs of parts whose minimum distance is at most `tolerance`.
    static void DetectCollisions(const std::vector<kxMeshAndBVH>& parts, std::vector<tCollisionData>& collisions,
                                 float tolerance);

private:
    class DualTreeSearch;
    class DistanceSearch;

    const kxMeshAndBVH* mPartA;
    const kxMeshAndBVH* mPartB;
    float mTolerance;
    float mMinNormalDot;
    std::vector<float> mNodeBoundA;
    std::vector<float> mNodeBoundB;
    std::vector<float> mTriDistA;
    std::vector<float> mTriDistB;
};
