#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <random>

#include "GeometryMeshes.h"
#include "kxCommonAddOns.h"

using kx::kxBBox;
using velmora_test::Vec3f;

namespace {

// Distance from `p` to the box (0 inside).
float pointBoxDistance(const kxBBox& box, const Vec3f& p)
{
    float sum = 0.0f;
    for (int k = 0; k < 3; ++k) {
        const float gap = std::max({box.min[k] - p[k], p[k] - box.max[k], 0.0f});
        sum += gap * gap;
    }
    return std::sqrt(sum);
}

// Smallest box distance over a dense barycentric grid of the triangle.
float sampledTriangleBoxDistance(const kxBBox& box, const Vec3f& p0, const Vec3f& p1, const Vec3f& p2, int steps)
{
    float best = FLT_MAX;
    for (int i = 0; i <= steps; ++i) {
        for (int j = 0; i + j <= steps; ++j) {
            const float u = float(i) / float(steps);
            const float v = float(j) / float(steps);
            best = std::min(best, pointBoxDistance(box, p0 * u + p1 * v + p2 * (1.0f - u - v)));
        }
    }
    return best;
}

}  // namespace

TEST(BBox, EmptyBoxAndBasicOperations)
{
    const kxBBox empty;
    EXPECT_TRUE(empty.isEmpty());
    EXPECT_LT(empty.getMaxExtent(), 0.0f);
    EXPECT_FALSE(empty.overlapsTriangle(Vec3f(0, 0, 0), Vec3f(1, 0, 0), Vec3f(0, 1, 0)));

    kxBBox box;
    box.selfExpand(Vec3f(1, 2, 3));
    EXPECT_FALSE(box.isEmpty());
    EXPECT_EQ(box.min, Vec3f(1, 2, 3));
    EXPECT_EQ(box.max, Vec3f(1, 2, 3));
    EXPECT_EQ(box.getMaxExtent(), 0.0f);
    box.selfExpand(Vec3f(-1, 4, 3.5f));
    EXPECT_EQ(box.min, Vec3f(-1, 2, 3));
    EXPECT_EQ(box.max, Vec3f(1, 4, 3.5f));
    EXPECT_EQ(box.getMaxExtent(), 2.0f);
    EXPECT_FLOAT_EQ(box.getDiagonalLength(), std::sqrt(4.0f + 4.0f + 0.25f));
    EXPECT_FLOAT_EQ(box.getHalfArea(), 2 * 2 + 2 * 0.5f + 0.5f * 2);

    const kxBBox grown = box.grow(0.5f);
    EXPECT_EQ(grown.min, Vec3f(-1.5f, 1.5f, 2.5f));
    EXPECT_EQ(grown.max, Vec3f(1.5f, 4.5f, 4.0f));
    EXPECT_EQ(box.min, Vec3f(-1, 2, 3));  // grow returns a copy

    const kxBBox other(Vec3f(5, 5, 5), Vec3f(6, 6, 6));
    const kxBBox both = box.bboxUnion(other);
    EXPECT_EQ(both.min, Vec3f(-1, 2, 3));
    EXPECT_EQ(both.max, Vec3f(6, 6, 6));
    kxBBox accumulated;
    accumulated.selfUnion(box);
    accumulated.selfUnion(other);
    EXPECT_EQ(accumulated.min, both.min);
    EXPECT_EQ(accumulated.max, both.max);
    EXPECT_EQ(empty.bboxUnion(other).min, other.min);
    EXPECT_TRUE(both.containsPoint(Vec3f(6, 6, 6)));
    EXPECT_FALSE(both.containsPoint(Vec3f(6, 6, 6.001f)));
}

