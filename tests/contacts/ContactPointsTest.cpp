#include <gtest/gtest.h>

#include <cmath>

#include "TestMeshes.h"
#include "kxContactFaces.h"
#include "kxContactPoints.h"
#include "kxMeshLib.h"

namespace {

using Vec3f = Wm4::Vector3<float>;

// A box with flat, crease-aware vertex normals, as the contact diagram
// prepares its working meshes.
kx::kxPointer<kx::kxTriMesh> preparedBox(const Vec3f& lo, const Vec3f& hi)
{
    kx::kxPointer<kx::kxTriMesh> box = velmora_test::makeBox(lo, hi);
    kx::kxMeshProcessing::SmoothenNormals(box, 0.820304811000824);
    return box;
}

// Triangles of `mesh` whose unit normal is within a degree of `normal`.
std::vector<unsigned> facesFacing(const kxMeshAndBVH& part, const Vec3f& normal)
{
    std::vector<unsigned> faces;
    for (unsigned t = 0; t < part.mTriangleNormals.size(); ++t) {
        if (part.mTriangleNormals[t].Dot(normal) > 0.9998f)
            faces.push_back(t);
    }
    return faces;
}

void expectPairedBuffer(const kx::kxVertexBuffer& buffer)
{
    const kx::kxAttributes& attr = buffer.GetAttributes();
    EXPECT_EQ(attr.GetPositionChannels(), 3);
    EXPECT_EQ(attr.GetNormalChannels(), 3);
    EXPECT_EQ(attr.GetTCoordChannels(0), 3);
    EXPECT_EQ(attr.GetPSizeChannels(), 1);
    EXPECT_EQ(buffer.GetVertexQuantity() % 2, 0);
    for (int v = 0; v + 1 < buffer.GetVertexQuantity(); v += 2)
        ASSERT_EQ(buffer.PSize1(v), buffer.PSize1(v + 1));
}

TEST(ContactPoints, FacesPressedTogetherPairExactlyOpposite)
{
    auto lower = preparedBox({0, 0, 0}, {1, 1, 1});
    auto upper = preparedBox({0, 0, 1}, {1, 1, 2});
    kxMeshAndBVH a(lower), b(upper);
    const std::vector<unsigned> top = facesFacing(a, {0, 0, 1}), bottom = facesFacing(b, {0, 0, -1});
    ASSERT_EQ(top.size(), 2u);
    ASSERT_EQ(bottom.size(), 2u);

    kxContactPoints points(a, b, 1e-3f);
    kx::kxPointer<kx::kxVertexBuffer> pointsA, pointsB;
    points.getContactPoints(top, bottom, pointsA, pointsB);
    ASSERT_NE(pointsA, nullptr);
    ASSERT_NE(pointsB, nullptr);
    // Two equal triangles share the budget evenly and every ray hits.
    EXPECT_EQ(pointsA->GetVertexQuantity(), 2 * 10000);
    EXPECT_EQ(pointsB->GetVertexQuantity(), 2 * 10000);
    for (const kx::kxVertexBuffer* buffer : {pointsA.get(), pointsB.get()}) {
        expectPairedBuffer(*buffer);
        const float side = buffer == pointsA.get() ? 1.0f : -1.0f;
        double weight = 0.0;
        for (int v = 0; v < buffer->GetVertexQuantity(); v += 2) {
            const Vec3f& p = buffer->Position3(v);
            const Vec3f& q = buffer->Position3(v + 1);
            ASSERT_FLOAT_EQ(p.Z(), 1.0f);
            ASSERT_FLOAT_EQ(q.Z(), 1.0f);
            ASSERT_NEAR(p.X(), q.X(), 1e-6f);
            ASSERT_NEAR(p.Y(), q.Y(), 1e-6f);
            ASSERT_TRUE(p.X() > 0.0f && p.X() < 1.0f && p.Y() > 0.0f && p.Y() < 1.0f);
            ASSERT_EQ(buffer->Normal3(v), Vec3f(0, 0, side));
            ASSERT_EQ(buffer->Normal3(v + 1), Vec3f(0, 0, -side));
            ASSERT_EQ(buffer->TCoord3(0, v), Vec3f(0, 0, side));
            ASSERT_EQ(buffer->TCoord3(0, v + 1), Vec3f(0, 0, -side));
            weight += buffer->PSize1(v);
        }
        // Weights add up to the doubled area of the unfolded patch (the unit square).
        EXPECT_NEAR(weight, 2.0, 1e-3);
    }
}

TEST(ContactPoints, BudgetGoesToTheListedTrianglesByArea)
{
    // One listed triangle: it takes the whole budget.
    auto lower = preparedBox({0, 0, 0}, {1, 1, 1});
    auto upper = preparedBox({0, 0, 1}, {1, 1, 2});
    kxMeshAndBVH a(lower), b(upper);
    const std::vector<unsigned> top = facesFacing(a, {0, 0, 1}), bottom = facesFacing(b, {0, 0, -1});
    kxContactPoints points(a, b, 1e-3f);
    kx::kxPointer<kx::kxVertexBuffer> pointsA, pointsB;
    points.getContactPoints({top[0]}, bottom, pointsA, pointsB);
    ASSERT_NE(pointsA, nullptr);
    EXPECT_EQ(pointsA->GetVertexQuantity(), 2 * 10000);
    // B samples its whole face but only half of it lies against the listed
    // triangle of A.
    ASSERT_NE(pointsB, nullptr);
    EXPECT_LT(pointsB->GetVertexQuantity(), 2 * 10000);
    EXPECT_GT(pointsB->GetVertexQuantity(), 2 * 4000);

    // A finely tessellated face: every triangle gets at least five samples.
    std::vector<Vec3f> positions;
    std::vector<unsigned> indices;
    const int n = 60;  // 2·60² = 7200 triangles: a share of 1.39 each, so 5 are placed
    for (int j = 0; j <= n; ++j)
        for (int i = 0; i <= n; ++i)
            positions.emplace_back(float(i) / n, float(j) / n, 1.0f);
    for (int j = 0; j < n; ++j) {
        for (int i = 0; i < n; ++i) {
            const unsigned v = unsigned(j * (n + 1) + i);
            indices.insert(indices.end(), {v, v + 1, v + unsigned(n) + 2, v, v + unsigned(n) + 2, v + unsigned(n) + 1});
        }
    }
    auto grid = velmora_test::makeMesh(positions, indices);
    kx::kxMeshProcessing::SmoothenNormals(grid, 0.820304811000824);
    kxMeshAndBVH g(grid), cap(upper);
    std::vector<unsigned> all(indices.size() / 3);
    for (unsigned t = 0; t < all.size(); ++t)
        all[t] = t;
    kxContactPoints finePoints(g, cap, 1e-3f);
    finePoints.getContactPoints(all, bottom, pointsA, pointsB);
    ASSERT_NE(pointsA, nullptr);
    EXPECT_EQ(pointsA->GetVertexQuantity(), 2 * 5 * int(all.size()));
    expectPairedBuffer(*pointsA);
}

TEST(ContactPoints, TiltedOrDistantFacesGiveNoPairs)
{
    auto lower = preparedBox({0, 0, 0}, {1, 1, 1});
    kxMeshAndBVH a(lower);
    const std::vector<unsigned> top = facesFacing(a, {0, 0, 1});

    // A plate tilted 20 degrees about the x axis, resting on the top face's
    // middle line: near that line it lies within the tolerance.
    const float s = std::sin(20.0f * Wm4::Math<float>::DEG_TO_RAD), c = std::cos(20.0f * Wm4::Math<float>::DEG_TO_RAD);
    auto plate = velmora_test::makeBox({0, -0.5f, 0}, {1, 0.5f, 0.2f});
    kx::kxVertexBuffer& vb = *plate->GetVertexBuffer();
    for (int v = 0; v < vb.GetVertexQuantity(); ++v) {
        const Vec3f p = vb.Position3(v);
        vb.Position3(v) = Vec3f(p.X(), 0.5f + c * p.Y() - s * p.Z(), 1.0f + s * p.Y() + c * p.Z());
    }
    kx::kxMeshProcessing::SmoothenNormals(plate, 0.820304811000824);
    kxMeshAndBVH b(plate);
    kxContactPoints tilted(a, b, 0.05f);
    kx::kxPointer<kx::kxVertexBuffer> pointsA = new kx::kxVertexBuffer(kx::kxAttributes(), 1), pointsB;
    tilted.getContactPoints(top, facesFacing(b, Vec3f(0, s, -c)), pointsA, pointsB);
    EXPECT_EQ(pointsA, nullptr) << "what the pointer held before is released";
    EXPECT_EQ(pointsB, nullptr);

    // Parallel faces farther apart than the tolerance.
    auto above = preparedBox({0, 0, 1.01f}, {1, 1, 2});
    kxMeshAndBVH far(above);
    kxContactPoints distant(a, far, 1e-3f);
    distant.getContactPoints(top, facesFacing(far, {0, 0, -1}), pointsA, pointsB);
    EXPECT_EQ(pointsA, nullptr);
    EXPECT_EQ(pointsB, nullptr);

    // Empty face lists.
    distant.getContactPoints({}, {}, pointsA, pointsB);
    EXPECT_EQ(pointsA, nullptr);
}

// Faces a hair apart, detected and sampled end to end.
TEST(ContactPoints, HairGapThroughContactFaces)
{
    auto lower = preparedBox({0, 0, 0}, {2, 2, 1});
    auto upper = preparedBox({0.5f, 0.5f, 1.0005f}, {1.5f, 1.5f, 2});
    std::vector<kxMeshAndBVH> parts;
    kxContactFaces::InitializeBVHList({lower.get(), upper.get()}, parts);
    std::vector<kxContactFaces::tContactFacesData> contacts;
    const float tolerance = kxContactFaces::ProcessParts(parts, contacts);
    ASSERT_EQ(contacts.size(), 1u);
    kxContactPoints points(parts[0], parts[1], tolerance);
    kx::kxPointer<kx::kxVertexBuffer> pointsA, pointsB;
    points.getContactPoints(contacts[0].facesA, contacts[0].facesB, pointsA, pointsB);
    ASSERT_NE(pointsA, nullptr);
    ASSERT_NE(pointsB, nullptr);
    for (const kx::kxVertexBuffer* buffer : {pointsA.get(), pointsB.get()}) {
        expectPairedBuffer(*buffer);
        for (int v = 0; v < buffer->GetVertexQuantity(); v += 2) {
            const Vec3f d = buffer->Position3(v + 1) - buffer->Position3(v);
            ASSERT_NEAR(std::fabs(d.Z()), 0.0005f, 1e-5f);
            // Only the overlap of the two faces is in contact.
            ASSERT_TRUE(buffer->Position3(v).X() >= 0.5f && buffer->Position3(v).X() <= 1.5f);
        }
    }
}

}  // namespace
