// Part meshes made ready for a glTF file: indexed triangles in the mesh's own
// frame with shared vertices and crease-aware smooth normals, vertex order
// tuned for the GPU's cache, and their quantised and meshopt-encoded forms.
// Internal to the app layer.
//
// Invariants of a ShadedMesh: every index is below the vertex count, there is
// one unit normal per vertex, no triangle without area, and every vertex is
// used by a triangle.
#pragma once

#include <cstdint>
#include <vector>

#include "kxTriMesh.h"

namespace velmora {

struct ShadedMesh {
    std::vector<Wm4::Vector3<float>> positions;
    std::vector<Wm4::Vector3<float>> normals;
    std::vector<uint32_t> indices;  // three per triangle
};

// The triangles of `mesh` with positive area, in its own frame (World not
// applied), welded on equal positions and given normals that are smooth
// across edges whose faces meet at less than `creaseRadians`.
ShadedMesh shadeMesh(const kx::kxTriMesh& mesh, double creaseRadians);

// Positions as unsigned 16-bit integers on a uniform grid: a position is
// origin + step * q. Four shorts per vertex (the last one zero) so that each
// vertex fills 8 bytes, as the meshopt codec needs.
struct QuantisedPositions {
    std::vector<uint16_t> values;
    Wm4::Vector3<float> origin;
    float step = 1.0f;
    uint16_t lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
};
QuantisedPositions quantisePositions(const std::vector<Wm4::Vector3<float>>& positions);

// Unit normals as normalised signed bytes, four per vertex (the last zero).
std::vector<int8_t> quantiseNormals(const std::vector<Wm4::Vector3<float>>& normals);

// The meshopt encodings (vertex codec for `stride`-byte vertices, index codec
// for triangle lists).
std::vector<unsigned char> encodeVertices(const void* data, size_t count, size_t stride);
std::vector<unsigned char> encodeTriangles(const std::vector<uint32_t>& indices, size_t vertexCount);

}  // namespace velmora
