#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "MotionContacts.h"
#include "kxMotionDetect.h"

namespace {

using namespace motion_test;

// The literal threshold of the translation tests: ten degrees written with a
// slightly short degree factor, a little below sin(10°).
const double kLiteralThreshold = std::sin(0.17453292519444444);
const double kExactTenDegrees = std::sin(10.0 * std::numbers::pi / 180.0);

struct tRemoval {
    unsigned count;
    Vec3d directions[3];
    bool bothSenses[3];
};

tRemoval removalOf(const tContactSamples& samples)
{
    kxMotionDetect detector;
    detector.copyDirectionSamples(level300Samples());
    const tContactBuffers buffers(samples);
    buffers.load(detector);
    tRemoval r;
    r.count = detector.computeRemovalDirection(r.directions, r.bothSenses);
    return r;
}

void expectRemoval(const tRemoval& actual, const std::vector<std::pair<Vec3d, bool>>& expected)
{
    ASSERT_EQ(actual.count, expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(actual.directions[i], expected[i].first) << "direction " << i;
        EXPECT_EQ(actual.bothSenses[i], expected[i].second) << "direction " << i;
    }
}

// Random vertices (not paired contacts): positions, unit normals and weights.
kx::kxPointer<kx::kxVertexBuffer> randomBuffer(std::mt19937& rng, int vertices)
{
    std::normal_distribution<float> gauss;
    std::uniform_real_distribution<float> weight(0.1f, 2.0f);
    std::vector<tContactSample> samples;
    for (int i = 0; i < vertices; ++i) {
        Vec3f n(gauss(rng), gauss(rng), gauss(rng));
        n.Normalize();
        samples.push_back({Vec3f(gauss(rng), gauss(rng), gauss(rng)), n, n, weight(rng)});
    }
    return makePairBuffer(samples, true);
}

Vec3d alignedFaceNormal(const kx::kxVertexBuffer& buffer, int i, size_t b)
{
    const Vec3d n(buffer.TCoord3(0, i));
    return ((size_t(i) ^ b) & 1u) ? -n : n;
}

// One pair whose first face normal is n (out of A) and the partner's −n.
kx::kxPointer<kx::kxVertexBuffer> pairsWithNormals(const std::vector<Vec3f>& normals)
{
    std::vector<tContactSample> samples;
    for (size_t k = 0; k < normals.size(); ++k)
        samples.push_back({Vec3f(float(k), 0, 0), normals[k], normals[k], 1.0f});
    return makePairBuffer(samples, true);
}

// Lid on box: lifting (+z) is free one way only and scores 0; the two sliding
// directions in the contact plane are free both ways.
TEST(RemovalDirection, LidOnBox)
{
    expectRemoval(removalOf(lidOnBox(12)), {{{0, 0, 1}, false}, {{1, 0, 0}, true}, {{0, 1, 0}, true}});
}

// Pushing the second side's buffer first describes the motion of the second
// side: the one-sided direction turns round, the two-sided ones stay.
TEST(RemovalDirection, BufferOrderSetsWhichSideMoves)
{
    const tContactBuffers buffers(lidOnBox(12));
    kxMotionDetect detector;
    detector.copyDirectionSamples(level300Samples());
    detector.clearSystems();
    detector.pushContactPoints(buffers.second);
    detector.pushContactPoints(buffers.first);
    detector.centerSystems();
    tRemoval r;
    r.count = detector.computeRemovalDirection(r.directions, r.bothSenses);
    expectRemoval(r, {{{0, 0, -1}, false}, {{1, 0, 0}, true}, {{0, 1, 0}, true}});
}

TEST(RemovalDirection, CapWithRimOnlyLifts)
{
    expectRemoval(removalOf(capOnBox(16)), {{{0, 0, 1}, false}});
}

TEST(RemovalDirection, SquarePegSlidesAlongItsAxis)
{
    expectRemoval(removalOf(squarePegInHole(10)), {{{0, 0, 1}, true}});
}

TEST(RemovalDirection, RoundPinSlidesAlongItsAxis)
{
    expectRemoval(removalOf(roundPinInHole(8)), {{{0, 0, 1}, true}});
}

// Three equal faces: +x, +y, +z all score the same and keep their order.
TEST(RemovalDirection, BlockInCornerHasThreeOneSidedDirections)
{
    expectRemoval(removalOf(blockInCorner(10)), {{{1, 0, 0}, false}, {{0, 1, 0}, false}, {{0, 0, 1}, false}});
}

TEST(MotionDetect, CentringAndLifeCycle)
{
    const tContactBuffers buffers(lidOnBox(4));
    kxMotionDetect detector;
    EXPECT_EQ(detector.getRadius(), 1.0);
    EXPECT_EQ(detector.getNoPoints(), 0u);
    buffers.load(detector);
    EXPECT_EQ(detector.getNoPoints(), uint64_t(2 * 16 + 2 * 25));
    double weightSum = 0.0, largest = 0.0;
    Vec3d positionSum;
    for (const kx::kxVertexBuffer* b : {buffers.first.get(), buffers.second.get()}) {
        for (int i = 0; i < b->GetVertexQuantity(); ++i) {
            weightSum += b->PSize1(i);
            positionSum += Vec3d(b->Position3(i)) * double(b->PSize1(i));
        }
    }
    const Vec3d centroid = positionSum * (1.0 / weightSum);
    for (const kx::kxVertexBuffer* b : {buffers.first.get(), buffers.second.get()}) {
        for (int i = 0; i < b->GetVertexQuantity(); ++i)
            largest = std::max(largest, (Vec3d(b->Position3(i)) - centroid).Length());
    }
    EXPECT_DOUBLE_EQ(detector.getWeightSum(), weightSum);
    EXPECT_NEAR((detector.getCentroid() - centroid).Length(), 0.0, 1e-15);
    EXPECT_NEAR(detector.getRadius(), largest, 1e-15);

    detector.clearSystems();
    EXPECT_EQ(detector.getRadius(), 1.0);
    EXPECT_EQ(detector.getNoPoints(), 0u);
    EXPECT_EQ(detector.getWeightSum(), 0.0);
    EXPECT_EQ(detector.getSingleDisassemblyDirectionScore(Vec3d(0, 0, -1)), 0.0);
}

// The constant-time scores equal direct sums over the points, with face
// normals aligned by the buffer/vertex parity rule.
TEST(MotionDetect, ClosedFormScoresEqualDirectSums)
{
    std::mt19937 rng(1234);
    for (int trial = 0; trial < 5; ++trial) {
        const kx::kxPointer<kx::kxVertexBuffer> buffers[3] = {randomBuffer(rng, 37), randomBuffer(rng, 20),
                                                             randomBuffer(rng, 11)};
        kxMotionDetect detector;
        detector.clearSystems();
        for (const auto& b : buffers)
            detector.pushContactPoints(b);
        detector.centerSystems();

        std::normal_distribution<double> gauss;
        for (int k = 0; k < 50; ++k) {
            Vec3d d(gauss(rng), gauss(rng), gauss(rng));
            d.Normalize();
            double weightSum = 0.0, translation = 0.0, disassembly = 0.0;
            for (size_t b = 0; b < 3; ++b) {
                for (int i = 0; i < buffers[b]->GetVertexQuantity(); ++i) {
                    const double w = buffers[b]->PSize1(i);
                    const double s = alignedFaceNormal(*buffers[b], i, b).Dot(d);
                    weightSum += w;
                    translation += w * s * s;
                    disassembly += w * s * s * (1 + s) * (1 + s);
                }
            }
            EXPECT_NEAR(detector.getSingleTranslationScore(d), translation / weightSum, 1e-9 * translation / weightSum);
            EXPECT_NEAR(detector.getSingleDisassemblyDirectionScore(d), disassembly, 1e-9 * disassembly);
        }
    }
}

// The vectorised scan picks exactly the sample a plain scan picks, also among
// exact ties and flat valleys of near-ties.
TEST(MotionDetect, FastScanPicksThePlainScansSample)
{
    kxMotionDetect detector;
    detector.copyDirectionSamples(level300Samples());
    std::mt19937 rng(99);
    std::normal_distribution<float> gauss;
    const auto randomUnit = [&] {
        Vec3f n(gauss(rng), gauss(rng), gauss(rng));
        n.Normalize();
        return n;
    };

    std::vector<tContactSamples> contacts = {lidOnBox(6), capOnBox(8), roundPinInHole(8), blockInCorner(6)};
    // Few distinct normals, exactly repeated or slightly scattered.
    for (float noise : {0.0f, 1e-4f, 1e-7f}) {
        for (int normalsCount = 1; normalsCount <= 3; ++normalsCount) {
            std::vector<Vec3f> pool;
            for (int k = 0; k < normalsCount; ++k)
                pool.push_back(randomUnit());
            tContactSamples c;
            for (int k = 0; k < 60; ++k) {
                Vec3f n = pool[size_t(k) % pool.size()] + Vec3f(gauss(rng), gauss(rng), gauss(rng)) * noise;
                n.Normalize();
                c.onA.push_back({Vec3f(gauss(rng), gauss(rng), gauss(rng)), n, n, 1.0f + 0.1f * float(k % 3)});
            }
            c.onB = c.onA;
            contacts.push_back(c);
        }
    }
    for (size_t i = 0; i < contacts.size(); ++i) {
        const tContactBuffers buffers(contacts[i]);
        buffers.load(detector);
        EXPECT_EQ(detector.getBestDisassemblySampleIndex(), plainBestDisassemblySample(detector)) << "contact " << i;
    }

    // No points: every score is exactly 0 and the first sample wins.
    detector.clearSystems();
    detector.centerSystems();
    EXPECT_EQ(detector.getBestDisassemblySampleIndex(), 0u);
    // A non-finite weight makes every score NaN: no sample is taken.
    tContactSamples broken = lidOnBox(2);
    broken.onA[0].weight = std::numeric_limits<float>::quiet_NaN();
    const tContactBuffers brokenBuffers(broken);
    brokenBuffers.load(detector);
    EXPECT_EQ(detector.getBestDisassemblySampleIndex(), kxMotionDetect::NO_SAMPLE);
    EXPECT_EQ(plainBestDisassemblySample(detector), kxMotionDetect::NO_SAMPLE);
}

TEST(ValidateTranslation, LineTest)
{
    kxMotionDetect detector;
    detector.clearSystems();
    EXPECT_TRUE(detector.validateTranslation(Vec3d(1, 0, 0)));  // no buffers at all

    // Ten pairs on a plane with normal z: any in-plane direction slides; a
    // direction tilted by more than ten degrees violates at every pair.
    const kx::kxPointer<kx::kxVertexBuffer> plane = pairsWithNormals(std::vector<Vec3f>(10, Vec3f(0, 0, -1)));
    detector.pushContactPoints(plane);
    EXPECT_TRUE(detector.validateTranslation(Vec3d(1, 0, 0)));
    EXPECT_TRUE(detector.validateTranslation(Vec3d(0.6, -0.8, 0)));
    const double tilt = 10.5 * std::numbers::pi / 180.0;
    EXPECT_FALSE(detector.validateTranslation(Vec3d(std::cos(tilt), 0, std::sin(tilt))));
    EXPECT_FALSE(detector.validateTranslation(Vec3d(std::cos(tilt), 0, -std::sin(tilt))));

    // The literal threshold, not sin(10°): a component between the two violates.
    const auto directionWithComponent = [](double z) { return Vec3d(std::sqrt(1 - z * z), 0, z); };
    const double between = 0.5 * (kLiteralThreshold + kExactTenDegrees);
    ASSERT_LT(kLiteralThreshold, between);
    ASSERT_LT(between, kExactTenDegrees);
    std::vector<Vec3f> normals(10, Vec3f(0, 1, 0));  // perpendicular to the directions tested
    normals[3] = Vec3f(0, 0, 1);
    detector.clearSystems();
    const kx::kxPointer<kx::kxVertexBuffer> ten = pairsWithNormals(normals);
    detector.pushContactPoints(ten);
    EXPECT_FALSE(detector.validateTranslation(directionWithComponent(between)));         // 1 of 10: bound 1
    EXPECT_TRUE(detector.validateTranslation(directionWithComponent(0.99 * kLiteralThreshold)));

    // With 20 pairs the bound is 2: one violation is tolerated, two are not.
    normals.resize(20, Vec3f(0, 1, 0));
    detector.clearSystems();
    const kx::kxPointer<kx::kxVertexBuffer> twenty = pairsWithNormals(normals);
    detector.pushContactPoints(twenty);
    EXPECT_TRUE(detector.validateTranslation(directionWithComponent(between)));
    normals[7] = Vec3f(0, 0, 1);
    detector.clearSystems();
    const kx::kxPointer<kx::kxVertexBuffer> twentyTwo = pairsWithNormals(normals);
    detector.pushContactPoints(twentyTwo);
    EXPECT_FALSE(detector.validateTranslation(directionWithComponent(between)));
}

TEST(ValidateTranslation, DirectedTestAndScore)
{
    kxMotionDetect detector;
    detector.clearSystems();
    double score = -1.0;
    EXPECT_TRUE(detector.validateTranslation(Vec3d(0, 0, 1), score));
    EXPECT_EQ(score, 0.0);

    // One pair, A's face normal −z, weight 2 (only the first point's weight counts).
    std::vector<tContactSample> pair = {{Vec3f(0, 0, 0), Vec3f(0, 0, -1), Vec3f(0, 0, -1), 2.0f}};
    const kx::kxPointer<kx::kxVertexBuffer> first = makePairBuffer(pair, true);
    first->PSize1(1) = 100.0f;
    detector.pushContactPoints(first);
    const double h = std::sqrt(0.5);
    EXPECT_TRUE(detector.validateTranslation(Vec3d(0, 0, 1), score));  // straight away: m = −1
    EXPECT_EQ(score, 0.0);
    EXPECT_TRUE(detector.validateTranslation(Vec3d(1, 0, 0), score));  // tangent: m = 0
    EXPECT_EQ(score, 2.0);
    EXPECT_TRUE(detector.validateTranslation(Vec3d(h, 0, h), score));  // away at 45°
    EXPECT_NEAR(score, 2.0 * (1 - h) * (1 - h), 1e-15);
    EXPECT_FALSE(detector.validateTranslation(Vec3d(h, 0, -h), score));  // into B: m = h, capped at 1
    EXPECT_EQ(score, 2.0);
    EXPECT_FALSE(detector.validateTranslation(Vec3d(0, 0, -1), score));
    EXPECT_EQ(score, 2.0);

    // A second buffer is read in the opposite sense: the same layout pushed
    // second blocks +z, and now each sense has one violating pair of two.
    detector.pushContactPoints(first);
    EXPECT_FALSE(detector.validateTranslation(Vec3d(0, 0, 1), score));
    EXPECT_EQ(score, 2.0);
    EXPECT_FALSE(detector.validateTranslation(Vec3d(0, 0, -1), score));
    EXPECT_EQ(score, 2.0);
}

TEST(BestTranslationParameters, SlidingLinesAndCache)
{
    kxMotionDetect detector;
    const tContactBuffers lid(lidOnBox(6));
    lid.load(detector);
    Vec3d out[3];
    ASSERT_EQ(detector.getBestTranslationParameters(out), 2u);
    EXPECT_NEAR(out[0].Z(), 0.0, 1e-12);
    EXPECT_NEAR(out[1].Z(), 0.0, 1e-12);
    EXPECT_NEAR(std::fabs(out[2].Z()), 1.0, 1e-12);  // the failing line lands in the last slot
    EXPECT_NEAR(out[0].Dot(out[1]), 0.0, 1e-12);

    // Cached until the next centring, even with more buffers pushed.
    const tContactBuffers corner(blockInCorner(6));
    detector.pushContactPoints(corner.first);
    Vec3d again[3];
    EXPECT_EQ(detector.getBestTranslationParameters(again), 2u);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(again[i], out[i]);
    kxMotionDetect copy(detector);
    Vec3d copied[3];
    EXPECT_EQ(copy.getBestTranslationParameters(copied), 2u);
    EXPECT_EQ(copied[2], out[2]);

    // A corner blocks every line through its three faces.
    corner.load(detector);
    EXPECT_EQ(detector.getBestTranslationParameters(out), 0u);

    // A square peg slides along its axis only; both failing lines are in-plane.
    const tContactBuffers peg(squarePegInHole(6));
    peg.load(detector);
    ASSERT_EQ(detector.getBestTranslationParameters(out), 1u);
    EXPECT_NEAR(std::fabs(out[0].Z()), 1.0, 1e-12);
    EXPECT_NEAR(out[1].Z(), 0.0, 1e-12);
    EXPECT_NEAR(out[2].Z(), 0.0, 1e-12);
}

}  // namespace
