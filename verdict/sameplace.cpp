#include "VoAlgorithms/verdict/sameplace.h"

#include <algorithm>
#include <numeric>
#include <tuple>

namespace prereg {

std::vector<std::size_t> FirstAtSamePlace(const std::vector<kdtree::Vector<3>>& points)
{
    std::vector<std::size_t> first(points.size());
    std::iota(first.begin(), first.end(), std::size_t{0});
    std::vector<std::size_t> order;
    order.reserve(points.size());
    for (const std::size_t i : first)
        if (points[i].IsValid()) order.push_back(i); // NaN cannot be ordered
    const auto key = [&](std::size_t i) { return std::make_tuple(points[i].x, points[i].y, points[i].z, i); };
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return key(a) < key(b); });
    for (std::size_t k = 1; k < order.size(); ++k)
        if (points[order[k]] == points[order[k - 1]]) first[order[k]] = first[order[k - 1]];
    return first;
}

} // namespace prereg
