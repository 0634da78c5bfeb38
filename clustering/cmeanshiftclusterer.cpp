// Mean shift with a flat kernel (K. Fukunaga, L. Hostetler, IEEE Trans. Information Theory 21 (1975) 32-40):
// 1. Draw a start among the points that no path has visited yet.
// 2. Move to the mean of all points within the bandwidth until it stands still: a mode. Each visit is a vote.
// 3. Merge the mode into the first cluster within half the bandwidth, else open a new cluster.
// 4. Give every point to the cluster with the most votes for it; points without votes become clusters of one, and empty
//    clusters are removed.
// Steps 1 to 3 are detail_meanshift.h, shared with the clusterer for points in space. ComputeBIC: D. Pelleg, A. Moore,
// X-means, ICML 2000; ComputeDunnIndex: J. C. Dunn, Journal of Cybernetics 4 (1974) 95-104.
#include "VoAlgorithms/clustering/cmeanshiftclusterer.h"

#include "clustering/detail_meanshift.h"
#include "platform/finite.h"
#include "platform/randomseed.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

namespace VoAlgo {
namespace {

class Points {
public:
    Points(const std::vector<float>& data, std::size_t n, std::size_t d, const CMeanShiftClusterer::Distance& distance)
        : data_(data.data()), n_(n), d_(d), distance_(distance)
    {
    }

    [[nodiscard]] std::size_t Size() const { return n_; }
    [[nodiscard]] std::size_t Stride() const { return d_; }
    [[nodiscard]] const float* Point(std::size_t i) const { return data_ + i * d_; }
    float DistanceSq(const float* a, const float* b) const { return distance_(d_, a, b); }

