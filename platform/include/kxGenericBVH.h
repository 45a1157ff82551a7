// kx::kxGNode and kx::kxGenericBVH: a binary bounding-volume tree over
// primitives identified by 32-bit ids.
//
// Invariants of a built tree:
// - node 0 is the root; every inner node has exactly two children, stored at
//   higher indices, and its box encloses both children's boxes;
// - the leaves, read left to right, cover the slots 0 … getNoPrimitives()-1
//   once each, in order; a leaf's box encloses its primitives' boxes;
// - getPrimitive(slot) is the id of the primitive at that slot.
// A tree built over no primitives is one empty leaf. A default-constructed
// tree has no nodes at all and must not be walked.
#pragma once

#include <cstdint>
#include <vector>

#include "kxBBox.h"

namespace kx {

// One tree node: six floats (the box), then two 32-bit words.
// Leaf:  word0 = 0xC0000000 | first slot, word1 = number of slots.
// Inner: word0 = first child (top two bits clear), word1 = second child in
//        its low 28 bits.
struct kxGNode {
    static constexpr uint32_t LEAF_FLAGS = 0xC0000000u;
    static constexpr uint32_t LOW30 = 0x3FFFFFFFu;
    static constexpr uint32_t LOW28 = 0x0FFFFFFFu;

    bool isLeaf() const { return (word0 & ~LOW30) >= LEAF_FLAGS; }
    unsigned getFirstChild() const { return word0 & LOW30; }
    unsigned getSecondChild() const { return word1 & LOW28; }
    unsigned getFirstSlot() const { return word0 & LOW30; }
    unsigned getNoSlots() const { return word1; }

    static kxGNode makeLeaf(const kxBBox& box, unsigned firstSlot, unsigned noSlots)
    {
        return {box, LEAF_FLAGS | (firstSlot & LOW30), noSlots};
    }
    static kxGNode makeInner(const kxBBox& box, unsigned firstChild, unsigned secondChild)
    {
        return {box, firstChild & LOW30, secondChild & LOW28};
    }

    kxBBox box;
    uint32_t word0;
    uint32_t word1;
};
static_assert(sizeof(kxGNode) == 32, "a node is six floats and two words");

class kxGenericBVH {
public:
    kxGenericBVH() = default;

    const kxGNode& getNode(unsigned index) const { return mNodes[index]; }
    unsigned getPrimitive(unsigned slot) const { return mPrimitives[slot]; }
    unsigned getNoNodes() const { return static_cast<unsigned>(mNodes.size()); }
    unsigned getNoPrimitives() const { return static_cast<unsigned>(mPrimitives.size()); }
    // The largest slot count of any leaf (0 for an empty or unbuilt tree).
    unsigned getMaxLeafSize() const { return mMaxLeafSize; }

    // Replaces the tree; used by the builders. `nodes` and `primitives` must
    // satisfy the invariants above.
    void assign(std::vector<kxGNode>&& nodes, std::vector<unsigned>&& primitives);
    void clear();

private:
    std::vector<kxGNode> mNodes;
    std::vector<unsigned> mPrimitives;
    unsigned mMaxLeafSize = 0;
};

}  // namespace kx
