#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <type_traits>
#include <vector>

#include "kxMotionDetect.h"
#include "kxSymMatrix3.h"

namespace {

using Vec3 = Wm4::Vector3<double>;
using Mat3 = Wm4::Matrix3<double>;

constexpr double kPhi = 1.618033988749895;
const Vec3 kIcosahedron[12] = {{kPhi, 1, 0}, {-kPhi, 1, 0}, {kPhi, -1, 0}, {-kPhi, -1, 0}, {1, 0, kPhi},  {1, 0, -kPhi},
                               {-1, 0, kPhi}, {-1, 0, -kPhi}, {0, kPhi, 1}, {0, -kPhi, 1}, {0, kPhi, -1}, {0, -kPhi, -1}};
const int kFaces[20][3] = {{0, 8, 4},  {0, 5, 10}, {2, 4, 9},  {2, 11, 5}, {1, 6, 8},  {1, 10, 7}, {3, 9, 6},
                           {3, 7, 11}, {0, 10, 8}, {1, 8, 10}, {2, 9, 11}, {3, 11, 9}, {4, 2, 0},  {5, 0, 2},
                           {6, 1, 3},  {7, 3, 1},  {8, 6, 4},  {9, 4, 6},  {10, 5, 7}, {11, 7, 5}};

Vec3 normalised(const Vec3& v)
{
    return v * (1.0 / std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]));
}

void expectMatrixNear(const Mat3& actual, const Mat3& expected, double tolerance)
{
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(actual[r][c], expected[r][c], tolerance) << "entry " << r << "," << c;
    }
}

kxSymMatrix3 zeroMatrix()
{
    kxSymMatrix3 m;
    m.clear();
    return m;
}

TEST(SymMatrix3, StorageAndAliases)
{
    static_assert(std::is_trivially_copyable_v<kxSymMatrix3>);
    static_assert(sizeof(kxSymMatrix3) == 6 * sizeof(double));
    kxSymMatrix3 m = zeroMatrix();
    EXPECT_EQ(m.toMatrix3(), Mat3());
    EXPECT_EQ(&m.yx(), &m.xy());
    EXPECT_EQ(&m.zx(), &m.xz());
    EXPECT_EQ(&m.zy(), &m.yz());
    m.xx() = 1, m.xy() = 2, m.xz() = 3, m.yy() = 4, m.yz() = 5, m.zz() = 6;
    EXPECT_EQ(m.toMatrix3(), Mat3(1, 2, 3, 2, 4, 5, 3, 5, 6));
    const Vec3 v(0.5, -2, 3);
    const Vec3 expected = m.toMatrix3() * v;
    EXPECT_EQ(m.vectorProduct(v), expected);

    kxSymMatrix3& same = m.selfScalarProduct(2.0);
    EXPECT_EQ(&same, &m);
    EXPECT_EQ(m.toMatrix3(), Mat3(2, 4, 6, 4, 8, 10, 6, 10, 12));
    kxSymMatrix3 sum = zeroMatrix();
    sum.addMatrix(m, 0.5);
    sum.addMatrix(m, 0.25);
    EXPECT_EQ(sum.toMatrix3(), Mat3(1.5, 3, 4.5, 3, 6, 7.5, 4.5, 7.5, 9));
    kxSymMatrix3 copy;
    copy = sum;
    EXPECT_EQ(copy.toMatrix3(), sum.toMatrix3());
}

