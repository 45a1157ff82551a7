// kx::kxLinearGenericBVHBuilder: builds a kxGenericBVH from primitive boxes
// and centroids with a binned surface-area heuristic.
//
// The caller fills the public arrays (one entry per primitive, all three of
// length mNoPrimitives; setNoPrimitives sizes them) and then calls build. The
// builder never changes the arrays, so one filled builder may build several
// trees. Each split tries 32 centroid bins on all three axes and keeps the
// cheapest; a range becomes a leaf when it holds at most the leaf parameter
// primitives and splitting it would not pay. The result depends only on the
// input arrays (no threads, no randomness).
#pragma once

#include <vector>

#include "kxGenericBVH.h"

namespace kx {

class kxLinearGenericBVHBuilder {
public:
    kxLinearGenericBVHBuilder() = default;

    // Sizes the three per-primitive arrays to `noPrimitives` and records the count.
    void setNoPrimitives(unsigned noPrimitives);

    // Builds `out` over primitives 0 … mNoPrimitives-1; leaves hold at most
    // max(1, maxLeafSize) primitives and the tree's primitive ids are taken
    // from mPrimitiveIds. `cancel` may be null; when it points at true during
    // the build, `out` is cleared and false returned. Returns true otherwise.
    bool build(kxGenericBVH& out, bool* cancel, unsigned maxLeafSize) const;

    std::vector<kxBBox> mPrimitiveBoxes;                   // box of each primitive
    std::vector<unsigned> mPrimitiveIds;                   // id reported by getPrimitive
    std::vector<Wm4::Vector3<float>> mPrimitiveCentroids;  // split position of each primitive
    kxBBox mBBox;                                          // box of all primitives (informative)
    unsigned mNoPrimitives = 0;                            // length of the three arrays
};

}  // namespace kx
