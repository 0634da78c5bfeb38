#pragma once

#include "VoAlgorithms/clustering/tclusteriterator.h"
#include "VoAlgorithms/export.h"

#include <cstddef>
#include <functional>
#include <random>
#include <vector>

namespace VoAlgo {

/// Mean shift with a flat kernel over points of any dimension: finds the modes of the point distribution and assigns
/// every point to one cluster. Clusters keep the order in which their modes were found, points that reached no mode
/// follow as clusters of one. One thread at a time; deterministic for a fresh object (fixed seed, a second Run
/// continues the random sequence). Every step visits every point: O(n · starts · steps) distances, so keep n small.
/// Source: K. Fukunaga, L. Hostetler, IEEE Trans. Information Theory 21 (1975) 32–40.
class VOALGO_API CMeanShiftClusterer {
public:
    /// SQUARED distance of two points a and b of d coordinates; always the same for the same coordinates. An empty
    /// function stands for the squared Euclidean distance.
    using Distance = std::function<float(std::size_t d, const float* a, const float* b)>;

    /// Stands for no cluster.
    static constexpr unsigned None = 0xFFFFFFFFU;

    /// Iterates over the members of one cluster.
    using ClusterIterator = TClusterIterator<CMeanShiftClusterer>;

    /// Without points: Run returns false.
    CMeanShiftClusterer();
    /// Copies n points of d coordinates, point after point. h: the bandwidth. Throws std::invalid_argument "mean shift
    /// clustering: missing input data" for null, n = 0 or d = 0, then "mean shift clustering: invalid bandwidth" for h
    /// ≤ 0, and std::length_error when n or d needs more than 32 bits. A NaN bandwidth is let through: every point then
    /// becomes a cluster of its own.
    CMeanShiftClusterer(const float* data, std::size_t n, std::size_t d, float h);
    CMeanShiftClusterer(const CMeanShiftClusterer&) = delete;
    CMeanShiftClusterer(CMeanShiftClusterer&&) = default;
    CMeanShiftClusterer& operator=(const CMeanShiftClusterer&) = delete;
    CMeanShiftClusterer& operator=(CMeanShiftClusterer&&) = default;
    ~CMeanShiftClusterer() = default;

    /// Clusters. False, and no clusters, without points or when a coordinate is infinite or NaN. Means are sums in
    /// point order divided by the count, in single precision. Always ends, after at most 2·n starts: a start point
    /// counts as visited whatever came of it; a start that exceeds 2·n·d steps makes one other point unvisited again,
    /// but at most n times in one Run.
    [[nodiscard]] bool Run(const Distance& distance);

    /// Clusters of the last Run, numbered from 0; 0 before it.
    [[nodiscard]] unsigned GetNumClusters() const { return static_cast<unsigned>(sizes_.size()); }
    /// Cluster of point i, None before a successful Run; unchecked.
    [[nodiscard]] unsigned GetCluster(unsigned i) const { return clusterOf_[i]; }
    /// The d coordinates of the centre, valid until the next Run; null when c is out of range.
    [[nodiscard]] const float* GetClusterCenter(unsigned c) const;
    /// 0 when c is out of range.
    [[nodiscard]] unsigned GetClusterSize(unsigned c) const { return c < sizes_.size() ? sizes_[c] : 0U; }
    /// The sizes of all clusters, valid until the next Run.
    [[nodiscard]] const unsigned* GetClusterHistogram() const { return sizes_.data(); }
    /// An empty iterator when c is out of range.
    [[nodiscard]] ClusterIterator GetClusterIterator(unsigned c) const;
    /// Index of the member nearest to the centre of c, the first of equally near ones; −1 when c is out of range or
    /// empty.
    [[nodiscard]] int GetClusterRepresentative(unsigned c, const Distance& distance) const;

    /// Smallest distance between points of different clusters ÷ largest distance within a cluster; higher is better, +∞
    /// when either does not exist. O(n²). Source: J. C. Dunn, Journal of Cybernetics 4 (1974) 95–104.
    [[nodiscard]] float ComputeDunnIndex(const Distance& distance) const;
    /// Bayesian information criterion of the clustering under spherical Gaussians of one variance; higher is better.
    /// Source: D. Pelleg, A. Moore, X-means, ICML 2000.
    [[nodiscard]] float ComputeBIC(const Distance& distance) const;

private:
    friend ClusterIterator;
    [[nodiscard]] std::size_t numPoints() const { return clusterOf_.size(); }
    [[nodiscard]] const float* point(std::size_t i) const { return data_.data() + i * dimension_; }

    static float euclideanNormSq(std::size_t d, const float* a, const float* b);

    float bandwidth_ = 0.0F;
    float stopThreshold_ = 0.0F;
    unsigned dimension_ = 0;
    std::vector<float> data_;
    std::vector<unsigned> clusterOf_; // of every point
    std::mt19937 engine_;
    std::uniform_real_distribution<float> uniform_{0.0F, 1.0F};
    std::vector<float> centres_; // d coordinates each
    std::vector<unsigned> sizes_;
};

} // namespace VoAlgo