TEST(SymMatrix3, TensorProducts)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> uniform(-2.0, 2.0);
    for (int trial = 0; trial < 20; ++trial) {
        const Vec3 a(uniform(rng), uniform(rng), uniform(rng)), b(uniform(rng), uniform(rng), uniform(rng));
        const double w = uniform(rng);
        kxSymMatrix3 self = zeroMatrix(), twin = zeroMatrix(), upper = zeroMatrix();
        self.pushSelfTensorProduct(a, w);
        twin.pushTwinTensorProduct(a, b, w);
        upper.pushTensorProduct(a, b, w);
        expectMatrixNear(self.toMatrix3(), Mat3::TensorProduct(a, a) * w, 1e-14);
        expectMatrixNear(twin.toMatrix3(), (Mat3::TensorProduct(a, b) + Mat3::TensorProduct(b, a)) * w, 1e-14);
        // Only the upper triangle of w·a·bᵀ, mirrored by the storage.
        const Mat3 ab = Mat3::TensorProduct(a, b) * w;
        expectMatrixNear(upper.toMatrix3(), Mat3(ab[0][0], ab[0][1], ab[0][2], ab[0][1], ab[1][1], ab[1][2], ab[0][2],
                                                 ab[1][2], ab[2][2]),
                         1e-14);
    }

    // The lower-triangle term of a·bᵀ is not stored.
    kxSymMatrix3 m = zeroMatrix();
    m.pushTensorProduct(Vec3(1, 0, 0), Vec3(0, 1, 0), 1.0);
    EXPECT_EQ(m.toMatrix3(), Mat3(0, 1, 0, 1, 0, 0, 0, 0, 0));
    m.clear();
    m.pushTensorProduct(Vec3(0, 1, 0), Vec3(1, 0, 0), 1.0);
    EXPECT_EQ(m.toMatrix3(), Mat3());

    Mat3 full;
    kxMotionDetect::PushTensorProduct(full, Vec3(1, 2, 3), Vec3(4, 5, 6), 0.5);
    kxMotionDetect::PushTensorProduct(full, Vec3(0, 1, 0), Vec3(1, 0, 0), 2.0);
    EXPECT_EQ(full, Mat3(2, 2.5, 3, 6, 5, 6, 6, 7.5, 9));
}

TEST(GenerateDirections, CountsAndFixedEntries)
{
    std::vector<Vec3> samples;
    const std::pair<unsigned, size_t> counts[] = {{0, 15}, {1, 45}, {2, 95}, {3, 165}, {10, 1215}};
    for (const auto& [level, count] : counts) {
        kxMotionDetect::GenerateDirections(level, samples);
        ASSERT_EQ(samples.size(), count) << "level " << level;
        EXPECT_EQ(samples[0], Vec3(1, 0, 0));
        EXPECT_EQ(samples[1], Vec3(0, 1, 0));
        EXPECT_EQ(samples[2], Vec3(0, 0, 1));
        for (int v = 0; v < 12; ++v)
            EXPECT_EQ(samples[3 + v], normalised(kIcosahedron[v])) << "vertex " << v;
        for (const Vec3& s : samples)
            EXPECT_NEAR(s.Length(), 1.0, 4e-16);
    }
    // A presized output is overwritten, not appended to.
    kxMotionDetect::GenerateDirections(0, samples);
    EXPECT_EQ(samples.size(), 15u);
}

// Level 1: after the axes and vertices come the 30 edge midpoints, each edge
// exactly once, grouped by the face that owns the edge in face-table order.
TEST(GenerateDirections, EdgePointsCoverEveryEdgeOnceInFaceOrder)
{
    std::vector<Vec3> samples;
    kxMotionDetect::GenerateDirections(1, samples);
    ASSERT_EQ(samples.size(), 45u);
    std::vector<int> useCount(12 * 12, 0);
    int owner = 0;
    for (size_t k = 15; k < samples.size(); ++k) {
        // The faces holding this edge, in table order; the sample must belong
        // to one at or after the face of the previous sample.
        std::vector<int> faces;
        int a = -1, b = -1;
        for (int f = 0; f < 20; ++f) {
            for (int e = 0; e < 3; ++e) {
                const int i = kFaces[f][e], j = kFaces[f][(e + 1) % 3];
                if ((samples[k] - normalised(kIcosahedron[i] + kIcosahedron[j])).Length() < 1e-15) {
                    faces.push_back(f);
                    a = std::min(i, j), b = std::max(i, j);
                }
            }
        }
        ASSERT_EQ(faces.size(), 2u) << "sample " << k << " is no edge midpoint";
        ++useCount[a * 12 + b];
        const auto next = std::find_if(faces.begin(), faces.end(), [&](int f) { return f >= owner; });
        ASSERT_NE(next, faces.end()) << "sample " << k << " breaks the face order";
        owner = *next;
    }
    int edges = 0;
    for (int count : useCount) {
        EXPECT_LE(count, 1);
        edges += count;
    }
    EXPECT_EQ(edges, 30);
}

// Level 2: the first face owns none of its edges, so entry 15 is its single
// interior point, built with the step 1/3 rounded to single precision.
TEST(GenerateDirections, InteriorPointUsesSinglePrecisionStep)
{
    std::vector<Vec3> samples;
    kxMotionDetect::GenerateDirections(2, samples);
    const Vec3 &p = kIcosahedron[0], &q = kIcosahedron[8], &r = kIcosahedron[4];
    const double floatStep = double(1.0f / 3.0f);
    const double doubleStep = 1.0 / 3.0;
    const Vec3 expected = normalised(p * floatStep + q * floatStep + r * (1.0 - floatStep - floatStep));
    const Vec3 exactStep = normalised(p * doubleStep + q * doubleStep + r * (1.0 - doubleStep - doubleStep));
    EXPECT_EQ(samples[15], expected);
    EXPECT_NE(samples[15], exactStep);
}

