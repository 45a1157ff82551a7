#include "kxGenericBVH.h"

#include <algorithm>

namespace kx {

void kxGenericBVH::assign(std::vector<kxGNode>&& nodes, std::vector<unsigned>&& primitives)
{
    mNodes = std::move(nodes);
    mPrimitives = std::move(primitives);
    mMaxLeafSize = 0;
    for (const kxGNode& node : mNodes) {
        if (node.isLeaf())
            mMaxLeafSize = std::max(mMaxLeafSize, node.getNoSlots());
    }
}

void kxGenericBVH::clear()
{
    mNodes.clear();
    mPrimitives.clear();
    mMaxLeafSize = 0;
}

}  // namespace kx
