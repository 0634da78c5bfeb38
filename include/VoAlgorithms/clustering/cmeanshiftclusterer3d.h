#pragma once

#include "VoAlgorithms/clustering/tclusteriterator.h"
#include "VoAlgorithms/export.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace VoAlgo {

/// Mean shift with a flat kernel over points or unit vectors in space, by Euclidean distance. As CMeanShiftClusterer,
/// but a point that reached no mode belongs to no cluster. One thread at a time; deterministic for a fresh object.
class VOALGO_API CMeanShiftClusterer3D {
public:
    /// Stands for no cluster.
    static constexpr unsigned None = 0xFFFFFFFFU;

    /// Iterates over the members of one cluster.
    using ClusterIterator = TClusterIterator<CMeanShiftClusterer3D>;

    /// Without points: Run returns false.
    CMeanShiftClusterer3D();
    ///@{
    /// Copy n points (packed triples x y z; doubles are narrowed). h: the bandwidth. Throw std::invalid_argument "mean
    /// shift clustering: missing input data" for null or no points, then "mean shift clustering: invalid bandwidth" for
    /// h ≤ 0; std::runtime_error "mean shift clustering: memory allocation error". A NaN bandwidth is let through and
    /// finds nothing.
    CMeanShiftClusterer3D(const std::vector<std::array<float, 3>>& points, float h);
    CMeanShiftClusterer3D(const float* xyz, std::size_t n, float h);
    CMeanShiftClusterer3D(const double* xyz, std::size_t n, double h);
    ///@}

    /// Clusters. False, and no clusters, without points or when a coordinate is infinite or NaN. Means are sums in
    /// point order divided by the count, in single precision. Always ends, after at most n starts: a start point counts
    /// as visited whatever came of it; a start ends without a cluster after 4·n steps.
    [[nodiscard]] bool Run();

    /// Clusters of the last Run, numbered from 0; 0 before it.
    [[nodiscard]] unsigned GetNumClusters() const { return static_cast<unsigned>(sizes_.size()); }
    /// Cluster of point i; None before a successful Run and for a point without a cluster; unchecked.
    [[nodiscard]] unsigned GetCluster(unsigned i) const { return points_[i].cluster; }
    /// x, y, z, 0 of the centre, 16-byte aligned, valid until the next Run; null when c is out of range.
    [[nodiscard]] const float* GetClusterCenter(unsigned c) const;
    /// 0 when c is out of range.
    [[nodiscard]] unsigned GetClusterSize(unsigned c) const { return c < sizes_.size() ? sizes_[c] : 0U; }
    /// The sizes of all clusters, valid until the next Run.
    [[nodiscard]] const unsigned* GetClusterHistogram() const { return sizes_.data(); }
    /// An empty iterator when c is out of range.
    [[nodiscard]] ClusterIterator GetClusterIterator(unsigned c) const;
    /// See CMeanShiftClusterer; points without a cluster are left out. O(n²).
    [[nodiscard]] float ComputeDunnIndex() const;

    /// The chord between two unit vectors that enclose `angle` (rad).
    [[nodiscard]] static float ComputeBandwidthFromAngleForNormalClustering(float angle);
    /// Its inverse, rad.
    [[nodiscard]] static float ComputeAngleFromBandwidthForNormalClustering(float h);

private:
    friend ClusterIterator;
    [[nodiscard]] std::size_t numPoints() const { return points_.size(); }
    [[nodiscard]] const float* point(std::size_t i) const { return points_[i].xyz; }

    /// A point in one vector register: three coordinates and the index of its cluster.
    struct alignas(16) Record {
        float xyz[3];
        std::uint32_t cluster;
    };
    struct alignas(16) Centre {
        float xyzw[4] = {};
    };

    template <class T>
    void assign(const T* xyz, std::size_t n, T h);

    float bandwidth_ = 0.0F;
    float stopThreshold_ = 0.0F;
    std::vector<Record> points_;
    std::mt19937 engine_;
    std::uniform_real_distribution<float> uniform_{0.0F, 1.0F};
    std::vector<Centre> centres_;
    std::vector<unsigned> sizes_;
};

} // namespace VoAlgo
