#include "kxDisassemblyPolynomial.h"

#include <algorithm>
#include <cmath>
#include <limits>

// Wider vector units evaluate more samples per instruction; the clones are
// chosen at load time. Without contraction (-ffp-contract=off) every clone
// rounds exactly like the plain code. GCC only: clang 14 leaves the
// function's plain symbol undefined when it makes the clones.
#if defined(__x86_64__) && defined(__ELF__) && defined(__GNUC__) && !defined(__clang__)
#define VELMORA_VECTOR_CLONES __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#else
#define VELMORA_VECTOR_CLONES
#endif

namespace {

// Coefficients of a polynomial of degree at most 4 in (x, y, z), indexed by
// the exponents of each monomial.
class tMonomialTable {
public:
    void add(int ex, int ey, int ez, double value) { mCoefficients[ex][ey][ez] += value; }
    double at(int ex, int ey, int ez) const { return mCoefficients[ex][ey][ez]; }

    // += factor·(monomial e)·dᵀ·m·d.
    void addQuadraticForm(const kxSymMatrix3& symmetric, const int e[3], double factor)
    {
        const Wm4::Matrix3<double> m = symmetric.toMatrix3();
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < 3; ++j) {
                int exponents[3] = {e[0], e[1], e[2]};
                ++exponents[i];
                ++exponents[j];
                add(exponents[0], exponents[1], exponents[2], factor * m[i][j]);
            }
        }
    }

private:
    double mCoefficients[5][5][5] = {};
};

// The quadratic monomials x², y², z², xy, xz, yz, and q_0…q_5 of a direction
// on that basis: q = (x² − xy − xz, y² − xy − yz, z² − xz − yz, xy, xz, yz).
constexpr int kQuadraticMonomials[6][3] = {{2, 0, 0}, {0, 2, 0}, {0, 0, 2}, {1, 1, 0}, {1, 0, 1}, {0, 1, 1}};
constexpr double kQOnMonomials[6][6] = {
    {1, 0, 0, -1, -1, 0}, {0, 1, 0, -1, 0, -1}, {0, 0, 1, 0, -1, -1},
    {0, 0, 0, 1, 0, 0},   {0, 0, 0, 0, 1, 0},   {0, 0, 0, 0, 0, 1},
};

double largestMagnitude(const kxSymMatrix3& m)
{
    return std::max({std::fabs(m.xx()), std::fabs(m.xy()), std::fabs(m.xz()), std::fabs(m.yy()), std::fabs(m.yz()),
                     std::fabs(m.zz())});
}

inline double evaluatePolynomial(const tDisassemblyPolynomial& p, double x, double y, double z)
{
    const double xx = x * x, yy = y * y, zz = z * z, xy = x * y, xz = x * z, yz = y * z;
    const double xxGroup = p.c_xx + p.a_xxx * x + p.a_xxy * y + p.a_xxz * z + p.b_xxxx * xx + p.b_xxxy * xy +
                           p.b_xxxz * xz + p.b_xxyy * yy + p.b_xxyz * yz + p.b_xxzz * zz;
    const double yyGroup = p.c_yy + p.a_xyy * x + p.a_yyy * y + p.a_yyz * z + p.b_yyyy * yy + p.b_xyyy * xy +
                           p.b_yyyz * yz + p.b_yyzz * zz + p.b_xyyz * xz;
    const double zzGroup = p.c_zz + p.a_xzz * x + p.a_yzz * y + p.a_zzz * z + p.b_zzzz * zz + p.b_xzzz * xz +
                           p.b_yzzz * yz + p.b_xyzz * xy;
    return xx * xxGroup + yy * yyGroup + zz * zzGroup + xy * (p.c_xy + p.a_xyz * z) + xz * p.c_xz + yz * p.c_yz;
}

}  // namespace

