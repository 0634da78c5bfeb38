#pragma once

#include "VoAlgorithms/prereg/cpointfeaturehistogram.h"

#include <cstddef>
#include <vector>

namespace prereg::detail {

struct KMeansClusters {
    std::vector<unsigned> clusterOf; // of every feature
    std::vector<unsigned> sizes;     // some may be 0
};

/// k-means of histograms by SquaredChi2Distance, with the means of the members as centres. Seeds by k-means++ from a
/// fixed random seed; there are fewer clusters when there are fewer than k distinct histograms. Ends when the mean
/// distance to the centres grows by more than a quarter or falls below 1e-6, and after 1000 iterations. `verbose`
/// reports every iteration on standard output. Source: D. Arthur, S. Vassilvitskii, k-means++: The Advantages of
/// Careful Seeding, SODA 2007.
KMeansClusters ClusterByKMeans(const std::vector<CPointFeatureHistogram>& features, std::size_t k,
                               bool verbose = false);

} // namespace prereg::detail
