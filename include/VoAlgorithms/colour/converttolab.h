#pragma once

#include "VoAlgorithms/colour/lab.h"
#include "VoAlgorithms/colour/rgb.h"
#include "VoAlgorithms/export.h"

#include <cstddef>
#include <span>

namespace VoAlgo::cs {

///@{
/// Converts many pixels: to[i] = Lab(from[i]), with the bits that the class gives in a program compiled, like this
/// library, without contracted multiply-adds (-ffp-contract=off). The spans must not overlap. Converts as many pixels
/// as the shorter span holds and returns their number.
VOALGO_API std::size_t ConvertToLab(std::span<const RGB> from, std::span<Lab> to) noexcept;
VOALGO_API std::size_t ConvertToLab(std::span<const RGB::Packed> from, std::span<Lab> to) noexcept;
///@}

} // namespace VoAlgo::cs
