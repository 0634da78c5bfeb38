#pragma once

#include <cstdint>

namespace VoAlgo {

/// Seed of every random engine of the library: results repeat exactly from run to run.
inline constexpr std::uint32_t RandomSeed = 47110815;

} // namespace VoAlgo
