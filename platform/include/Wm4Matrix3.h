// Wm4::Matrix3<Real>: a row-major 3×3 matrix. M[row][col] addresses an entry;
// products act on column vectors (M * v).
#pragma once

#include "Wm4Vector3.h"

namespace Wm4 {

template <class Real>
class Matrix3 {
public:
    // The zero matrix; pass true for the identity.
    explicit Matrix3(bool identity = false)
        : m_afEntry{Real(0), Real(0), Real(0), Real(0), Real(0), Real(0), Real(0), Real(0), Real(0)}
    {
        if (identity)
            m_afEntry[0] = m_afEntry[4] = m_afEntry[8] = Real(1);
    }
    Matrix3(Real m00, Real m01, Real m02, Real m10, Real m11, Real m12, Real m20, Real m21, Real m22)
        : m_afEntry{m00, m01, m02, m10, m11, m12, m20, m21, m22}
    {
    }
    // Builds the matrix from three vectors, as columns or as rows.
    Matrix3(const Vector3<Real>& u, const Vector3<Real>& v, const Vector3<Real>& w, bool columns)
    {
        for (int i = 0; i < 3; ++i) {
            if (columns) {
                m_afEntry[3 * i] = u[i];
                m_afEntry[3 * i + 1] = v[i];
                m_afEntry[3 * i + 2] = w[i];
            } else {
                m_afEntry[i] = u[i];
                m_afEntry[3 + i] = v[i];
                m_afEntry[6 + i] = w[i];
            }
        }
    }
    template <class Other>
    explicit Matrix3(const Matrix3<Other>& m)
    {
        for (int i = 0; i < 9; ++i)
            m_afEntry[i] = Real(m.data()[i]);
    }

    Real* operator[](int row) { return m_afEntry + 3 * row; }
    const Real* operator[](int row) const { return m_afEntry + 3 * row; }
    Real& operator()(int row, int col) { return m_afEntry[3 * row + col]; }
    Real operator()(int row, int col) const { return m_afEntry[3 * row + col]; }
    const Real* data() const { return m_afEntry; }

    Vector3<Real> GetRow(int row) const { return {m_afEntry[3 * row], m_afEntry[3 * row + 1], m_afEntry[3 * row + 2]}; }
    Vector3<Real> GetColumn(int col) const { return {m_afEntry[col], m_afEntry[3 + col], m_afEntry[6 + col]}; }
    void SetColumn(int col, const Vector3<Real>& v)
    {
        for (int i = 0; i < 3; ++i)
            m_afEntry[3 * i + col] = v[i];
    }

    bool operator==(const Matrix3& m) const
    {
        for (int i = 0; i < 9; ++i) {
            if (m_afEntry[i] != m.m_afEntry[i])
                return false;
        }
        return true;
    }
    bool operator!=(const Matrix3& m) const { return !(*this == m); }

    Matrix3 operator+(const Matrix3& m) const { return combine(m, Real(1)); }
    Matrix3 operator-(const Matrix3& m) const { return combine(m, Real(-1)); }
    Matrix3 operator*(Real s) const
    {
        Matrix3 r;
        for (int i = 0; i < 9; ++i)
            r.m_afEntry[i] = m_afEntry[i] * s;
        return r;
    }
    Matrix3 operator/(Real s) const { return *this * (Real(1) / s); }
    Matrix3 operator-() const { return *this * Real(-1); }
    Matrix3& operator+=(const Matrix3& m) { return *this = *this + m; }
    Matrix3& operator-=(const Matrix3& m) { return *this = *this - m; }
    Matrix3& operator*=(Real s) { return *this = *this * s; }

    Matrix3 operator*(const Matrix3& m) const
    {
        Matrix3 r;
        for (int row = 0; row < 3; ++row) {
            for (int col = 0; col < 3; ++col) {
                r[row][col] = (*this)[row][0] * m[0][col] + (*this)[row][1] * m[1][col] + (*this)[row][2] * m[2][col];
            }
        }
        return r;
    }
    Vector3<Real> operator*(const Vector3<Real>& v) const
    {
        return {GetRow(0).Dot(v), GetRow(1).Dot(v), GetRow(2).Dot(v)};
    }

