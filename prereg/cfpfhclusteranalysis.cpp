#include "VoAlgorithms/prereg/cfpfhclusteranalysis.h"

#include "VoAlgorithms/clustering/cmeanshiftclusterer.h"
#include "VoAlgorithms/prereg/cfpfhpointset.h"
#include "VoAlgorithms/prereg/configurationfpfh.h"
#include "platform/channels.h"
#include "platform/clock.h"
#include "prereg/detail_histogramdistances.h"
#include "prereg/detail_kmeans.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <numeric>
#include <optional>
#include <stdexcept>

namespace prereg {
namespace {

namespace channels = VoAlgo::channels;
using VoAlgo::CMeanShiftClusterer;

float Chi2OfBins(std::size_t, const float* a, const float* b)
{
    return detail::Chi2<VoAlgo::simd::F8>(a, b); // SquaredChi2Distance
}

/// Nothing when there are no features, the bandwidth is 0 in single precision, or a bin is not finite.
std::optional<CMeanShiftClusterer> ClusterByMeanShift(const CFPFHPointSet& set, double h)
{
    const std::vector<CPointFeatureHistogram>& features = set.GetFeatures();
    const auto bandwidth = static_cast<float>(h);
    if (features.empty() || bandwidth <= 0.0F) return std::nullopt;
    CMeanShiftClusterer clusterer(features[0].bins, features.size(), CPointFeatureHistogram::NumBins, bandwidth);
    if (!clusterer.Run(Chi2OfBins)) return std::nullopt;
    return clusterer;
}

/// The p-quantile of ascending values (not empty): the value at x = m·p, counted from 1, the mean of the two around a
/// whole x.
double Quantile(const std::vector<double>& values, double p)
{
    const std::size_t m = values.size();
    const double x = static_cast<double>(m) * p;
    const auto j = static_cast<std::size_t>(std::ceil(x));
    if (j == 0) return values.front();
    if (static_cast<double>(j) != x || j == m) return values[j - 1];
    return 0.5 * (values[j - 1] + values[j]);
}

} // namespace

CFPFHClusterAnalysis::CFPFHClusterAnalysis(const CFPFHPointSet& set, const ConfigurationFPFH& config)
{
    constexpr const char* Function = "prereg::CFPFHClusterAnalysis::CFPFHClusterAnalysis";
    if (config.dFeatureClusteringBandwidth > 0.0) {
        if (config.uiNumPolygonVertices != 0)
            VOALGO_LOG(channels::PreRegistration(), Warn, Function,
                       L"ignoring setting uiNumPolygonVertices=%u while Mean-Shift cluster analysis is active "
                       L"(dFeatureClusteringBandwidth=%g > 0)",
                       config.uiNumPolygonVertices, config.dFeatureClusteringBandwidth);
        run_MeanShiftClustering(set, config.dFeatureClusteringBandwidth);
    } else if (config.uiNumPolygonVertices == 0) {
        VOALGO_LOG(channels::PreRegistration(), Error, Function,
                   L"invalid combination of configuration parameters: dFeatureClusteringBandwidth<=0 in conflict with "
                   L"uiNumPolygonVertices==0");
    } else {
        run_kMeansClustering(set, config.uiNumPolygonVertices);
    }
}

void CFPFHClusterAnalysis::run_MeanShiftClustering(const CFPFHPointSet& set, double h)
{
    constexpr const char* Function = "prereg::CFPFHClusterAnalysis::run_MeanShiftClustering";
    VOALGO_LOG(channels::PreRegistration(), Info, Function, L"Clustering feature space ...");
    const VoAlgo::CStopwatch stopwatch;
    const std::size_t n = set.SizeFeatures();
    if (n == 0) return;
    const std::optional<CMeanShiftClusterer> clusterer = ClusterByMeanShift(set, h);
    if (!clusterer) {
        members_.resize(n);
        std::iota(members_.begin(), members_.end(), 0U);
        ends_ = {static_cast<unsigned>(n)};
        return;
    }
    const std::size_t numClusters = clusterer->GetNumClusters();
    VOALGO_LOG(channels::PreRegistration(), Trace, Function, L"done (%.3f s) => %zu clusters detected",
               stopwatch.Seconds(), numClusters);
    if (channels::PreRegistration().IsLogLevelEnabled(Logging::ELogLevel::Trace))
        VOALGO_LOG(channels::PreRegistration(), Trace, Function, L"Dunn index: %g",
                   static_cast<double>(clusterer->ComputeDunnIndex(Chi2OfBins)));

    std::vector<unsigned> clusterOf(n);
    for (std::size_t i = 0; i < n; ++i) clusterOf[i] = clusterer->GetCluster(static_cast<unsigned>(i));
    const unsigned* sizes = clusterer->GetClusterHistogram();
    orderMembers(clusterOf, std::vector<unsigned>(sizes, sizes + numClusters), Function);
}

void CFPFHClusterAnalysis::run_kMeansClustering(const CFPFHPointSet& set, std::size_t k)
{
    constexpr const char* Function = "prereg::CFPFHClusterAnalysis::run_kMeansClustering";
    const VoAlgo::CStopwatch stopwatch;
    const detail::KMeansClusters clusters = detail::ClusterByKMeans(set.GetFeatures(), k);
    orderMembers(clusters.clusterOf, clusters.sizes, Function);
    VOALGO_LOG(channels::PreRegistration(), Trace, Function, L"Clustered feature space in %.3f s", stopwatch.Seconds());
}

/// Fills members_ and ends_: clusters by ascending size, then index. Empty ones are left out.
void CFPFHClusterAnalysis::orderMembers(const std::vector<unsigned>& clusterOf, const std::vector<unsigned>& sizes,
                                        const char* function)
{
    std::vector<unsigned> order(sizes.size());
    std::iota(order.begin(), order.end(), 0U);
    std::erase_if(order, [&](unsigned c) { return sizes[c] == 0; });
    std::stable_sort(order.begin(), order.end(), [&](unsigned a, unsigned b) { return sizes[a] < sizes[b]; });

    std::vector<unsigned> next(sizes.size()); // where the next member of a cluster goes
    unsigned end = 0;
    for (const unsigned c : order) {
        next[c] = end;
        end += sizes[c];
        ends_.push_back(end);
    }
    members_.resize(clusterOf.size());
    for (std::size_t i = 0; i < clusterOf.size(); ++i) members_[next[clusterOf[i]]++] = static_cast<unsigned>(i);

    for (std::size_t c = 0; c < ends_.size(); ++c) {
        const auto [first, last] = getClusterRange(c);
        VOALGO_LOG(channels::PreRegistration(), Trace, function, L"  %zu: %zu [%zu,%zu]", c, last - first, first, last);
    }
}

std::pair<std::size_t, std::size_t> CFPFHClusterAnalysis::getClusterRange(std::size_t c) const
{
    if (c >= ends_.size()) return {0, 0};
    return {c == 0 ? 0 : ends_[c - 1], ends_[c]};
}

std::size_t CFPFHClusterAnalysis::GetClusterSize(std::size_t c) const
{
    const auto [first, last] = getClusterRange(c);
    return last - first;
}

CFPFHClusterAnalysis::ClusterIterator CFPFHClusterAnalysis::GetCluster(std::size_t c) const
{
    const auto [first, last] = getClusterRange(c);
    return {members_.data() + first, members_.data() + last};
}

std::pair<std::size_t, std::size_t> CFPFHClusterAnalysis::GetInlierClusterRange(double k) const
{
    if (ends_.empty()) return {0, 0};
    std::vector<double> sizes(ends_.size()); // ascending
    for (std::size_t c = 0; c < sizes.size(); ++c) sizes[c] = static_cast<double>(GetClusterSize(c));
    const double q1 = Quantile(sizes, 0.25);
    const double q3 = Quantile(sizes, 0.75);
    // Both fences are whole numbers, so that doubles compare as integers would.
    const double lowerFence = std::floor(q1 - k * (q3 - q1));
    const double upperFence = std::ceil(q3 + k * (q3 - q1));
    std::size_t first = 0;
    std::size_t last = sizes.size() - 1;
    while (first < last) {
        if (sizes[first] < lowerFence)
            ++first;
        else if (sizes[last] <= upperFence)
            break;
        else
            --last;
    }
    return {first, last};
}

bool CFPFHClusterAnalysis::IsOutlier(std::size_t c, double k) const
{
    const auto [first, last] = GetInlierClusterRange(k);
    return c >= GetNumClusters() || c < first || c > last;
}

void CFPFHClusterAnalysis::ScanBandwidth(const CFPFHPointSet& set, double hMin, double hMax, unsigned steps)
{
    constexpr const char* Function = "prereg::CFPFHClusterAnalysis::ScanBandwidth";
    std::ofstream file("d:/BIC.csv");
    file.imbue(std::locale::classic());
    for (unsigned i = 0; i < steps; ++i) {
        const double h = steps == 1 ? hMin : hMin + i * (hMax - hMin) / (steps - 1);
        const std::optional<CMeanShiftClusterer> clusterer = ClusterByMeanShift(set, h);
        if (!clusterer) {
            VOALGO_LOG(channels::PreRegistration(), Error, Function, L"clustering FAILED!");
            continue;
        }
        const float bic = clusterer->ComputeBIC(Chi2OfBins);
        if (channels::PreRegistration().IsLogLevelEnabled(Logging::ELogLevel::Info))
            VOALGO_LOG(channels::PreRegistration(), Info, Function, L"(h=%g) DunnIndex: %g, BIC: %g (%u clusters)", h,
                       static_cast<double>(clusterer->ComputeDunnIndex(Chi2OfBins)), static_cast<double>(bic),
                       clusterer->GetNumClusters());
        file << h << ' ' << bic << '\n';
    }
}

} // namespace prereg
