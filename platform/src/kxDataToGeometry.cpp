#include "kxDataToGeometry.h"

namespace kx {

kxPointer<kxTriMesh> kxDataToGeometry::VertexBufferToGeometry(kxVertexBuffer* buffer, int verticesPerPrimitive)
{
    if (!buffer)
        return nullptr;
    const int noIndices = verticesPerPrimitive == 3 ? buffer->GetVertexQuantity() / 3 * 3 : 0;
    kxPointer<kxIndexBuffer> indices = new kxIndexBuffer(noIndices, 1);
    for (int i = 0; i < noIndices; ++i)
        indices->GetData()[i] = static_cast<unsigned>(i);
    return new kxTriMesh(buffer, indices);
}

}  // namespace kx
