// kxMotionDetect: the least-squares rotation systems, the search for rotation
// axes and the rotation validity test.
#include <algorithm>
#include <cmath>
#include <limits>

#include "kxMotionDetect.h"
#include "kxMotionGeometry.h"

namespace {

using Vec3 = Wm4::Vector3<double>;
using kxMotionGeometry::widen;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// Regularisation of the 2×2 axis-point system: single-precision 0.001.
constexpr double kAxisPointRegularisation = double(0.001f);

// The best axis found so far by a search, with its point and score.
struct tAxisCandidate {
    Vec3 axis;
    Vec3 point;
    double score;
};

// Weighted first and second moments of the contact points' coordinates in a
// plane basis (u, v).
struct tPlaneMoments {
    double meanU, meanV;
    double covUU, covVV, covUV;
};

// The rotation push adds terms w·a_k·x in which a_k's coordinate k is a
// structural zero. Such a term rounds to ±0 whenever its other factors are
// finite, and adding ±0 leaves a sum unchanged: a sum that starts at +0 never
// becomes −0 (x + y is −0 only when both are), and x ± 0 = x otherwise. So on
// a cleared system those terms can be left out, provided w, c and the
// products w·n_i and 2w·n_i are finite; any non-finite or overflowing one
// makes this sum non-finite, and then every term is added.
bool structuralZerosVanish(const Vec3& n, const Vec3& c, double w)
{
    const double w2 = 2.0 * w;
    return std::isfinite(w2 * n[0] + w2 * n[1] + w2 * n[2] + c[0] + c[1] + c[2] + w);
}

// The pushes of kxSymMatrix3 and PushTensorProduct with the same arithmetic,
// leaving out the entries that multiply coordinate `zero` of a (or b) when
// that coordinate is a structural zero; -1 leaves out nothing.
void pushMixedTensor(Wm4::Matrix3<double>& m, const Vec3& a, const Vec3& c, double w, int zero)
{
    for (int row = 0; row < 3; ++row) {
        if (row == zero)
            continue;
        for (int column = 0; column < 3; ++column)
            m[row][column] += w * a[row] * c[column];
    }
}

void pushSelfTensor(kxSymMatrix3& s, const Vec3& v, double w, int zero)
{
    const auto kept = [zero](int i, int j) { return i != zero && j != zero; };
    if (kept(0, 0))
        s.xx() += w * v[0] * v[0];
    if (kept(0, 1))
        s.xy() += w * v[1] * v[0];
    if (kept(0, 2))
        s.xz() += w * v[2] * v[0];
    if (kept(1, 1))
        s.yy() += w * v[1] * v[1];
    if (kept(1, 2))
        s.yz() += w * v[2] * v[1];
    if (kept(2, 2))
        s.zz() += w * v[2] * v[2];
}

void pushTwinTensor(kxSymMatrix3& s, const Vec3& a, const Vec3& b, double w, int zeroA, int zeroB)
{
    // Diagonal entry i is 2w·a_i·b_i; the others have no structural zero.
    const auto kept = [&](int i) { return i != zeroA && i != zeroB; };
    if (kept(0))
        s.xx() += 2.0 * w * a[0] * b[0];
    if (kept(1))
        s.yy() += 2.0 * w * a[1] * b[1];
    if (kept(2))
        s.zz() += 2.0 * w * a[2] * b[2];
    s.xy() += w * (a[1] * b[0] + a[0] * b[1]);
    s.xz() += w * (a[2] * b[0] + a[0] * b[2]);
    s.yz() += w * (a[1] * b[2] + a[2] * b[1]);
}

}  // namespace

void kxMotionDetect::pushPointToSingleRotationSystem(const Wm4::Vector3<double>& r, const Wm4::Vector3<double>& n,
                                                     double w, tSingleRotAxisSystem& sys)
{
    const Vec3 c = n.Cross(r);
    const Vec3 a[3] = {Vec3(0.0, -n[2], n[1]), Vec3(n[2], 0.0, -n[0]), Vec3(-n[1], n[0], 0.0)};
    sys.mMomentTensor.pushSelfTensorProduct(c, w);
    const bool leaveOutZeros = structuralZerosVanish(n, c, w);
    const auto zeroOf = [leaveOutZeros](int k) { return leaveOutZeros ? k : -1; };
    for (int k = 0; k < 3; ++k) {
        pushMixedTensor(sys.mMixedMatrices[k], a[k], c, w, zeroOf(k));
        pushSelfTensor(sys.mAxisTensors[k], a[k], w, zeroOf(k));
    }
    pushTwinTensor(sys.mAxisTensors[3], a[0], a[1], w, zeroOf(0), zeroOf(1));
    pushTwinTensor(sys.mAxisTensors[4], a[0], a[2], w, zeroOf(0), zeroOf(2));
    pushTwinTensor(sys.mAxisTensors[5], a[1], a[2], w, zeroOf(1), zeroOf(2));
}

