// Wm4::Eigen<Real>: eigen decomposition of a symmetric 3×3 matrix.
//
// Construct it on a matrix, call EigenStuff3(), then read the results:
// - GetEigenvalue(0) ≤ GetEigenvalue(1) ≤ GetEigenvalue(2): the eigenvalues in
//   INCREASING order;
// - GetEigenvector(i): the unit eigenvector of eigenvalue i. The three vectors
//   are orthonormal and right-handed (eigenvector 2 = eigenvector 0 × eigenvector 1),
//   also when eigenvalues repeat; inside a repeated eigenvalue's space the basis
//   is one valid choice among many.
// Only the symmetric part (M + Mᵀ)/2 of the given matrix is decomposed. The method
// is cyclic Jacobi, which keeps the eigenvectors orthonormal to rounding and the
// residual ‖A·v − λ·v‖ at a few ulps of ‖A‖. Non-finite entries give non-finite
// results after a bounded number of sweeps; nothing is reported.
// Before EigenStuff3() the eigenvalues are 0 and the eigenvectors the unit axes.
#pragma once

#include "Wm4Matrix3.h"

namespace Wm4 {

template <class Real>
class Eigen {
public:
    explicit Eigen(const Matrix3<Real>& matrix);

    // Computes the decomposition of the matrix given at construction.
    void EigenStuff3();

    // i in 0..2.
    Real GetEigenvalue(int i) const { return m_afEigenvalue[i]; }
    Vector3<Real> GetEigenvector(int i) const { return m_kEigenvectors.GetColumn(i); }

private:
    // One Jacobi rotation in the (p, q) plane that zeroes m_kWork[p][q].
    void Rotate(int p, int q);
    // Sorts the eigenpairs by increasing eigenvalue and makes the basis right-handed.
    void SortAndOrient();

    Matrix3<Real> m_kWork;          // symmetric, driven to diagonal form
    Matrix3<Real> m_kEigenvectors;  // column i is eigenvector i
    Real m_afEigenvalue[3];
};

extern template class Eigen<float>;
extern template class Eigen<double>;

typedef Eigen<float> Eigenf;
typedef Eigen<double> Eigend;

}  // namespace Wm4
