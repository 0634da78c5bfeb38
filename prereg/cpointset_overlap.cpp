// Overlap area of two posed clouds:
// 1. Place the floating set's bounding box with the pose; boxes that do not meet mean no overlap (separating axes,
//    S. Gottschalk, M. Lin, D. Manocha, SIGGRAPH 1996).
// 2. Keep the reference points inside that box, with a tree of their own.
// 3. Visit the kept points within the search radius of every moved floating point, each once: a Bloom filter
//    (B. H. Bloom, CACM 13 (1970) 422-426) tells which ones were seen.
// 4. Sum the areas that they stand for, estimated from the four nearest neighbours of each; stop above the maximum.
#include "VoAlgorithms/prereg/cpointset.h"
#include "platform/channels.h"
#include "prereg/detail_bloomfilter.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace prereg {
namespace {

namespace channels = VoAlgo::channels;
using Vec3 = kdtree::Vector<3>;
using VoAlgo::CTrafo;

constexpr const char* Function = "prereg::CPointSet::EstimateOverlapArea";
constexpr double FalsePositiveRate = 0.001;
constexpr std::size_t MaxFilterBits = 524288;

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

/// Area that point i stands for, see CPointSet::estimateLocalVoronoiArea. `nearest`: scratch memory.
double LocalVoronoiArea(const CPointSet& set, std::size_t i, float radius,
                        std::vector<CPointSet::Tree::Neighbour>& nearest)
{
    constexpr unsigned NumNeighbours = 5;
    constexpr float Pi = 3.14159265F;
    if (!(radius >= 0.0F)) return 0.0;
    set.GetPointsKdTree().NearestK(&set.GetPoint(i).x, NumNeighbours, radius * radius, nearest);
    if (nearest.size() < NumNeighbours) return 0.0;

    const auto self = static_cast<std::size_t>(nearest[0].first);
    const Vec3& p = set.GetPoint(self);
    const Vec3& n = set.GetNormal(self);
    struct Spoke {
        float angle;
        Vec3 half;
    };
    std::array<Spoke, NumNeighbours - 1> spokes;
    Vec3 first;
    for (std::size_t k = 0; k < spokes.size(); ++k) {
        const Vec3& q = set.GetPoint(static_cast<std::size_t>(nearest[k + 1].first));
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

/// Sum of the local areas of those kept points that lie near a moved 'flt' point, each counted once. Stops as soon as
/// the sum exceeds `maxArea`.
double SumLocalAreas(const CPointSet& kept, const CPointSet& flt, const CTrafo& pose, float searchRadius,
                     float areaRadius, float maxArea)
{
    double sum = 0.0;
    if (kept.Empty() || !(searchRadius >= 0.0F)) return sum;
    const std::pair<Vec3, Vec3> keptBox = kept.GetAABB();
    detail::BloomFilter seen(kept.Size(), FalsePositiveRate, MaxFilterBits);
    std::vector<int> within;
    std::vector<CPointSet::Tree::Neighbour> nearest;
    for (const Vec3& fltPoint : flt.GetPoints()) {
        const Vec3 p = pose * fltPoint;
        if (!IsInside(p, keptBox, searchRadius)) continue;
        kept.GetPointsKdTree().AllWithin(&p.x, searchRadius * searchRadius, within);
        for (const int i : within) {
            if (!seen.Insert(static_cast<std::uint32_t>(i))) continue;
            sum += LocalVoronoiArea(kept, static_cast<std::size_t>(i), areaRadius, nearest);
            if (!(sum > static_cast<double>(maxArea))) continue;
            VOALGO_LOG(channels::Registration(), Trace, Function,
                       L"Estimated overlap area exceeds given maximum (%.1f mm2)", static_cast<double>(maxArea));
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
    VOALGO_LOG(channels::Registration(), Trace, Function, L"Estimated overlap area: %.1f mm2, points in OBB: %zi", sum,
               kept.Size());
    return static_cast<float>(sum);
}

double CPointSet::estimateLocalVoronoiArea(std::size_t i, float radius) const
{
    std::vector<Tree::Neighbour> nearest;
    return LocalVoronoiArea(*this, i, radius, nearest);
}

} // namespace prereg
