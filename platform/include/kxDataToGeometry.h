// kx::kxDataToGeometry: turns raw vertex data into scene geometry that can be
// displayed or written to a file (debug output of sample points and the like).
#pragma once

#include "kxTriMesh.h"

namespace kx {

class kxDataToGeometry {
public:
    // A mesh over `buffer` (shared, not copied). With `verticesPerPrimitive`
    // 3, every three consecutive vertices form a triangle (a trailing partial
    // triple is left out); with any other value the mesh has no triangles and
    // stands for the points themselves. A null buffer gives a null pointer.
    static kxPointer<kxTriMesh> VertexBufferToGeometry(kxVertexBuffer* buffer, int verticesPerPrimitive);
};

}  // namespace kx
