#pragma once

#include "VoAlgorithms/export.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace prereg {

class CFPFHPointSet;
struct ConfigurationFPFH;

/// Groups the features of a point set by the similarity of their histograms, so that common shapes (large clusters) can
/// be told from distinctive ones (small clusters). Clusters are ordered by ascending size, those of equal size by the
/// index that the clustering gave them; the members of a cluster are feature indices, ascending. Deterministic.
class VOALGO_API CFPFHClusterAnalysis {
public:
    /// The feature indices of one cluster, from the first pointer up to, but not including, the second; valid as long
    /// as the analysis.
    struct ClusterIterator : std::pair<const unsigned*, const unsigned*> {
        using pair::pair;
        ///@{
        /// The range, for range-based loops.
        [[nodiscard]] const unsigned* begin() const { return first; }
        [[nodiscard]] const unsigned* end() const { return second; }
        ///@}
    };

    /// No clusters.
    CFPFHClusterAnalysis() = default;
    /// dFeatureClusteringBandwidth > 0: mean shift with that bandwidth, whose square is compared with
    /// SquaredChi2Distance; non-finite histograms then end as one cluster of all features. Otherwise k-means with
    /// k = uiNumPolygonVertices; with both 0 an error is logged and there are no clusters. A set without features has
    /// none either.
    CFPFHClusterAnalysis(const CFPFHPointSet& set, const ConfigurationFPFH& config);

    /// Number of clusters, outliers included.
    [[nodiscard]] std::size_t GetNumClusters() const { return ends_.size(); }
    /// 0 when c is out of range.
    [[nodiscard]] std::size_t GetClusterSize(std::size_t c) const;
    /// The members of cluster c, an empty range when c is out of range.
    [[nodiscard]] ClusterIterator GetCluster(std::size_t c) const;
    /// First and last index of the clusters of ordinary size: smaller ones lie before, larger ones after. Sizes are
    /// ordinary within k interquartile ranges of the quartiles. (0, 0) without clusters. At least one cluster is
    /// ordinary. Source: J. W. Tukey, Exploratory Data Analysis (1977).
    [[nodiscard]] std::pair<std::size_t, std::size_t> GetInlierClusterRange(double k) const;
    /// Whether cluster c lies outside of that range; true when c is out of range.
    [[nodiscard]] bool IsOutlier(std::size_t c, double k) const;

    /// Diagnostic: clusters the features by mean shift with `steps` bandwidths from hMin to hMax and writes a line
    /// "bandwidth BIC" for each to the file d:/BIC.csv.
    static void ScanBandwidth(const CFPFHPointSet& set, double hMin, double hMax, unsigned steps);

private:
    void run_MeanShiftClustering(const CFPFHPointSet& set, double h);
    void run_kMeansClustering(const CFPFHPointSet& set, std::size_t k);
    void orderMembers(const std::vector<unsigned>& clusterOf, const std::vector<unsigned>& sizes, const char* function);
    [[nodiscard]] std::pair<std::size_t, std::size_t> getClusterRange(std::size_t c) const;

    std::vector<unsigned> ends_;    // end of every cluster in members_
    std::vector<unsigned> members_; // feature indices
};

} // namespace prereg
