#pragma once

#include "VoAlgorithms/numerics/ctrafo.h"
#include "VoAlgorithms/prereg/cfpfhclusteranalysis.h"
#include "VoAlgorithms/prereg/cfpfhpointset.h"
#include "VoAlgorithms/prereg/configurationfpfh.h"
#include "VoAlgorithms/prereg/cpointfeaturehistogram.h"

#include <cstdint>
#include <functional>
#include <random>
#include <vector>

namespace prereg {

/// A closed polygon whose corners are feature points of 'flt'; vertex i is joined to vertex (i + 1) mod n.
class CFPFHPolygon {
public:
    /// A feature of 'fix' that looks like a vertex.
    struct IdxAndDist {
        std::int32_t index; ///< of the feature point
        float distance;     ///< squared distance of the histograms
    };

    /// Seeds a polygon at random: one member of every cluster of `clusters`, or, without clusters, feature points
    /// within the configured diameter. samplingDistance > 0 keeps the vertices that far apart (mm); ≤ 0 disables.
    CFPFHPolygon(std::mt19937& engine, const CFPFHPointSet& flt, const CFPFHClusterAnalysis& clusters,
                 const ConfigurationFPFH& config, double samplingDistance);

    /// Whether seeding succeeded; a failed polygon has the single index −1.
    [[nodiscard]] bool IsSeeded() const { return indices_.front() >= 0; }
    /// Feature points of 'flt', one per vertex.
    [[nodiscard]] const std::vector<std::int32_t>& Indices() const { return indices_; }

    /// The pose that maps 'flt' into 'fix' by the best consistent match of the polygon, or CTrafo::Invalid().
    [[nodiscard]] static VoAlgo::CTrafo ComputePreRegistration(const CFPFHPolygon& polygon, const CFPFHPointSet& fix,
                                                               const CFPFHPointSet& flt,
                                                               const ConfigurationFPFH& config);

private:
    void fail();
    void seedFromClusters(std::mt19937& engine, const CFPFHClusterAnalysis& clusters);
    bool seedWithinDiameter(std::mt19937& engine, const CFPFHPointSet& flt, std::size_t n, double diameter);
    void seedAnywhere(std::mt19937& engine, const CFPFHPointSet& flt, std::size_t n, double samplingDistance);
    [[nodiscard]] std::int32_t drawApart(std::mt19937& engine, const CFPFHPointSet& flt, double distance) const;

    std::vector<CPointFeatureHistogram> vertices_;
    std::vector<std::int32_t> indices_;
};

} // namespace prereg
