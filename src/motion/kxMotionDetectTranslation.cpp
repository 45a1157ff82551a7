// kxMotionDetect: life cycle, centring of the moment systems, and the
// translation side (sliding lines and removal directions).
#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "kxDisassemblyPolynomial.h"
#include "kxMotionDetect.h"
#include "kxMotionGeometry.h"

namespace {

using Vec3 = Wm4::Vector3<double>;
using kxMotionGeometry::widen;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// Ten degrees, written with a slightly short degree factor (kept as it is).
const double kTranslationTolerance = std::sin(0.17453292519444444);

// Samples scored per call of the vectorised block evaluation.
constexpr unsigned kScanBlock = 512;

// The three-compare sorting network (1,2), (0,1), (1,2); a pair is swapped only
// when the earlier key is strictly greater, so equal keys keep their order.
template <class T, class Key>
void sortThree(T items[3], Key key)
{
    static constexpr int kPairs[3][2] = {{1, 2}, {0, 1}, {1, 2}};
    for (const auto& pair : kPairs) {
        if (key(items[pair[0]]) > key(items[pair[1]]))
            std::swap(items[pair[0]], items[pair[1]]);
    }
}

// One candidate removal direction, in the sense that scored lower.
struct tRemovalCandidate {
    Vec3 direction;
    double score;
    bool valid;          // the chosen sense passes the removal test
    bool oppositeValid;  // the other sense passes it
};

}  // namespace

kxMotionDetect::kxMotionDetect()
    : mSamples(EmptySampleSet()), mMinSampleCount(10), mMaxSampleCount(10000), mMinSampleRatio(0.1),
      mMaxSampleRatio(0.01)
{
    clearSystems();
}

void kxMotionDetect::tSingleRotAxisSystem::clear()
{
    for (kxSymMatrix3& s : mAxisTensors)
        s.clear();
    for (Wm4::Matrix3<double>& m : mMixedMatrices)
        m = Wm4::Matrix3<double>();
    mMomentTensor.clear();
    for (int i = 0; i < 3; ++i) {
        mBestAxes[i] = Vec3();
        mBestPoints[i] = Vec3();
    }
    mBestRotationCount = 0;
    mBestRotationCached = false;
}

void kxMotionDetect::tSingleRotAxisSystem::normalise(double weightSum, double radius)
{
    const double axisFactor = 1.0 / weightSum;
    const double mixedFactor = 1.0 / (weightSum * radius);
    const double momentFactor = 1.0 / (weightSum * radius * radius);
    for (kxSymMatrix3& s : mAxisTensors)
        s.selfScalarProduct(axisFactor);
    for (Wm4::Matrix3<double>& m : mMixedMatrices)
        m *= mixedFactor;
    mMomentTensor.selfScalarProduct(momentFactor);
    mBestRotationCount = 0;
    mBestRotationCached = false;
}

void kxMotionDetect::pushContactPoints(const kx::kxVertexBuffer* buffer)
{
    mContactPointBuffers.push_back(buffer);
}

void kxMotionDetect::clearSystems()
{
    mContactPointBuffers.clear();
    mRadius = 1.0;
    mPointCount = 0;
    mWeightSum = 0.0;
    mPositionSum = Vec3();
    mCentroid = Vec3();
    mNormalRotSystem.clear();
    mContactRotSystem.clear();
    mTranslationTensor.clear();
    mTranslationNormalSum = Vec3();
    mTranslationWeight = 0.0;
    for (int i = 0; i < 3; ++i)
        mBestTranslations[i] = Vec3();
    mBestTranslationCount = 0;
    mBestTranslationCached = false;
    for (int k = 0; k < 6; ++k) {
        mUnmountTensors[k].clear();
        mUnmountVectors[k] = Vec3();
    }
    mUnmountNormalTensor.clear();
}

void kxMotionDetect::centerSystems()
{
    for (const kx::kxVertexBuffer* buffer : mContactPointBuffers) {
        const int count = buffer->GetVertexQuantity();
        for (int i = 0; i < count; ++i) {
            const double w = double(buffer->PSize1(i));
            mWeightSum += w;
            mPositionSum += widen(buffer->Position3(i)) * w;
        }
        mPointCount += uint64_t(count);
    }
    mCentroid = mPositionSum * (1.0 / mWeightSum);

    double largestSquaredDistance = 0.0;
    for (size_t b = 0; b < mContactPointBuffers.size(); ++b) {
        const kx::kxVertexBuffer& buffer = *mContactPointBuffers[b];
        const int count = buffer.GetVertexQuantity();
        for (int i = 0; i < count; ++i) {
            const double w = double(buffer.PSize1(i));
            Vec3 pointVector = widen(buffer.Normal3(i));
            Vec3 faceNormal = widen(buffer.TCoord3(0, i));
            if (((size_t(i) ^ b) & 1u) != 0) {
                pointVector = -pointVector;
                faceNormal = -faceNormal;
            }
            const Vec3 r = widen(buffer.Position3(i)) - mCentroid;
            largestSquaredDistance = std::max(largestSquaredDistance, r.SquaredLength());
            pushPointToSingleRotationSystem(r, pointVector, w, mNormalRotSystem);
            pushPointToSingleRotationSystem(r, faceNormal, w, mContactRotSystem);
            pushPointToSingleTranslationSystem(r, faceNormal, w);
            pushPointToSingleUnmountAxisSystem(faceNormal, w);
        }
    }
    mRadius = std::sqrt(largestSquaredDistance);
    mNormalRotSystem.normalise(mWeightSum, mRadius);
    mContactRotSystem.normalise(mWeightSum, mRadius);
    mBestTranslationCached = false;
}

