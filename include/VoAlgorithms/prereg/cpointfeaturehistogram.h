#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/kdtree/vector.h"

#include <cstddef>

namespace prereg {

/// Fast point feature histogram: three blocks of 11 bins for the angles alpha, phi and theta by which the normals of
/// surface points are turned against each other. Plain value of 33 floats.
/// Source: R. B. Rusu, N. Blodow, M. Beetz, Fast Point Feature Histograms (FPFH) for 3D Registration, ICRA 2009.
struct VOALGO_API CPointFeatureHistogram {
    static constexpr std::size_t NumBins = 33;      ///< three blocks
    static constexpr std::size_t NumBlockBins = 11; ///< of one angle, equally wide

    float bins[NumBins] = {}; ///< alpha, phi, theta; after Normalize the first block sums to 1

    /// Histogram of a pair whose three quantities are 0: the middle bin of every block is 1.
    static CPointFeatureHistogram Identity();

    ///@{
    /// Bin i of 0 to 32; unchecked.
    constexpr float operator[](std::size_t i) const { return bins[i]; }
    constexpr float& operator[](std::size_t i) { return bins[i]; }
    ///@}

    /// Adds the pair of source (point, normal) and target (point, normal). The connecting vector is normalised with the
    /// processor's approximate reciprocal square root.
    void Update(const kdtree::Vector<3>& sourcePoint, const kdtree::Vector<3>& sourceNormal,
                const kdtree::Vector<3>& targetPoint, const kdtree::Vector<3>& targetNormal);
    /// bin += weight × other's bin.
    void Add(const CPointFeatureHistogram& other, float weight);
    /// Scales all bins by the reciprocal sum of the first block; an empty histogram becomes non-finite.
    void Normalize();
    /// Number of bins that are not 0. Throws std::exception "invalid popcnt!" when one of bins 0 to 31 is NaN.
    unsigned PopCount() const;
    /// Squared Euclidean distance. The names of this and the next operation are crossed; callers rely on the values.
    [[nodiscard]] float SoerensenDistance(const CPointFeatureHistogram& other) const;
    /// Soerensen (Bray-Curtis) dissimilarity, Σ|a − b| ÷ Σ(a + b); NaN for two empty histograms.
    [[nodiscard]] float SquaredEuclideanDistance(const CPointFeatureHistogram& other) const;
    /// Σ (a − b)² ÷ (a + b) over the bins that are not both 0.
    [[nodiscard]] float SquaredChi2Distance(const CPointFeatureHistogram& other) const;
};

static_assert(sizeof(CPointFeatureHistogram) == 33 * sizeof(float));

} // namespace prereg
