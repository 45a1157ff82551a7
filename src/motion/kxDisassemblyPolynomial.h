// tDisassemblyPolynomial: the unmount-axis score of kxMotionDetect written as
// one polynomial in the coordinates (x, y, z) of the direction:
//     S(d) = Σ w·[(n·d)² + 2·(n·d)³ + (n·d)⁴]
// with 6 quadratic, 10 cubic and 15 quartic coefficients derived from the
// unmount-axis moments (N, U_k, T_k). It is algebraically the same function as
// the moment form of getSingleDisassemblyDirectionScore, about half as many
// operations, and is evaluated over blocks of samples laid out as three
// coordinate arrays so that the compiler vectorises the loop.
//
// The two forms round differently. For samples with |d_i| ≤ 1 both stay within
// 2.2e-11·scale of the exact value, scale being the largest magnitude among
// the moment entries (a worst-case bound: at most 279·scale of summed term
// magnitudes for the moment form and 2,800·scale for the coefficients, with at
// most 30 roundings along any path). disassemblyScoreTolerance returns the
// bound 2⁻³⁰·scale ≈ 9.3e-10·scale, forty times wider.
#pragma once

#include "Wm4.h"
#include "kxSymMatrix3.h"

struct tDisassemblyPolynomial {
    // Grouped for evaluation:
    //   S = x²·(c_xx + a_xxx·x + a_xxy·y + a_xxz·z
    //           + b_xxxx·x² + b_xxxy·xy + b_xxxz·xz + b_xxyy·y² + b_xxyz·yz + b_xxzz·z²)
    //     + y²·(c_yy + a_xyy·x + a_yyy·y + a_yyz·z
    //           + b_yyyy·y² + b_xyyy·xy + b_yyyz·yz + b_yyzz·z² + b_xyyz·xz)
    //     + z²·(c_zz + a_xzz·x + a_yzz·y + a_zzz·z + b_zzzz·z² + b_xzzz·xz + b_yzzz·yz + b_xyzz·xy)
    //     + xy·(c_xy + a_xyz·z) + xz·c_xz + yz·c_yz
    // (c quadratic, a cubic, b quartic coefficients, named by their monomial).
    double c_xx, c_yy, c_zz, c_xy, c_xz, c_yz;
    double a_xxx, a_xxy, a_xxz, a_xyy, a_yyy, a_yyz, a_xzz, a_yzz, a_zzz, a_xyz;
    double b_xxxx, b_xxxy, b_xxxz, b_xxyy, b_xxyz, b_xxzz;
    double b_yyyy, b_xyyy, b_yyyz, b_yyzz, b_xyyz;
    double b_zzzz, b_xzzz, b_yzzz, b_xyzz;
};

// The coefficients of dᵀ·N·d + 2·Σ_k q_k(d)·(U_k·d) + dᵀ·(Σ_k q_k(d)·T_k)·d.
tDisassemblyPolynomial makeDisassemblyPolynomial(const kxSymMatrix3& normalTensor, const Wm4::Vector3<double> vectors[6],
                                                 const kxSymMatrix3 tensors[6]);

// The largest magnitude among the entries of N, U_k and T_k.
double disassemblyMomentScale(const kxSymMatrix3& normalTensor, const Wm4::Vector3<double> vectors[6],
                              const kxSymMatrix3 tensors[6]);

// A bound on |polynomial score − moment-form score| for unit samples.
inline double disassemblyScoreTolerance(double momentScale) { return momentScale * 0x1p-30; }

// Writes the polynomial's value at the `count` samples (x[i], y[i], z[i]) to
// scores[i] and returns the smallest of them (+∞ for count 0; NaN values are
// passed over). The arrays must not overlap `scores`.
double evaluateDisassemblyBlock(const tDisassemblyPolynomial& polynomial, const double* x, const double* y,
                                const double* z, unsigned count, double* scores);
