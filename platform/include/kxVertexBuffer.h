// kx::kxAttributes, kx::kxVertexBuffer and kx::kxIndexBuffer: the vertex and
// index data of a triangle mesh.
//
// A vertex buffer stores each channel in its own contiguous array (positions,
// normals, each texture-coordinate set, point sizes), so a scan over positions
// touches positions only. A channel exists only when the attributes enable it;
// its array always has exactly GetVertexQuantity() entries. Accessors take a
// vertex index, return references and do not check their arguments.
#pragma once

#include <array>
#include <vector>

#include "Wm4Vector2.h"
#include "Wm4Vector3.h"
#include "kxObject.h"

namespace kx {

class kxAttributes {
public:
    static constexpr int MAX_TCOORD_SETS = 8;

    // Positions and normals have 0 or 3 channels, texture sets 0, 2 or 3,
    // point sizes 0 or 1.
    void SetPositionChannels(int channels) { mPositionChannels = channels; }
    void SetNormalChannels(int channels) { mNormalChannels = channels; }
    void SetTCoordChannels(int set, int channels) { mTCoordChannels[set] = channels; }
    void SetPSizeChannels(int channels) { mPSizeChannels = channels; }

    int GetPositionChannels() const { return mPositionChannels; }
    int GetNormalChannels() const { return mNormalChannels; }
    int GetTCoordChannels(int set) const { return mTCoordChannels[set]; }
    int GetPSizeChannels() const { return mPSizeChannels; }
    bool HasPosition() const { return mPositionChannels > 0; }
    bool HasNormal() const { return mNormalChannels > 0; }
    bool HasTCoord(int set) const { return mTCoordChannels[set] > 0; }
    bool HasPSize() const { return mPSizeChannels > 0; }
    // Floats per vertex over all channels.
    int GetChannelQuantity() const;

    bool operator==(const kxAttributes& other) const;
    bool operator!=(const kxAttributes& other) const { return !(*this == other); }

private:
    int mPositionChannels = 0;
    int mNormalChannels = 0;
    std::array<int, MAX_TCOORD_SETS> mTCoordChannels{};
    int mPSizeChannels = 0;
};

class kxVertexBuffer : public kxObject {
public:
    kxVertexBuffer(const kxAttributes& attributes, int vertexQuantity);

    const kxAttributes& GetAttributes() const { return mAttributes; }
    int GetVertexQuantity() const { return mVertexQuantity; }
    // Changes the vertex count, keeping the first min(old, new) vertices.
    void resizeVertexBuffer(int vertexQuantity);

    Wm4::Vector3<float>& Position3(int i) { return mPositions[i]; }
    const Wm4::Vector3<float>& Position3(int i) const { return mPositions[i]; }
    Wm4::Vector3<float>& Normal3(int i) { return mNormals[i]; }
    const Wm4::Vector3<float>& Normal3(int i) const { return mNormals[i]; }
    // Texture sets with 2 channels are read with TCoord2, sets with 3 with TCoord3.
    Wm4::Vector2<float>& TCoord2(int set, int i) { return mTCoords2[set][i]; }
    const Wm4::Vector2<float>& TCoord2(int set, int i) const { return mTCoords2[set][i]; }
    Wm4::Vector3<float>& TCoord3(int set, int i) { return mTCoords3[set][i]; }
    const Wm4::Vector3<float>& TCoord3(int set, int i) const { return mTCoords3[set][i]; }
    float& PSize1(int i) { return mPSizes[i]; }
    float PSize1(int i) const { return mPSizes[i]; }

    // Whole-channel access for bulk scans.
    const std::vector<Wm4::Vector3<float>>& GetPositions() const { return mPositions; }
    const std::vector<Wm4::Vector3<float>>& GetNormals() const { return mNormals; }

private:
    kxAttributes mAttributes;
    int mVertexQuantity;
    std::vector<Wm4::Vector3<float>> mPositions;
    std::vector<Wm4::Vector3<float>> mNormals;
    std::array<std::vector<Wm4::Vector2<float>>, kxAttributes::MAX_TCOORD_SETS> mTCoords2;
    std::array<std::vector<Wm4::Vector3<float>>, kxAttributes::MAX_TCOORD_SETS> mTCoords3;
    std::vector<float> mPSizes;
};

// 32-bit vertex indices, three per triangle for a triangle mesh.
class kxIndexBuffer : public kxObject {
public:
    // `indexQuantity` indices, all 0; `elementSize` is the number of values
    // per index and is always 1 for meshes.
    kxIndexBuffer(int indexQuantity, int elementSize);

    int GetIndexQuantity() const { return static_cast<int>(mIndices.size()); }
    unsigned* GetData() { return mIndices.data(); }
    const unsigned* GetData() const { return mIndices.data(); }
    void resizeIndexBuffer(int indexQuantity) { mIndices.resize(static_cast<size_t>(indexQuantity)); }

private:
    std::vector<unsigned> mIndices;
};

}  // namespace kx
