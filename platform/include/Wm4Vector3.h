// Wm4::Vector3<Real>: a plain three-component vector with value semantics.
// Components are stored contiguously, so an array of vectors is an array of
// 3·n scalars.
#pragma once

#include "Wm4Math.h"

namespace Wm4 {

template <class Real>
class Vector3 {
public:
    Vector3() : m_afTuple{Real(0), Real(0), Real(0)} {}
    Vector3(Real x, Real y, Real z) : m_afTuple{x, y, z} {}
    // Converts between precisions (float <-> double).
    template <class Other>
    explicit Vector3(const Vector3<Other>& v) : m_afTuple{Real(v[0]), Real(v[1]), Real(v[2])} {}

    Real& operator[](int i) { return m_afTuple[i]; }
    const Real& operator[](int i) const { return m_afTuple[i]; }
    Real& X() { return m_afTuple[0]; }
    Real X() const { return m_afTuple[0]; }
    Real& Y() { return m_afTuple[1]; }
    Real Y() const { return m_afTuple[1]; }
    Real& Z() { return m_afTuple[2]; }
    Real Z() const { return m_afTuple[2]; }
    Real* data() { return m_afTuple; }
    const Real* data() const { return m_afTuple; }

    bool operator==(const Vector3& v) const
    {
        return m_afTuple[0] == v[0] && m_afTuple[1] == v[1] && m_afTuple[2] == v[2];
    }
    bool operator!=(const Vector3& v) const { return !(*this == v); }
    // Lexicographic order, for sorting and ordered containers.
    bool operator<(const Vector3& v) const
    {
        for (int i = 0; i < 3; ++i) {
            if (m_afTuple[i] != v[i])
                return m_afTuple[i] < v[i];
        }
        return false;
    }

    Vector3 operator+(const Vector3& v) const
    {
        return {m_afTuple[0] + v[0], m_afTuple[1] + v[1], m_afTuple[2] + v[2]};
    }
    Vector3 operator-(const Vector3& v) const
    {
        return {m_afTuple[0] - v[0], m_afTuple[1] - v[1], m_afTuple[2] - v[2]};
    }
    Vector3 operator*(Real s) const { return {m_afTuple[0] * s, m_afTuple[1] * s, m_afTuple[2] * s}; }
    Vector3 operator/(Real s) const { return {m_afTuple[0] / s, m_afTuple[1] / s, m_afTuple[2] / s}; }
    Vector3 operator-() const { return {-m_afTuple[0], -m_afTuple[1], -m_afTuple[2]}; }
    Vector3& operator+=(const Vector3& v) { return *this = *this + v; }
    Vector3& operator-=(const Vector3& v) { return *this = *this - v; }
    Vector3& operator*=(Real s) { return *this = *this * s; }
    Vector3& operator/=(Real s) { return *this = *this / s; }

    Real Dot(const Vector3& v) const
    {
        return m_afTuple[0] * v[0] + m_afTuple[1] * v[1] + m_afTuple[2] * v[2];
    }
    Vector3 Cross(const Vector3& v) const
    {
        return {m_afTuple[1] * v[2] - m_afTuple[2] * v[1], m_afTuple[2] * v[0] - m_afTuple[0] * v[2],
                m_afTuple[0] * v[1] - m_afTuple[1] * v[0]};
    }
    Vector3 UnitCross(const Vector3& v) const
    {
        Vector3 c = Cross(v);
        c.Normalize();
        return c;
    }
    Real SquaredLength() const { return Dot(*this); }
    Real Length() const { return Math<Real>::Sqrt(SquaredLength()); }
    // Scales to unit length and returns the old length; a vector not longer
    // than ZERO_TOLERANCE becomes zero and 0 is returned.
    Real Normalize()
    {
        const Real length = Length();
        if (length > Math<Real>::ZERO_TOLERANCE) {
            *this /= length;
            return length;
        }
        *this = Vector3();
        return Real(0);
    }

    static const Vector3 ZERO;
    static const Vector3 UNIT_X;
    static const Vector3 UNIT_Y;
    static const Vector3 UNIT_Z;

private:
    Real m_afTuple[3];
};

template <class Real> const Vector3<Real> Vector3<Real>::ZERO(Real(0), Real(0), Real(0));
template <class Real> const Vector3<Real> Vector3<Real>::UNIT_X(Real(1), Real(0), Real(0));
template <class Real> const Vector3<Real> Vector3<Real>::UNIT_Y(Real(0), Real(1), Real(0));
template <class Real> const Vector3<Real> Vector3<Real>::UNIT_Z(Real(0), Real(0), Real(1));

template <class Real>
Vector3<Real> operator*(Real s, const Vector3<Real>& v) { return v * s; }

typedef Vector3<float> Vector3f;
typedef Vector3<double> Vector3d;

}  // namespace Wm4