double kxMotionDetect::getSingleRotationScore(const Wm4::Vector3<double>& axis, Wm4::Vector3<double>& axisPoint,
                                              const tSingleRotAxisSystem& sys) const
{
    Vec3 u, v;
    kxMotionGeometry::perpendicularBasis(axis, u, v);

    const double x = axis[0], y = axis[1], z = axis[2];
    const double q[6] = {x * x, y * y, z * z, x * y, x * z, y * z};
    kxSymMatrix3 a;
    a.clear();
    for (int k = 0; k < 6; ++k)
        a.addMatrix(sys.mAxisTensors[k], q[k]);
    const Vec3 b = (sys.mMixedMatrices[0] * axis) * x + (sys.mMixedMatrices[1] * axis) * y +
                   (sys.mMixedMatrices[2] * axis) * z;
    const double e = axis.Dot(sys.mMomentTensor.vectorProduct(axis));

    // The axis point x = α·u + β·v minimises e − 2·x·b + xᵀ·A·x in the plane
    // through the centroid perpendicular to the axis.
    const Vec3 au = a.vectorProduct(u);
    const Vec3 av = a.vectorProduct(v);
    const double auu = u.Dot(au), auv = u.Dot(av), avv = v.Dot(av);
    const double bu = u.Dot(b), bv = v.Dot(b);
    double ruu = auu, rvv = avv;
    double det = auu * avv - auv * auv;
    if (det != 0.0) {
        ruu += kAxisPointRegularisation;
        rvv += kAxisPointRegularisation;
        det = ruu * rvv - auv * auv;
    } else {
        det = 1.0;
    }
    const double alpha = (bu * rvv - auv * bv) / det;
    const double beta = (ruu * bv - auv * bu) / det;

    axisPoint = mCentroid + (u * alpha + v * beta) * mRadius;
    return e - 2.0 * (alpha * bu + beta * bv) + (alpha * alpha * auu + 2.0 * alpha * beta * auv + beta * beta * avv);
}

unsigned kxMotionDetect::getBestRotationParameters(Wm4::Vector3<double> axes[3], Wm4::Vector3<double> points[3])
{
    if (mNormalRotSystem.mBestRotationCached) {
        std::copy(mNormalRotSystem.mBestAxes, mNormalRotSystem.mBestAxes + 3, axes);
        std::copy(mNormalRotSystem.mBestPoints, mNormalRotSystem.mBestPoints + 3, points);
        return mNormalRotSystem.mBestRotationCount;
    }
    mNormalRotSystem.mBestRotationCached = true;
    Vec3 translations[3];
    getBestTranslationParameters(translations);

    // Both systems compete for every direction; the strictly lowest score wins.
    const auto consider = [this](const Vec3& axis, tAxisCandidate& best) {
        for (const tSingleRotAxisSystem* sys : {&mNormalRotSystem, &mContactRotSystem}) {
            Vec3 point;
            const double score = getSingleRotationScore(axis, point, *sys);
            if (score < best.score)
                best = {axis, point, score};
        }
    };

    tAxisCandidate first = {Vec3(1.0, 0.0, 0.0), mCentroid, kInfinity};
    for (const Vec3& sample : mSamples->directions)
        consider(sample, first);

    Vec3 u, v;
    kxMotionGeometry::perpendicularBasis(first.axis, u, v);
    const unsigned steps = kxMotionGeometry::circleStepCount(mSamples->directions.size());
    tAxisCandidate second = {Vec3(0.0, 1.0, 0.0), mCentroid, kInfinity};
    for (unsigned j = 0; j < steps; ++j)
        consider(kxMotionGeometry::circleDirection(u, v, j, steps), second);

    const Vec3 thirdAxis = first.axis.Cross(second.axis);
    Vec3 normalPoint, contactPoint;
    const double normalScore = getSingleRotationScore(thirdAxis, normalPoint, mNormalRotSystem);
    const double contactScore = getSingleRotationScore(thirdAxis, contactPoint, mContactRotSystem);
    const tAxisCandidate third = {thirdAxis, normalScore > contactScore ? contactPoint : normalPoint, 0.0};

    // Valid axes first, in order, then the others.
    const tAxisCandidate* const found[3] = {&first, &second, &third};
    bool valid[3];
    for (int i = 0; i < 3; ++i) {
        const Vec3& axis = found[i]->axis;
        const Vec3& point = found[i]->point;
        valid[i] = validateRotation(axis, point, computeMaxAngleDeviation(axis, point));
    }
    unsigned count = 0;
    for (bool wantValid : {true, false}) {
        for (int i = 0; i < 3; ++i) {
            if (valid[i] != wantValid)
                continue;
            axes[count] = found[i]->axis;
            points[count] = found[i]->point;
            ++count;
        }
    }
    return unsigned(std::count(valid, valid + 3, true));
}

