// Direction sampling of the sphere and the tolerance rule shared by every
// validity test of kxMotionDetect.
#include <algorithm>
#include <cassert>
#include <cmath>

#include "kxMotionDetect.h"

namespace {

using Vec3 = Wm4::Vector3<double>;

constexpr double kGoldenRatio = 1.618033988749895;

// The regular icosahedron, unnormalised.
const Vec3 kIcosahedronVertices[12] = {
    {kGoldenRatio, 1.0, 0.0},  {-kGoldenRatio, 1.0, 0.0},  {kGoldenRatio, -1.0, 0.0}, {-kGoldenRatio, -1.0, 0.0},
    {1.0, 0.0, kGoldenRatio},  {1.0, 0.0, -kGoldenRatio},  {-1.0, 0.0, kGoldenRatio}, {-1.0, 0.0, -kGoldenRatio},
    {0.0, kGoldenRatio, 1.0},  {0.0, -kGoldenRatio, 1.0},  {0.0, kGoldenRatio, -1.0}, {0.0, -kGoldenRatio, -1.0},
};

const unsigned kIcosahedronFaces[20][3] = {
    {0, 8, 4},  {0, 5, 10}, {2, 4, 9},  {2, 11, 5}, {1, 6, 8},  {1, 10, 7}, {3, 9, 6},  {3, 7, 11}, {0, 10, 8}, {1, 8, 10},
    {2, 9, 11}, {3, 11, 9}, {4, 2, 0},  {5, 0, 2},  {6, 1, 3},  {7, 3, 1},  {8, 6, 4},  {9, 4, 6},  {10, 5, 7}, {11, 7, 5},
};

// A face owns its directed edge d when the component of largest magnitude is
// positive; the reversed edge of the neighbouring face then is not owned, so
// each of the 30 edges is sampled exactly once.
bool ownsEdge(const Vec3& d)
{
    const double largestSigned = std::max({d[0], d[1], d[2]});
    const double largestMagnitude = std::max({std::fabs(d[0]), std::fabs(d[1]), std::fabs(d[2])});
    return largestSigned == largestMagnitude;
}

}  // namespace

void kxMotionDetect::PushTensorProduct(Wm4::Matrix3<double>& m, const Wm4::Vector3<double>& a,
                                       const Wm4::Vector3<double>& b, double w)
{
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c)
            m[r][c] += w * a[r] * b[c];
    }
}

void kxMotionDetect::GenerateDirections(unsigned n, std::vector<Wm4::Vector3<double>>& out)
{
    out.resize(size_t(15) + size_t(30) * n + size_t(20) * ((n * (n - 1u)) >> 1));
    Vec3* next = out.data();
    *next++ = Vec3(1.0, 0.0, 0.0);
    *next++ = Vec3(0.0, 1.0, 0.0);
    *next++ = Vec3(0.0, 0.0, 1.0);
    for (const Vec3& vertex : kIcosahedronVertices)
        *next++ = vertex;

    // The grid step is deliberately rounded to single precision.
    const double step = double(1.0f / float(n + 1u));
    for (const auto& face : kIcosahedronFaces) {
        const Vec3& p = kIcosahedronVertices[face[0]];
        const Vec3& q = kIcosahedronVertices[face[1]];
        const Vec3& r = kIcosahedronVertices[face[2]];
        const Vec3* const edges[3][2] = {{&p, &q}, {&q, &r}, {&r, &p}};
        for (const auto& edge : edges) {
            const Vec3& start = *edge[0];
            const Vec3 d = *edge[1] - start;
            if (!ownsEdge(d))
                continue;
            for (unsigned k = 1; k <= n; ++k)
                *next++ = start + d * (double(k) * step);
        }
        for (unsigned j = 1; j + 1 <= n; ++j) {
            const double js = double(j) * step;
            for (unsigned i = 1; i <= n - j; ++i) {
                const double is = double(i) * step;
                *next++ = p * js + q * is + r * (1.0 - js - is);
            }
        }
    }

    // Every one of the 30 edges is owned by exactly one face: the grid fills
    // the presized vector exactly.
    assert(next == out.data() + out.size());

    for (Vec3& sample : out)
        sample *= 1.0 / std::sqrt(sample[0] * sample[0] + sample[1] * sample[1] + sample[2] * sample[2]);
}

std::shared_ptr<const kxMotionDetect::tDirectionSampleSet> kxMotionDetect::BuildSampleSet(unsigned n)
{
    auto set = std::make_shared<tDirectionSampleSet>();
    GenerateDirections(n, set->directions);
    const size_t count = set->directions.size();
    set->scanX.resize(count);
    set->scanY.resize(count);
    set->scanZ.resize(count);
    for (size_t i = 0; i < count; ++i) {
        set->scanX[i] = set->directions[i][0];
        set->scanY[i] = set->directions[i][1];
        set->scanZ[i] = set->directions[i][2];
    }
    return set;
}

std::shared_ptr<const kxMotionDetect::tDirectionSampleSet> kxMotionDetect::EmptySampleSet()
{
    static const std::shared_ptr<const tDirectionSampleSet> empty = std::make_shared<const tDirectionSampleSet>();
    return empty;
}

void kxMotionDetect::generateDirectionSamples(unsigned n)
{
    mSamples = BuildSampleSet(n);
}

void kxMotionDetect::copyDirectionSamples(const kxMotionDetect& other)
{
    mSamples = other.mSamples;
}

unsigned kxMotionDetect::getValidSampleBound(unsigned sampleCount) const
{
    double ratio;
    if (sampleCount <= mMinSampleCount) {
        ratio = mMinSampleRatio;
    } else if (sampleCount >= mMaxSampleCount) {
        ratio = mMaxSampleRatio;
    } else {
        const double t = (std::log(double(sampleCount)) - std::log(double(mMinSampleCount))) /
                         (std::log(double(mMaxSampleCount)) - std::log(double(mMinSampleCount)));
        ratio = mMinSampleRatio + t * (mMaxSampleRatio - mMinSampleRatio);
    }
    const unsigned bound = unsigned(double(sampleCount) * ratio + 0.5);
    return std::max(bound, 1u);
}
