#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "MotionContacts.h"
#include "kxMotionDetect.h"

namespace {

using namespace motion_test;

// Area of the 16-sided polygon inscribed in a circle of radius r.
double polygonArea(double r)
{
    return 8.0 * r * r * std::sin(2.0 * std::numbers::pi / 16.0);
}

// Volume of an arrow `length` long: shaft 0.8 of it (0.025 radius), head 0.2
// (0.06 radius); a double arrow has a shaft of 1.6 and two heads.
double arrowVolume(double length, bool bothSenses)
{
    const double shaft = polygonArea(0.025 * length) * 0.8 * length * (bothSenses ? 2.0 : 1.0);
    const double head = polygonArea(0.06 * length) * 0.2 * length / 3.0;
    return shaft + head * (bothSenses ? 2.0 : 1.0);
}

struct tMeshSummary {
    double signedVolume = 0.0;
    Vec3d low{1e30, 1e30, 1e30}, high{-1e30, -1e30, -1e30};
};

// Checks every triangle's stored normals against its winding and sums the
// signed volume (positive for closed outward-wound parts).
tMeshSummary summarise(const kx::kxTriMesh& mesh)
{
    tMeshSummary s;
    const kx::kxVertexBuffer& vb = *mesh.GetVertexBuffer();
    for (int t = 0; t < mesh.GetTriangleQuantity(); ++t) {
        int i[3];
        mesh.GetTriangle(t, i[0], i[1], i[2]);
        const Vec3d p0(vb.Position3(i[0])), p1(vb.Position3(i[1])), p2(vb.Position3(i[2]));
        Vec3d n = (p1 - p0).Cross(p2 - p0);
        n.Normalize();
        for (int k = 0; k < 3; ++k) {
            EXPECT_NEAR((Vec3d(vb.Normal3(i[k])) - n).Length(), 0.0, 1e-3);
            const Vec3d p(vb.Position3(i[k]));
            for (int c = 0; c < 3; ++c) {
                s.low[c] = std::min(s.low[c], p[c]);
                s.high[c] = std::max(s.high[c], p[c]);
            }
        }
        s.signedVolume += p0.Dot(p1.Cross(p2)) / 6.0;
    }
    return s;
}

void expectBox(const tMeshSummary& s, const Vec3d& low, const Vec3d& high)
{
    for (int c = 0; c < 3; ++c) {
        EXPECT_NEAR(s.low[c], low[c], 1e-5) << "axis " << c;
        EXPECT_NEAR(s.high[c], high[c], 1e-5) << "axis " << c;
    }
}

TEST(PreviewMeshes, RemovalArrowsOfALid)
{
    kxMotionDetect detector;
    detector.generateDirectionSamples(20);
    const tContactBuffers lid(lidOnBox(4));
    lid.load(detector);
    const Vec3f point(1, 2, 3);
    const kx::kxPointer<kx::kxTriMesh> mesh = detector.computeDisassemblyDirectionMesh(point, 2.0f);
    ASSERT_NE(mesh, nullptr);
    const tMeshSummary s = summarise(*mesh);
    // +z one way, x and y both ways.
    expectBox(s, Vec3d(-1, 0, 3 - 0.12), Vec3d(3, 4, 5));
    const double expected = arrowVolume(2.0, false) + 2.0 * arrowVolume(2.0, true);
    EXPECT_NEAR(s.signedVolume, expected, 1e-4 * expected);
}

TEST(PreviewMeshes, SlidingLinesAndAxes)
{
    kxMotionDetect detector;
    const tContactBuffers corner(blockInCorner(4));
    corner.load(detector);
    EXPECT_EQ(detector.computeTranslationMesh(Vec3f(0, 0, 0), 1.0f), nullptr);  // no sliding line

    const tContactBuffers peg(squarePegInHole(4));
    peg.load(detector);
    const kx::kxPointer<kx::kxTriMesh> line = detector.computeTranslationMesh(Vec3f(0.5f, 0.5f, 1.0f), 1.5f);
    ASSERT_NE(line, nullptr);
    const tMeshSummary s = summarise(*line);
    EXPECT_NEAR(s.low.Z(), 1.0 - 1.5, 1e-6);
    EXPECT_NEAR(s.high.Z(), 1.0 + 1.5, 1e-6);
    EXPECT_NEAR(s.signedVolume, arrowVolume(1.5, true), 1e-4 * arrowVolume(1.5, true));

    // A rod centred on the point along the axis; the ring is two-sided and flat.
    const kx::kxPointer<kx::kxTriMesh> axis = kxMotionDetect::ComputeAxisMesh(Vec3d(0, 0, 3), Vec3d(1, 1, 1), 4.0f);
    ASSERT_NE(axis, nullptr);
    const tMeshSummary a = summarise(*axis);
    EXPECT_NEAR(a.low.Z(), -1.0, 1e-6);
    EXPECT_NEAR(a.high.Z(), 3.0, 1e-6);
    EXPECT_NEAR(a.high.X(), 1.0 + 0.12 * 4.0, 1e-5);
    EXPECT_NEAR(a.signedVolume, polygonArea(0.1) * 4.0, 1e-4 * polygonArea(0.1) * 4.0);
}

}  // namespace
