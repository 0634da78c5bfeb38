#include "prereg/detail_kmeans.h"

#include "platform/format.h"
#include "platform/randomseed.h"
#include "prereg/detail_histogramdistances.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <utility>

namespace prereg::detail {
namespace {

constexpr int MaxIterations = 1000;
constexpr float ErrorTolerance = 1e-6F;
constexpr float MaxErrorGrowth = 1.25F;
/// Centres move only while that lowers the error by a thousandth. Means are not the best centres for this distance:
/// after a few iterations the error wavers, and more of them only cost time.
constexpr float MinImprovement = 0.999F;
constexpr unsigned None = 0xFFFFFFFFU;
constexpr float Infinity = std::numeric_limits<float>::infinity();

using Histograms = std::vector<CPointFeatureHistogram>;

void Print(const std::string& text)
{
    std::fputs(text.c_str(), stdout);
}

/// Takes the first centre at random and each further one with a probability in proportion to its squared distance to
/// the nearest centre so far. Stops early when every histogram lies on a centre.
Histograms SeedCentres(const Histograms& features, std::size_t k)
{
    std::mt19937 engine(VoAlgo::RandomSeed);
    std::uniform_int_distribution<std::size_t> anyFeature(0, features.size() - 1);
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    Histograms centres{features[anyFeature(engine)]};
    std::vector<float> distances(features.size(), Infinity); // to the nearest centre
    while (centres.size() < k) {
        double sum = 0.0;
        std::size_t lastApart = 0;
        for (std::size_t i = 0; i < features.size(); ++i) {
            distances[i] = std::min(distances[i], Chi2<VoAlgo::simd::F8>(features[i].bins, centres.back().bins));
            if (!(distances[i] > 0.0F)) continue;
            sum += distances[i];
            lastApart = i;
        }
        if (!(sum > 0.0)) break;
        double left = uniform(engine) * sum;
        std::size_t chosen = 0;
        for (; chosen < lastApart; ++chosen) {
            if (!(distances[chosen] > 0.0F)) continue;
            left -= distances[chosen];
            if (left < 0.0) break;
        }
        centres.push_back(features[chosen]);
    }
    return centres;
}

/// Assigns every feature to its nearest centre, the first of equally near ones. Returns the mean distance to it.
float AssignToNearest(const Histograms& features, const Histograms& centres, std::vector<unsigned>& clusterOf)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < features.size(); ++i) {
        unsigned nearest = 0;
        float smallest = Infinity;
        for (unsigned c = 0; c < centres.size(); ++c) {
            const float d = Chi2<VoAlgo::simd::F8>(features[i].bins, centres[c].bins);
            if (!(d < smallest)) continue;
            smallest = d;
            nearest = c;
        }
        clusterOf[i] = nearest;
        sum += smallest;
    }
    return static_cast<float>(sum / static_cast<double>(features.size()));
}

/// Moves every centre to the mean of its members; a centre without members stays.
void MoveToMeans(const Histograms& features, const std::vector<unsigned>& clusterOf, Histograms& centres)
{
    constexpr std::size_t Bins = CPointFeatureHistogram::NumBins;
    std::vector<double> sums(centres.size() * Bins, 0.0);
    std::vector<std::size_t> counts(centres.size(), 0);
    for (std::size_t i = 0; i < features.size(); ++i) {
        double* sum = sums.data() + clusterOf[i] * Bins;
        for (std::size_t b = 0; b < Bins; ++b) sum[b] += features[i][b];
        ++counts[clusterOf[i]];
    }
    for (std::size_t c = 0; c < centres.size(); ++c)
        for (std::size_t b = 0; counts[c] != 0 && b < Bins; ++b)
            centres[c][b] = static_cast<float>(sums[c * Bins + b] / static_cast<double>(counts[c]));
}

} // namespace

KMeansClusters ClusterByKMeans(const std::vector<CPointFeatureHistogram>& features, std::size_t k, bool verbose)
{
    KMeansClusters result;
    result.clusterOf.assign(features.size(), None);
    if (features.empty() || k == 0) return result;

    Histograms centres = SeedCentres(features, k);
    float error = Infinity;
    int iteration = 0;
    while (iteration < MaxIterations) {
        const float previousError = std::exchange(error, AssignToNearest(features, centres, result.clusterOf));
        ++iteration;
        if (verbose) Print(VoAlgo::Format("Fehler=%g\n", static_cast<double>(std::sqrt(error))));
        if (error > MaxErrorGrowth * previousError || error < ErrorTolerance) {
            if (verbose)
                Print(VoAlgo::Format("Abbruch nach #%i Schritten (Stagnation, Fehler=%g)\n", iteration,
                                     static_cast<double>(std::sqrt(error))));
            break;
        }
        if (error < MinImprovement * previousError)
            MoveToMeans(features, result.clusterOf, centres);
        else if (!verbose)
            break; // The centres stay, so up to the limit every iteration gives the same; only its report would be
                   // missed.
    }
    if (verbose && iteration == MaxIterations) std::printf("Abbruch nach #%i Schritten (maxiter)\n", iteration);

    result.sizes.assign(centres.size(), 0);
    for (const unsigned c : result.clusterOf) ++result.sizes[c];
    return result;
}

} // namespace prereg::detail
