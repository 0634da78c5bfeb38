#pragma once

#include "VoAlgorithms/colour/lab.h"
#include "VoAlgorithms/colour/rgb.h"
#include "VoAlgorithms/export.h"

#include <cstddef>
#include <span>

namespace VoAlgo::cs {

///@{
/// Pixels by the million: to[i] = Lab(from[i]), the same bits as from the class in a program that, like this library,
/// is compiled without contracted multiply-adds (-ffp-contract=off). The spans must not overlap. Converts as many as
/// both spans have place for and returns that number.
VOALGO_API std::size_t ConvertToLab(std::span<const RGB> from, std::span<Lab> to) noexcept;
VOALGO_API std::size_t ConvertToLab(std::span<const RGB::Packed> from, std::span<Lab> to) noexcept;
///@}

} // namespace VoAlgo::cs
