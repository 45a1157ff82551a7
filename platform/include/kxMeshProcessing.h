// kx::kxMeshProcessing: in-place clean-up and analysis of triangle meshes.
//
// The editing operations replace the mesh's vertex and index buffers by new
// ones (other meshes sharing the old buffers keep them unchanged) and keep the
// triangle count and triangle order: triangle t of the result is triangle t of
// the input with its vertex indices renumbered.
#pragma once

#include <vector>

#include "kxTriMesh.h"

namespace kx {

class kxMeshProcessing {
public:
    // Merges every vertex into the first earlier kept vertex (in index order)
    // that lies within `tolerance` of it (distance <= tolerance, so 0 merges
    // exactly equal positions) and renumbers the triangles. With
    // `positionsOnly` false, vertices merge only when all their other channels
    // (normals, texture coordinates, point sizes) also differ by at most
    // `tolerance` in every component. A merged vertex keeps the data of the
    // vertex it merged into; the kept vertices stay in their original order.
    // Vertices with non-finite coordinates never merge, and a negative
    // tolerance merges nothing. Returns the new vertex count.
    static int WeldSimilarVertices(kxTriMesh* mesh, float tolerance, bool positionsOnly);

    // Crease-aware vertex normals. Each triangle corner gets the normalised
    // sum of the unit normals of the triangles around its vertex whose normal
    // is within `maxAngle` radians of its own triangle's normal, each weighted
    // by that triangle's angle at the vertex. Corners of one vertex that end up
    // with different normals get vertices of their own (copies of the
    // original vertex), so flat faces meeting at a sharp edge keep flat
    // normals while a finely tessellated curved surface becomes smooth. The
    // mesh gains a normal channel if it had none. A degenerate triangle (zero
    // area) contributes to no corner and its own corners get the zero normal;
    // vertices used by no triangle are kept as they are. New vertices are
    // numbered by original vertex, then by the first corner using each copy.
    static void SmoothenNormals(kxTriMesh* mesh, double maxAngle);

    // Splits the triangles into components connected through shared vertex
    // indices. `components` receives one list of triangle indices per
    // component, ascending; components are ordered by their smallest triangle
    // index. Returns the number of components.
    static unsigned ClusterizeConnectedComponents(const kxTriMesh* mesh, std::vector<std::vector<unsigned>>& components);
};

}  // namespace kx
