#pragma once

#include <cstdint>

namespace prereg::detail {

/// Of every random engine of a registration: results repeat exactly from run to run.
inline constexpr std::uint32_t RandomSeed = 47110815;

} // namespace prereg::detail
