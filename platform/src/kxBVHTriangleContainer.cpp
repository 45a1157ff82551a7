#include "kxBVHTriangleContainer.h"

namespace kx {

kxBVHTriangleContainer::kxBVHTriangleContainer(const kxTriMesh& mesh)
    : mIndices(mesh.GetIndexBuffer() ? mesh.GetIndexBuffer()->GetData() : nullptr),
      mPositions(mesh.GetVertexBuffer() ? mesh.GetVertexBuffer()->GetPositions().data() : nullptr),
      mQuantity(static_cast<unsigned>(mesh.GetTriangleQuantity()))
{
}

kxBBox kxBVHTriangleContainer::getBBox(unsigned i) const
{
    kxBBox box;
    for (unsigned k = 0; k < 3; ++k)
        box.selfExpand(mPositions[mIndices[3 * i + k]]);
    return box;
}

}  // namespace kx
