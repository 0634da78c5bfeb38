#pragma once

#include "VoAlgorithms/numerics/tvector.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace VoAlgo::detail {

/// The p-quantile, by selection; the order of the values changes. Of a whole rank p·size the mean of the elements below
/// and above it. Not-a-number for a p outside [0, 1] (or not a number), no values, or values that are not numbers.
inline double Quantile(TVector<double>& values, double p)
{
    const bool unordered = std::any_of(values.begin(), values.end(), [](double e) { return std::isnan(e); });
    if (!(p >= 0 && p <= 1) || values.Empty() || unordered) return std::numeric_limits<double>::quiet_NaN();

    const auto select = [&values](double rank) {
        const auto position = values.begin() + static_cast<std::ptrdiff_t>(rank);
        std::nth_element(values.begin(), position, values.end());
        return position;
    };
    const double size = values.Size();
    const double x = size * p;
    if (x == 0) return *select(0);
    if (x == size) return *select(size - 1);
    if (x != std::floor(x)) return *select(std::ceil(x) - 1);
    const auto upper = select(x);
    return (*std::max_element(values.begin(), upper) + *upper) / 2;
}

} // namespace VoAlgo::detail
