#include "kxPreviewMeshBuilder.h"

#include <cmath>
#include <numbers>

#include "kxMotionGeometry.h"

namespace {

using Vec3 = Wm4::Vector3<double>;

constexpr int kSegments = 16;

Wm4::Vector3<float> narrow(const Vec3& v)
{
    return Wm4::Vector3<float>(float(v[0]), float(v[1]), float(v[2]));
}

}  // namespace

void tPreviewMeshBuilder::addRod(const Wm4::Vector3<double>& from, const Wm4::Vector3<double>& to, double radius)
{
    Vec3 axis = to - from;
    axis.Normalize();
    addFrustum(axis, from, 0.0, from, radius);
    addFrustum(axis, from, radius, to, radius);
    addFrustum(axis, to, radius, to, 0.0);
}

void tPreviewMeshBuilder::addArrowHead(const Wm4::Vector3<double>& base, const Wm4::Vector3<double>& apex,
                                       double radius)
{
    Vec3 axis = apex - base;
    axis.Normalize();
    addFrustum(axis, base, 0.0, base, radius);
    addFrustum(axis, base, radius, apex, 0.0);
}

void tPreviewMeshBuilder::addRing(const Wm4::Vector3<double>& centre, const Wm4::Vector3<double>& axis,
                                  double innerRadius, double outerRadius)
{
    addFrustum(axis, centre, outerRadius, centre, innerRadius);
    addFrustum(axis, centre, innerRadius, centre, outerRadius);
}

void tPreviewMeshBuilder::addFrustum(const Wm4::Vector3<double>& axis, const Wm4::Vector3<double>& c0, double r0,
                                     const Wm4::Vector3<double>& c1, double r1)
{
    Vec3 e1, e2;
    kxMotionGeometry::perpendicularBasis(axis, e1, e2);
    const auto ringPoint = [&](const Vec3& centre, double radius, int i) {
        const double phi = 2.0 * std::numbers::pi * double(i % kSegments) / double(kSegments);
        return centre + (e1 * std::cos(phi) + e2 * std::sin(phi)) * radius;
    };
    for (int i = 0; i < kSegments; ++i) {
        const Vec3 a0 = ringPoint(c0, r0, i), a1 = ringPoint(c0, r0, i + 1);
        const Vec3 b0 = ringPoint(c1, r1, i), b1 = ringPoint(c1, r1, i + 1);
        addTriangle(a0, a1, b1);
        addTriangle(a0, b1, b0);
    }
}

void tPreviewMeshBuilder::addTriangle(const Wm4::Vector3<double>& a, const Wm4::Vector3<double>& b,
                                      const Wm4::Vector3<double>& c)
{
    Vec3 normal = (b - a).Cross(c - a);
    if (normal.Normalize() == 0.0)
        return;
    for (const Vec3* corner : {&a, &b, &c}) {
        mPositions.push_back(narrow(*corner));
        mNormals.push_back(narrow(normal));
    }
}

kx::kxPointer<kx::kxTriMesh> tPreviewMeshBuilder::build() const
{
    if (mPositions.empty())
        return nullptr;
    kx::kxAttributes attributes;
    attributes.SetPositionChannels(3);
    attributes.SetNormalChannels(3);
    const int vertexCount = int(mPositions.size());
    kx::kxPointer<kx::kxVertexBuffer> vertices = new kx::kxVertexBuffer(attributes, vertexCount);
    kx::kxPointer<kx::kxIndexBuffer> indices = new kx::kxIndexBuffer(vertexCount, 1);
    for (int i = 0; i < vertexCount; ++i) {
        vertices->Position3(i) = mPositions[size_t(i)];
        vertices->Normal3(i) = mNormals[size_t(i)];
        indices->GetData()[i] = unsigned(i);
    }
    return new kx::kxTriMesh(vertices, indices);
}
