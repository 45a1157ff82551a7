// Eigen decomposition of symmetric 3×3 matrices: residuals, orthonormality,
// handedness and order on random matrices and on matrices built to have
// repeated eigenvalues.
#include <Wm4.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

namespace {

using Wm4::Eigen;
using Wm4::Matrix3;
using Wm4::Vector3;

double MaxAbsEntry(const Matrix3<double>& m)
{
    double largest = 0.0;
    for (int i = 0; i < 9; ++i)
        largest = std::max(largest, std::fabs(m.data()[i]));
    return largest;
}

Vector3<double> RandomUnitVector(std::mt19937& rng)
{
    std::normal_distribution<double> gauss;
    for (;;) {
        Vector3<double> v(gauss(rng), gauss(rng), gauss(rng));
        if (v.Normalize() > 1e-3)
            return v;
    }
}

Matrix3<double> RandomRotation(std::mt19937& rng)
{
    std::uniform_real_distribution<double> angle(0.0, Wm4::Math<double>::TWO_PI);
    return Matrix3<double>::FromAxisAngle(RandomUnitVector(rng), angle(rng));
}

// R·diag(values)·Rᵀ.
Matrix3<double> WithEigenvalues(const Matrix3<double>& rotation, const std::array<double, 3>& values)
{
    const Matrix3<double> diagonal(values[0], 0, 0, 0, values[1], 0, 0, 0, values[2]);
    return rotation * diagonal * rotation.Transpose();
}

// Checks everything the decomposition promises about `m` and returns it.
Eigen<double> CheckDecomposition(const Matrix3<double>& m)
{
    Eigen<double> eigen(m);
    eigen.EigenStuff3();
    const double tolerance = 1e-13 * std::max(MaxAbsEntry(m), 1e-300);
    for (int i = 0; i < 3; ++i) {
        const Vector3<double> v = eigen.GetEigenvector(i);
        const Vector3<double> residual = m * v - v * eigen.GetEigenvalue(i);
        EXPECT_LE(residual.Length(), 10 * tolerance) << "eigenpair " << i;
        for (int j = 0; j < 3; ++j)
            EXPECT_NEAR(v.Dot(eigen.GetEigenvector(j)), i == j ? 1.0 : 0.0, 1e-14);
    }
    EXPECT_LE(eigen.GetEigenvalue(0), eigen.GetEigenvalue(1));
    EXPECT_LE(eigen.GetEigenvalue(1), eigen.GetEigenvalue(2));
    const Vector3<double> handedness =
        eigen.GetEigenvector(0).Cross(eigen.GetEigenvector(1)) - eigen.GetEigenvector(2);
    EXPECT_LE(handedness.Length(), 1e-14);
    return eigen;
}

void ExpectEigenvalues(const Eigen<double>& eigen, std::array<double, 3> expected, double scale)
{
    std::sort(expected.begin(), expected.end());
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(eigen.GetEigenvalue(i), expected[i], 1e-13 * scale) << "eigenvalue " << i;
}

TEST(Wm4Eigen, HandCheckedMatrix)
{
    // Eigenvalues 1, 3, 3; the eigenvalue 1 belongs to (1, −1, 0)/√2.
    const Eigen<double> eigen = CheckDecomposition(Matrix3<double>(2, 1, 0, 1, 2, 0, 0, 0, 3));
    ExpectEigenvalues(eigen, {1, 3, 3}, 3);
    EXPECT_NEAR(std::fabs(eigen.GetEigenvector(0).Dot(Vector3<double>(1, -1, 0))), std::sqrt(2.0), 1e-14);
}

TEST(Wm4Eigen, OnlyTheSymmetricPartCounts)
{
    // Adding an antisymmetric part leaves the decomposition unchanged.
    const Matrix3<double> symmetric(4, 1, -2, 1, 3, 0.5, -2, 0.5, -1);
    const Matrix3<double> skew(0, 2, -1, -2, 0, 3, 1, -3, 0);
    Eigen<double> a(symmetric), b(symmetric + skew);
    a.EigenStuff3();
    b.EigenStuff3();
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(a.GetEigenvalue(i), b.GetEigenvalue(i), 1e-14 * 8);
}

TEST(Wm4Eigen, RandomSymmetricMatrices)
{
    std::mt19937 rng(20240611);
    std::uniform_real_distribution<double> entry(-1.0, 1.0);
    std::uniform_int_distribution<int> exponent(-6, 6);
    for (int n = 0; n < 2000; ++n) {
        const double scale = std::pow(10.0, exponent(rng));
        const double d0 = entry(rng), d1 = entry(rng), d2 = entry(rng);
        const double o01 = entry(rng), o02 = entry(rng), o12 = entry(rng);
        const Matrix3<double> m = Matrix3<double>(d0, o01, o02, o01, d1, o12, o02, o12, d2) * scale;
        SCOPED_TRACE(n);
        CheckDecomposition(m);
    }
}

TEST(Wm4Eigen, ChosenSpectraWithRepeatedValues)
{
    std::mt19937 rng(77);
    std::uniform_real_distribution<double> value(-5.0, 5.0);
    for (int n = 0; n < 1000; ++n) {
        const double a = value(rng), b = value(rng);
        // Every pattern of repetition, including a triple one and zeros.
        const std::array<std::array<double, 3>, 5> spectra = {
            {{a, a, b}, {a, b, b}, {a, a, a}, {0, 0, a}, {a, b, a + b}}};
        const std::array<double, 3>& spectrum = spectra[n % spectra.size()];
        SCOPED_TRACE(n);
        const Eigen<double> eigen = CheckDecomposition(WithEigenvalues(RandomRotation(rng), spectrum));
        ExpectEigenvalues(eigen, spectrum, 5);
    }
}

TEST(Wm4Eigen, DiagonalRankOneAndZeroMatrices)
{
    // Diagonal matrices with equal entries: the eigenvectors are the axes.
    const Eigen<double> diagonal = CheckDecomposition(Matrix3<double>(2, 0, 0, 0, -1, 0, 0, 0, 2));
    ExpectEigenvalues(diagonal, {-1, 2, 2}, 2);
    EXPECT_NEAR(std::fabs(diagonal.GetEigenvector(0).Y()), 1.0, 1e-15);
    ExpectEigenvalues(CheckDecomposition(Matrix3<double>(true) * 7.0), {7, 7, 7}, 7);

    // n·nᵀ has eigenvalues 0, 0, |n|² with n the eigenvector of the last.
    std::mt19937 rng(5);
    for (int k = 0; k < 500; ++k) {
        const Vector3<double> n = RandomUnitVector(rng) * (0.5 + k % 7);
        SCOPED_TRACE(k);
        const Eigen<double> eigen = CheckDecomposition(Matrix3<double>::TensorProduct(n, n));
        ExpectEigenvalues(eigen, {0, 0, n.SquaredLength()}, n.SquaredLength());
        EXPECT_NEAR(std::fabs(eigen.GetEigenvector(2).Dot(n)), n.Length(), 1e-13 * n.Length());
    }

    const Eigen<double> zero = CheckDecomposition(Matrix3<double>());
    ExpectEigenvalues(zero, {0, 0, 0}, 1);
}

TEST(Wm4Eigen, FloatInstantiation)
{
    std::mt19937 rng(9);
    for (int n = 0; n < 200; ++n) {
        const Matrix3<double> exact = WithEigenvalues(RandomRotation(rng), {-1.0, 0.5, 0.5});
        Eigen<float> eigen{Matrix3<float>(exact)};
        eigen.EigenStuff3();
        EXPECT_NEAR(eigen.GetEigenvalue(0), -1.0f, 1e-5f);
        EXPECT_NEAR(eigen.GetEigenvalue(1), 0.5f, 1e-5f);
        EXPECT_NEAR(eigen.GetEigenvalue(2), 0.5f, 1e-5f);
        const Vector3<float> handedness = eigen.GetEigenvector(0).Cross(eigen.GetEigenvector(1)) - eigen.GetEigenvector(2);
        EXPECT_LE(handedness.Length(), 1e-5f);
    }
}

}  // namespace