TEST(BBox, OverlapsTriangleHandCases)
{
    const kxBBox unit(Vec3f(0, 0, 0), Vec3f(1, 1, 1));
    // Inside, crossing, touching a face, touching an edge only, outside.
    EXPECT_TRUE(unit.overlapsTriangle(Vec3f(0.2f, 0.2f, 0.2f), Vec3f(0.8f, 0.2f, 0.2f), Vec3f(0.2f, 0.8f, 0.2f)));
    EXPECT_TRUE(unit.overlapsTriangle(Vec3f(-5, 0.5f, -5), Vec3f(5, 0.5f, -5), Vec3f(0, 0.5f, 5)));
    EXPECT_TRUE(unit.overlapsTriangle(Vec3f(1, 0, 0), Vec3f(1, 1, 0), Vec3f(1, 0, 1)));
    EXPECT_TRUE(unit.overlapsTriangle(Vec3f(2, 0, 0), Vec3f(0, 2, 0), Vec3f(2, 0, 1)));  // x+y = 2 plane away
    EXPECT_FALSE(unit.overlapsTriangle(Vec3f(2.01f, 0, 0), Vec3f(0, 2.01f, 0), Vec3f(2.01f, 0, 5)));
    EXPECT_FALSE(unit.overlapsTriangle(Vec3f(1.1f, 0, 0), Vec3f(1.1f, 1, 0), Vec3f(1.1f, 0, 1)));
    // Only the triangle's normal separates: the plane x + y + z = 3 touches
    // the corner (1, 1, 1), the plane x + y + z = 3.1 misses it.
    EXPECT_TRUE(unit.overlapsTriangle(Vec3f(3, 0, 0), Vec3f(0, 3, 0), Vec3f(0, 0, 3)));
    EXPECT_FALSE(unit.overlapsTriangle(Vec3f(3.1f, 0, 0), Vec3f(0, 3.1f, 0), Vec3f(0, 0, 3.1f)));
    // Only an edge cross product separates: a flat triangle at z = 0.5 beyond
    // the box edge x = y = 1 (x + y >= 2.25 everywhere on it); moved to
    // x + y = 2 it touches that edge.
    EXPECT_FALSE(unit.overlapsTriangle(Vec3f(2.5f, -0.25f, 0.5f), Vec3f(-0.25f, 2.5f, 0.5f), Vec3f(3, 3, 0.5f)));
    EXPECT_TRUE(unit.overlapsTriangle(Vec3f(2.5f, -0.5f, 0.5f), Vec3f(-0.5f, 2.5f, 0.5f), Vec3f(3, 3, 0.5f)));
    // Degenerate triangles: a segment through the box, a point outside.
    EXPECT_TRUE(unit.overlapsTriangle(Vec3f(-1, 0.5f, 0.5f), Vec3f(2, 0.5f, 0.5f), Vec3f(2, 0.5f, 0.5f)));
    EXPECT_FALSE(unit.overlapsTriangle(Vec3f(2, 2, 2), Vec3f(2, 2, 2), Vec3f(2, 2, 2)));
}

// Against a dense sampling of the triangle: a sample inside the box means
// overlap; an overlap means some sample lies within the sampling resolution of
// the box; cases that sit closer to the boundary than that are not judged.
TEST(BBox, OverlapsTriangleAgreesWithSampling)
{
    std::mt19937 rng(1234);
    int overlapping = 0;
    int separate = 0;
    for (int trial = 0; trial < 3000; ++trial) {
        const Vec3f c = velmora_test::randomPoint(rng, Vec3f(-1, -1, -1), Vec3f(1, 1, 1));
        const Vec3f h = velmora_test::randomPoint(rng, Vec3f(0.05f, 0.05f, 0.05f), Vec3f(0.6f, 0.6f, 0.6f));
        const kxBBox box(c - h, c + h);
        Vec3f p[3];
        for (Vec3f& corner : p)
            corner = velmora_test::randomPoint(rng, Vec3f(-1.5f, -1.5f, -1.5f), Vec3f(1.5f, 1.5f, 1.5f));
        const int steps = 120;
        const float longestEdge = std::max({(p[1] - p[0]).Length(), (p[2] - p[1]).Length(), (p[0] - p[2]).Length()});
        const float resolution = longestEdge / float(steps);
        const float sampled = sampledTriangleBoxDistance(box, p[0], p[1], p[2], steps);
        const bool overlaps = box.overlapsTriangle(p[0], p[1], p[2]);
        if (sampled == 0.0f) {
            EXPECT_TRUE(overlaps) << "trial " << trial;
            ++overlapping;
        } else if (sampled > resolution) {
            EXPECT_FALSE(overlaps) << "trial " << trial;
            ++separate;
        }
    }
    // Both outcomes are well represented.
    EXPECT_GT(overlapping, 300);
    EXPECT_GT(separate, 300);
}
