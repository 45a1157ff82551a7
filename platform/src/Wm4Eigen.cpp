#include "Wm4Eigen.h"

#include <cmath>
#include <utility>

namespace Wm4 {

namespace {

// Jacobi converges quadratically: a 3×3 matrix needs about five sweeps. The cap
// only bounds the work on non-finite input.
constexpr int kMaxSweeps = 32;

constexpr int kPlanes[3][2] = {{0, 1}, {0, 2}, {1, 2}};

// An off-diagonal entry this small against its two diagonal entries changes the
// eigenvalues by less than their own rounding (the relative criterion of
// Demmel and Veselić), so it is set to zero instead of rotated away.
template <class Real>
bool IsNegligible(Real offDiagonal, Real diagonalP, Real diagonalQ)
{
    const Real bound =
        Math<Real>::EPSILON * Math<Real>::Sqrt(Math<Real>::FAbs(diagonalP)) * Math<Real>::Sqrt(Math<Real>::FAbs(diagonalQ));
    return Math<Real>::FAbs(offDiagonal) <= bound;
}

}  // namespace

template <class Real>
Eigen<Real>::Eigen(const Matrix3<Real>& matrix)
    : m_kWork((matrix + matrix.Transpose()) * Real(0.5)), m_kEigenvectors(true), m_afEigenvalue{Real(0), Real(0), Real(0)}
{
}

template <class Real>
void Eigen<Real>::EigenStuff3()
{
    m_kEigenvectors = Matrix3<Real>::IDENTITY;
    for (int sweep = 0; sweep < kMaxSweeps; ++sweep) {
        bool rotated = false;
        for (const auto& plane : kPlanes) {
            const int p = plane[0], q = plane[1];
            if (IsNegligible(m_kWork[p][q], m_kWork[p][p], m_kWork[q][q])) {
                m_kWork[p][q] = m_kWork[q][p] = Real(0);
            } else {
                Rotate(p, q);
                rotated = true;
            }
        }
        if (!rotated)
            break;
    }
    for (int i = 0; i < 3; ++i)
        m_afEigenvalue[i] = m_kWork[i][i];
    SortAndOrient();
}

template <class Real>
void Eigen<Real>::Rotate(int p, int q)
{
    Matrix3<Real>& a = m_kWork;
    const Real apq = a[p][q];
    // Symmetric Schur step: the smaller of the two rotation angles that zero a[p][q].
    const Real theta = (a[q][q] - a[p][p]) / (Real(2) * apq);
    const Real tangent = (theta >= Real(0) ? Real(1) : Real(-1)) / (Math<Real>::FAbs(theta) + std::hypot(Real(1), theta));
    const Real c = Real(1) / Math<Real>::Sqrt(Real(1) + tangent * tangent);
    const Real s = tangent * c;

    a[p][p] -= tangent * apq;
    a[q][q] += tangent * apq;
    a[p][q] = a[q][p] = Real(0);
    const int r = 3 - p - q;
    const Real arp = a[r][p], arq = a[r][q];
    a[r][p] = a[p][r] = c * arp - s * arq;
    a[r][q] = a[q][r] = s * arp + c * arq;

    Matrix3<Real>& v = m_kEigenvectors;
    for (int k = 0; k < 3; ++k) {
        const Real vkp = v[k][p], vkq = v[k][q];
        v[k][p] = c * vkp - s * vkq;
        v[k][q] = s * vkp + c * vkq;
    }
}

template <class Real>
void Eigen<Real>::SortAndOrient()
{
    auto orderPair = [this](int i, int j) {
        if (m_afEigenvalue[i] > m_afEigenvalue[j]) {
            std::swap(m_afEigenvalue[i], m_afEigenvalue[j]);
            const Vector3<Real> vi = m_kEigenvectors.GetColumn(i);
            m_kEigenvectors.SetColumn(i, m_kEigenvectors.GetColumn(j));
            m_kEigenvectors.SetColumn(j, vi);
        }
    };
    orderPair(0, 1);
    orderPair(1, 2);
    orderPair(0, 1);
    // A product of rotations is proper, but swapping columns flips the handedness.
    if (m_kEigenvectors.Determinant() < Real(0))
        m_kEigenvectors.SetColumn(2, -m_kEigenvectors.GetColumn(2));
}

template class Eigen<float>;
template class Eigen<double>;

}  // namespace Wm4