void kxMotionDetect::pushPointToSingleTranslationSystem(const Wm4::Vector3<double>&, const Wm4::Vector3<double>& normal,
                                                        double w)
{
    mTranslationTensor.pushSelfTensorProduct(normal, w);
    mTranslationNormalSum += normal * w;
    mTranslationWeight += w;
}

void kxMotionDetect::pushPointToSingleUnmountAxisSystem(const Wm4::Vector3<double>& n, double w)
{
    const double squares[6] = {n[0] * n[0],
                               n[1] * n[1],
                               n[2] * n[2],
                               (n[0] + n[1]) * (n[0] + n[1]),
                               (n[0] + n[2]) * (n[0] + n[2]),
                               (n[1] + n[2]) * (n[1] + n[2])};
    mUnmountNormalTensor.pushSelfTensorProduct(n, w);
    for (int k = 0; k < 6; ++k) {
        const double weight = w * squares[k];
        mUnmountTensors[k].pushSelfTensorProduct(n, weight);
        mUnmountVectors[k] += n * weight;
    }
}

double kxMotionDetect::getSingleTranslationScore(const Wm4::Vector3<double>& d) const
{
    return d.Dot(mTranslationTensor.vectorProduct(d)) / mWeightSum;
}

double kxMotionDetect::getSingleDisassemblyDirectionScore(const Wm4::Vector3<double>& d) const
{
    const double x = d[0], y = d[1], z = d[2];
    const double q[6] = {x * x - x * y - x * z, y * y - x * y - y * z, z * z - x * z - y * z, x * y, x * z, y * z};
    double cubic = 0.0;
    kxSymMatrix3 quartic;
    quartic.clear();
    for (int k = 0; k < 6; ++k) {
        cubic += q[k] * mUnmountVectors[k].Dot(d);
        quartic.addMatrix(mUnmountTensors[k], q[k]);
    }
    return d.Dot(mUnmountNormalTensor.vectorProduct(d)) + 2.0 * cubic + d.Dot(quartic.vectorProduct(d));
}

bool kxMotionDetect::validateTranslation(const Wm4::Vector3<double>& d) const
{
    unsigned pairs = 0, violations = 0;
    kxMotionGeometry::forEachContactPair(mContactPointBuffers, [&](size_t, const kx::kxVertexBuffer& buffer, int i) {
        const double second = std::fabs(widen(buffer.TCoord3(0, i + 1)).Dot(d));
        const double first = std::fabs(widen(buffer.TCoord3(0, i)).Dot(d));
        ++pairs;
        if (std::min(second, first) > kTranslationTolerance)
            ++violations;
    });
    return violations < getValidSampleBound(pairs);
}

bool kxMotionDetect::validateTranslation(const Wm4::Vector3<double>& d, double& score) const
{
    unsigned pairs = 0, violations = 0;
    score = 0.0;
    kxMotionGeometry::forEachContactPair(mContactPointBuffers, [&](size_t b, const kx::kxVertexBuffer& buffer, int i) {
        const Vec3 sensed = (b & 1u) != 0 ? -d : d;
        const double m =
            std::min(widen(buffer.TCoord3(0, i)).Dot(sensed), -widen(buffer.TCoord3(0, i + 1)).Dot(sensed));
        ++pairs;
        if (m > kTranslationTolerance)
            ++violations;
        const double t = std::min(1.0, 1.0 + m);
        score += double(buffer.PSize1(i)) * t * t;
    });
    return violations < getValidSampleBound(pairs);
}

