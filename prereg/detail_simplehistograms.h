#pragma once

#include "VoAlgorithms/prereg/cpointfeaturehistogram.h"
#include "prereg/detail_neighbours.h"
#include "prereg/detail_pairfeatures.h"

#include <algorithm>
#include <vector>

namespace prereg::detail {

/// Counts the bins of a point's neighbour pairs. Keeps its scratch memory from point to point.
template <class Pack>
class PairCounter {
public:
    /// The simple histogram over the pairs (point, neighbour); writes the 33 bins.
    void Count(const NeighbourPlanes& neighbours, const kdtree::Vector<3>& normal, float* bins)
    {
        using enum NeighbourPlanes::Plane;
        if (codes_.size() < neighbours.Capacity()) codes_.resize(neighbours.Capacity());
        const PairBinner<Pack> binner(normal);
        std::size_t n = 0;
        for (; n < neighbours.count; n += VoAlgo::simd::Lanes)
            binner(Pack::Load(neighbours[DX] + n), Pack::Load(neighbours[DY] + n), Pack::Load(neighbours[DZ] + n),
                   Pack::Load(neighbours[NX] + n), Pack::Load(neighbours[NY] + n), Pack::Load(neighbours[NZ] + n),
                   &codes_[n]);
        std::fill(codes_.data() + neighbours.count, codes_.data() + n, NoPair);
        std::uint32_t counts[CPointFeatureHistogram::NumBins];
        Pack::template CountCodes<CPointFeatureHistogram::NumBlockBins>(codes_.data(), n, counts);
        for (std::size_t b = 0; b < CPointFeatureHistogram::NumBins; ++b) bins[b] = static_cast<float>(counts[b]);
    }

private:
    std::vector<std::uint32_t> codes_;
};

/// Σ simple histogram ÷ (k·d) over the k points within the radius, in sorted order, those at distance d = 0 left out;
/// normalised. simple[position].bins: 33 bins, padded with zeros to 40. Overwrites the distances by the weights.
template <class Pack, class Histograms>
CPointFeatureHistogram MixHistograms(const Histograms& simple, NeighbourList& neighbours)
{
    using VoAlgo::simd::Lanes;
    CPointFeatureHistogram feature;
    const std::size_t k = neighbours.count;
    if (k == 0) return feature;
    const Pack share = Pack::Set(1.0F / static_cast<float>(k));
    const Pack zero = Pack::Set(0.0F);
    float* const weights = neighbours.distancesSq.data();
    for (std::size_t i = 0; i < k; i += Lanes)
        Pack::FiniteOr(share / Pack::Sqrt(Pack::Load(weights + i)), zero).Store(weights + i);

    Pack sum0 = zero, sum1 = zero, sum2 = zero, sum3 = zero, sum4 = zero; // one by one: they stay in registers
    for (std::size_t i = 0; i < k; ++i) {
        const Pack weight = Pack::Set(weights[i]); // 0 at distance 0: adds nothing
        const float* row = simple[neighbours.positions[i]].bins;
        sum0 = sum0 + weight * Pack::Load(row);
        sum1 = sum1 + weight * Pack::Load(row + Lanes);
        sum2 = sum2 + weight * Pack::Load(row + 2 * Lanes);
        sum3 = sum3 + weight * Pack::Load(row + 3 * Lanes);
        sum4 = sum4 + weight * Pack::Load(row + 4 * Lanes);
    }
    sum0.Store(feature.bins);
    sum1.Store(feature.bins + Lanes);
    sum2.Store(feature.bins + 2 * Lanes);
    sum3.Store(feature.bins + 3 * Lanes);
    float rest[Lanes];
    sum4.Store(rest);
    feature.bins[4 * Lanes] = rest[0];
    feature.Normalize();
    return feature;
}

} // namespace prereg::detail
