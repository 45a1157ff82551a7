#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "MotionContacts.h"
#include "kxMotionDetect.h"

namespace {

using namespace motion_test;

// A buffer holding the given points (normals and weights are not read).
kx::kxPointer<kx::kxVertexBuffer> pointBuffer(const std::vector<Vec3f>& points)
{
    std::vector<tContactSample> samples;
    for (size_t k = 0; k + 1 < points.size(); k += 2)
        samples.push_back({points[k], Vec3f(0, 0, 1), Vec3f(0, 0, 1), 1.0f});
    kx::kxPointer<kx::kxVertexBuffer> buffer = makePairBuffer(samples, true);
    for (size_t i = 0; i < samples.size() * 2; ++i)
        buffer->Position3(int(i)) = points[i];
    return buffer;
}

// Points on the boundary of an a × b rectangle in the plane z = 0 (corners
// and `perSide` points along each side).
std::vector<Vec3f> rectangleOutline(float a, float b, int perSide)
{
    std::vector<Vec3f> points;
    for (int i = 0; i < perSide; ++i) {
        const float t = float(i) / float(perSide);
        points.push_back({a * t, 0, 0});
        points.push_back({a, b * t, 0});
        points.push_back({a * (1 - t), b, 0});
        points.push_back({0, b * (1 - t), 0});
    }
    return points;
}

float qualityOf(const std::vector<Vec3f>& points)
{
    const kx::kxPointer<kx::kxVertexBuffer> buffer = pointBuffer(points);
    float quality = -1.0f;
    kxMotionDetect::ComputeCircleBasedCentroid(Vec3f(0, 0, 1), {buffer.get()}, quality);
    return quality;
}

// A ring of points around a tilted direction, spread in depth along it: the
// centre is the ring's centre at the mean depth, with quality near 1.
TEST(CircleBasedCentroid, RingAroundATiltedDirection)
{
    Vec3d d(1, 2, 3);
    d.Normalize();
    Vec3d e1 = d.Cross(Vec3d(0, 0, 1));
    e1.Normalize();
    const Vec3d e2 = d.Cross(e1);
    const Vec3d centre(1, -2, 0.5);
    std::vector<Vec3f> points;
    double depthSum = 0.0;
    for (int i = 0; i < 240; ++i) {
        const double angle = 2.0 * std::numbers::pi * double(i) / 240.0, depth = double(i % 7) * 0.3 - 1.0;
        const Vec3d p = centre + (e1 * std::cos(angle) + e2 * std::sin(angle)) * 2.0 + d * depth;
        points.push_back(Vec3f(p));
        depthSum += Vec3d(Vec3f(p)).Dot(d);
    }
    const kx::kxPointer<kx::kxVertexBuffer> buffer = pointBuffer(points);
    float quality = 0.0f;
    const Vec3f result = kxMotionDetect::ComputeCircleBasedCentroid(Vec3f(d), {nullptr, buffer.get()}, quality);
    const Vec3d expected = centre - d * centre.Dot(d) + d * (depthSum / 240.0);
    EXPECT_NEAR((Vec3d(result) - expected).Length(), 0.0, 1e-4);
    EXPECT_GT(quality, 0.999f);
}

TEST(CircleBasedCentroid, QualityFallsWithElongation)
{
    std::vector<Vec3f> octagon, hexagon;
    for (int i = 0; i < 64; ++i)
        octagon.push_back({float(std::cos(i * std::numbers::pi / 32)), float(std::sin(i * std::numbers::pi / 32)), 0});
    for (int i = 0; i < 6; ++i)
        hexagon.push_back({float(std::cos(i * std::numbers::pi / 3)), float(std::sin(i * std::numbers::pi / 3)), 0});
    EXPECT_NEAR(qualityOf(octagon), 0.998, 0.002);  // a 64-gon
    EXPECT_NEAR(qualityOf(hexagon), 0.91, 0.01);
    EXPECT_NEAR(qualityOf(rectangleOutline(1, 1, 10)), 1.0 - std::sqrt(0.05), 1e-4);  // square: RMS = √(1/20)
    EXPECT_NEAR(qualityOf(rectangleOutline(2, 1, 10)), 0.545, 0.005);
    EXPECT_LT(qualityOf(rectangleOutline(2, 1, 10)), 0.7f);
    EXPECT_NEAR(qualityOf(rectangleOutline(10, 1, 10)), 0.153, 0.005);
    // Thinner and thinner rectangles tend to 1 − √0.8 ≈ 0.106.
    EXPECT_NEAR(qualityOf(rectangleOutline(1000, 1, 10)), 1.0 - std::sqrt(0.8), 0.002);
}

TEST(CircleBasedCentroid, DegenerateInputs)
{
    float quality = -1.0f;
    EXPECT_EQ(kxMotionDetect::ComputeCircleBasedCentroid(Vec3f(0, 0, 1), {nullptr}, quality), Vec3f(0, 0, 0));
    EXPECT_EQ(quality, 0.0f);

    // Collinear points have no area: quality 0, the middle of their extent.
    const kx::kxPointer<kx::kxVertexBuffer> line = pointBuffer({{0, 0, 1}, {4, 0, 3}, {1, 0, 1}, {3, 0, 3}});
    const Vec3f middle = kxMotionDetect::ComputeCircleBasedCentroid(Vec3f(0, 0, 1), {line.get()}, quality);
    EXPECT_EQ(quality, 0.0f);
    EXPECT_NEAR((Vec3d(middle) - Vec3d(2, 0, 2)).Length(), 0.0, 1e-6);

    // A single repeated point.
    const kx::kxPointer<kx::kxVertexBuffer> point = pointBuffer({{1, 2, 3}, {1, 2, 3}});
    const Vec3f same = kxMotionDetect::ComputeCircleBasedCentroid(Vec3f(0, 1, 0), {point.get()}, quality);
    EXPECT_EQ(quality, 0.0f);
    EXPECT_NEAR((Vec3d(same) - Vec3d(1, 2, 3)).Length(), 0.0, 1e-6);
}

// The round pin seen along its axis: the contact point moves to the axis.
TEST(CircleBasedCentroid, RoundPinAlongItsAxis)
{
    const tContactBuffers pin(roundPinInHole(8));
    float quality = 0.0f;
    const Vec3f centre = kxMotionDetect::ComputeCircleBasedCentroid(Vec3f(0, 0, 1), pin.pointers(), quality);
    EXPECT_GT(quality, 0.99f);
    EXPECT_NEAR(centre.X(), kPinCentreX, 1e-4);
    EXPECT_NEAR(centre.Y(), kPinCentreY, 1e-4);
    EXPECT_NEAR(centre.Z(), 1.0, 1e-4);
    // Seen from the side the pin is a 1 × 2 rectangle, not trusted.
    kxMotionDetect::ComputeCircleBasedCentroid(Vec3f(1, 0, 0), pin.pointers(), quality);
    EXPECT_LT(quality, 0.7f);
}

}  // namespace