unsigned kxMotionDetect::getBestTranslationParameters(Wm4::Vector3<double> out[3])
{
    if (!mBestTranslationCached) {
        const double trace = mTranslationTensor.xx() + mTranslationTensor.yy() + mTranslationTensor.zz();
        Wm4::Eigen<double> eigen(mTranslationTensor.toMatrix3() * (3.0 / trace));
        eigen.EigenStuff3();
        std::pair<double, Vec3> pairs[3];
        for (int i = 0; i < 3; ++i)
            pairs[i] = {eigen.GetEigenvalue(i), eigen.GetEigenvector(i)};
        sortThree(pairs, [](const std::pair<double, Vec3>& p) { return p.first; });

        int front = 0, back = 2;
        for (const auto& pair : pairs) {
            if (validateTranslation(pair.second))
                mBestTranslations[front++] = pair.second;
            else
                mBestTranslations[back--] = pair.second;
        }
        mBestTranslationCount = unsigned(front);
        mBestTranslationCached = true;
    }
    std::copy(mBestTranslations, mBestTranslations + 3, out);
    return mBestTranslationCount;
}

unsigned kxMotionDetect::getBestDisassemblySampleIndex() const
{
    unsigned bestIndex = NO_SAMPLE;
    double bestScore = kInfinity;
    const auto considerPlainScore = [&](size_t i) {
        const double score = getSingleDisassemblyDirectionScore(mSamples->directions[i]);
        if (score < bestScore) {
            bestScore = score;
            bestIndex = unsigned(i);
        }
    };

    const size_t count = mSamples->directions.size();
    const double scale = disassemblyMomentScale(mUnmountNormalTensor, mUnmountVectors, mUnmountTensors);
    // Moments so large (or non-finite) that the polynomial could overflow are
    // scanned with the plain form alone.
    if (!(scale < 1e250)) {
        for (size_t i = 0; i < count; ++i)
            considerPlainScore(i);
        return bestIndex;
    }

    // The first sample of lowest plain score is among those whose polynomial
    // score lies within twice the tolerance of the lowest polynomial score, and
    // only those are scored again with the plain form, in index order.
    const tDisassemblyPolynomial polynomial =
        makeDisassemblyPolynomial(mUnmountNormalTensor, mUnmountVectors, mUnmountTensors);
    const double window = 2.0 * disassemblyScoreTolerance(scale);
    double lowestPolynomialScore = kInfinity;
    double scores[kScanBlock];
    for (size_t start = 0; start < count; start += kScanBlock) {
        const unsigned blockSize = unsigned(std::min<size_t>(kScanBlock, count - start));
        const tDirectionSampleSet& set = *mSamples;
        const double blockLowest = evaluateDisassemblyBlock(polynomial, set.scanX.data() + start, set.scanY.data() + start,
                                                            set.scanZ.data() + start, blockSize, scores);
        if (!(blockLowest <= lowestPolynomialScore + window))
            continue;
        lowestPolynomialScore = std::min(lowestPolynomialScore, blockLowest);
        const double threshold = lowestPolynomialScore + window;
        for (unsigned i = 0; i < blockSize; ++i) {
            if (scores[i] <= threshold)
                considerPlainScore(start + i);
        }
    }
    return bestIndex;
}

unsigned kxMotionDetect::computeRemovalDirection(Wm4::Vector3<double> out[3], bool outBothSenses[3])
{
    const unsigned firstIndex = getBestDisassemblySampleIndex();
    const Vec3 first = firstIndex == NO_SAMPLE ? Vec3(1.0, 0.0, 0.0) : mSamples->directions[firstIndex];

    Vec3 u, v;
    kxMotionGeometry::perpendicularBasis(first, u, v);
    const unsigned steps = kxMotionGeometry::circleStepCount(mSamples->directions.size());
    Vec3 second(0.0, 1.0, 0.0);
    double secondScore = kInfinity;
    for (unsigned j = 0; j < steps; ++j) {
        const Vec3 e = kxMotionGeometry::circleDirection(u, v, j, steps);
        const double score = getSingleDisassemblyDirectionScore(e);
        if (score < secondScore) {
            secondScore = score;
            second = e;
        }
    }

    const Vec3 directions[3] = {first, second, first.Cross(second)};
    tRemovalCandidate candidates[3];
    for (int i = 0; i < 3; ++i) {
        double forwardScore, backwardScore;
        const bool forwardValid = validateTranslation(directions[i], forwardScore);
        const bool backwardValid = validateTranslation(-directions[i], backwardScore);
        if (backwardScore < forwardScore)
            candidates[i] = {-directions[i], backwardScore, backwardValid, forwardValid};
        else
            candidates[i] = {directions[i], forwardScore, forwardValid, backwardValid};
    }
    sortThree(candidates, [](const tRemovalCandidate& c) { return c.score; });
    if (candidates[0].score == kInfinity)
        return 0;

    unsigned count = 0;
    for (const tRemovalCandidate& c : candidates) {
        if (c.valid) {
            out[count] = c.direction;
            outBothSenses[count++] = c.oppositeValid;
        } else if (c.oppositeValid) {
            out[count] = -c.direction;
            outBothSenses[count++] = false;
        }
    }
    return count;
}
