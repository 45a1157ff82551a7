// Wm4::Math<Real>: the numeric constants and clamped scalar functions that the
// rest of the Wm4 types use. Stateless; the constants are compile-time values.
#pragma once

#include <cfloat>
#include <cmath>

namespace Wm4 {

template <class Real> struct MathTolerances;
template <> struct MathTolerances<float> {
    static constexpr float EPSILON = FLT_EPSILON;
    static constexpr float ZERO_TOLERANCE = 1e-06f;
    static constexpr float MAX_REAL = FLT_MAX;
};
template <> struct MathTolerances<double> {
    static constexpr double EPSILON = DBL_EPSILON;
    static constexpr double ZERO_TOLERANCE = 1e-08;
    static constexpr double MAX_REAL = DBL_MAX;
};

template <class Real>
class Math {
public:
    static constexpr Real EPSILON = MathTolerances<Real>::EPSILON;
    static constexpr Real ZERO_TOLERANCE = MathTolerances<Real>::ZERO_TOLERANCE;
    static constexpr Real MAX_REAL = MathTolerances<Real>::MAX_REAL;
    static constexpr Real PI = Real(3.14159265358979323846);
    static constexpr Real TWO_PI = Real(2) * PI;
    static constexpr Real HALF_PI = Real(0.5) * PI;
    static constexpr Real INV_PI = Real(1) / PI;
    static constexpr Real DEG_TO_RAD = PI / Real(180);
    static constexpr Real RAD_TO_DEG = Real(180) / PI;

    static Real FAbs(Real v) { return std::fabs(v); }
    static Real Sqrt(Real v) { return std::sqrt(v); }
    static Real InvSqrt(Real v) { return Real(1) / std::sqrt(v); }
    static Real Sin(Real v) { return std::sin(v); }
    static Real Cos(Real v) { return std::cos(v); }
    static Real ATan2(Real y, Real x) { return std::atan2(y, x); }
    // Clamped to [-1, 1] first, so rounding never yields NaN.
    static Real ACos(Real v) { return v <= Real(-1) ? PI : (v >= Real(1) ? Real(0) : std::acos(v)); }
    static Real ASin(Real v) { return v <= Real(-1) ? -HALF_PI : (v >= Real(1) ? HALF_PI : std::asin(v)); }
    static int Sign(Real v) { return v > Real(0) ? 1 : (v < Real(0) ? -1 : 0); }
};

}  // namespace Wm4
