#pragma once

#include "solvers/detail_tourmap.h"

namespace VoAlgo {

/// Up to how many cities ShortestTour is used: 2^n·n² steps.
inline constexpr unsigned MaxExactCities = 12;

/// The shortest tour with all required edges, by dynamic programming over subsets. Equal ones: by the smallest nodes.
std::vector<unsigned> ShortestTour(const TourMap& map);

} // namespace VoAlgo