tDisassemblyPolynomial makeDisassemblyPolynomial(const kxSymMatrix3& normalTensor, const Wm4::Vector3<double> vectors[6],
                                                 const kxSymMatrix3 tensors[6])
{
    static constexpr int kConstant[3] = {0, 0, 0};
    tMonomialTable t;
    t.addQuadraticForm(normalTensor, kConstant, 1.0);
    for (int k = 0; k < 6; ++k) {
        for (int m = 0; m < 6; ++m) {
            const double q = kQOnMonomials[k][m];
            if (q == 0.0)
                continue;
            const int* e = kQuadraticMonomials[m];
            t.add(e[0] + 1, e[1], e[2], 2.0 * q * vectors[k][0]);
            t.add(e[0], e[1] + 1, e[2], 2.0 * q * vectors[k][1]);
            t.add(e[0], e[1], e[2] + 1, 2.0 * q * vectors[k][2]);
            t.addQuadraticForm(tensors[k], e, q);
        }
    }

    tDisassemblyPolynomial p;
    p.c_xx = t.at(2, 0, 0), p.c_yy = t.at(0, 2, 0), p.c_zz = t.at(0, 0, 2);
    p.c_xy = t.at(1, 1, 0), p.c_xz = t.at(1, 0, 1), p.c_yz = t.at(0, 1, 1);
    p.a_xxx = t.at(3, 0, 0), p.a_xxy = t.at(2, 1, 0), p.a_xxz = t.at(2, 0, 1);
    p.a_xyy = t.at(1, 2, 0), p.a_yyy = t.at(0, 3, 0), p.a_yyz = t.at(0, 2, 1);
    p.a_xzz = t.at(1, 0, 2), p.a_yzz = t.at(0, 1, 2), p.a_zzz = t.at(0, 0, 3);
    p.a_xyz = t.at(1, 1, 1);
    p.b_xxxx = t.at(4, 0, 0), p.b_xxxy = t.at(3, 1, 0), p.b_xxxz = t.at(3, 0, 1);
    p.b_xxyy = t.at(2, 2, 0), p.b_xxyz = t.at(2, 1, 1), p.b_xxzz = t.at(2, 0, 2);
    p.b_yyyy = t.at(0, 4, 0), p.b_xyyy = t.at(1, 3, 0), p.b_yyyz = t.at(0, 3, 1);
    p.b_yyzz = t.at(0, 2, 2), p.b_xyyz = t.at(1, 2, 1);
    p.b_zzzz = t.at(0, 0, 4), p.b_xzzz = t.at(1, 0, 3), p.b_yzzz = t.at(0, 1, 3);
    p.b_xyzz = t.at(1, 1, 2);
    return p;
}

double disassemblyMomentScale(const kxSymMatrix3& normalTensor, const Wm4::Vector3<double> vectors[6],
                              const kxSymMatrix3 tensors[6])
{
    double scale = largestMagnitude(normalTensor);
    for (int k = 0; k < 6; ++k) {
        scale = std::max({scale, largestMagnitude(tensors[k]), std::fabs(vectors[k][0]), std::fabs(vectors[k][1]),
                          std::fabs(vectors[k][2])});
    }
    return scale;
}

VELMORA_VECTOR_CLONES
double evaluateDisassemblyBlock(const tDisassemblyPolynomial& polynomial, const double* __restrict x,
                                const double* __restrict y, const double* __restrict z, unsigned count,
                                double* __restrict scores)
{
    const tDisassemblyPolynomial p = polynomial;
    for (unsigned i = 0; i < count; ++i)
        scores[i] = evaluatePolynomial(p, x[i], y[i], z[i]);

    // Eight independent running minima keep the comparisons vectorisable.
    constexpr unsigned kLanes = 8;
    double lanes[kLanes];
    std::fill(lanes, lanes + kLanes, std::numeric_limits<double>::infinity());
    unsigned i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        for (unsigned l = 0; l < kLanes; ++l)
            lanes[l] = scores[i + l] < lanes[l] ? scores[i + l] : lanes[l];
    }
    for (; i < count; ++i)
        lanes[0] = scores[i] < lanes[0] ? scores[i] : lanes[0];
    return *std::min_element(lanes, lanes + kLanes);
}
