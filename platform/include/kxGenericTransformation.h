// kx::kxGenericTransformation<Real>: an affine map x -> M·x + T with a general
// 3×3 rotation-scale matrix M and a translation T.
#pragma once

#include "Wm4Matrix3.h"

namespace kx {

template <class Real>
class kxGenericTransformation {
public:
    kxGenericTransformation() : mMatrix(true) {}
    kxGenericTransformation(const Wm4::Matrix3<Real>& matrix, const Wm4::Vector3<Real>& translate)
        : mMatrix(matrix), mTranslate(translate)
    {
    }

    const Wm4::Matrix3<Real>& GetMatrix() const { return mMatrix; }
    void SetMatrix(const Wm4::Matrix3<Real>& matrix) { mMatrix = matrix; }
    const Wm4::Vector3<Real>& GetTranslate() const { return mTranslate; }
    void SetTranslate(const Wm4::Vector3<Real>& translate) { mTranslate = translate; }

    bool IsIdentity() const { return mMatrix == Wm4::Matrix3<Real>::IDENTITY && mTranslate == Wm4::Vector3<Real>::ZERO; }
    void MakeIdentity() { *this = kxGenericTransformation(); }

    Wm4::Vector3<Real> ApplyForward(const Wm4::Vector3<Real>& point) const { return mMatrix * point + mTranslate; }
    // Directions ignore the translation.
    Wm4::Vector3<Real> ApplyForwardVector(const Wm4::Vector3<Real>& vector) const { return mMatrix * vector; }

    // The transformation that applies `second` after `first`.
    static kxGenericTransformation Product(const kxGenericTransformation& second, const kxGenericTransformation& first)
    {
        return {second.mMatrix * first.mMatrix, second.mMatrix * first.mTranslate + second.mTranslate};
    }
    // The inverse map; a singular matrix gives the zero matrix (Matrix3::Inverse).
    kxGenericTransformation Inverse() const
    {
        const Wm4::Matrix3<Real> inverse = mMatrix.Inverse();
        return {inverse, -(inverse * mTranslate)};
    }

    bool operator==(const kxGenericTransformation& o) const { return mMatrix == o.mMatrix && mTranslate == o.mTranslate; }

private:
    Wm4::Matrix3<Real> mMatrix;
    Wm4::Vector3<Real> mTranslate;
};

}  // namespace kx