double kxMotionDetect::computeMaxAngleDeviation(const Wm4::Vector3<double>& axis,
                                                const Wm4::Vector3<double>& point) const
{
    Vec3 u, v;
    kxMotionGeometry::perpendicularBasis(axis, u, v);
    const auto forEachPlanePoint = [&](auto&& visit) {
        for (const kx::kxVertexBuffer* buffer : mContactPointBuffers) {
            const int count = buffer->GetVertexQuantity();
            for (int i = 0; i < count; ++i) {
                const Vec3 p = widen(buffer->Position3(i));
                visit(u.Dot(p), v.Dot(p), double(buffer->PSize1(i)));
            }
        }
    };

    double weightSum = 0.0, sumU = 0.0, sumV = 0.0, sumUU = 0.0, sumVV = 0.0, sumUV = 0.0;
    forEachPlanePoint([&](double pu, double pv, double w) {
        weightSum += w;
        sumU += w * pu;
        sumV += w * pv;
        sumUU += w * pu * pu;
        sumVV += w * pv * pv;
        sumUV += w * pu * pv;
    });
    tPlaneMoments m;
    m.meanU = sumU / weightSum;
    m.meanV = sumV / weightSum;
    m.covUU = sumUU / weightSum - m.meanU * m.meanU;
    m.covVV = sumVV / weightSum - m.meanV * m.meanV;
    m.covUV = sumUV / weightSum - m.meanU * m.meanV;

    // Principal direction e of the covariance, from its eigenvalue of larger
    // magnitude and the better conditioned of the two rows.
    const double root = std::sqrt((m.covUU - m.covVV) * (m.covUU - m.covVV) + 4.0 * m.covUV * m.covUV);
    const double lambdaPlus = ((m.covUU + m.covVV) + root) / 2.0;
    const double lambdaMinus = ((m.covUU + m.covVV) - root) / 2.0;
    const double lambda = std::fabs(lambdaPlus) > std::fabs(lambdaMinus) ? lambdaPlus : lambdaMinus;
    const double alpha = m.covUU - lambda, beta = m.covVV - lambda;
    const double x1 = alpha * alpha + m.covUV * m.covUV, x2 = beta * beta + m.covUV * m.covUV;
    double e1 = 1.0, e2 = 0.0;
    if (x1 > x2) {
        e1 = -m.covUV / std::sqrt(x1);
        e2 = alpha / std::sqrt(x1);
    } else if (x2 > x1) {
        e1 = -beta / std::sqrt(x2);
        e2 = m.covUV / std::sqrt(x2);
    }

    double min1 = kInfinity, max1 = -kInfinity, min2 = kInfinity, max2 = -kInfinity;
    forEachPlanePoint([&](double pu, double pv, double) {
        const double du = pu - m.meanU, dv = pv - m.meanV;
        const double s1 = e1 * du + e2 * dv, s2 = e2 * du - e1 * dv;
        min1 = std::min(min1, s1);
        max1 = std::max(max1, s1);
        min2 = std::min(min2, s2);
        max2 = std::max(max2, s2);
    });
    const double extent1 = max1 - min1, extent2 = max2 - min2;
    const double du = u.Dot(point) - m.meanU, dv = v.Dot(point) - m.meanV;
    const double q1 = e1 * du + e2 * dv, q2 = e2 * du - e1 * dv;

    double ratio;
    if (min1 < q1 && q1 < max1 && min2 < q2 && q2 < max2)
        ratio = std::min(extent1, extent2) / std::max(extent1, extent2);
    else
        ratio = 0.5 * (std::fabs(q2) * extent2 > std::fabs(q1) * extent1 ? extent1 / std::fabs(q2)
                                                                            : extent2 / std::fabs(q1));
    return 0.2222222222222222 * std::atan(std::min(std::max(ratio, 0.0), 1.0));
}

bool kxMotionDetect::validateRotation(const Wm4::Vector3<double>& axis, const Wm4::Vector3<double>& point,
                                      double maxAngle) const
{
    const double threshold = std::sin(maxAngle);
    unsigned samples = 0, violations = 0;
    kxMotionGeometry::forEachContactPair(mContactPointBuffers, [&](size_t, const kx::kxVertexBuffer& buffer, int i) {
        // A side whose point lies on the axis does not move and has no value.
        double sideValue[2];
        bool moves[2];
        for (int side = 0; side < 2; ++side) {
            const Vec3 motion = (widen(buffer.Position3(i + side)) - point).Cross(axis);
            const double length = motion.Length();
            moves[side] = length > 0.0;
            sideValue[side] = moves[side] ? std::fabs(widen(buffer.Normal3(i + side)).Dot(motion / length)) : 0.0;
        }
        if (!moves[0] && !moves[1])
            return;
        ++samples;
        const double value = !moves[0] ? 0.0 : (moves[1] ? std::min(sideValue[0], sideValue[1]) : sideValue[0]);
        if (value > threshold)
            ++violations;
    });
    return violations < getValidSampleBound(samples);
}
