// kx::kxBVHTriangleContainer: a triangle mesh seen as a list of primitives for
// the tree builders: primitive i is triangle i, its box the box of the
// triangle's three corner positions. Borrows the mesh, which must outlive it
// and not change while it is used.
#pragma once

#include "kxBBox.h"
#include "kxTriMesh.h"

namespace kx {

class kxBVHTriangleContainer {
public:
    explicit kxBVHTriangleContainer(const kxTriMesh& mesh);

    unsigned getQuantity() const { return mQuantity; }
    // Box of triangle i (i < getQuantity()).
    kxBBox getBBox(unsigned i) const;

private:
    const unsigned* mIndices;
    const Wm4::Vector3<float>* mPositions;
    unsigned mQuantity;
};

}  // namespace kx
