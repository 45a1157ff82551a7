#include "kxVertexBuffer.h"

namespace kx {

int kxAttributes::GetChannelQuantity() const
{
    int total = mPositionChannels + mNormalChannels + mPSizeChannels;
    for (int channels : mTCoordChannels)
        total += channels;
    return total;
}

bool kxAttributes::operator==(const kxAttributes& other) const
{
    return mPositionChannels == other.mPositionChannels && mNormalChannels == other.mNormalChannels &&
           mTCoordChannels == other.mTCoordChannels && mPSizeChannels == other.mPSizeChannels;
}

kxVertexBuffer::kxVertexBuffer(const kxAttributes& attributes, int vertexQuantity)
    : mAttributes(attributes), mVertexQuantity(0)
{
    resizeVertexBuffer(vertexQuantity);
}

void kxVertexBuffer::resizeVertexBuffer(int vertexQuantity)
{
    mVertexQuantity = vertexQuantity;
    const size_t n = static_cast<size_t>(vertexQuantity);
    auto sized = [n](bool enabled) { return enabled ? n : size_t(0); };
    mPositions.resize(sized(mAttributes.HasPosition()));
    mNormals.resize(sized(mAttributes.HasNormal()));
    for (int set = 0; set < kxAttributes::MAX_TCOORD_SETS; ++set) {
        mTCoords2[set].resize(sized(mAttributes.GetTCoordChannels(set) == 2));
        mTCoords3[set].resize(sized(mAttributes.GetTCoordChannels(set) == 3));
    }
    mPSizes.resize(sized(mAttributes.HasPSize()));
}

kxIndexBuffer::kxIndexBuffer(int indexQuantity, int /*elementSize*/)
    : mIndices(static_cast<size_t>(indexQuantity), 0u)
{
}

}  // namespace kx