// Each of the 30 edges carries exactly n points, and no two samples coincide.
TEST(GenerateDirections, EdgesCarryLevelManyPointsWithoutDuplicates)
{
    const unsigned level = 10;
    std::vector<Vec3> samples;
    kxMotionDetect::GenerateDirections(level, samples);
    for (int a = 0; a < 12; ++a) {
        for (int b = a + 1; b < 12; ++b) {
            if ((kIcosahedron[a] - kIcosahedron[b]).Length() > 2.0 + 1e-9)
                continue;
            const Vec3 va = normalised(kIcosahedron[a]), vb = normalised(kIcosahedron[b]);
            const Vec3 plane = normalised(va.Cross(vb));
            const double arc = std::acos(va.Dot(vb));
            unsigned onEdge = 0;
            for (size_t k = 15; k < samples.size(); ++k) {
                const Vec3& s = samples[k];
                if (std::fabs(s.Dot(plane)) < 1e-12 &&
                    std::fabs(std::acos(std::min(1.0, s.Dot(va))) + std::acos(std::min(1.0, s.Dot(vb))) - arc) < 1e-9)
                    ++onEdge;
            }
            EXPECT_EQ(onEdge, level) << "edge " << a << "-" << b;
        }
    }
    double closest = 4.0;
    for (size_t i = 0; i < samples.size(); ++i) {
        for (size_t j = i + 1; j < samples.size(); ++j)
            closest = std::min(closest, (samples[i] - samples[j]).Length());
    }
    EXPECT_GT(closest, 0.02);
}

TEST(DirectionSamples, GenerateAndCopy)
{
    kxMotionDetect source;
    source.generateDirectionSamples(4);
    std::vector<Vec3> expected;
    kxMotionDetect::GenerateDirections(4, expected);
    EXPECT_EQ(source.getDirectionSamples(), expected);

    kxMotionDetect target;
    target.generateDirectionSamples(7);
    target.copyDirectionSamples(source);
    EXPECT_EQ(target.getDirectionSamples(), expected);
    const kxMotionDetect copied(target);
    EXPECT_EQ(copied.getDirectionSamples(), expected);
}

// Detectors of several threads read one sample set: a copy shares the
// samples (no second buffer), and regenerating the source gives it a new set
// while the copies keep the old one unchanged.
TEST(DirectionSamples, CopiesShareOneSetThatNeverChanges)
{
    EXPECT_TRUE(kxMotionDetect().getDirectionSamples().empty());
    kxMotionDetect source;
    source.generateDirectionSamples(3);
    std::vector<kxMotionDetect> workers(3);
    for (kxMotionDetect& worker : workers) {
        worker.copyDirectionSamples(source);
        EXPECT_EQ(worker.getDirectionSamples().data(), source.getDirectionSamples().data());
    }
    std::vector<Vec3> level3;
    kxMotionDetect::GenerateDirections(3, level3);
    source.generateDirectionSamples(5);
    EXPECT_EQ(source.getDirectionSamples().size(), size_t(15 + 30 * 5 + 20 * 10));
    for (const kxMotionDetect& worker : workers)
        EXPECT_EQ(worker.getDirectionSamples(), level3);
}

TEST(ValidSampleBound, TenPercentToOnePercentLogLinear)
{
    const kxMotionDetect detector;
    const std::pair<unsigned, unsigned> examples[] = {{0, 1},     {1, 1},     {5, 1},      {10, 1},     {20, 2},
                                                      {100, 7},   {1000, 40}, {10000, 100}, {50000, 500}, {9999, 100}};
    for (const auto& [count, bound] : examples)
        EXPECT_EQ(detector.getValidSampleBound(count), bound) << "count " << count;
    // At 15 samples: t = ln 1.5 / ln 1000, r = 0.1 − 0.09·t; 15·r + 0.5 truncated.
    const double t = std::log(1.5) / std::log(1000.0);
    EXPECT_EQ(detector.getValidSampleBound(15), unsigned(15.0 * (0.1 - 0.09 * t) + 0.5));
}

}  // namespace
