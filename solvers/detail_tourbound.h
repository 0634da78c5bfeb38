#pragma once

#include "solvers/detail_tourmap.h"

namespace VoAlgo {

/// The Held-Karp lower bound of all tours of the map: the largest weight found of a least 1-tree (a spanning tree and
/// one more edge) under penalties that pull every node towards two edges. `lists` and `tour` name edges that are likely
/// to be in such a tree; the last trees consider all edges, so that the bound holds whatever these are.
double LowerBound(const TourMap& map, const NeighbourLists& lists, const std::vector<unsigned>& tour);

} // namespace VoAlgo
