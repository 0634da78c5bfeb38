#pragma once

#include <cmath>
#include <limits>

namespace VoAlgo::detail {

/// In-place Cholesky factor L of the symmetric matrix whose lower triangle a holds. False when a pivot is not positive
/// to working precision (or NaN): of an exactly singular matrix, rounding leaves pivots of a few epsilon of the
/// diagonal.
template <int N>
bool CholeskyFactor(double (&a)[N][N])
{
    constexpr double SmallestPivot = 1e-12; // relative to the diagonal element
    for (int j = 0; j < N; ++j) {
        double pivot = a[j][j];
        for (int k = 0; k < j; ++k) pivot -= a[j][k] * a[j][k];
        if (!(pivot > SmallestPivot * a[j][j]) || !std::isfinite(pivot)) return false;
        a[j][j] = std::sqrt(pivot);
        for (int i = j + 1; i < N; ++i) {
            double sum = a[i][j];
            for (int k = 0; k < j; ++k) sum -= a[i][k] * a[j][k];
            a[i][j] = sum / a[j][j];
        }
    }
    return true;
}

/// Solves L·Lᵀ·x = x in place.
template <int N>
void CholeskySolve(const double (&l)[N][N], double (&x)[N])
{
    for (int i = 0; i < N; ++i) {
        for (int k = 0; k < i; ++k) x[i] -= l[i][k] * x[k];
        x[i] /= l[i][i];
    }
    for (int i = N - 1; i >= 0; --i) {
        for (int k = i + 1; k < N; ++k) x[i] -= l[k][i] * x[k];
        x[i] /= l[i][i];
    }
}

} // namespace VoAlgo::detail
