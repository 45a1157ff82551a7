// kx::kxTriMesh: a triangle mesh in the scene graph: a vertex buffer and an
// index buffer holding three vertex indices per triangle. Both buffers are
// shared through reference-counted pointers and may be replaced.
#pragma once

#include "kxSpatial.h"
#include "kxVertexBuffer.h"

namespace kx {

class kxTriMesh : public kxSpatial {
public:
    kxTriMesh(kxVertexBuffer* vertexBuffer, kxIndexBuffer* indexBuffer);

    int GetTriangleQuantity() const { return mIndexBuffer ? mIndexBuffer->GetIndexQuantity() / 3 : 0; }
    // The vertex indices of triangle t; false when t is out of range.
    bool GetTriangle(int t, int& i0, int& i1, int& i2) const;

    kxVertexBuffer* GetVertexBuffer() const { return mVertexBuffer; }
    kxIndexBuffer* GetIndexBuffer() const { return mIndexBuffer; }
    void SetVertexBuffer(kxVertexBuffer* vertexBuffer) { mVertexBuffer = vertexBuffer; }
    void SetIndexBuffer(kxIndexBuffer* indexBuffer) { mIndexBuffer = indexBuffer; }

private:
    kxPointer<kxVertexBuffer> mVertexBuffer;
    kxPointer<kxIndexBuffer> mIndexBuffer;
};

// Vertex-level helpers over vertex buffers.
class kxMeshUtils {
public:
    // Copies vertex `srcIndex` of `src` into vertex `dstIndex` of `dst`, channel
    // by channel, for every channel that both buffers have with the same width.
    static void CopyVertexData(const kxVertexBuffer& src, int srcIndex, kxVertexBuffer& dst, int dstIndex);
};

}  // namespace kx
