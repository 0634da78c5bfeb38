#pragma once

#include "VoAlgorithms/numerics/tmatrix.h"
#include "solvers/detail_pointtree.h"

#include <array>
#include <cmath>
#include <limits>
#include <span>
#include <utility>
#include <vector>

namespace VoAlgo {

/// Lists of nearby nodes, nearest first: the edges that are worth a try.
struct NeighbourLists {
    std::vector<std::size_t> begin = {0}; ///< where each node's list starts; one more entry marks the end
    std::vector<unsigned> nodes;

    [[nodiscard]] std::span<const unsigned> operator[](unsigned node) const
    {
        return {nodes.data() + begin[node], nodes.data() + begin[node + 1]};
    }
};

/// What a tour has to connect: the cities, numbered so that those near in space are near in memory. An open path is a
/// closed tour with one more node, the gap, at distance 0 from everything; a fixed end is a required neighbour of it.
class TourMap {
public:
    static constexpr unsigned None = std::numeric_limits<unsigned>::max();

    explicit TourMap(const std::vector<kdtree::Vector<3>>& points);
    explicit TourMap(const TMatrix<double>& distances);

    /// Starts anew with a gap or without, and with nothing required.
    void Reset(bool hasGap);
    /// Demands an edge. Nodes beyond two edges, or a ring of required edges that leaves nodes out: see CheckRequired.
    void Require(unsigned a, unsigned b) { required_.emplace_back(std::min(a, b), std::max(a, b)); }
    /// Throws std::invalid_argument when no tour has all required edges.
    void CheckRequired();

    [[nodiscard]] unsigned NumCities() const { return numCities_; }
    [[nodiscard]] unsigned NumNodes() const { return numCities_ + unsigned{hasGap_}; }
    [[nodiscard]] bool HasGap() const { return hasGap_; }
    [[nodiscard]] unsigned Gap() const { return numCities_; }
    /// The caller's number of a node, and back.
    [[nodiscard]] unsigned CityOf(unsigned node) const { return cityOf_[node]; }
    [[nodiscard]] unsigned NodeOf(unsigned city) const { return nodeOf_[city]; }

    [[nodiscard]] double Distance(unsigned a, unsigned b) const
    {
        if (std::max(a, b) >= numCities_) return 0;
        if (!points_.empty()) return std::sqrt(DistanceSq(points_[a], points_[b]));
        return distances_.Data()[std::size_t{a} * numCities_ + b];
    }
    [[nodiscard]] double LengthOf(const std::vector<unsigned>& tour) const;

    /// Each a pair of ascending nodes, once.
    [[nodiscard]] const std::vector<std::pair<unsigned, unsigned>>& Required() const { return required_; }
    [[nodiscard]] bool IsRequired(unsigned a, unsigned b) const
    {
        return !partners_.empty() && (partners_[a][0] == b || partners_[a][1] == b);
    }

    /// The k nearest cities of each of some cities among these; all others have empty lists.
    [[nodiscard]] NeighbourLists NearestAmong(const std::vector<unsigned>& cities, unsigned k) const;
    /// The k nearest cities of each city.
    [[nodiscard]] NeighbourLists Nearest(unsigned k) const;

    /// Null for a matrix; positions are nodes.
    [[nodiscard]] const PointTree* Tree() const { return points_.empty() ? nullptr : &tree_; }
    [[nodiscard]] const std::vector<kdtree::Vector<3>>& Points() const { return points_; }

private:
    unsigned numCities_;
    bool hasGap_ = false;
    PointTree tree_;
    std::vector<unsigned> cityOf_, nodeOf_;
    std::vector<kdtree::Vector<3>> points_; // by node
    TMatrix<double> distances_;
    std::vector<std::pair<unsigned, unsigned>> required_;
    std::vector<std::array<unsigned, 2>> partners_; // required neighbours of each node; empty: there are none at all
};

} // namespace VoAlgo
