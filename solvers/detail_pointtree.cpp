#include "solvers/detail_pointtree.h"

#include <numeric>

namespace VoAlgo {

using Vec3 = kdtree::Vector<3>;

PointTree::PointTree(const std::vector<Vec3>& points) : order_(points.size())
{
    std::iota(order_.begin(), order_.end(), 0U);
    if (points.empty()) return;
    nodes_.reserve(points.size() / (LeafSize / 2) + 1);
    build(0, static_cast<unsigned>(points.size()), points);
    for (const unsigned i : order_) points_.push_back(points[i]);
}

void PointTree::build(unsigned begin, unsigned end, const std::vector<Vec3>& points)
{
    Vec3 low = points[order_[begin]], high = low;
    for (unsigned p = begin; p < end; ++p)
        for (unsigned d = 0; d < 3; ++d) {
            low[d] = std::min(low[d], points[order_[p]][d]);
            high[d] = std::max(high[d], points[order_[p]][d]);
        }
    const std::size_t index = nodes_.size();
    nodes_.push_back({begin, end, 0, low, high});
    const auto at = [this](unsigned p) { return order_.begin() + p; };
    if (end - begin <= LeafSize) {
        std::sort(at(begin), at(end));
        return;
    }
    // In halves denominate equal coordinates by index: the order is the same with every standard library.
    const auto extent = [&](unsigned d) { return double{high[d]} - double{low[d]}; };
    const unsigned widest = extent(1) > extent(0) ? (extent(2) > extent(1) ? 2 : 1) : (extent(2) > extent(0) ? 2 : 0);
    const unsigned middle = begin + (end - begin) / 2;
    std::nth_element(at(begin), at(middle), at(end), [&](unsigned a, unsigned b) {
        const float ca = points[a][widest], cb = points[b][widest];
        return ca < cb || (ca == cb && a < b);
    });
    build(begin, middle, points);
    nodes_[index].upper = static_cast<unsigned>(nodes_.size());
    build(middle, end, points);
}

void PointTree::Nearest(unsigned position, unsigned k, std::vector<std::pair<double, unsigned>>& nearest) const
{
    nearest.clear();
    if (k == 0) return;
    const Vec3& query = points_[position];
    Search(
        query, [&](unsigned, double boxSq) { return nearest.size() == k && boxSq > nearest.back().first; },
        [&](unsigned p) {
            const std::pair candidate(DistanceSq(query, points_[p]), p);
            if (p == position || (nearest.size() == k && !(candidate < nearest.back()))) return;
            if (nearest.size() == k) nearest.pop_back();
            nearest.insert(std::upper_bound(nearest.begin(), nearest.end(), candidate), candidate);
        });
}

} // namespace VoAlgo
