#include "kxTriMesh.h"

namespace kx {

kxTriMesh::kxTriMesh(kxVertexBuffer* vertexBuffer, kxIndexBuffer* indexBuffer)
    : mVertexBuffer(vertexBuffer), mIndexBuffer(indexBuffer)
{
}

bool kxTriMesh::GetTriangle(int t, int& i0, int& i1, int& i2) const
{
    if (t < 0 || t >= GetTriangleQuantity())
        return false;
    const unsigned* indices = mIndexBuffer->GetData() + 3 * t;
    i0 = static_cast<int>(indices[0]);
    i1 = static_cast<int>(indices[1]);
    i2 = static_cast<int>(indices[2]);
    return true;
}

void kxMeshUtils::CopyVertexData(const kxVertexBuffer& src, int srcIndex, kxVertexBuffer& dst, int dstIndex)
{
    const kxAttributes& from = src.GetAttributes();
    const kxAttributes& to = dst.GetAttributes();
    if (from.HasPosition() && to.HasPosition())
        dst.Position3(dstIndex) = src.Position3(srcIndex);
    if (from.HasNormal() && to.HasNormal())
        dst.Normal3(dstIndex) = src.Normal3(srcIndex);
    for (int set = 0; set < kxAttributes::MAX_TCOORD_SETS; ++set) {
        const int channels = from.GetTCoordChannels(set);
        if (channels == 0 || channels != to.GetTCoordChannels(set))
            continue;
        if (channels == 2)
            dst.TCoord2(set, dstIndex) = src.TCoord2(set, srcIndex);
        else
            dst.TCoord3(set, dstIndex) = src.TCoord3(set, srcIndex);
    }
    if (from.HasPSize() && to.HasPSize())
        dst.PSize1(dstIndex) = src.PSize1(srcIndex);
}

}  // namespace kx
