// Synthetic meshes for the geometry benchmarks: latitude-longitude spheres and
// boxes whose faces are finely tessellated grids.
#pragma once

#include <cmath>
#include <vector>

#include "kxSceneGraph.h"

namespace velmora_bench {

using Vec3f = Wm4::Vector3<float>;

inline kx::kxPointer<kx::kxTriMesh> meshFromLists(const std::vector<Vec3f>& positions,
                                                  const std::vector<unsigned>& indices)
{
    kx::kxAttributes attr;
    attr.SetPositionChannels(3);
    attr.SetNormalChannels(3);
    kx::kxPointer<kx::kxVertexBuffer> vb = new kx::kxVertexBuffer(attr, static_cast<int>(positions.size()));
    for (size_t i = 0; i < positions.size(); ++i)
        vb->Position3(static_cast<int>(i)) = positions[i];
    kx::kxPointer<kx::kxIndexBuffer> ib = new kx::kxIndexBuffer(static_cast<int>(indices.size()), 1);
    std::copy(indices.begin(), indices.end(), ib->GetData());
    return new kx::kxTriMesh(vb, ib);
}

// A sphere with 2·segments·(rings − 1) triangles, facing outwards.
inline kx::kxPointer<kx::kxTriMesh> makeSphere(const Vec3f& centre, float radius, int rings, int segments)
{
    const float pi = 3.14159265358979f;
    std::vector<Vec3f> positions{centre + Vec3f(0, 0, radius)};
    for (int r = 1; r < rings; ++r) {
        const float polar = pi * float(r) / float(rings);
        for (int s = 0; s < segments; ++s) {
            const float azimuth = 2.0f * pi * float(s) / float(segments);
            positions.push_back(centre + Vec3f(std::sin(polar) * std::cos(azimuth), std::sin(polar) * std::sin(azimuth),
                                               std::cos(polar)) * radius);
        }
    }
    positions.push_back(centre - Vec3f(0, 0, radius));
    const unsigned south = static_cast<unsigned>(positions.size() - 1);
    const unsigned n = static_cast<unsigned>(segments);
    const auto at = [&](int ring, unsigned s) { return 1 + unsigned(ring - 1) * n + s % n; };
    std::vector<unsigned> indices;
    for (unsigned s = 0; s < n; ++s) {
        indices.insert(indices.end(), {0u, at(1, s), at(1, s + 1)});
        for (int r = 1; r + 1 < rings; ++r) {
            indices.insert(indices.end(), {at(r, s), at(r + 1, s), at(r + 1, s + 1)});
            indices.insert(indices.end(), {at(r, s), at(r + 1, s + 1), at(r, s + 1)});
        }
        indices.insert(indices.end(), {south, at(rings - 1, s + 1), at(rings - 1, s)});
    }
    return meshFromLists(positions, indices);
}

// An axis-aligned box whose faces are n × n grids of two triangles per cell
// (12·n² triangles), facing outwards.
inline kx::kxPointer<kx::kxTriMesh> makeTessellatedBox(const Vec3f& lo, const Vec3f& hi, int n)
{
    const Vec3f e = hi - lo;
    const Vec3f ex(e[0], 0, 0), ey(0, e[1], 0), ez(0, 0, e[2]);
    // Each face as origin and two edges whose cross product points outwards.
    const Vec3f faces[6][3] = {{lo, ey, ex}, {lo + ez, ex, ey}, {lo, ex, ez},
                               {lo + ey, ez, ex}, {lo, ez, ey}, {lo + ex, ey, ez}};
    std::vector<Vec3f> positions;
    std::vector<unsigned> indices;
    for (const auto& face : faces) {
        const unsigned base = static_cast<unsigned>(positions.size());
        for (int j = 0; j <= n; ++j) {
            for (int i = 0; i <= n; ++i)
                positions.push_back(face[0] + face[1] * (float(i) / float(n)) + face[2] * (float(j) / float(n)));
        }
        const auto at = [&](int i, int j) { return base + unsigned(j * (n + 1) + i); };
        for (int j = 0; j < n; ++j) {
            for (int i = 0; i < n; ++i)
                indices.insert(indices.end(), {at(i, j), at(i + 1, j), at(i + 1, j + 1), at(i, j), at(i + 1, j + 1),
                                               at(i, j + 1)});
        }
    }
    return meshFromLists(positions, indices);
}

}  // namespace velmora_bench
