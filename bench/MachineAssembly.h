// Generated assemblies that look like real machines, for timing the planner on
// hundreds to thousands of parts: a grid of abutting base tiles, each carrying
// one module (a bolted plate stack, a vertical shaft in nested tubes, a brick
// wall, or a horizontal shaft in two bearings on pillow blocks).
//
// What makes them realistic for the planner: round parts of 64 to 256
// segments, pins and shafts exactly the size of their holes (same segment
// count and phase, so the faces coincide), stacked parts with coplanar faces,
// tiles touching their neighbours face to face, and bearings touching their
// blocks along a line. A dense variant has a handful of parts finely
// tessellated (millions of triangles). Everything is deterministic: the same
// arguments give the same meshes.
#pragma once

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "velmora/Assembly.h"
#include "velmora/DemoAssemblies.h"

namespace velmora_bench {

using Vec2f = Wm4::Vector2<float>;
using Vec3f = Wm4::Vector3<float>;

// Inserts pieces - 1 evenly spaced points into every edge of a lathe profile
// (the closing edge too when the profile does not start on the axis).
inline std::vector<Vec2f> subdivideProfile(const std::vector<Vec2f>& profile, unsigned pieces)
{
    const bool closed = profile.front().X() != 0.0f;
    const size_t edges = closed ? profile.size() : profile.size() - 1;
    std::vector<Vec2f> out;
    for (size_t e = 0; e < edges; ++e) {
        const Vec2f& a = profile[e];
        const Vec2f& b = profile[(e + 1) % profile.size()];
        for (unsigned k = 0; k < pieces; ++k)
            out.push_back(a + (b - a) * (float(k) / float(pieces)));
    }
    if (!closed)
        out.push_back(profile.back());
    return out;
}

// Moves every vertex by offset, after swapping x and z when lying is set (a
// part built about the z axis then lies along x).
inline kx::kxPointer<kx::kxTriMesh> placed(kx::kxPointer<kx::kxTriMesh> mesh, const Vec3f& offset, bool lying = false)
{
    kx::kxVertexBuffer* vb = mesh->GetVertexBuffer();
    for (int v = 0; v < vb->GetVertexQuantity(); ++v) {
        Vec3f& p = vb->Position3(v);
        if (lying)
            std::swap(p[0], p[2]);
        p += offset;
    }
    return mesh;
}

class MachineAssemblyBuilder {
public:
    // The closest assembly of at least `parts` parts made of whole modules,
    // then trimmed to exactly `parts`.
    static velmora::Assembly grid(unsigned parts)
    {
        MachineAssemblyBuilder b;
        const unsigned cells = std::max(1u, (parts + kMeanPartsPerCell - 1) / kMeanPartsPerCell);
        const unsigned columns = unsigned(std::ceil(std::sqrt(double(cells))));
        for (unsigned cell = 0; b.mAssembly.parts.size() < parts; ++cell)
            b.addCell(cell % columns, cell / columns, cell);
        b.mAssembly.parts.resize(parts);
        velmora::assignGroups(b.mAssembly, velmora::GroupBy::Mesh);
        return std::move(b.mAssembly);
    }

    // Few parts, many triangles: one tile with a shaft in `tubes` nested
    // tubes, every round part of `segments` segments with each profile edge
    // cut into `pieces` (about 8·segments·pieces triangles per tube).
    static velmora::Assembly dense(unsigned tubes, unsigned segments, unsigned pieces)
    {
        MachineAssemblyBuilder b;
        b.addTile(0, 0);
        const Vec3f centre(kCell / 2, kCell / 2, kTileHeight);
        b.addNestedTubes(centre, tubes, segments, pieces, 40.0f / float(tubes + 1));
        velmora::assignGroups(b.mAssembly, velmora::GroupBy::Mesh);
        return std::move(b.mAssembly);
    }

    // An x × y × z grid of touching unit cubes, one part each: every part
    // touches up to six others face to face and blocks whole rows of parts
    // it does not touch.
    static velmora::Assembly cubeGrid(unsigned x, unsigned y, unsigned z)
    {
        MachineAssemblyBuilder b;
        for (unsigned k = 0; k < z; ++k)
            for (unsigned j = 0; j < y; ++j)
                for (unsigned i = 0; i < x; ++i) {
                    const Vec3f lo{float(i), float(j), float(k)};
                    b.add("cube", velmora::shapes::box(lo, lo + Vec3f(1.0f, 1.0f, 1.0f)));
                }
        velmora::assignGroups(b.mAssembly, velmora::GroupBy::Mesh);
        return std::move(b.mAssembly);
    }

private:
    static constexpr unsigned kMeanPartsPerCell = 6;
    static constexpr float kCell = 100.0f;
    static constexpr float kTileHeight = 10.0f;

    void add(const std::string& kind, kx::kxPointer<kx::kxTriMesh> mesh)
    {
        const std::string name = std::to_string(mAssembly.parts.size()) + "_" + kind;
        mesh->SetName(name);
        mAssembly.parts.push_back({name, "(generated)", "", mesh, std::nullopt});
    }

