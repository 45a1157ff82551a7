#include "velmora/DemoAssemblies.h"

#include <cmath>
#include <filesystem>

#include "velmora/Import.h"

#ifndef VELMORA_EXAMPLES_DIR
#define VELMORA_EXAMPLES_DIR ""
#endif

namespace velmora {
namespace shapes {
namespace {

using Vec3f = Wm4::Vector3<float>;

kx::kxPointer<kx::kxTriMesh> meshOf(const std::vector<Vec3f>& positions, const std::vector<unsigned>& indices)
{
    kx::kxAttributes attr;
    attr.SetPositionChannels(3);
    attr.SetNormalChannels(3);
    kx::kxPointer<kx::kxVertexBuffer> vb = new kx::kxVertexBuffer(attr, static_cast<int>(positions.size()));
    for (size_t v = 0; v < positions.size(); ++v)
        vb->Position3(static_cast<int>(v)) = positions[v];
    kx::kxPointer<kx::kxIndexBuffer> ib = new kx::kxIndexBuffer(static_cast<int>(indices.size()), 1);
    std::copy(indices.begin(), indices.end(), ib->GetData());
    return new kx::kxTriMesh(vb, ib);
}

float angleOf(unsigned k, unsigned segments) { return 2.0f * Wm4::Math<float>::PI * float(k) / float(segments); }

// Two triangles for the quad a-b-c-d (counter-clockwise seen from outside).
void quad(std::vector<unsigned>& out, unsigned a, unsigned b, unsigned c, unsigned d)
{
    out.insert(out.end(), {a, b, c, a, c, d});
}

}  // namespace

kx::kxPointer<kx::kxTriMesh> box(const Vec3f& lo, const Vec3f& hi)
{
    std::vector<Vec3f> corners;
    for (int c = 0; c < 8; ++c)
        corners.emplace_back((c & 1) ? hi[0] : lo[0], (c & 2) ? hi[1] : lo[1], (c & 4) ? hi[2] : lo[2]);
    std::vector<unsigned> indices;
    quad(indices, 0, 2, 3, 1);  // -z
    quad(indices, 4, 5, 7, 6);  // +z
    quad(indices, 0, 1, 5, 4);  // -y
    quad(indices, 2, 6, 7, 3);  // +y
    quad(indices, 0, 4, 6, 2);  // -x
    quad(indices, 1, 3, 7, 5);  // +x
    return meshOf(corners, indices);
}

kx::kxPointer<kx::kxTriMesh> lathe(const std::vector<Wm4::Vector2<float>>& profile, unsigned segments, float cx,
                                   float cy)
{
    // Vertex index of profile point p at segment k; axis points have one vertex.
    std::vector<Vec3f> positions;
    std::vector<std::vector<unsigned>> ring(profile.size());
    for (size_t p = 0; p < profile.size(); ++p) {
        const float r = profile[p].X(), z = profile[p].Y();
        if (r == 0.0f) {
            ring[p].assign(segments, static_cast<unsigned>(positions.size()));
            positions.emplace_back(cx, cy, z);
            continue;
        }
        for (unsigned k = 0; k < segments; ++k) {
            ring[p].push_back(static_cast<unsigned>(positions.size()));
            positions.emplace_back(cx + r * std::cos(angleOf(k, segments)), cy + r * std::sin(angleOf(k, segments)), z);
        }
    }
    const bool closed = profile.front().X() != 0.0f;
    std::vector<unsigned> indices;
    const size_t spans = closed ? profile.size() : profile.size() - 1;
    for (size_t p = 0; p < spans; ++p) {
        const std::vector<unsigned>& a = ring[p];
        const std::vector<unsigned>& b = ring[(p + 1) % profile.size()];
        for (unsigned k = 0; k < segments; ++k) {
            const unsigned k1 = (k + 1) % segments;
            // Profile walked so that the solid lies to its left: outward faces.
            const unsigned tri1[3] = {a[k], a[k1], b[k1]}, tri2[3] = {a[k], b[k1], b[k]};
            for (const unsigned* t : {tri1, tri2}) {
                if (t[0] != t[1] && t[1] != t[2] && t[0] != t[2])
                    indices.insert(indices.end(), t, t + 3);
            }
        }
    }
    return meshOf(positions, indices);
}

kx::kxPointer<kx::kxTriMesh> plateWithHole(float R, float hx, float hy, float r, float z0, float z1, unsigned segments)
{
    std::vector<Vec3f> positions;
    for (float z : {z0, z1}) {
        for (unsigned k = 0; k < segments; ++k) {
            const float c = std::cos(angleOf(k, segments)), s = std::sin(angleOf(k, segments));
            positions.emplace_back(R * c, R * s, z);          // outer ring
            positions.emplace_back(hx + r * c, hy + r * s, z);  // hole ring
        }
    }
    auto outer = [&](unsigned level, unsigned k) { return 2 * (level * segments + k % segments); };
    auto inner = [&](unsigned level, unsigned k) { return outer(level, k) + 1; };
    std::vector<unsigned> indices;
    for (unsigned k = 0; k < segments; ++k) {
        quad(indices, outer(1, k), outer(1, k + 1), inner(1, k + 1), inner(1, k));  // top (+z)
        quad(indices, outer(0, k), inner(0, k), inner(0, k + 1), outer(0, k + 1));  // bottom (-z)
        quad(indices, outer(0, k), outer(0, k + 1), outer(1, k + 1), outer(1, k));  // rim, outward
        quad(indices, inner(0, k), inner(1, k), inner(1, k + 1), inner(0, k + 1));  // hole wall, toward the hole axis
    }
    return meshOf(positions, indices);
}

}  // namespace shapes

namespace {

constexpr unsigned kSegments = 32;

void addPart(Assembly& assembly, const std::string& name, kx::kxPointer<kx::kxTriMesh> mesh)
{
    mesh->SetName(name);
    assembly.parts.push_back({name, "(generated)", "", mesh, std::nullopt});
}

Assembly lidOnBox()
{
    Assembly a;
    addPart(a, "box", shapes::box({0, 0, 0}, {4, 4, 2}));
    addPart(a, "lid", shapes::box({0, 0, 2}, {4, 4, 2.5f}));
    return a;
}

// A round flange plate with a centre hole, a washer on it, and a headed peg
// through both: the peg leaves upwards, then the washer, from the plate.
Assembly pegInHole()
{
    Assembly a;
    addPart(a, "plate", shapes::plateWithHole(4, 0, 0, 1, 0, 1, kSegments));
    addPart(a, "washer", shapes::plateWithHole(1.8f, 0, 0, 1, 1, 1.3f, kSegments));
    addPart(a, "peg", shapes::lathe({{0, -0.5f}, {1, -0.5f}, {1, 1.3f}, {1.5f, 1.3f}, {1.5f, 1.6f}, {0, 1.6f}},
                                    kSegments));
    return a;
}

// A cup-shaped housing holding eight plates, a pin through the plates' holes
// and a cover resting on the housing's rim.
Assembly stack()
{
    Assembly a;
    addPart(a, "housing", shapes::lathe({{0, 0}, {5, 0}, {5, 9}, {4, 9}, {4, 1}, {0, 1}}, kSegments));
    for (int k = 0; k < 8; ++k) {
        addPart(a, "plate-" + std::to_string(k + 1),
                shapes::plateWithHole(4, 2, 0, 0.5f, 1.0f + float(k), 2.0f + float(k), kSegments));
    }
    addPart(a, "pin", shapes::lathe({{0, 1}, {0.5f, 1}, {0.5f, 9}, {0, 9}}, kSegments, 2, 0));
    addPart(a, "cover", shapes::lathe({{0, 9}, {5, 9}, {5, 9.5f}, {0, 9.5f}}, kSegments));
    return a;
}

std::string shippedPins()
{
    const std::filesystem::path path = std::filesystem::path(VELMORA_EXAMPLES_DIR) / "assemblies" / "pins.glb";
    std::error_code ec;
    return std::filesystem::exists(path, ec) ? path.string() : std::string();
}

}  // namespace

Assembly makeBrickWall(unsigned parts)
{
    constexpr unsigned kPerCourse = 10;
    constexpr float kLength = 2.0f, kDepth = 1.0f, kHeight = 1.0f;
    Assembly assembly;
    for (unsigned k = 0; k < parts; ++k) {
        const unsigned course = k / kPerCourse, slot = k % kPerCourse;
        const float x = float(slot) * kLength + (course % 2 ? 0.5f * kLength : 0.0f);
        const float z = float(course) * kHeight;
        addPart(assembly, "brick-" + std::to_string(k), shapes::box({x, 0, z}, {x + kLength, kDepth, z + kHeight}));
    }
    assignGroups(assembly, GroupBy::Mesh);
    return assembly;
}

std::vector<std::string> demoAssemblyNames() { return {"lid-on-box", "peg-in-hole", "stack", "pins"}; }

Assembly makeDemoAssembly(const std::string& name)
{
    Assembly assembly;
    if (name == "lid-on-box") {
        assembly = lidOnBox();
    } else if (name == "peg-in-hole") {
        assembly = pegInHole();
    } else if (name == "stack") {
        assembly = stack();
    } else if (name == "pins" && !shippedPins().empty()) {
        return importAssembly({shippedPins()});
    } else {
        std::string known;
        for (const std::string& n : demoAssemblyNames())
            known += (known.empty() ? "" : ", ") + n;
        throw InputError("unknown demo assembly '" + name + "' (known: " + known + ")");
    }
    assignGroups(assembly, GroupBy::Mesh);
    return assembly;
}

}  // namespace velmora
