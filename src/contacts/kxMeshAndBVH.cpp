#include "kxMeshAndBVH.h"

namespace {

constexpr unsigned kLeafParameter = 20;
constexpr kx::tQBVHDataFlags kQBVHFlags = kx::kxQBVH::QBVH_ROBUST;  // value 2

}  // namespace

kxMeshAndBVH::kxMeshAndBVH() : mMesh(nullptr), mBVH(nullptr), mQBVH(nullptr) {}

kxMeshAndBVH::kxMeshAndBVH(const kx::kxTriMesh* mesh) : mMesh(mesh), mBVH(nullptr), mQBVH(nullptr)
{
    updateBVH();
}

kxMeshAndBVH::kxMeshAndBVH(const kxMeshAndBVH& other)
    : mMesh(other.mMesh), mBVH(other.mBVH), mQBVH(other.mQBVH), mTriangleNormals(other.mTriangleNormals)
{
}

kxMeshAndBVH& kxMeshAndBVH::operator=(const kxMeshAndBVH& other)
{
    mMesh = other.mMesh;
    mBVH = other.mBVH;
    mQBVH = other.mQBVH;
    mTriangleNormals = other.mTriangleNormals;
    return *this;
}

kxMeshAndBVH::~kxMeshAndBVH()
{
    delete mBVH;
    delete mQBVH;
}

void kxMeshAndBVH::updateBVH()
{
    const int noTriangles = mMesh->GetTriangleQuantity();
    const kx::kxVertexBuffer* vertices = mMesh->GetVertexBuffer();
    mTriangleNormals.resize(static_cast<size_t>(noTriangles));
    for (int t = 0; t < noTriangles; ++t) {
        int i0 = 0, i1 = 0, i2 = 0;
        mMesh->GetTriangle(t, i0, i1, i2);
        const Wm4::Vector3<float>& p0 = vertices->Position3(i0);
        const Wm4::Vector3<float> normal = (vertices->Position3(i1) - p0).Cross(vertices->Position3(i2) - p0);
        mTriangleNormals[static_cast<size_t>(t)] = normal * (1.0f / normal.Length());
    }

    delete mBVH;
    delete mQBVH;
    mBVH = nullptr;
    mQBVH = nullptr;
    mBVH = new kx::kxGenericBVH();
    mQBVH = new kx::kxQBVH();

    kx::kxLinearGenericBVHBuilder builder;
    const kx::kxBVHTriangleContainer triangles(*mMesh);
    const unsigned n = triangles.getQuantity();
    builder.mBBox = kx::kxBBox();
    builder.setNoPrimitives(n);
    for (unsigned i = 0; i < n; ++i) {
        const kx::kxBBox box = triangles.getBBox(i);
        builder.mPrimitiveBoxes[i] = box;
        builder.mPrimitiveCentroids[i] = (box.min + box.max) * 0.5f;
        builder.mBBox.selfUnion(box);
        builder.mPrimitiveIds[i] = i;
    }
    builder.build(*mBVH, nullptr, kLeafParameter);

    mQBVH->buildFromBVH(kQBVHFlags, *mBVH, *mMesh);
}