// Seen along -d the points are the mirror image of what d shows: the same
// centre and, up to rounding, the same quality, so a fit per line is enough to
// know that the opposite sense cannot reach a different verdict. Random
// clouds (discs, thin strips, rings) along random directions, and the axis
// directions where projections tie.
TEST(CircleBasedCentroid, OppositeSensesGiveTheSameFit)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    std::vector<Vec3f> directions{{0, 0, 1}, {1, 0, 0}, {0, 1, 0}};
    for (int k = 0; k < 12; ++k)
        directions.push_back(Vec3f(unit(rng), unit(rng), unit(rng)));
    for (int shape = 0; shape < 3; ++shape) {
        std::vector<Vec3f> points;
        for (int i = 0; i < 600; ++i) {
            const float angle = 3.14159265f * unit(rng);
            const float radius = shape == 2 ? 2.0f : std::fabs(unit(rng));
            const float thin = shape == 1 ? 0.01f : 1.0f;
            points.push_back(Vec3f(radius * std::cos(angle), thin * radius * std::sin(angle), 0.1f * unit(rng)));
        }
        const kx::kxPointer<kx::kxVertexBuffer> buffer = pointBuffer(points);
        for (const Vec3f& d : directions) {
            float forward = -1.0f, backward = -1.0f;
            const Vec3f a = kxMotionDetect::ComputeCircleBasedCentroid(d, {buffer.get()}, forward);
            const Vec3f b = kxMotionDetect::ComputeCircleBasedCentroid(-d, {buffer.get()}, backward);
            EXPECT_NEAR(forward, backward, 1e-5f) << "shape " << shape;
            EXPECT_LT((a - b).Length(), 1e-4f) << "shape " << shape;
        }
    }
}
