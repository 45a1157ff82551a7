// Matrix3 and Vector3 arithmetic: hand-checked products, determinant, inverse
// with its zero-tolerance cut-off, and normalisation of short vectors.
#include <Wm4.h>

#include <gtest/gtest.h>

namespace {

using Wm4::Matrix3;
using Wm4::Vector3;

TEST(Wm4Matrix3, ProductsTransposeAndDeterminant)
{
    const Matrix3<float> a(1, 2, 3, 4, 5, 6, 7, 8, 10);
    const Matrix3<float> b(0, 1, 0, -1, 0, 0, 0, 0, 2);
    EXPECT_EQ(a * b, Matrix3<float>(-2, 1, 6, -5, 4, 12, -8, 7, 20));
    EXPECT_EQ(a[1][2], 6.0f);
    EXPECT_EQ(a.Transpose(), Matrix3<float>(1, 4, 7, 2, 5, 8, 3, 6, 10));
    EXPECT_EQ(a.TransposeTimes(b), a.Transpose() * b);
    EXPECT_EQ(a.TimesTranspose(b), a * b.Transpose());
    EXPECT_EQ(a * Vector3<float>(1, 0, -1), Vector3<float>(-2, -2, -3));
    EXPECT_EQ(Vector3<float>(1, 0, -1) * a, Vector3<float>(-6, -6, -7));
    EXPECT_EQ(a.Determinant(), -3.0f);
    EXPECT_EQ(b.Determinant(), 2.0f);
    EXPECT_EQ((a * b).Determinant(), -6.0f);
    EXPECT_EQ(Matrix3<float>::TensorProduct(Vector3<float>(1, 2, 3), Vector3<float>(0, 1, -1)),
              Matrix3<float>(0, 1, -1, 0, 2, -2, 0, 3, -3));
    EXPECT_EQ(Matrix3<float>(Vector3<float>(1, 2, 3), Vector3<float>(4, 5, 6), Vector3<float>(7, 8, 10), false), a);
    EXPECT_EQ(Matrix3<float>(Vector3<float>(1, 2, 3), Vector3<float>(4, 5, 6), Vector3<float>(7, 8, 10), true),
              a.Transpose());
}

TEST(Wm4Matrix3, InverseByAdjugateWithZeroToleranceCutOff)
{
    const Matrix3<double> a(1, 2, 3, 4, 5, 6, 7, 8, 10);
    const Matrix3<double> product = a * a.Inverse();
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(product[r][c], r == c ? 1.0 : 0.0, 1e-14);
    }
    EXPECT_EQ(a.Adjoint(), Matrix3<double>(2, 4, -3, 2, -11, 6, -3, 6, -3));

    // The determinant here is exactly ZERO_TOLERANCE: still treated as singular.
    const float tolerance = Wm4::Math<float>::ZERO_TOLERANCE;
    const Matrix3<float> atTolerance(tolerance, 0, 0, 0, 1, 0, 0, 0, 1);
    ASSERT_EQ(atTolerance.Determinant(), tolerance);
    EXPECT_EQ(atTolerance.Inverse(), Matrix3<float>::ZERO);
    EXPECT_EQ(Matrix3<float>(-tolerance, 0, 0, 0, 1, 0, 0, 0, 1).Inverse(), Matrix3<float>::ZERO);
    const Matrix3<float> justAbove(2 * tolerance, 0, 0, 0, 1, 0, 0, 0, 1);
    EXPECT_FLOAT_EQ(justAbove.Inverse()[0][0], 0.5f / tolerance);
    EXPECT_FLOAT_EQ(justAbove.Inverse()[1][1], 1.0f);
    // Rank two: determinant exactly 0.
    const Matrix3<float> singular(1, 2, 3, 2, 4, 6, 0, 1, 1);
    ASSERT_EQ(singular.Determinant(), 0.0f);
    EXPECT_EQ(singular.Inverse(), Matrix3<float>::ZERO);
}

TEST(Wm4Vector3, DotCrossAndNormalize)
{
    const Vector3<float> x = Vector3<float>::UNIT_X, y = Vector3<float>::UNIT_Y;
    EXPECT_EQ(x.Cross(y), Vector3<float>::UNIT_Z);
    const Vector3<float> u(1, 2, 3), v(-2, 0.5f, 4);
    EXPECT_EQ(u.Dot(v), 11.0f);
    EXPECT_EQ(u.Cross(v), Vector3<float>(6.5f, -10, 4.5f));
    EXPECT_EQ(v.Cross(u), -u.Cross(v));
    EXPECT_EQ(u.Cross(v).Dot(u), 0.0f);

    Vector3<float> w(3, 0, -4);
    EXPECT_EQ(w.Normalize(), 5.0f);
    EXPECT_EQ(w, Vector3<float>(0.6f, 0, -0.8f));

    // Not longer than ZERO_TOLERANCE: becomes the zero vector and reports 0.
    Vector3<float> zero;
    EXPECT_EQ(zero.Normalize(), 0.0f);
    EXPECT_EQ(zero, Vector3<float>::ZERO);
    Vector3<float> tiny(0.5e-6f, 0, 0);
    EXPECT_EQ(tiny.Normalize(), 0.0f);
    EXPECT_EQ(tiny, Vector3<float>::ZERO);
    Vector3<float> small(0, 2e-6f, 0);
    EXPECT_FLOAT_EQ(small.Normalize(), 2e-6f);
    EXPECT_FLOAT_EQ(small.Y(), 1.0f);
    EXPECT_EQ(small.X(), 0.0f);
    EXPECT_EQ(Vector3<float>(0, 0, 0).UnitCross(x), Vector3<float>::ZERO);
}

}  // namespace
