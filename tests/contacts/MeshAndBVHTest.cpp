#include <gtest/gtest.h>

#include <cmath>

#include "GeometryMeshes.h"
#include "TestMeshes.h"
#include "kxMeshAndBVH.h"

using velmora_test::Vec3f;

namespace {

bool isFinite(const Vec3f& v) { return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]); }

}  // namespace

TEST(MeshAndBVH, NormalsFollowTheWinding)
{
    const auto mesh = velmora_test::makeMesh({Vec3f(0, 0, 0), Vec3f(2, 0, 0), Vec3f(0, 3, 0), Vec3f(0, 0, 5)},
                                             {0, 1, 2, 0, 2, 1, 0, 3, 1});
    const kxMeshAndBVH part(mesh);
    EXPECT_EQ(part.mMesh, mesh.get());
    ASSERT_EQ(part.mTriangleNormals.size(), 3u);
    EXPECT_EQ(part.mTriangleNormals[0], Vec3f(0, 0, 1));
    EXPECT_EQ(part.mTriangleNormals[1], Vec3f(0, 0, -1));
    EXPECT_EQ(part.mTriangleNormals[2], Vec3f(0, 1, 0));
    ASSERT_NE(part.mBVH, nullptr);
    ASSERT_NE(part.mQBVH, nullptr);
    EXPECT_EQ(part.mBVH->getNoPrimitives(), 3u);
    EXPECT_EQ(part.mQBVH->getNoTriangles(), 3u);
    EXPECT_EQ(part.mBVH->getNode(0).box.min, Vec3f(0, 0, 0));
    EXPECT_EQ(part.mBVH->getNode(0).box.max, Vec3f(2, 3, 5));

    const kxMeshAndBVH empty;
    EXPECT_EQ(empty.mMesh, nullptr);
    EXPECT_EQ(empty.mBVH, nullptr);
    EXPECT_EQ(empty.mQBVH, nullptr);
    EXPECT_TRUE(empty.mTriangleNormals.empty());
}

TEST(MeshAndBVH, TreesOverTheMeshTriangles)
{
    const auto cylinder = velmora_test::makeCylinder(100, 1.0f, 2.0f);
    const kxMeshAndBVH part(cylinder);
    const kx::kxGenericBVH& bvh = *part.mBVH;
    ASSERT_EQ(bvh.getNoPrimitives(), 400u);
    EXPECT_LE(bvh.getMaxLeafSize(), 20u);
    std::vector<unsigned> triangles;
    for (unsigned slot = 0; slot < 400; ++slot)
        triangles.push_back(bvh.getPrimitive(slot));
    std::sort(triangles.begin(), triangles.end());
    for (unsigned t = 0; t < 400; ++t)
        ASSERT_EQ(triangles[t], t);
    // The ray tree answers for the same triangles: straight down the axis hits the top cap.
    float t = 0;
    Wm4::Vector2<float> uv;
    unsigned hit = 0;
    ASSERT_TRUE(part.mQBVH->intersectRay(Vec3f(0.1f, 0.1f, 5), Vec3f(0, 0, -1), 0.0f, t, uv, hit,
                                         kx::kxQBVH::RAY_NEAREST_HIT));
    EXPECT_FLOAT_EQ(t, 3.0f);
    EXPECT_GT(part.mTriangleNormals[hit][2], 0.99f);
}

TEST(MeshAndBVH, DegenerateAndEmptyMeshes)
{
    // All triangles degenerate: non-finite normals, trees still built.
    const auto flat = velmora_test::makeMesh({Vec3f(0, 0, 0), Vec3f(1, 1, 1), Vec3f(2, 2, 2)}, {0, 1, 2, 0, 0, 1});
    const kxMeshAndBVH degenerate(flat);
    ASSERT_EQ(degenerate.mTriangleNormals.size(), 2u);
    EXPECT_FALSE(isFinite(degenerate.mTriangleNormals[0]));
    EXPECT_FALSE(isFinite(degenerate.mTriangleNormals[1]));
    EXPECT_EQ(degenerate.mBVH->getNoPrimitives(), 2u);
    EXPECT_GE(degenerate.mBVH->getNoNodes(), 1u);

    const auto none = velmora_test::makeMesh({}, {});
    const kxMeshAndBVH empty(none);
    EXPECT_TRUE(empty.mTriangleNormals.empty());
    EXPECT_EQ(empty.mBVH->getNoNodes(), 1u);
    EXPECT_EQ(empty.mBVH->getNoPrimitives(), 0u);
    EXPECT_TRUE(empty.mBVH->getNode(0).isLeaf());
    EXPECT_EQ(empty.mQBVH->getNoTriangles(), 0u);
}

TEST(MeshAndBVH, UpdateRebuildsAndCopiesAreShallow)
{
    auto mesh = velmora_test::makeBox(Vec3f(0, 0, 0), Vec3f(1, 1, 1));
    kxMeshAndBVH part(mesh);
    EXPECT_EQ(part.mBVH->getNode(0).box.max, Vec3f(1, 1, 1));
    for (int v = 0; v < mesh->GetVertexBuffer()->GetVertexQuantity(); ++v)
        mesh->GetVertexBuffer()->Position3(v) *= 2.0f;
    part.updateBVH();
    EXPECT_NE(part.mBVH, nullptr);
    EXPECT_EQ(part.mBVH->getNode(0).box.max, Vec3f(2, 2, 2));
    EXPECT_EQ(part.mTriangleNormals.size(), 12u);

    // A copy shares the trees and copies the normals.
    kxMeshAndBVH copy(part);
    EXPECT_EQ(copy.mMesh, part.mMesh);
    EXPECT_EQ(copy.mBVH, part.mBVH);
    EXPECT_EQ(copy.mQBVH, part.mQBVH);
    EXPECT_EQ(copy.mTriangleNormals, part.mTriangleNormals);
    kxMeshAndBVH assigned;
    assigned = part;
    EXPECT_EQ(assigned.mBVH, part.mBVH);
    // Only one holder may delete the shared trees.
    copy.mBVH = nullptr;
    copy.mQBVH = nullptr;
    assigned.mBVH = nullptr;
    assigned.mQBVH = nullptr;
}