    template <class Visit>
    std::size_t Average(const float* mean, float radiusSq, float* result, const Visit& visit) const
    {
        std::size_t members = 0;
        for (std::size_t i = 0; i < n_; ++i) {
            const float* p = Point(i);
            if (!(distance_(d_, p, mean) <= radiusSq)) continue;
            if (members++ == 0) std::fill(result, result + d_, 0.0F);
            for (std::size_t k = 0; k < d_; ++k) result[k] += p[k];
            visit(i);
        }
        for (std::size_t k = 0; members > 0 && k < d_; ++k) result[k] /= static_cast<float>(members);
        return members;
    }

private:
    const float* data_;
    std::size_t n_;
    std::size_t d_;
    const CMeanShiftClusterer::Distance& distance_;
};

} // namespace

CMeanShiftClusterer::CMeanShiftClusterer() : engine_(RandomSeed) {}

CMeanShiftClusterer::CMeanShiftClusterer(const float* data, std::size_t n, std::size_t d, float h)
    : bandwidth_(h), stopThreshold_(0.001F * h), engine_(RandomSeed)
{
    if (data == nullptr || n == 0 || d == 0) throw std::invalid_argument("mean shift clustering: missing input data");
    if (h <= 0.0F) throw std::invalid_argument("mean shift clustering: invalid bandwidth");
    if (n >= None || d >= None) throw std::length_error("mean shift clustering: too much input data");
    dimension_ = static_cast<unsigned>(d);
    data_.assign(data, data + n * d);
    clusterOf_.assign(n, None);
}

bool CMeanShiftClusterer::Run(const Distance& distance)
{
    const std::size_t n = clusterOf_.size();
    centres_.clear();
    sizes_.clear();
    std::fill(clusterOf_.begin(), clusterOf_.end(), None);
    if (n == 0 || !AllFinite(data_.data(), data_.size())) return false;

    const Distance used = distance ? distance : euclideanNormSq;
    const Points points(data_, n, dimension_, used);
    const meanshift::Settings settings{bandwidth_, stopThreshold_, 2 * n * dimension_, true};
    meanshift::Clusters clusters =
        meanshift::AssignByVotes(meanshift::ModeSearch(points, settings).Run(engine_, uniform_), n);
    meanshift::AppendSingletons(clusters, data_.data(), dimension_);
    meanshift::RemoveEmptyClusters(clusters, dimension_);

    clusterOf_ = std::move(clusters.clusterOf);
    centres_ = std::move(clusters.centres);
    sizes_ = std::move(clusters.sizes);
    return true;
}

const float* CMeanShiftClusterer::GetClusterCenter(unsigned c) const
{
    return c < sizes_.size() ? centres_.data() + static_cast<std::size_t>(c) * dimension_ : nullptr;
}

CMeanShiftClusterer::ClusterIterator CMeanShiftClusterer::GetClusterIterator(unsigned c) const
{
    return c < sizes_.size() ? ClusterIterator(*this, c) : ClusterIterator();
}

int CMeanShiftClusterer::GetClusterRepresentative(unsigned c, const Distance& distance) const
{
    const float* centre = GetClusterCenter(c);
    if (centre == nullptr) return -1;
    const Distance used = distance ? distance : euclideanNormSq;
    int nearest = -1;
    float smallest = std::numeric_limits<float>::infinity();
    for (std::size_t i = 0; i < clusterOf_.size(); ++i) {
        if (clusterOf_[i] != c) continue;
        const float d = used(dimension_, data_.data() + i * dimension_, centre);
        if (nearest >= 0 && !(d < smallest)) continue;
        nearest = static_cast<int>(i);
        smallest = d;
    }
    return nearest;
}

float CMeanShiftClusterer::ComputeDunnIndex(const Distance& distance) const
{
    const Distance used = distance ? distance : euclideanNormSq;
    const auto distanceSq = [&](std::size_t i, std::size_t j) {
        return used(dimension_, data_.data() + i * dimension_, data_.data() + j * dimension_);
    };
    return meanshift::DunnIndex(clusterOf_.size(), distanceSq, [this](std::size_t i) { return clusterOf_[i]; });
}

float CMeanShiftClusterer::ComputeBIC(const Distance& distance) const
{
    constexpr double TwoPi = 6.28318530717959;
    const Distance used = distance ? distance : euclideanNormSq;
    const auto n = static_cast<double>(clusterOf_.size());
    const double d = dimension_;

    std::vector<double> errors(sizes_.size(), 0.0);
    for (std::size_t i = 0; i < clusterOf_.size(); ++i) {
        const unsigned c = clusterOf_[i];
        if (c == None) continue;
        const double error = used(dimension_, data_.data() + i * dimension_, GetClusterCenter(c));
        if (std::isfinite(error) && error >= 0.0) errors[c] += error;
    }
    double errorSum = 0.0;
    for (const double error : errors) errorSum += error;

    // Deliberate: 32-bit unsigned arithmetic.
    const std::uint32_t freedom = (static_cast<std::uint32_t>(clusterOf_.size()) - GetNumClusters()) * dimension_;
    const double variance = errorSum / freedom;

    double bic = 0.0;
    for (const unsigned size : sizes_) {
        const double nc = size;
        const double ownEntropy = size == 0 ? 0.0 : nc * std::log(nc); // x·ln x → 0
        bic += ownEntropy - nc * std::log(n) - nc * d / 2.0 * std::log(TwoPi * variance) - (nc - 1.0) * d / 2.0;
    }
    bic -= GetNumClusters() * 0.5 * std::log(n) * (d + 1.0);
    return static_cast<float>(bic);
}

float CMeanShiftClusterer::euclideanNormSq(std::size_t d, const float* a, const float* b)
{
    float lanes[4] = {};
    std::size_t k = 0;
    for (; k + 4 <= d; k += 4)
        for (std::size_t lane = 0; lane < 4; ++lane) {
            const float difference = a[k + lane] - b[k + lane];
            lanes[lane] += difference * difference;
        }
    float sum = (lanes[0] + lanes[2]) + (lanes[1] + lanes[3]);
    for (; k < d; ++k) {
        const float difference = a[k] - b[k];
        sum += difference * difference;
    }
    return sum;
}

} // namespace VoAlgo