    Matrix3 Transpose() const
    {
        return {m_afEntry[0], m_afEntry[3], m_afEntry[6], m_afEntry[1], m_afEntry[4],
                m_afEntry[7], m_afEntry[2], m_afEntry[5], m_afEntry[8]};
    }
    // Mᵀ·m and M·mᵀ without forming the transpose.
    Matrix3 TransposeTimes(const Matrix3& m) const { return Transpose() * m; }
    Matrix3 TimesTranspose(const Matrix3& m) const { return *this * m.Transpose(); }

    Matrix3 Adjoint() const
    {
        const Real* e = m_afEntry;
        return {e[4] * e[8] - e[5] * e[7], e[2] * e[7] - e[1] * e[8], e[1] * e[5] - e[2] * e[4],
                e[5] * e[6] - e[3] * e[8], e[0] * e[8] - e[2] * e[6], e[2] * e[3] - e[0] * e[5],
                e[3] * e[7] - e[4] * e[6], e[1] * e[6] - e[0] * e[7], e[0] * e[4] - e[1] * e[3]};
    }
    Real Determinant() const
    {
        const Real* e = m_afEntry;
        return e[0] * (e[4] * e[8] - e[5] * e[7]) + e[1] * (e[5] * e[6] - e[3] * e[8]) +
               e[2] * (e[3] * e[7] - e[4] * e[6]);
    }
    // The adjugate divided by the determinant; the zero matrix when the
    // determinant's magnitude is at most ZERO_TOLERANCE.
    Matrix3 Inverse() const
    {
        const Real det = Determinant();
        if (Math<Real>::FAbs(det) <= Math<Real>::ZERO_TOLERANCE)
            return Matrix3();
        return Adjoint() * (Real(1) / det);
    }

    // u·vᵀ.
    static Matrix3 TensorProduct(const Vector3<Real>& u, const Vector3<Real>& v)
    {
        return {u[0] * v[0], u[0] * v[1], u[0] * v[2], u[1] * v[0], u[1] * v[1],
                u[1] * v[2], u[2] * v[0], u[2] * v[1], u[2] * v[2]};
    }
    // Rotation by angle (radians, counter-clockwise) about a unit axis.
    static Matrix3 FromAxisAngle(const Vector3<Real>& axis, Real angle)
    {
        const Real c = Math<Real>::Cos(angle), s = Math<Real>::Sin(angle), t = Real(1) - c;
        const Real x = axis[0], y = axis[1], z = axis[2];
        return {t * x * x + c,     t * x * y - s * z, t * x * z + s * y,
                t * x * y + s * z, t * y * y + c,     t * y * z - s * x,
                t * x * z - s * y, t * y * z + s * x, t * z * z + c};
    }

    static const Matrix3 ZERO;
    static const Matrix3 IDENTITY;

private:
    Matrix3 combine(const Matrix3& m, Real sign) const
    {
        Matrix3 r;
        for (int i = 0; i < 9; ++i)
            r.m_afEntry[i] = m_afEntry[i] + sign * m.m_afEntry[i];
        return r;
    }

    Real m_afEntry[9];
};

template <class Real> const Matrix3<Real> Matrix3<Real>::ZERO(false);
template <class Real> const Matrix3<Real> Matrix3<Real>::IDENTITY(true);

template <class Real>
Matrix3<Real> operator*(Real s, const Matrix3<Real>& m) { return m * s; }

// vᵀ·M, a row vector times the matrix.
template <class Real>
Vector3<Real> operator*(const Vector3<Real>& v, const Matrix3<Real>& m)
{
    return m.Transpose() * v;
}

typedef Matrix3<float> Matrix3f;
typedef Matrix3<double> Matrix3d;

}  // namespace Wm4
