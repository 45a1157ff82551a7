#include "GltfMesh.h"

#include <meshoptimizer.h>

#include <algorithm>
#include <cmath>

#include "kxMeshProcessing.h"

namespace velmora {
namespace {

using Vec3f = Wm4::Vector3<float>;

bool hasArea(const Vec3f& a, const Vec3f& b, const Vec3f& c)
{
    const Wm4::Vector3<double> u(b.X() - a.X(), b.Y() - a.Y(), b.Z() - a.Z());
    const Wm4::Vector3<double> v(c.X() - a.X(), c.Y() - a.Y(), c.Z() - a.Z());
    return u.Cross(v).Length() > 0.0;
}

// A positions-only copy of `mesh` without its triangles of zero area.
kx::kxPointer<kx::kxTriMesh> trianglesWithArea(const kx::kxTriMesh& mesh)
{
    const kx::kxVertexBuffer& source = *mesh.GetVertexBuffer();
    kx::kxAttributes attributes;
    attributes.SetPositionChannels(3);
    kx::kxPointer<kx::kxVertexBuffer> vertices = new kx::kxVertexBuffer(attributes, source.GetVertexQuantity());
    for (int v = 0; v < source.GetVertexQuantity(); ++v)
        vertices->Position3(v) = source.Position3(v);
    std::vector<unsigned> kept;
    for (int t = 0; t < mesh.GetTriangleQuantity(); ++t) {
        int i0, i1, i2;
        mesh.GetTriangle(t, i0, i1, i2);
        if (hasArea(source.Position3(i0), source.Position3(i1), source.Position3(i2)))
            kept.insert(kept.end(), {unsigned(i0), unsigned(i1), unsigned(i2)});
    }
    kx::kxPointer<kx::kxIndexBuffer> indices = new kx::kxIndexBuffer(int(kept.size()), 1);
    std::copy(kept.begin(), kept.end(), indices->GetData());
    return new kx::kxTriMesh(vertices, indices);
}

struct ShadedVertex {
    Vec3f position, normal;
};

}  // namespace

ShadedMesh shadeMesh(const kx::kxTriMesh& mesh, double creaseRadians)
{
    ShadedMesh out;
    if (mesh.GetVertexBuffer() == nullptr || mesh.GetIndexBuffer() == nullptr)
        return out;
    kx::kxPointer<kx::kxTriMesh> copy = trianglesWithArea(mesh);
    if (copy->GetTriangleQuantity() == 0)
        return out;
    kx::kxMeshProcessing::WeldSimilarVertices(copy, 0.0f, true);
    kx::kxMeshProcessing::SmoothenNormals(copy, creaseRadians);

    const kx::kxVertexBuffer& vb = *copy->GetVertexBuffer();
    std::vector<ShadedVertex> vertices(size_t(vb.GetVertexQuantity()));
    for (size_t v = 0; v < vertices.size(); ++v)
        vertices[v] = {vb.Position3(int(v)), vb.Normal3(int(v))};
    const size_t indexCount = size_t(copy->GetTriangleQuantity()) * 3;
    out.indices.resize(indexCount);
    meshopt_optimizeVertexCache(out.indices.data(), copy->GetIndexBuffer()->GetData(), indexCount, vertices.size());
    // Drops vertices no triangle uses and numbers the rest in first-use order.
    std::vector<ShadedVertex> fetched(vertices.size());
    const size_t used = meshopt_optimizeVertexFetch(fetched.data(), out.indices.data(), indexCount, vertices.data(),
                                                    vertices.size(), sizeof(ShadedVertex));
    out.positions.reserve(used);
    out.normals.reserve(used);
    for (size_t v = 0; v < used; ++v) {
        out.positions.push_back(fetched[v].position);
        out.normals.push_back(fetched[v].normal);
    }
    return out;
}

QuantisedPositions quantisePositions(const std::vector<Vec3f>& positions)
{
    QuantisedPositions out;
    if (positions.empty())
        return out;
    Vec3f lo = positions.front(), hi = positions.front();
    for (const Vec3f& p : positions) {
        for (int k = 0; k < 3; ++k) {
            lo[k] = std::min(lo[k], p[k]);
            hi[k] = std::max(hi[k], p[k]);
        }
    }
    const float extent = std::max({hi[0] - lo[0], hi[1] - lo[1], hi[2] - lo[2]});
    out.origin = lo;
    out.step = extent > 0.0f ? extent / 65535.0f : 1.0f;
    out.values.reserve(positions.size() * 4);
    for (int k = 0; k < 3; ++k)
        out.lo[k] = 65535;
    for (const Vec3f& p : positions) {
        for (int k = 0; k < 3; ++k) {
            const float q = std::round((p[k] - lo[k]) / out.step);
            const uint16_t value = uint16_t(std::clamp(q, 0.0f, 65535.0f));
            out.values.push_back(value);
            out.lo[k] = std::min(out.lo[k], value);
            out.hi[k] = std::max(out.hi[k], value);
        }
        out.values.push_back(0);
    }
    return out;
}

std::vector<int8_t> quantiseNormals(const std::vector<Vec3f>& normals)
{
    std::vector<int8_t> out;
    out.reserve(normals.size() * 4);
    for (const Vec3f& n : normals) {
        for (int k = 0; k < 3; ++k)
            out.push_back(int8_t(std::lround(std::clamp(n[k], -1.0f, 1.0f) * 127.0f)));
        out.push_back(0);
    }
    return out;
}

std::vector<unsigned char> encodeVertices(const void* data, size_t count, size_t stride)
{
    std::vector<unsigned char> out(meshopt_encodeVertexBufferBound(count, stride));
    out.resize(meshopt_encodeVertexBuffer(out.data(), out.size(), data, count, stride));
    return out;
}

std::vector<unsigned char> encodeTriangles(const std::vector<uint32_t>& indices, size_t vertexCount)
{
    std::vector<unsigned char> out(meshopt_encodeIndexBufferBound(indices.size(), vertexCount));
    out.resize(meshopt_encodeIndexBuffer(out.data(), out.size(), indices.data(), indices.size()));
    return out;
}

}  // namespace velmora
