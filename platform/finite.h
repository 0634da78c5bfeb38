#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace VoAlgo {

/// Whether all n values are finite.
template <class T>
[[nodiscard]] bool AllFinite(const T* values, std::size_t n)
{
    return std::all_of(values, values + n, [](T value) { return std::isfinite(value); });
}

} // namespace VoAlgo
