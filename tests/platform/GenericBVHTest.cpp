#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "GeometryMeshes.h"
#include "TestMeshes.h"
#include "kxCommonAddOns.h"

using kx::kxBBox;
using kx::kxGenericBVH;
using kx::kxGNode;
using kx::kxLinearGenericBVHBuilder;
using velmora_test::Vec3f;

namespace {

bool encloses(const kxBBox& outer, const kxBBox& inner)
{
    for (int k = 0; k < 3; ++k) {
        if (inner.min[k] < outer.min[k] || inner.max[k] > outer.max[k])
            return false;
    }
    return true;
}

// Random boxes with ids 7·i + 3, so that a tree that reports input indices
// instead of ids is caught.
kxLinearGenericBVHBuilder randomInput(std::mt19937& rng, unsigned n, float spread)
{
    kxLinearGenericBVHBuilder builder;
    builder.setNoPrimitives(n);
    for (unsigned i = 0; i < n; ++i) {
        const Vec3f c = velmora_test::randomPoint(rng, Vec3f(-spread, -spread, -spread), Vec3f(spread, spread, spread));
        const Vec3f h = velmora_test::randomPoint(rng, Vec3f(0, 0, 0), Vec3f(0.1f, 0.1f, 0.1f));
        builder.mPrimitiveBoxes[i] = kxBBox(c - h, c + h);
        builder.mPrimitiveCentroids[i] = c;
        builder.mPrimitiveIds[i] = 7 * i + 3;
        builder.mBBox.selfUnion(builder.mPrimitiveBoxes[i]);
    }
    return builder;
}

// Checks every invariant of a built tree against its input.
void expectValidTree(const kxGenericBVH& bvh, const kxLinearGenericBVHBuilder& input, unsigned maxLeafSize)
{
    const unsigned n = input.mNoPrimitives;
    ASSERT_GE(bvh.getNoNodes(), 1u);
    ASSERT_EQ(bvh.getNoPrimitives(), n);
    std::vector<unsigned> ids;
    for (unsigned slot = 0; slot < n; ++slot)
        ids.push_back(bvh.getPrimitive(slot));
    std::sort(ids.begin(), ids.end());
    for (unsigned i = 0; i < n; ++i)
        ASSERT_EQ(ids[i], 7 * i + 3) << "slots are not a permutation of the ids";

    std::vector<int> visits(bvh.getNoNodes(), 0);
    unsigned nextSlot = 0;
    unsigned largestLeaf = 0;
    std::vector<unsigned> stack{0};
    while (!stack.empty()) {
        const unsigned index = stack.back();
        stack.pop_back();
        ASSERT_LT(index, bvh.getNoNodes());
        ++visits[index];
        const kxGNode& node = bvh.getNode(index);
        if (node.isLeaf()) {
            ASSERT_EQ(node.word0 & 0xC0000000u, 0xC0000000u);
            EXPECT_EQ(node.getFirstSlot(), nextSlot) << "leaves must cover the slots left to right";
            EXPECT_LE(node.getNoSlots(), std::max(1u, maxLeafSize));
            EXPECT_TRUE(node.getNoSlots() > 0 || n == 0);
            for (unsigned slot = node.getFirstSlot(); slot < node.getFirstSlot() + node.getNoSlots(); ++slot)
                EXPECT_TRUE(encloses(node.box, input.mPrimitiveBoxes[(bvh.getPrimitive(slot) - 3) / 7]));
            nextSlot += node.getNoSlots();
            largestLeaf = std::max(largestLeaf, node.getNoSlots());
            continue;
        }
        ASSERT_EQ(node.word0 & 0xC0000000u, 0u);
        const unsigned c1 = node.getFirstChild();
        const unsigned c2 = node.getSecondChild();
        ASSERT_GT(c1, index);
        ASSERT_GT(c2, index);
        EXPECT_TRUE(encloses(node.box, bvh.getNode(c1).box));
        EXPECT_TRUE(encloses(node.box, bvh.getNode(c2).box));
        stack.push_back(c2);
        stack.push_back(c1);
    }
    EXPECT_EQ(nextSlot, n);
    EXPECT_EQ(largestLeaf, bvh.getMaxLeafSize());
    EXPECT_TRUE(std::all_of(visits.begin(), visits.end(), [](int v) { return v == 1; })) << "every node once";
}

}  // namespace

