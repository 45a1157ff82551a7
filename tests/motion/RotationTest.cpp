#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "MotionContacts.h"
#include "kxMotionDetect.h"

namespace {

using namespace motion_test;
using Sys = kxMotionDetect::tSingleRotAxisSystem;

// A buffer with the given positions and per-point vectors (also used as face
// normals), weight 1 each.
kx::kxPointer<kx::kxVertexBuffer> vertexBuffer(const std::vector<std::pair<Vec3f, Vec3f>>& vertices)
{
    kx::kxAttributes attr;
    attr.SetPositionChannels(3);
    attr.SetNormalChannels(3);
    attr.SetTCoordChannels(0, 3);
    attr.SetPSizeChannels(1);
    kx::kxPointer<kx::kxVertexBuffer> buffer = new kx::kxVertexBuffer(attr, int(vertices.size()));
    for (size_t i = 0; i < vertices.size(); ++i) {
        buffer->Position3(int(i)) = vertices[i].first;
        buffer->Normal3(int(i)) = vertices[i].second;
        buffer->TCoord3(0, int(i)) = vertices[i].second;
        buffer->PSize1(int(i)) = 1.0f;
    }
    return buffer;
}

void perpendicularBasis(const Vec3d& d, Vec3d& u, Vec3d& v)
{
    const Vec3d a = std::fabs(d[1]) > std::fabs(d[0]) ? Vec3d(1, 0, 0) : Vec3d(0, 1, 0);
    u = a - d * d.Dot(a);
    u.Normalize();
    v = d.Cross(u);
}

bool isZero(const kxSymMatrix3& m)
{
    return m.toMatrix3() == Wm4::Matrix3<double>();
}

TEST(RotationSystem, PointAtTheCentroidAddsOnlyAxisTensors)
{
    kxMotionDetect detector;
    Sys sys;
    sys.clear();
    const Vec3d n(0.6, 0.0, 0.8);
    detector.pushPointToSingleRotationSystem(Vec3d(0, 0, 0), n, 2.0, sys);
    EXPECT_TRUE(isZero(sys.mMomentTensor));
    for (const auto& m : sys.mMixedMatrices)
        EXPECT_EQ(m, Wm4::Matrix3<double>());
    // a1 = (0, −nz, ny), a2 = (nz, 0, −nx), a3 = (−ny, nx, 0).
    EXPECT_DOUBLE_EQ(sys.mAxisTensors[0].yy(), 2.0 * 0.64);
    EXPECT_DOUBLE_EQ(sys.mAxisTensors[1].xx(), 2.0 * 0.64);
    EXPECT_DOUBLE_EQ(sys.mAxisTensors[1].xz(), 2.0 * 0.8 * -0.6);
    EXPECT_DOUBLE_EQ(sys.mAxisTensors[2].yy(), 2.0 * 0.36);
    EXPECT_DOUBLE_EQ(sys.mAxisTensors[3].xy(), 2.0 * (-0.8 * 0.8));  // a1·a2ᵀ + a2·a1ᵀ: (−nz)·nz
    EXPECT_DOUBLE_EQ(sys.mAxisTensors[5].xx(), 2.0 * 2.0 * 0.8 * 0.0);

    // A point off the centroid fills K = w·c·cᵀ and M_k = w·a_k·cᵀ with c = n × r.
    const Vec3d r(1.0, 2.0, -1.0);
    detector.pushPointToSingleRotationSystem(r, n, 1.0, sys);
    const Vec3d c = n.Cross(r);
    EXPECT_DOUBLE_EQ(sys.mMomentTensor.xy(), c[0] * c[1]);
    EXPECT_DOUBLE_EQ(sys.mMixedMatrices[2][1][0], n[0] * c[0]);  // a3.y = nx
}

// A singular plane system (determinant exactly 0) is solved with determinant 1
// and no regularisation: the adjugate gives α = β = 0 and the residual e.
TEST(RotationScore, SingularPlaneSystemUsesDeterminantOne)
{
    kxMotionDetect detector;
    detector.clearSystems();  // centroid 0, radius 1
    Sys sys;
    sys.clear();
    detector.pushPointToSingleRotationSystem(Vec3d(0, 1, 0), Vec3d(1, 0, 0), 1.0, sys);
    detector.pushPointToSingleRotationSystem(Vec3d(0, 2, 0), Vec3d(1, 0, 0), 1.0, sys);
    Vec3d point(9, 9, 9);
    // Regularised, the point would move to α = 3/2.001·… and the residual drop to about 0.5.
    EXPECT_EQ(detector.getSingleRotationScore(Vec3d(0, 0, 1), point, sys), 5.0);
    EXPECT_EQ(point, Vec3d(0, 0, 0));
}

TEST(RotationScore, NoResistanceAboutAnAxisThroughTheCentroid)
{
    kxMotionDetect detector;
    const tContactBuffers lid(lidOnBox(5));
    lid.load(detector);
    for (const Sys* sys : {&detector.getNormalRotSystem(), &detector.getContactRotSystem()}) {
        Vec3d point;
        EXPECT_EQ(detector.getSingleRotationScore(Vec3d(0, 0, 1), point, *sys), 0.0);
        EXPECT_EQ(point, detector.getCentroid());
    }
}

// The returned residual is the exact residual of the returned point, and the
// point solves the regularised 2×2 normal equations in the plane through the
// centroid perpendicular to the axis.
TEST(RotationScore, ResidualAndPointMatchDirectSums)
{
    std::mt19937 rng(5);
    std::normal_distribution<float> gauss;
    std::uniform_real_distribution<float> weight(0.2f, 3.0f);
    std::vector<tContactSample> samples;
    for (int i = 0; i < 40; ++i) {
        Vec3f face(gauss(rng), gauss(rng), gauss(rng)), smooth(gauss(rng), gauss(rng), gauss(rng));
        face.Normalize();
        smooth.Normalize();
        samples.push_back({Vec3f(3 + gauss(rng), -1 + 2 * gauss(rng), gauss(rng)), face, smooth, weight(rng)});
    }
    const tContactBuffers buffers(tContactSamples{samples, std::vector<tContactSample>(samples.begin(), samples.begin() + 15)});
    kxMotionDetect detector;
    buffers.load(detector);
    const double W = detector.getWeightSum(), R = detector.getRadius();
    const Vec3d centroid = detector.getCentroid();

    std::normal_distribution<double> g;
    for (int trial = 0; trial < 20; ++trial) {
        Vec3d axis(g(rng), g(rng), g(rng));
        axis.Normalize();
        Vec3d u, v;
        perpendicularBasis(axis, u, v);
        for (int which = 0; which < 2; ++which) {
            const Sys& sys = which == 0 ? detector.getNormalRotSystem() : detector.getContactRotSystem();
            Vec3d point;
            const double score = detector.getSingleRotationScore(axis, point, sys);
            double residual = 0.0, auu = 0.0, auv = 0.0, avv = 0.0, bu = 0.0, bv = 0.0;
            size_t b = 0;
            for (const kx::kxVertexBuffer* buffer : {buffers.first.get(), buffers.second.get()}) {
                for (int i = 0; i < buffer->GetVertexQuantity(); ++i) {
                    const double w = buffer->PSize1(i);
                    Vec3d n(which == 0 ? buffer->Normal3(i) : buffer->TCoord3(0, i));
                    if ((size_t(i) ^ b) & 1u)
                        n = -n;
                    const Vec3d p(buffer->Position3(i));
                    const double normalSpeed = n.Dot(axis.Cross(p - point));
                    residual += w * normalSpeed * normalSpeed;
                    const Vec3d g = axis.Cross(n);
                    const double twist = n.Cross(p - centroid).Dot(axis);
                    auu += w * u.Dot(g) * u.Dot(g);
                    auv += w * u.Dot(g) * v.Dot(g);
                    avv += w * v.Dot(g) * v.Dot(g);
                    bu += w * u.Dot(g) * twist;
                    bv += w * v.Dot(g) * twist;
                }
                ++b;
            }
            residual /= W * R * R;
            EXPECT_NEAR(score, residual, 1e-9 * residual);
            const Vec3d x = (point - centroid) * (1.0 / R);
            EXPECT_NEAR(x.Dot(axis), 0.0, 1e-12);
            const double alpha = x.Dot(u), beta = x.Dot(v), reg = double(0.001f);
            EXPECT_NEAR((auu / W + reg) * alpha + auv / W * beta, bu / (W * R), 1e-9 * (std::fabs(bu) / (W * R) + 1e-3));
            EXPECT_NEAR(auv / W * alpha + (avv / W + reg) * beta, bv / (W * R), 1e-9 * (std::fabs(bv) / (W * R) + 1e-3));
        }
    }
}

TEST(BestRotation, RoundPinTurnsAboutItsAxis)
{
    kxMotionDetect detector;
    detector.generateDirectionSamples(40);
    const tContactBuffers pin(roundPinInHole(8));
    pin.load(detector);
    Vec3d axes[3], points[3];
    ASSERT_EQ(detector.getBestRotationParameters(axes, points), 1u);
    EXPECT_EQ(axes[0], Vec3d(0, 0, 1));
    EXPECT_NEAR(points[0].X(), kPinCentreX, 1e-5);
    EXPECT_NEAR(points[0].Y(), kPinCentreY, 1e-5);
    EXPECT_NEAR(points[0].Z(), detector.getCentroid().Z(), 1e-12);
    // The three axes are perpendicular; the invalid ones follow the valid one.
    EXPECT_NEAR(axes[0].Dot(axes[1]), 0.0, 1e-12);
    EXPECT_NEAR((axes[0].Cross(axes[1]) - axes[2]).Length(), 0.0, 1e-12);

    // Later calls return the cache fields, which the computation leaves as
    // centring set them.
    Vec3d cachedAxes[3] = {{1, 1, 1}, {1, 1, 1}, {1, 1, 1}}, cachedPoints[3];
    EXPECT_EQ(detector.getBestRotationParameters(cachedAxes, cachedPoints), 0u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(cachedAxes[i], Vec3d());
        EXPECT_EQ(cachedPoints[i], Vec3d());
    }
    // A new centring computes again.
    pin.load(detector);
    Vec3d again[3], againPoints[3];
    EXPECT_EQ(detector.getBestRotationParameters(again, againPoints), 1u);
    EXPECT_EQ(again[0], axes[0]);
    EXPECT_EQ(againPoints[0], points[0]);
}

TEST(MaxAngleDeviation, ShrinksForThinRegionsAndDistantAxes)
{
    // Corners of a 2 × 1 rectangle: means (1, 0.5), principal direction x,
    // extents 2 and 1.
    const kx::kxPointer<kx::kxVertexBuffer> rectangle = vertexBuffer(
        {{{0, 0, 0}, {0, 0, 1}}, {{2, 0, 0}, {0, 0, 1}}, {{0, 1, 0}, {0, 0, 1}}, {{2, 1, 0}, {0, 0, 1}}});
    kxMotionDetect detector;
    detector.clearSystems();
    detector.pushContactPoints(rectangle);
    const double factor = 0.2222222222222222;
    const Vec3d z(0, 0, 1);
    EXPECT_DOUBLE_EQ(detector.computeMaxAngleDeviation(z, {1, 0.5, 0}), factor * std::atan(0.5));  // inside: 1/2
    EXPECT_DOUBLE_EQ(detector.computeMaxAngleDeviation(z, {5, 0.5, 0}), factor * std::atan(0.125));  // 0.5·1/4
    EXPECT_DOUBLE_EQ(detector.computeMaxAngleDeviation(z, {1, 3, 0}), factor * std::atan(0.4));      // 0.5·2/2.5
    EXPECT_DOUBLE_EQ(detector.computeMaxAngleDeviation(z, {1.5, 0.6, 7}), factor * std::atan(0.5));  // depth is ignored

    // A square seen along its normal from its centre: ten degrees at most.
    const kx::kxPointer<kx::kxVertexBuffer> square = vertexBuffer(
        {{{0, 0, 0}, {0, 0, 1}}, {{1, 0, 0}, {0, 0, 1}}, {{0, 1, 0}, {0, 0, 1}}, {{1, 1, 0}, {0, 0, 1}}});
    detector.clearSystems();
    detector.pushContactPoints(square);
    EXPECT_NEAR(detector.computeMaxAngleDeviation(z, {0.5, 0.5, 0}), std::numbers::pi / 18.0, 1e-15);
}

TEST(ValidateRotation, NormalsMustStayPerpendicularToTheMotion)
{
    kxMotionDetect detector;
    detector.clearSystems();
    EXPECT_TRUE(detector.validateRotation({0, 0, 1}, {0, 0, 0}, 0.1));  // no buffers

    const Vec3d z(0, 0, 1), pinCentre(kPinCentreX, kPinCentreY, 1);
    const tContactBuffers pin(roundPinInHole(8));
    pin.load(detector);
    EXPECT_TRUE(detector.validateRotation(z, pinCentre, detector.computeMaxAngleDeviation(z, pinCentre)));
    const Vec3d offCentre = pinCentre + Vec3d(0.2, 0, 0);
    EXPECT_FALSE(detector.validateRotation(z, offCentre, detector.computeMaxAngleDeviation(z, offCentre)));

    const tContactBuffers lid(lidOnBox(6));
    lid.load(detector);
    const Vec3d centroid = detector.getCentroid();
    EXPECT_TRUE(detector.validateRotation(z, centroid, detector.computeMaxAngleDeviation(z, centroid)));
    EXPECT_FALSE(detector.validateRotation({1, 0, 0}, centroid, 0.17));

    // A side on the axis does not move: when it is the first side the pair's
    // value is 0, when it is the second the first side's value stands alone.
    detector.clearSystems();
    const kx::kxPointer<kx::kxVertexBuffer> firstOnAxis =
        vertexBuffer({{{0, 0, 0}, {0, 1, 0}}, {{1, 0, 0}, {0, 1, 0}}});
    detector.pushContactPoints(firstOnAxis);
    EXPECT_TRUE(detector.validateRotation(z, {0, 0, 0}, 0.1));
    detector.clearSystems();
    const kx::kxPointer<kx::kxVertexBuffer> secondOnAxis =
        vertexBuffer({{{1, 0, 0}, {0, 1, 0}}, {{0, 0, 0}, {0, 1, 0}}});
    detector.pushContactPoints(secondOnAxis);
    EXPECT_FALSE(detector.validateRotation(z, {0, 0, 0}, 0.1));
    // Pairs with both sides on the axis are no samples: 19 of them beside one
    // violating pair leave 1 sample (bound 1), not 20 (bound 2).
    detector.clearSystems();
    std::vector<std::pair<Vec3f, Vec3f>> vertices(38, {Vec3f(0, 0, 2), Vec3f(0, 1, 0)});
    vertices.push_back({Vec3f(1, 0, 0), Vec3f(0, 1, 0)});
    vertices.push_back({Vec3f(1, 0, 0), Vec3f(0, 1, 0)});
    const kx::kxPointer<kx::kxVertexBuffer> bothOnAxis = vertexBuffer(vertices);
    detector.pushContactPoints(bothOnAxis);
    EXPECT_FALSE(detector.validateRotation(z, {0, 0, 0}, 0.1));  // 1 violation of 1 sample
}

}  // namespace