    static unsigned segmentsOf(unsigned cell) { return 64u << (cell % 3); }

    void addTile(unsigned i, unsigned j)
    {
        const Vec3f lo(float(i) * kCell, float(j) * kCell, 0.0f);
        add("tile", velmora::shapes::box(lo, lo + Vec3f(kCell, kCell, kTileHeight)));
    }

    void addCell(unsigned i, unsigned j, unsigned cell)
    {
        addTile(i, j);
        const Vec3f centre(float(i) * kCell + kCell / 2, float(j) * kCell + kCell / 2, kTileHeight);
        switch ((i + 2 * j) % 4) {
        case 0: addPlateStack(centre, segmentsOf(cell)); break;
        case 1: addNestedTubes(centre, 2, segmentsOf(cell), 1, 5.0f); break;
        case 2: addBrickWall(centre); break;
        default: addPillowBlocks(centre, segmentsOf(cell)); break;
        }
    }

    // Three round plates stacked face to face, a headed bolt through their
    // off-centre holes, the head resting on the top plate.
    void addPlateStack(const Vec3f& centre, unsigned segments)
    {
        constexpr float kThickness = 5.0f, kBoltRadius = 4.0f, kBoltOffset = 15.0f;
        for (unsigned k = 0; k < 3; ++k) {
            add("plate", placed(velmora::shapes::plateWithHole(40.0f, kBoltOffset, 0.0f, kBoltRadius,
                                                               float(k) * kThickness, float(k + 1) * kThickness,
                                                               segments),
                                centre));
        }
        const float top = 3 * kThickness;
        add("bolt", velmora::shapes::lathe({{0, 0}, {kBoltRadius, 0}, {kBoltRadius, top}, {7, top}, {7, top + 4},
                                            {0, top + 4}},
                                           segments, centre[0] + kBoltOffset, centre[1]));
        placed(mAssembly.parts.back().mesh, Vec3f(0, 0, centre[2]));
    }

    // A shaft standing on the tile in `tubes` nested tubes, each shorter than
    // the one inside it, all of wall thickness `wall`.
    void addNestedTubes(const Vec3f& centre, unsigned tubes, unsigned segments, unsigned pieces, float wall)
    {
        const float shaftRadius = wall;
        float height = 20.0f * float(tubes + 1);
        // From radius 0 the profile starts and ends on the axis: a solid shaft.
        const auto ring = [&](float r0, float r1, float h) {
            const std::vector<Vec2f> profile{{r0, 0}, {r1, 0}, {r1, h}, {r0, h}};
            return placed(velmora::shapes::lathe(subdivideProfile(profile, pieces), segments), centre);
        };
        add("shaft", ring(0.0f, shaftRadius, height));
        for (unsigned t = 0; t < tubes; ++t) {
            height -= 15.0f;
            add("tube", ring(shaftRadius + float(t) * wall, shaftRadius + float(t + 1) * wall, height));
        }
    }

    // Two courses of bricks on the tile, the upper one offset by half a brick.
    void addBrickWall(const Vec3f& centre)
    {
        constexpr float kLength = 20.0f, kDepth = 10.0f, kHeight = 8.0f;
        for (unsigned course = 0; course < 2; ++course) {
            const unsigned count = course == 0 ? 4 : 3;
            const float x0 = centre[0] - 2 * kLength + (course == 0 ? 0.0f : kLength / 2);
            const float z = centre[2] + float(course) * kHeight;
            for (unsigned k = 0; k < count; ++k) {
                const Vec3f lo(x0 + float(k) * kLength, centre[1] - kDepth / 2, z);
                add("brick", velmora::shapes::box(lo, lo + Vec3f(kLength, kDepth, kHeight)));
            }
        }
    }

    // A horizontal shaft in two bearing rings, each ring lying on a block.
    void addPillowBlocks(const Vec3f& centre, unsigned segments)
    {
        constexpr float kShaftRadius = 5.0f, kRingRadius = 12.0f, kBlockHeight = 8.0f, kSpan = 30.0f;
        const float axisZ = centre[2] + kBlockHeight + kRingRadius;
        const float x0 = centre[0] - 40.0f;
        // Built about z from 0 to the length, then laid along x.
        add("shaft", placed(velmora::shapes::lathe({{0, 0}, {kShaftRadius, 0}, {kShaftRadius, 80}, {0, 80}}, segments,
                                                   0.0f, centre[1]),
                            Vec3f(x0, 0, axisZ), true));
        for (const float at : {kSpan - 10.0f, 80.0f - kSpan}) {
            add("bearing", placed(velmora::shapes::lathe({{kShaftRadius, at}, {kRingRadius, at},
                                                          {kRingRadius, at + 10}, {kShaftRadius, at + 10}},
                                                         segments, 0.0f, centre[1]),
                                  Vec3f(x0, 0, axisZ), true));
            const Vec3f lo(x0 + at - 5.0f, centre[1] - 10.0f, centre[2]);
            add("block", velmora::shapes::box(lo, lo + Vec3f(20.0f, 20.0f, kBlockHeight)));
        }
    }

    velmora::Assembly mAssembly;
};

}  // namespace velmora_bench
