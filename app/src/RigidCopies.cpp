#include "RigidCopies.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <optional>
#include <tuple>

#include "kxBBox.h"

namespace velmora {
namespace {

using Vec3d = Wm4::Vector3<double>;

Vec3d positionOf(const kx::kxTriMesh& mesh, int v)
{
    const Wm4::Vector3<float>& p = mesh.GetVertexBuffer()->Position3(v);
    return {p.X(), p.Y(), p.Z()};
}

int vertexCount(const kx::kxTriMesh& mesh) { return mesh.GetVertexBuffer()->GetVertexQuantity(); }

bool hasBuffers(const kx::kxTriMesh* mesh)
{
    return mesh != nullptr && mesh->GetVertexBuffer() != nullptr && mesh->GetIndexBuffer() != nullptr &&
           vertexCount(*mesh) > 0;
}

bool sameIndices(const kx::kxTriMesh& a, const kx::kxTriMesh& b)
{
    const kx::kxIndexBuffer& ia = *a.GetIndexBuffer();
    const kx::kxIndexBuffer& ib = *b.GetIndexBuffer();
    return ia.GetIndexQuantity() == ib.GetIndexQuantity() &&
           std::equal(ia.GetData(), ia.GetData() + ia.GetIndexQuantity(), ib.GetData());
}

// Three vertex indices spanning the mesh well: the farthest from the first
// vertex, the farthest from that one, and the farthest from the line
// through both. Empty when the mesh is flat to a line or a point.
std::optional<std::array<int, 3>> spanningVertices(const kx::kxTriMesh& mesh)
{
    const int n = vertexCount(mesh);
    const auto farthestBy = [&](auto&& distance) {
        int best = 0;
        double bestDistance = -1;
        for (int v = 0; v < n; ++v) {
            const double d = distance(positionOf(mesh, v));
            if (d > bestDistance)
                best = v, bestDistance = d;
        }
        return std::make_pair(best, bestDistance);
    };
    const Vec3d first = positionOf(mesh, 0);
    const int i0 = farthestBy([&](const Vec3d& p) { return (p - first).SquaredLength(); }).first;
    const Vec3d p0 = positionOf(mesh, i0);
    const auto [i1, length] = farthestBy([&](const Vec3d& p) { return (p - p0).SquaredLength(); });
    if (length <= 0)
        return std::nullopt;
    const Vec3d axis = (positionOf(mesh, i1) - p0) / std::sqrt(length);
    const auto [i2, offAxis] = farthestBy([&](const Vec3d& p) { return (p - p0).Cross(axis).SquaredLength(); });
    if (offAxis <= length * 1e-12)
        return std::nullopt;
    return std::array<int, 3>{i0, i1, i2};
}

// The orthonormal frame (as columns) the three vertices span.
Wm4::Matrix3<double> frameOf(const kx::kxTriMesh& mesh, const std::array<int, 3>& span)
{
    const Vec3d p0 = positionOf(mesh, span[0]);
    Vec3d e1 = positionOf(mesh, span[1]) - p0;
    e1.Normalize();
    Vec3d e2 = positionOf(mesh, span[2]) - p0;
    e2 -= e1 * e2.Dot(e1);
    e2.Normalize();
    return Wm4::Matrix3<double>(e1, e2, e1.Cross(e2), true);
}

double diagonalOf(const kx::kxTriMesh& mesh)
{
    kx::kxBBox box;
    for (int v = 0; v < vertexCount(mesh); ++v)
        box.selfExpand(mesh.GetVertexBuffer()->Position3(v));
    return box.getDiagonalLength();
}

// The rigid motion taking `source` onto `copy` vertex by vertex, when every
// vertex lands within `tolerance`.
std::optional<RigidCopy> rigidMotion(const kx::kxTriMesh& source, const std::array<int, 3>& span,
                                     const kx::kxTriMesh& copy, double tolerance)
{
    const Wm4::Matrix3<double> rotation = frameOf(copy, span) * frameOf(source, span).Transpose();
    const Vec3d translation = positionOf(copy, span[0]) - rotation * positionOf(source, span[0]);
    for (int v = 0; v < vertexCount(source); ++v) {
        if ((rotation * positionOf(source, v) + translation - positionOf(copy, v)).Length() > tolerance)
            return std::nullopt;
    }
    RigidCopy found;
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c)
            found.rotation[r][c] = float(rotation[r][c]);
        found.translation[r] = float(translation[r]);
    }
    return found;
}

}  // namespace

std::vector<RigidCopy> findRigidCopies(const std::vector<const kx::kxTriMesh*>& meshes, double relativeTolerance)
{
    std::vector<RigidCopy> copies(meshes.size());
    // Sources seen so far, by vertex and index count; each with its spanning vertices and tolerance.
    struct Source {
        unsigned mesh;
        std::array<int, 3> span;
        double tolerance;
    };
    std::map<std::pair<int, int>, std::vector<Source>> sources;
    for (unsigned m = 0; m < meshes.size(); ++m) {
        copies[m].source = m;
        if (!hasBuffers(meshes[m]))
            continue;
        const kx::kxTriMesh& mesh = *meshes[m];
        std::vector<Source>& candidates =
            sources[{vertexCount(mesh), mesh.GetIndexBuffer()->GetIndexQuantity()}];
        bool matched = false;
        for (const Source& s : candidates) {
            if (!sameIndices(*meshes[s.mesh], mesh))
                continue;
            if (std::optional<RigidCopy> motion = rigidMotion(*meshes[s.mesh], s.span, mesh, s.tolerance)) {
                copies[m] = *motion;
                copies[m].source = s.mesh;
                matched = true;
                break;
            }
        }
        if (matched)
            continue;
        if (const auto span = spanningVertices(mesh))
            candidates.push_back({m, *span, diagonalOf(mesh) * relativeTolerance});
    }
    return copies;
}

}  // namespace velmora
