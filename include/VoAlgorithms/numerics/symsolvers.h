#pragma once

#include "VoAlgorithms/export.h"

/// Closed-form solvers for corresponding points and small symmetric eigenproblems. Points are packed x y z,
/// millimetres; arrays belong to the caller, inputs are not modified unless said so. Nothing here allocates, and bad
/// geometry never throws.
namespace VoAlgo::symsolvers {

/// Rigid fit b ≈ R·a + t of n corresponding points (unit-quaternion method).
/// @param weights      n values, or null for all 1. They enter the centroids only; the cross-covariance is unweighted.
/// @param quaternion   out: (w, x, y, z), unit length, w ≥ 0.
/// @param rotation     out: row-major 3×3.
/// @param translation  out: millimetres.
///
/// Returns false and writes nothing for n < 3, a null point array, or input that is not finite (logged as an error).
/// Returns false but writes all outputs when the largest eigenvalue is not unique (logged at trace level).
///
/// The uniqueness test is an exact comparison. It always detects identical points and points on lines parallel to a
/// coordinate axis, whatever the weights; points on oblique lines only when centroids and cross-covariance are free of
/// rounding errors (p, p + d, p + 2d on a grid), otherwise by chance: rounding bends the line.
///
/// The size of the point sets does not matter, from 1e-150 mm on; smaller ones count as identical points.
/// Source: B. K. P. Horn, J. Opt. Soc. Am. A 4 (1987) 629–642.
VOALGO_API bool Procrustes(const double* a, const double* b, const double* weights, double* quaternion,
                           double (*rotation)[3], double* translation, unsigned n);

/// The small motion that brings points onto the planes through their partners: minimises
/// Σ wᵢ·((srcᵢ + ω × srcᵢ + t − dstᵢ)·nᵢ)² over the rotation vector ω and the translation t.
/// src, dst and normals are n×3 each, the normals at dst.
/// @param weights          null: all 1; otherwise weights[0] for all when oneWeight is set, else weights[i].
/// @param rotationVector   out: ω, radians.
/// @param translation      out: millimetres.
///
/// Returns false and leaves the outputs untouched when the normal equations are not positive definite to working
/// precision (too few pairs, all normals parallel, input that is not finite) or an array is null. One pass, O(n).
VOALGO_API bool PointToPlaneUpdateLS(const double* src, const double* dst, const double* normals, const double* weights,
                                     double* rotationVector, double* translation, int n, bool oneWeight);

/// As PointToPlaneUpdateLS, but without the small-angle approximation: minimises Σ wᵢ·((R·srcᵢ + t − dstᵢ)·nᵢ)² over
/// rigid motions by Gauss–Newton steps from the identity.
/// @param weights       n values, or null for all 1.
/// @param eulerAngles   out: (α, β, γ), radians, R = Rz(γ)·Ry(β)·Rx(α) as in CTrafo's Euler constructor.
/// @param translation   out: t, millimetres.
///
/// Returns false and leaves the outputs untouched when a step's equations are not positive definite, an array is null
/// or the steps have not died out after 50.
VOALGO_API bool PointToPlaneUpdate(const double* src, const double* dst, const double* normals, const double* weights,
                                   double* eulerAngles, double* translation, int n);

/// Covariance of a point-to-plane fit at a pose: σ²·(Jᵀ·W·J)⁻¹ with rᵢ = (R·srcᵢ + t − dstᵢ)·nᵢ, J its derivative by
/// the six pose parameters, W the weights and σ² = Σ wᵢ·rᵢ² ÷ (n − 6). It assumes independent distances along the
/// normals with variances in proportion to 1 ÷ wᵢ; the scale of the weights cancels out.
/// src, dst and normals are n×3 each, src before the pose is applied.
/// @param weights          n values, or null for all 1.
/// @param pose             (α, β, γ, t_x, t_y, t_z): radians and millimetres, R = Rz(γ)·Ry(β)·Rx(α).
/// @param covariance       out: 6×6, row-major, in the order of pose: rad², rad·mm and mm².
///
/// Returns false and leaves the output untouched for n < 7, a null array or a system that is not positive definite
/// (also at β = ±π/2, where two angles turn about one axis).
VOALGO_API bool PointToPlaneCovariance(const double* src, const double* dst, const double* normals,
                                       const double* weights, const double* pose, int n, double* covariance);

/// Eigenvalues and eigenvectors of a symmetric matrix by cyclic Jacobi rotations.
/// @param matrix        n×n; only the diagonal and the triangle above it are read; destroyed.
/// @param eigenvalues   out: n values in the order of the diagonal, unsorted.
/// @param eigenvectors  out: n×n, row-major; column k is the unit eigenvector of eigenvalue k.
/// @param work          scratch, n values.
///
/// Stops before a sweep when √(Σ of the squared elements above the diagonal) ÷ (4·n) < 1e−15 or is NaN, and after
/// maxSweeps sweeps. The test is absolute: scale a matrix whose entries are far below 1 beforehand.
VOALGO_API void JacobiIteration(double* matrix, double* eigenvalues, double* eigenvectors, int n, int maxSweeps,
                                double* work);

/// Sorts n eigenvalues and, with them, the columns of the row-major n×n eigenvector matrix. descending: largest first,
/// otherwise smallest first. Equal ones keep their order.
VOALGO_API void SortEigenV(double* eigenvalues, double* eigenvectors, int n, bool descending);

/// Scales the rows of m to unit length and overwrites m with the rotation R that Procrustes fits to the unit basis
/// vectors as first and the rows as second set: R·e_k ≈ row k, so the rows end up as columns of R. Returns Procrustes'
/// result; m is unchanged when a row has no length or is not finite.
VOALGO_API bool Orthonormalize(double (*m)[3]);

} // namespace VoAlgo::symsolvers
