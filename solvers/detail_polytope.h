#pragma once

#include "solvers/detail_halfspaces.h"

#include <cmath>
#include <cstddef>
#include <limits>

// The rows a·z ≤ b of a polytope in floating point.

namespace VoAlgo::detail {

/// Bound of the rounding error of a sum of so many terms.
inline double Rounding(std::size_t terms, double magnitude)
{
    return static_cast<double>(terms + 8) * std::numeric_limits<double>::epsilon() * magnitude;
}

/// Bound of the rounding errors of the slack b − a·z and of a z that was computed to lie on the row; 0 for an infinite
/// b.
inline double SlackRounding(const Halfspaces& polytope, std::size_t row, const TVector<double>& z)
{
    const double bound = polytope.Bound(row);
    if (std::isinf(bound)) return 0;
    const auto a = polytope.Row(row);
    double magnitude = std::abs(bound);
    for (std::size_t j = 0; j < a.size(); ++j) magnitude += std::abs(a[j] * z.Data()[j]);
    return Rounding(a.size(), magnitude);
}

/// a ÷ ‖a‖
inline TVector<double> UnitNormal(const Halfspaces& polytope, std::size_t row)
{
    return TVector<double>(polytope.Row(row)) * (1 / polytope.Norm(row));
}

/// v ÷ ‖v‖ for a v ≠ 0, and ‖v‖; no square overflows.
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

/// h − (h·n)n, twice: the first pass leaves a rounding error of h along n, and h may be much longer than its
/// projection.
inline void Project(TVector<double>& h, const TVector<double>& n)
{
    for (int pass = 0; pass < 2; ++pass) h -= n * h.Dot(n);
}

} // namespace VoAlgo::detail
