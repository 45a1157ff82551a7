#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "kxMotionDetect.h"

namespace {

using Vec3d = Wm4::Vector3<double>;
using Sys = kxMotionDetect::tSingleRotAxisSystem;

struct PushedPoint {
    Vec3d r, n;
    double w;
};

// Every term of the rotation push, zeros included, through the matrices' own
// tensor pushes.
void pushEveryTerm(const PushedPoint& p, Sys& sys)
{
    const Vec3d c = p.n.Cross(p.r);
    const Vec3d a[3] = {Vec3d(0.0, -p.n[2], p.n[1]), Vec3d(p.n[2], 0.0, -p.n[0]), Vec3d(-p.n[1], p.n[0], 0.0)};
    sys.mMomentTensor.pushSelfTensorProduct(c, p.w);
    for (int k = 0; k < 3; ++k) {
        kxMotionDetect::PushTensorProduct(sys.mMixedMatrices[k], a[k], c, p.w);
        sys.mAxisTensors[k].pushSelfTensorProduct(a[k], p.w);
    }
    sys.mAxisTensors[3].pushTwinTensorProduct(a[0], a[1], p.w);
    sys.mAxisTensors[4].pushTwinTensorProduct(a[0], a[2], p.w);
    sys.mAxisTensors[5].pushTwinTensorProduct(a[1], a[2], p.w);
}

// Bit for bit, except that any NaN matches any NaN (which NaN an operation
// returns depends on operand order, which the compiler may swap).
bool sameValues(const double* x, const double* y, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        if (!(std::isnan(x[i]) && std::isnan(y[i])) && std::memcmp(x + i, y + i, sizeof(double)) != 0)
            return false;
    }
    return true;
}

bool sameSums(const Sys& x, const Sys& y)
{
    const auto same = [](const auto& a, const auto& b) {
        return sameValues(reinterpret_cast<const double*>(&a), reinterpret_cast<const double*>(&b),
                          size_t(sizeof(a)) / sizeof(double));
    };
    return same(x.mAxisTensors, y.mAxisTensors) && same(x.mMixedMatrices, y.mMixedMatrices) &&
           same(x.mMomentTensor, y.mMomentTensor);
}

// The push leaves out terms that are zero by construction: the sums must come
// out bit for bit as with every term added, for ordinary points, zeros of
// either sign, and non-finite or overflowing inputs.
TEST(RotationPush, SameBitsAsAddingEveryTerm)
{
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    std::mt19937 generator(7);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    std::vector<PushedPoint> ordinary;
    for (int i = 0; i < 500; ++i)
        ordinary.push_back({Vec3d(unit(generator), unit(generator), unit(generator)) * 50.0,
                            Vec3d(unit(generator), unit(generator), unit(generator)), 1e-3 + unit(generator) * 1e-3});
    const std::vector<PushedPoint> special = {
        {Vec3d(0, 0, 0), Vec3d(0, 0, 1), 1.0},       {Vec3d(-0.0, 1, 0), Vec3d(-0.0, 0, -1), 2.0},
        {Vec3d(1, 2, 3), Vec3d(0, 0, 0), 1.0},       {Vec3d(1, 2, 3), Vec3d(-0.0, -0.0, -0.0), 0.0},
        {Vec3d(1, 2, 3), Vec3d(0, 1, 0), inf},       {Vec3d(1, 2, 3), Vec3d(0, 1, 0), nan},
        {Vec3d(inf, 0, 0), Vec3d(0, 1, 0), 1.0},     {Vec3d(1, nan, 0), Vec3d(0, 0, 1), 1.0},
        {Vec3d(1, 2, 3), Vec3d(0, inf, 0), 1.0},     {Vec3d(1, 2, 3), Vec3d(1e300, 0, 0), 1e10},
        {Vec3d(1, 2, 3), Vec3d(0, 1, 0), 1.5e308},   {Vec3d(1e300, 1e300, 0), Vec3d(0, 1e10, 1), 1.0},
    };
    const std::vector<PushedPoint>* const lists[] = {&ordinary, &special};
    for (const std::vector<PushedPoint>* points : lists) {
        for (size_t last = 0; last < points->size(); ++last) {
            kxMotionDetect detector;
            Sys pushed, expected;
            pushed.clear();
            expected.clear();
            for (size_t i = 0; i <= last; ++i) {
                detector.pushPointToSingleRotationSystem((*points)[i].r, (*points)[i].n, (*points)[i].w, pushed);
                pushEveryTerm((*points)[i], expected);
            }
            ASSERT_TRUE(sameSums(pushed, expected)) << "after point " << last << (points == &special ? " (special)" : "");
        }
    }
}

}  // namespace