TEST(GenericBVH, NodeLayoutIsSixFloatsAndTwoWords)
{
    const kxGNode leaf = kxGNode::makeLeaf(kxBBox(Vec3f(1, 2, 3), Vec3f(4, 5, 6)), 17, 5);
    const auto* words = reinterpret_cast<const uint32_t*>(&leaf);
    const auto* floats = reinterpret_cast<const float*>(&leaf);
    EXPECT_EQ(floats[0], 1.0f);
    EXPECT_EQ(floats[5], 6.0f);
    EXPECT_EQ(words[6], 0xC0000000u | 17u);
    EXPECT_EQ(words[7], 5u);
    EXPECT_TRUE(leaf.isLeaf());

    const kxGNode inner = kxGNode::makeInner(kxBBox(), 9, 10);
    EXPECT_FALSE(inner.isLeaf());
    EXPECT_EQ(reinterpret_cast<const uint32_t*>(&inner)[6], 9u);
    EXPECT_EQ(reinterpret_cast<const uint32_t*>(&inner)[7], 10u);
    EXPECT_EQ(inner.getFirstChild(), 9u);
    EXPECT_EQ(inner.getSecondChild(), 10u);
    // One top bit alone does not make a leaf.
    kxGNode half = inner;
    half.word0 = 0x80000000u | 9u;
    EXPECT_FALSE(half.isLeaf());
}

TEST(GenericBVH, BuildKeepsInvariantsForAllSizes)
{
    std::mt19937 rng(42);
    for (unsigned n : {0u, 1u, 2u, 3u, 21u, 1000u}) {
        for (unsigned leafSize : {0u, 1u, 4u, 20u}) {
            SCOPED_TRACE(testing::Message() << "n " << n << " leaf " << leafSize);
            const kxLinearGenericBVHBuilder input = randomInput(rng, n, 10.0f);
            kxGenericBVH bvh;
            EXPECT_TRUE(input.build(bvh, nullptr, leafSize));
            expectValidTree(bvh, input, leafSize);
        }
    }
}

TEST(GenericBVH, IdenticalCentroidsAreSplitByCount)
{
    kxLinearGenericBVHBuilder input;
    input.setNoPrimitives(100);
    for (unsigned i = 0; i < 100; ++i) {
        input.mPrimitiveBoxes[i] = kxBBox(Vec3f(0, 0, 0), Vec3f(1, 1, 1));
        input.mPrimitiveCentroids[i] = Vec3f(0.5f, 0.5f, 0.5f);
        input.mPrimitiveIds[i] = 7 * i + 3;
    }
    kxGenericBVH bvh;
    input.build(bvh, nullptr, 8);
    expectValidTree(bvh, input, 8);
    EXPECT_EQ(bvh.getMaxLeafSize(), 7u);  // 100 halves down to 12/13, then 6/7
}

TEST(GenericBVH, CancelFlagStopsTheBuild)
{
    std::mt19937 rng(7);
    const kxLinearGenericBVHBuilder input = randomInput(rng, 200, 5.0f);
    kxGenericBVH bvh;
    bool cancel = false;
    EXPECT_TRUE(input.build(bvh, &cancel, 4));
    EXPECT_GT(bvh.getNoNodes(), 1u);
    cancel = true;
    EXPECT_FALSE(input.build(bvh, &cancel, 4));
    EXPECT_EQ(bvh.getNoNodes(), 0u);
    EXPECT_EQ(bvh.getNoPrimitives(), 0u);
}

// A surface-area split separates two clusters of unequal size at the root,
// where a split at the median count would cut through the larger one.
TEST(GenericBVH, RootSplitSeparatesUnequalClusters)
{
    std::mt19937 rng(3);
    kxLinearGenericBVHBuilder input;
    input.setNoPrimitives(1000);
    for (unsigned i = 0; i < 1000; ++i) {
        const float x = i < 100 ? -20.0f : 20.0f;
        const Vec3f c = velmora_test::randomPoint(rng, Vec3f(x - 1, -1, -1), Vec3f(x + 1, 1, 1));
        input.mPrimitiveBoxes[i] = kxBBox(c - Vec3f(0.05f, 0.05f, 0.05f), c + Vec3f(0.05f, 0.05f, 0.05f));
        input.mPrimitiveCentroids[i] = c;
        input.mPrimitiveIds[i] = 7 * i + 3;
    }
    kxGenericBVH bvh;
    input.build(bvh, nullptr, 20);
    expectValidTree(bvh, input, 20);
    const kxGNode& root = bvh.getNode(0);
    const kxBBox& left = bvh.getNode(root.getFirstChild()).box;
    const kxBBox& right = bvh.getNode(root.getSecondChild()).box;
    EXPECT_TRUE((left.max[0] < 0 && right.min[0] > 0) || (right.max[0] < 0 && left.min[0] > 0));
}

TEST(GenericBVH, TriangleContainerBoxes)
{
    const auto mesh = velmora_test::makeMesh({Vec3f(0, 0, 0), Vec3f(2, 1, 0), Vec3f(1, 3, -1), Vec3f(5, 5, 5)},
                                             {0, 1, 2, 3, 1, 0});
    const kx::kxBVHTriangleContainer triangles(*mesh);
    ASSERT_EQ(triangles.getQuantity(), 2u);
    EXPECT_EQ(triangles.getBBox(0).min, Vec3f(0, 0, -1));
    EXPECT_EQ(triangles.getBBox(0).max, Vec3f(2, 3, 0));
    EXPECT_EQ(triangles.getBBox(1).min, Vec3f(0, 0, 0));
    EXPECT_EQ(triangles.getBBox(1).max, Vec3f(5, 5, 5));
}
