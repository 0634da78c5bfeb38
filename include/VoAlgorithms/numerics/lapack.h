#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/numerics/cpmatrix.h"
#include "VoAlgorithms/numerics/tmatrix.h"
#include "VoAlgorithms/numerics/tvector.h"

#include <type_traits>

/// @file
/// Factorisations and solves through LAPACK. Failure is reported as false, never as an exception: shapes that do not
/// match, elements that are not finite, dimensions beyond LAPACK's 32-bit signed integers, and failures of the routine
/// itself. The outputs are then unchanged; a matrix documented as destroyed may have changed. Overflow from finite
/// input is not a failure: the outputs contain infinities and NaNs. Work arrays are on the heap for the
/// duration of a call. All functions are thread-safe.
namespace VoAlgo {

///@{
/// Cholesky factorisation A = Uᵀ·U of a symmetric positive definite matrix, of which only the upper triangle is read
/// (DPOTRF). On success `a` holds U, and 0 everywhere below the diagonal. False and unchanged for a matrix that is not
/// square or not finite; false with elements partly overwritten for one that is not positive definite. O(n³).
template <class T>
[[nodiscard]] bool cholesky(TMatrix<T>& a) = delete; // for double only
template <>
[[nodiscard]] VOALGO_API bool cholesky<double>(TMatrix<double>& a);
///@}

///@{
/// The inverse of Uᵀ·U as a full symmetric matrix, u being a factor from `cholesky`, of which the upper triangle is
/// read (DPOTRI). `inv` takes the shape of u and may be u itself. False, with `inv` left alone, for a u that is not
/// square or not finite or has a 0 on its diagonal. O(n³).
template <class T>
[[nodiscard]] bool choleskyInverse(const TMatrix<T>& u, TMatrix<T>& inv) = delete; // for double only
template <>
[[nodiscard]] VOALGO_API bool choleskyInverse<double>(const TMatrix<double>& u, TMatrix<double>& inv);
///@}

namespace lapack {

/// Singular value decomposition a = u·diag(s)·vt (SGESVD, DGESVD) of an m×n matrix. The outputs are reshaped: u to m×m
/// and vt to n×n, both orthogonal, s the min(m, n) singular values, largest first. `a` is destroyed. A matrix without
/// elements has no singular values; u and vt are then identities. False when the iteration does not converge. T is
/// float or double.
template <class T>
[[nodiscard]] VOALGO_API bool svd(TMatrix<T>& a, TMatrix<T>& u, TVector<T>& s, TMatrix<T>& vt);

///@{
/// Least squares a·x ≈ b through the singular value decomposition: of all x that minimise ‖a·x − b‖ the one of smallest
/// norm (SGELSS, DGELSS). Singular values not above the machine precision times the largest count as 0. `a` is
/// destroyed.
/// b has as many rows as a; x must come with as many rows as a has columns. With matrices, each column is a separate
/// problem.
/// @param cond  null, or out: largest ÷ smallest singular value; infinite for a singular a, NaN for a zero one, 1 for
/// one without elements.
///
/// False when the shapes do not fit; x and cond are then unchanged.
template <class T>
[[nodiscard]] VOALGO_API bool lssolve(TMatrix<T>& a, const TVector<T>& b, TVector<T>& x,
                                      std::type_identity_t<T>* cond = nullptr);
template <class T>
[[nodiscard]] VOALGO_API bool lssolve(TMatrix<T>& a, const TMatrix<T>& b, TMatrix<T>& x,
                                      std::type_identity_t<T>* cond = nullptr);
///@}

/// QR factorisation with column pivoting a·P = Q·R of an m×n matrix (DGEQP3, DORMQR): q m×m orthogonal, r m×n upper
/// triangular with |r(i, i)| not increasing, p the permutation. `a` is destroyed. False, with the outputs left alone,
/// when they do not have these shapes beforehand.
[[nodiscard]] VOALGO_API bool qrp(TMatrix<double>& a, TMatrix<double>& q, TMatrix<double>& r, CPMatrix& p);

/// All solutions x of the linear equations a·x = b, for an a of m equations in n unknowns: x = x₀ + K·z with free z.
/// Returns K, n×(n − rank). Its columns belong to the unknowns that the pivoted QR factorisation of `a` leaves free, in
/// ascending order: column j has a 1 in the row of its own free unknown and 0 in those of the others, so z holds
/// the free unknowns themselves.
/// @param a   destroyed.
/// @param b   in: the m right-hand sides, or empty for all 0. Out: x₀, n values, 0 at the free unknowns; an equation in
///        one unknown alone is met exactly.
/// @param p   out: n entries; first the unknowns that depend on the others, then the free ones, ascending.
///
/// Every equation holds to the rounding of its own terms, in x₀ and K, however unlike the unknowns are in size.
/// The rank is the number of |r(i, i)| above 4·max(m, n)·ε·|r(0, 0)|, after every equation has been scaled by a power
/// of two that brings its largest coefficient to between 1/2 and 1. When the equations contradict each other (some row
/// is missed by more than 1e-12·(Σ|aᵢⱼ·xⱼ| + |bᵢ|)), `b` comes back empty, while K and p still describe a's null space.
/// When the factorisation itself fails (not finite, sizes that do not fit), K is 0×0 and `b` and p are left alone.
[[nodiscard]] VOALGO_API TMatrix<double> qrp_kernel(TMatrix<double>& a, TVector<double>& b, CPMatrix& p);

} // namespace lapack
} // namespace VoAlgo
