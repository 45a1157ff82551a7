// kxSymMatrix3: a symmetric 3×3 matrix of doubles stored as its upper triangle
// (xx, xy, xz, yy, yz, zz), the accumulator of every weighted tensor sum of the
// motion systems. The lower triangle is implied: yx(), zx() and zy() are the
// same references as xy(), xz() and yz().
//
// The type is a plain aggregate of six doubles: trivially copyable, no virtual
// functions, and no constructor that initialises it. An owner calls clear()
// before it accumulates.
//
// pushTensorProduct deliberately adds the upper triangle of w·a·bᵀ without
// symmetrising it (xy receives ax·by, never ay·bx); callers that want the
// symmetric part w·(a·bᵀ + b·aᵀ) use pushTwinTensorProduct.
#pragma once

#include "Wm4.h"

class kxSymMatrix3 {
public:
    double& xx() { return mXX; }
    double& xy() { return mXY; }
    double& xz() { return mXZ; }
    double& yy() { return mYY; }
    double& yz() { return mYZ; }
    double& zz() { return mZZ; }
    double& yx() { return mXY; }
    double& zx() { return mXZ; }
    double& zy() { return mYZ; }
    const double& xx() const { return mXX; }
    const double& xy() const { return mXY; }
    const double& xz() const { return mXZ; }
    const double& yy() const { return mYY; }
    const double& yz() const { return mYZ; }
    const double& zz() const { return mZZ; }
    const double& yx() const { return mXY; }
    const double& zx() const { return mXZ; }
    const double& zy() const { return mYZ; }

    void clear() { mXX = mXY = mXZ = mYY = mYZ = mZZ = 0.0; }

    // The full matrix, rows (xx, xy, xz), (xy, yy, yz), (xz, yz, zz).
    Wm4::Matrix3<double> toMatrix3() const
    {
        return Wm4::Matrix3<double>(mXX, mXY, mXZ, mXY, mYY, mYZ, mXZ, mYZ, mZZ);
    }

    // += w·v·vᵀ.
    void pushSelfTensorProduct(const Wm4::Vector3<double>& v, double w)
    {
        mXX += w * v[0] * v[0];
        mXY += w * v[1] * v[0];
        mXZ += w * v[2] * v[0];
        mYY += w * v[1] * v[1];
        mYZ += w * v[2] * v[1];
        mZZ += w * v[2] * v[2];
    }

    // += w·(a·bᵀ + b·aᵀ).
    void pushTwinTensorProduct(const Wm4::Vector3<double>& a, const Wm4::Vector3<double>& b, double w)
    {
        mXX += 2.0 * w * a[0] * b[0];
        mYY += 2.0 * w * a[1] * b[1];
        mZZ += 2.0 * w * a[2] * b[2];
        mXY += w * (a[1] * b[0] + a[0] * b[1]);
        mXZ += w * (a[2] * b[0] + a[0] * b[2]);
        mYZ += w * (a[1] * b[2] + a[2] * b[1]);
    }

    // += the upper triangle of w·a·bᵀ (not symmetrised, see the header comment).
    void pushTensorProduct(const Wm4::Vector3<double>& a, const Wm4::Vector3<double>& b, double w)
    {
        mXX += w * a[0] * b[0];
        mXY += w * a[0] * b[1];
        mXZ += w * a[0] * b[2];
        mYY += w * a[1] * b[1];
        mYZ += w * a[1] * b[2];
        mZZ += w * a[2] * b[2];
    }

    // M·v with the full symmetric matrix.
    Wm4::Vector3<double> vectorProduct(const Wm4::Vector3<double>& v) const
    {
        return Wm4::Vector3<double>(mXX * v[0] + mXY * v[1] + mXZ * v[2], mXY * v[0] + mYY * v[1] + mYZ * v[2],
                                    mXZ * v[0] + mYZ * v[1] + mZZ * v[2]);
    }

    kxSymMatrix3& selfScalarProduct(const double& s)
    {
        mXX *= s;
        mXY *= s;
        mXZ *= s;
        mYY *= s;
        mYZ *= s;
        mZZ *= s;
        return *this;
    }

    // += w·m, element by element.
    void addMatrix(const kxSymMatrix3& m, double w)
    {
        mXX += w * m.mXX;
        mXY += w * m.mXY;
        mXZ += w * m.mXZ;
        mYY += w * m.mYY;
        mYZ += w * m.mYZ;
        mZZ += w * m.mZZ;
    }

    double mXX, mXY, mXZ, mYY, mYZ, mZZ;
};
