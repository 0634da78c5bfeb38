#include "VoAlgorithms/clustering/cmeanshiftclusterer3d.h"

#include "clustering/detail_meanshift.h"
#include "platform/finite.h"
#include "platform/randomseed.h"
#include "platform/simd.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <new>
#include <stdexcept>

namespace VoAlgo {
namespace {

float DistanceSq3(const float* a, const float* b)
{
    const float x = a[0] - b[0];
    const float y = a[1] - b[1];
    const float z = a[2] - b[2];
    return (x * x + y * y) + z * z;
}

/// The points once more as three arrays, so that eight are compared with the mean at once. `Record` holds x y z.
template <class Record>
class Points {
public:
    explicit Points(const std::vector<Record>& records) : n_(records.size()), records_(records.data())
    {
        const std::size_t padded = (n_ + simd::Lanes - 1) / simd::Lanes * simd::Lanes;
        for (std::size_t k = 0; k < 3; ++k) {
            axes_[k].assign(padded, std::numeric_limits<float>::quiet_NaN()); // past the end: within no radius
            for (std::size_t i = 0; i < n_; ++i) axes_[k][i] = records_[i].xyz[k];
        }
    }

    [[nodiscard]] std::size_t Size() const { return n_; }
    [[nodiscard]] std::size_t Stride() const { return 3; }
    [[nodiscard]] const float* Point(std::size_t i) const { return records_[i].xyz; }
    static float DistanceSq(const float* a, const float* b) { return DistanceSq3(a, b); }

    template <class Visit>
    std::size_t Average(const float* mean, float radiusSq, float* result, const Visit& visit) const
    {
        using simd::F8;
        const F8 mx = F8::Set(mean[0]);
        const F8 my = F8::Set(mean[1]);
        const F8 mz = F8::Set(mean[2]);
        const F8 limit = F8::Set(radiusSq);
        std::size_t members = 0;
        float sum[3] = {};
        for (std::size_t i = 0; i < n_; i += simd::Lanes) {
            const F8 x = F8::Load(&axes_[0][i]) - mx;
            const F8 y = F8::Load(&axes_[1][i]) - my;
            const F8 z = F8::Load(&axes_[2][i]) - mz;
            for (unsigned mask = F8::MaskLessEqual((x * x + y * y) + z * z, limit); mask != 0; mask &= mask - 1) {
                const std::size_t member = i + static_cast<std::size_t>(std::countr_zero(mask));
                for (std::size_t k = 0; k < 3; ++k) sum[k] += records_[member].xyz[k];
                visit(member);
                ++members;
            }
        }
        if (members == 0) return 0;
        for (std::size_t k = 0; k < 3; ++k) result[k] = sum[k] / static_cast<float>(members);
        return members;
    }

private:
    std::size_t n_;
    const Record* records_;
    std::vector<float> axes_[3];
};

} // namespace

CMeanShiftClusterer3D::CMeanShiftClusterer3D() : engine_(RandomSeed) {}

CMeanShiftClusterer3D::CMeanShiftClusterer3D(const std::vector<std::array<float, 3>>& points, float h)
    : CMeanShiftClusterer3D()
{
    assign(points.empty() ? nullptr : points.front().data(), points.size(), h);
}

CMeanShiftClusterer3D::CMeanShiftClusterer3D(const float* xyz, std::size_t n, float h) : CMeanShiftClusterer3D()
{
    assign(xyz, n, h);
}

CMeanShiftClusterer3D::CMeanShiftClusterer3D(const double* xyz, std::size_t n, double h) : CMeanShiftClusterer3D()
{
    assign(xyz, n, h);
}

template <class T>
void CMeanShiftClusterer3D::assign(const T* xyz, std::size_t n, T h)
{
    if (xyz == nullptr || n == 0) throw std::invalid_argument("mean shift clustering: missing input data");
    if (h <= T{0}) throw std::invalid_argument("mean shift clustering: invalid bandwidth");
    bandwidth_ = static_cast<float>(h);
    stopThreshold_ = 0.001F * bandwidth_;
    try {
        if (n >= None) throw std::bad_alloc(); // cluster and point indices have 32 bits
        points_.resize(n);
    } catch (const std::bad_alloc&) {
        throw std::runtime_error("mean shift clustering: memory allocation error");
    }
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t k = 0; k < 3; ++k) points_[i].xyz[k] = static_cast<float>(xyz[3 * i + k]);
        points_[i].cluster = None;
    }
}

bool CMeanShiftClusterer3D::Run()
{
    centres_.clear();
    sizes_.clear();
    for (Record& point : points_) point.cluster = None;
    const auto isFinite = [](const Record& p) { return AllFinite(p.xyz, 3); };
    const std::size_t n = points_.size();
    if (n == 0 || !std::all_of(points_.begin(), points_.end(), isFinite)) return false;

    const Points points(points_);
    const meanshift::Settings settings{bandwidth_, stopThreshold_, 4 * n, false};
    meanshift::Clusters clusters =
        meanshift::AssignByVotes(meanshift::ModeSearch(points, settings).Run(engine_, uniform_), n);
    meanshift::RemoveEmptyClusters(clusters, points.Stride());

    for (std::size_t i = 0; i < n; ++i) points_[i].cluster = clusters.clusterOf[i];
    centres_.resize(clusters.sizes.size());
    for (std::size_t c = 0; c < centres_.size(); ++c) std::copy_n(clusters.centres.data() + 3 * c, 3, centres_[c].xyzw);
    sizes_ = std::move(clusters.sizes);
    return true;
}

const float* CMeanShiftClusterer3D::GetClusterCenter(unsigned c) const
{
    return c < centres_.size() ? centres_[c].xyzw : nullptr;
}

CMeanShiftClusterer3D::ClusterIterator CMeanShiftClusterer3D::GetClusterIterator(unsigned c) const
{
    return c < sizes_.size() ? ClusterIterator(*this, c) : ClusterIterator();
}

float CMeanShiftClusterer3D::ComputeDunnIndex() const
{
    const auto distanceSq = [this](std::size_t i, std::size_t j) {
        return DistanceSq3(points_[i].xyz, points_[j].xyz);
    };
    return meanshift::DunnIndex(points_.size(), distanceSq, [this](std::size_t i) { return points_[i].cluster; });
}

float CMeanShiftClusterer3D::ComputeBandwidthFromAngleForNormalClustering(float angle)
{
    return std::sqrt(2.0F * (1.0F - std::cos(angle)));
}

float CMeanShiftClusterer3D::ComputeAngleFromBandwidthForNormalClustering(float h)
{
    return 3.1415927F - std::acos(h * h * 0.5F - 1.0F);
}

} // namespace VoAlgo
