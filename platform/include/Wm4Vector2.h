// Wm4::Vector2<Real>: a plain two-component vector with value semantics.
#pragma once

#include "Wm4Math.h"

namespace Wm4 {

template <class Real>
class Vector2 {
public:
    Vector2() : m_afTuple{Real(0), Real(0)} {}
    Vector2(Real x, Real y) : m_afTuple{x, y} {}

    Real& operator[](int i) { return m_afTuple[i]; }
    const Real& operator[](int i) const { return m_afTuple[i]; }
    Real& X() { return m_afTuple[0]; }
    Real X() const { return m_afTuple[0]; }
    Real& Y() { return m_afTuple[1]; }
    Real Y() const { return m_afTuple[1]; }

    bool operator==(const Vector2& v) const { return m_afTuple[0] == v[0] && m_afTuple[1] == v[1]; }
    bool operator!=(const Vector2& v) const { return !(*this == v); }

    Vector2 operator+(const Vector2& v) const { return {m_afTuple[0] + v[0], m_afTuple[1] + v[1]}; }
    Vector2 operator-(const Vector2& v) const { return {m_afTuple[0] - v[0], m_afTuple[1] - v[1]}; }
    Vector2 operator*(Real s) const { return {m_afTuple[0] * s, m_afTuple[1] * s}; }
    Vector2 operator/(Real s) const { return {m_afTuple[0] / s, m_afTuple[1] / s}; }
    Vector2 operator-() const { return {-m_afTuple[0], -m_afTuple[1]}; }
    Vector2& operator+=(const Vector2& v) { return *this = *this + v; }
    Vector2& operator-=(const Vector2& v) { return *this = *this - v; }
    Vector2& operator*=(Real s) { return *this = *this * s; }
    Vector2& operator/=(Real s) { return *this = *this / s; }

    Real Dot(const Vector2& v) const { return m_afTuple[0] * v[0] + m_afTuple[1] * v[1]; }
    // The z component of the 3D cross product of the two vectors.
    Real DotPerp(const Vector2& v) const { return m_afTuple[0] * v[1] - m_afTuple[1] * v[0]; }
    Vector2 Perp() const { return {m_afTuple[1], -m_afTuple[0]}; }
    Real SquaredLength() const { return Dot(*this); }
    Real Length() const { return Math<Real>::Sqrt(SquaredLength()); }
    // Scales to unit length and returns the old length; a vector not longer
    // than ZERO_TOLERANCE becomes zero.
    Real Normalize()
    {
        const Real length = Length();
        if (length > Math<Real>::ZERO_TOLERANCE) {
            *this /= length;
        } else {
            *this = Vector2();
            return Real(0);
        }
        return length;
    }

private:
    Real m_afTuple[2];
};

template <class Real>
Vector2<Real> operator*(Real s, const Vector2<Real>& v) { return v * s; }

typedef Vector2<float> Vector2f;
typedef Vector2<double> Vector2d;

}  // namespace Wm4
