#pragma once

#include "solvers/detail_tourmap.h"

namespace VoAlgo {

/// A tour by greedy edges: the shortest ones first, as long as they close no ring and give no node a third edge; first
/// those of the lists, then those between nearby ends of the pieces. Required edges go before all. O(n log n) for
/// points.
std::vector<unsigned> GreedyTour(const TourMap& map, const NeighbourLists& lists);

} // namespace VoAlgo
