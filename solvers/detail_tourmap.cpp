#include "solvers/detail_tourmap.h"

#include <numeric>
#include <stdexcept>
#include <string>

namespace VoAlgo {

TourMap::TourMap(const std::vector<kdtree::Vector<3>>& points)
    : numCities_(static_cast<unsigned>(points.size())), tree_(points), cityOf_(tree_.Order()), nodeOf_(points.size())
{
    for (unsigned node = 0; node < numCities_; ++node) {
        nodeOf_[cityOf_[node]] = node;
        points_.push_back(points[cityOf_[node]]);
    }
}

TourMap::TourMap(const TMatrix<double>& distances)
    : numCities_(distances.Rows()), tree_({}), cityOf_(numCities_), distances_(distances)
{
    std::iota(cityOf_.begin(), cityOf_.end(), 0U);
    nodeOf_ = cityOf_;
}

void TourMap::Reset(bool hasGap)
{
    hasGap_ = hasGap;
    required_.clear();
    partners_.clear();
}

void TourMap::CheckRequired()
{
    std::sort(required_.begin(), required_.end());
    required_.erase(std::unique(required_.begin(), required_.end()), required_.end());
    if (required_.empty()) return;
    partners_.assign(NumNodes(), {None, None});
    for (const auto& edge : required_)
        for (const auto& [a, b] : {edge, std::pair(edge.second, edge.first)}) {
            if (partners_[a][1] != None)
                throw std::invalid_argument(
                    a < numCities_
                        ? "CTSPSolver: more than two neighbours are required of city " + std::to_string(CityOf(a))
                        : std::string("CTSPSolver: the ends of the path are required to be neighbours"));
            partners_[a][partners_[a][0] == None ? 0 : 1] = b;
        }
    // Follows every chain from a free end; what remains are rings.
    std::vector<bool> isSeen(NumNodes());
    const auto follow = [&](unsigned node) {
        std::size_t length = 0;
        for (unsigned next = node; next != None; ++length) {
            node = next;
            isSeen[node] = true;
            next = None;
            for (const unsigned p : partners_[node])
                if (p != None && !isSeen[p]) next = p;
        }
        return length;
    };
    for (unsigned node = 0; node < NumNodes(); ++node)
        if (!isSeen[node] && partners_[node][1] == None) (void)follow(node);
    for (unsigned node = 0; node < NumNodes(); ++node)
        if (!isSeen[node] && follow(node) < NumNodes())
            throw std::invalid_argument("CTSPSolver: the required neighbours of city " +
                                        std::to_string(CityOf(node == Gap() ? partners_[node][0] : node)) +
                                        " form a ring that leaves out other cities");
}

double TourMap::LengthOf(const std::vector<unsigned>& tour) const
{
    double length = 0;
    for (std::size_t i = 0; i < tour.size(); ++i) length += Distance(tour[i], tour[i + 1 < tour.size() ? i + 1 : 0]);
    return length;
}

NeighbourLists TourMap::NearestAmong(const std::vector<unsigned>& cities, unsigned k) const
{
    std::vector<kdtree::Vector<3>> places;
    for (const unsigned city : cities)
        if (!points_.empty()) places.push_back(points_[city]);
    const PointTree tree(places);
    std::vector<unsigned> positionOf(places.size());
    for (unsigned position = 0; position < places.size(); ++position) positionOf[tree.Order()[position]] = position;

    k = std::min(k, static_cast<unsigned>(std::max<std::size_t>(cities.size(), 1) - 1));
    NeighbourLists lists;
    lists.begin.reserve(std::size_t{NumNodes()} + 1);
    lists.nodes.reserve(cities.size() * k);
    std::vector<std::pair<double, unsigned>> nearest;
    for (unsigned i = 0; i < cities.size(); ++i) {
        lists.begin.resize(std::size_t{cities[i]} + 1, lists.nodes.size());
        if (!places.empty()) {
            tree.Nearest(positionOf[i], k, nearest);
            for (auto& [distance, position] : nearest) lists.nodes.push_back(cities[tree.Order()[position]]);
            continue;
        }
        nearest.clear();
        for (const unsigned other : cities)
            if (other != cities[i]) nearest.emplace_back(Distance(cities[i], other), other);
        std::partial_sort(nearest.begin(), nearest.begin() + k, nearest.end());
        for (unsigned j = 0; j < k; ++j) lists.nodes.push_back(nearest[j].second);
    }
    lists.begin.resize(std::size_t{NumNodes()} + 1, lists.nodes.size());
    return lists;
}

NeighbourLists TourMap::Nearest(unsigned k) const
{
    std::vector<unsigned> all(numCities_);
    std::iota(all.begin(), all.end(), 0U);
    return NearestAmong(all, k);
}

} // namespace VoAlgo
