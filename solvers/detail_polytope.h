#pragma once

#include "VoAlgorithms/numerics/tmatrix.h"
#include "VoAlgorithms/numerics/tvector.h"

#include <cmath>
#include <cstddef>
#include <limits>

// Rows a of a polytope A·z ≤ b in floating point. Rows of zeros and rows with b = +∞ bound nothing.

namespace VoAlgo::detail {

inline double RowDot(const TMatrix<double>& A, std::size_t row, const TVector<double>& v)
{
    double sum = 0;
    for (std::size_t j = 0; j < A.Cols(); ++j) sum += A(row, j) * v[j];
    return sum;
}

inline double RowNorm(const TMatrix<double>& A, std::size_t row)
{
    double sum = 0;
    for (std::size_t j = 0; j < A.Cols(); ++j) sum += A(row, j) * A(row, j);
    return std::sqrt(sum);
}

/// How far rounding may carry a sum of so many terms.
inline double Rounding(std::size_t terms, double magnitude)
{
    return static_cast<double>(terms + 8) * std::numeric_limits<double>::epsilon() * magnitude;
}

/// What rounding may make of the slack b − a·z, and of z on its way to the row; 0 where there is no bound.
inline double SlackRounding(const TMatrix<double>& A, const TVector<double>& b, std::size_t row,
                            const TVector<double>& z)
{
    if (std::isinf(b[row])) return 0;
    double magnitude = std::abs(b[row]);
    for (std::size_t j = 0; j < A.Cols(); ++j) magnitude += std::abs(A(row, j) * z[j]);
    return Rounding(A.Cols(), magnitude);
}

/// v ÷ ‖v‖ for a v ≠ 0, and ‖v‖; without squares that overflow.
inline TVector<double> Direction(const TVector<double>& v, double& length)
{
    const double largest = v.MaxAbs();
    TVector<double> d = v;
    for (double& e : d) e /= largest;
    const double norm = d.Norm();
    for (double& e : d) e /= norm;
    length = largest * norm;
    return d;
}

/// h − (h·n)n, twice: what the first leaves along n is a rounding of h, which may be much longer than the rest.
inline void Project(TVector<double>& h, const TVector<double>& n)
{
    for (int pass = 0; pass < 2; ++pass) h -= n * h.Dot(n);
}

} // namespace VoAlgo::detail
