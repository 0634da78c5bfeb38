#include "VoAlgorithms/prereg/cpointfeaturehistogram.h"

#include "prereg/detail_histogramdistances.h"
#include "prereg/detail_pairfeatures.h"

#include <bit>
#include <exception>

namespace prereg {
namespace {

using VoAlgo::simd::F8;

class InvalidPopCount : public std::exception {
public:
    [[nodiscard]] const char* what() const noexcept override { return "invalid popcnt!"; }
};

} // namespace

CPointFeatureHistogram CPointFeatureHistogram::Identity()
{
    CPointFeatureHistogram h;
    for (std::size_t block = 0; block < 3; ++block) h.bins[block * NumBlockBins + NumBlockBins / 2] = 1.0F;
    return h;
}

void CPointFeatureHistogram::Update(const kdtree::Vector<3>& sourcePoint, const kdtree::Vector<3>& sourceNormal,
                                    const kdtree::Vector<3>& targetPoint, const kdtree::Vector<3>& targetNormal)
{
    const detail::PairBins pair = detail::ComputePairBins(sourcePoint, sourceNormal, targetPoint, targetNormal);
    bins[static_cast<std::size_t>(pair.alpha)] += 1.0F;
    bins[NumBlockBins + static_cast<std::size_t>(pair.phi)] += 1.0F;
    bins[2 * NumBlockBins + static_cast<std::size_t>(pair.theta)] += 1.0F;
}

void CPointFeatureHistogram::Add(const CPointFeatureHistogram& other, float weight)
{
    for (std::size_t i = 0; i < NumBins; ++i) bins[i] += weight * other.bins[i];
}

void CPointFeatureHistogram::Normalize()
{
    float sum = 0.0F;
    for (std::size_t i = 0; i < NumBlockBins; ++i) sum += bins[i];
    const float scale = 1.0F / sum; // deliberately unguarded
    for (float& bin : bins) bin *= scale;
}

unsigned CPointFeatureHistogram::PopCount() const
{
    const F8 zero = F8::Set(0.0F);
    int count = 0;
    for (std::size_t i = 0; i < 32; i += VoAlgo::simd::Lanes) {
        const F8 lanes = F8::Load(bins + i);
        count += std::popcount(F8::MaskLess(lanes, zero) | F8::MaskLess(zero, lanes)); // a NaN is neither
    }
    count += bins[32] != 0.0F ? 1 : 0;

    int plainCount = 0;
    for (const float bin : bins) plainCount += bin != 0.0F ? 1 : 0;
    if (count != plainCount) throw InvalidPopCount(); // deliberate cross-check: a NaN in bins 0 to 31
    return static_cast<unsigned>(count);
}

// Deliberate: the names of the next two are crossed; callers rely on the computation.
float CPointFeatureHistogram::SoerensenDistance(const CPointFeatureHistogram& other) const
{
    return detail::SumOfSquaredDifferences<F8>(bins, other.bins);
}

float CPointFeatureHistogram::SquaredEuclideanDistance(const CPointFeatureHistogram& other) const
{
    return detail::Dissimilarity<F8>(bins, other.bins);
}

float CPointFeatureHistogram::SquaredChi2Distance(const CPointFeatureHistogram& other) const
{
    return detail::Chi2<F8>(bins, other.bins);
}

} // namespace prereg
