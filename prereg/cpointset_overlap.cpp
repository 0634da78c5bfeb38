#include "VoAlgorithms/prereg/cpointset.h"
#include "platform/log.h"
#include "prereg/detail_bloomfilter.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace prereg {
namespace {

using Vec3 = kdtree::Vector<3>;
using VoAlgo::CTrafo;

constexpr const char* Function = "prereg::CPointSet::EstimateOverlapArea";
constexpr double FalsePositiveRate = 0.001;
constexpr std::size_t MaxFilterBits = 524288;

const Logging::CLogger& Log()
{
    static const Logging::CLogger& logger = Logging::GetLogger("KEP.Registration");
    return logger;
}

struct OrientedBox {
    Vec3 centre;
    std::array<Vec3, 3> axes; // unit length
    std::array<float, 3> halfExtents;
};

OrientedBox PlaceBox(const std::pair<Vec3, Vec3>& box, const CTrafo& pose)
{
    const Vec3 half = 0.5F * (box.second - box.first);
    return {pose * (0.5F * (box.first + box.second)),
            {pose.Rotate(Vec3(1, 0, 0)), pose.Rotate(Vec3(0, 1, 0)), pose.Rotate(Vec3(0, 0, 1))},
            {half.x, half.y, half.z}};
}

/// Separating-axis test over the 15 candidate axes (S. Gottschalk, M. Lin, D. Manocha, OBBTree, SIGGRAPH 1996).
bool Intersects(const OrientedBox& a, const std::pair<Vec3, Vec3>& box)
{
    const OrientedBox b = PlaceBox(box, CTrafo());
    const Vec3 offset = a.centre - b.centre;
    const auto reach = [](const OrientedBox& o, const Vec3& axis) {
        float sum = 0.0F;
        for (std::size_t k = 0; k < 3; ++k) sum += o.halfExtents[k] * std::fabs(o.axes[k].Dot(axis));
        return sum;
    };
    const auto separates = [&](const Vec3& axis) {
        return std::fabs(offset.Dot(axis)) > reach(a, axis) + reach(b, axis);
    };
    for (std::size_t i = 0; i < 3; ++i) {
        if (separates(a.axes[i]) || separates(b.axes[i])) return false;
        for (std::size_t k = 0; k < 3; ++k)
            if (separates(a.axes[i].Cross(b.axes[k]))) return false; // parallel axes give 0, which separates nothing
    }
    return true;
}

/// The box as six half-spaces A·p ≤ b.
void ToInequalities(const OrientedBox& box, float* A, float* b)
{
    for (std::size_t k = 0; k < 3; ++k) {
        for (const float sign : {1.0F, -1.0F}) {
            const Vec3 normal = sign * box.axes[k];
            *A++ = normal.x;
            *A++ = normal.y;
            *A++ = normal.z;
            *b++ = normal.Dot(box.centre) + box.halfExtents[k];
        }
    }
}

bool IsInside(const Vec3& p, const std::pair<Vec3, Vec3>& box, float margin)
{
    return p.x >= box.first.x - margin && p.x <= box.second.x + margin && p.y >= box.first.y - margin &&
           p.y <= box.second.y + margin && p.z >= box.first.z - margin && p.z <= box.second.z + margin;
}

/// Sum of the local areas of the kept points that moved 'flt' points come near, each once; ends when it exceeds
/// `maxArea`.
double SumLocalAreas(const CPointSet& kept, const CPointSet& flt, const CTrafo& pose, float searchRadius,
                     float areaRadius, float maxArea)
{
    double sum = 0.0;
    if (kept.Empty()) return sum;
    const std::pair<Vec3, Vec3> keptBox = kept.GetAABB();
    detail::BloomFilter seen(kept.Size(), FalsePositiveRate, MaxFilterBits);
    std::vector<int> within;
    for (const Vec3& fltPoint : flt.GetPoints()) {
        const Vec3 p = pose * fltPoint;
        if (!IsInside(p, keptBox, searchRadius)) continue;
        kept.GetPointsKdTree().AllWithin(&p.x, searchRadius * searchRadius, within);
        for (const int i : within) {
            if (!seen.Insert(static_cast<std::uint32_t>(i))) continue;
            sum += kept.estimateLocalVoronoiArea(static_cast<std::size_t>(i), areaRadius);
            if (!(sum > static_cast<double>(maxArea))) continue;
            VOALGO_LOG(Log(), Trace, Function, L"Estimated overlap area exceeds given maximum (%.1f mm2)",
                       static_cast<double>(maxArea));
            return sum;
        }
    }
    return sum;
}

} // namespace

float CPointSet::EstimateOverlapArea(const CPointSet& flt, const CTrafo& pose, float searchRadius, float areaRadius,
                                     float maxArea) const
{
    if (Empty() || flt.Empty()) return 0.0F;
    const OrientedBox box = PlaceBox(flt.GetAABB(), pose);
    if (!Intersects(box, GetAABB())) return 0.0F;

    float A[18];
    float b[6];
    ToInequalities(box, A, b);
    const CPointSet kept = filterPointSet(A, b, 6);
    const double sum = SumLocalAreas(kept, flt, pose, searchRadius, areaRadius, maxArea);
    VOALGO_LOG(Log(), Trace, Function, L"Estimated overlap area: %.1f mm2, points in OBB: %zi", sum, kept.Size());
    return static_cast<float>(sum);
}

double CPointSet::estimateLocalVoronoiArea(std::size_t i, float radius) const
{
    constexpr unsigned NumNeighbours = 5;
    constexpr float Pi = 3.14159265F;
    std::vector<Tree::Neighbour> nearest;
    tree_.NearestK(&points_[i].x, NumNeighbours, radius * radius, nearest);
    if (nearest.size() < NumNeighbours) return 0.0;

    const auto self = static_cast<std::size_t>(nearest[0].first);
    const Vec3& p = points_[self];
    const Vec3& n = normals_[self];
    struct Spoke {
        float angle;
        Vec3 half;
    };
    std::array<Spoke, NumNeighbours - 1> spokes;
    Vec3 first;
    for (std::size_t k = 0; k < spokes.size(); ++k) {
        const Vec3& q = points_[static_cast<std::size_t>(nearest[k + 1].first)];
        const Vec3 projected = q - n * (q.Dot(n) - p.Dot(n)) - p;
        if (k == 0) first = projected;
        float angle = k == 0 ? 0.0F : std::atan2(first.Cross(projected).Norm(), first.Dot(projected));
        if (angle < 0.0F) angle = 2.0F * Pi - angle; // deliberate; never happens, the first argument is not negative
        spokes[k] = {angle, 0.5F * (q - p)};
    }
    std::sort(spokes.begin(), spokes.end(), [](const Spoke& a, const Spoke& b) { return a.angle < b.angle; });
    double area = 0.0;
    for (std::size_t k = 0; k < spokes.size(); ++k) {
        const Spoke& a = spokes[k];
        const Spoke& b = spokes[(k + 1) % spokes.size()];
        if (b.angle - a.angle < Pi) area += static_cast<double>(b.half.Cross(a.half).Norm());
    }
    return area;
}

} // namespace prereg
