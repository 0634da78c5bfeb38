#include "solvers/detail_tourstart.h"

#include "VoAlgorithms/clustering/cdisjointsets.h"

#include <algorithm>
#include <tuple>

namespace VoAlgo {
namespace {

/// Paths that grow together.
class Pieces {
public:
    explicit Pieces(const TourMap& map) : map_(map), sets_(map.NumNodes()), links_(map.NumNodes())
    {
        for (const auto& [a, b] : map.Required()) link(a, b);
    }

    [[nodiscard]] bool IsEnd(unsigned node) const { return links_[node].size() < 2; }

    /// Takes edges of the lists, shortest first; false when there was none to take.
    bool Join(const NeighbourLists& lists)
    {
        std::vector<std::tuple<double, unsigned, unsigned>> edges;
        for (unsigned a = 0; a < map_.NumCities(); ++a)
            for (const unsigned b : lists[a])
                if (IsEnd(a) && IsEnd(b)) edges.emplace_back(map_.Distance(a, b), std::min(a, b), std::max(a, b));
        std::sort(edges.begin(), edges.end());
        bool hasJoined = false;
        for (const auto& [distance, a, b] : edges)
            if (IsEnd(a) && IsEnd(b) && !sets_.AreTogether(a, b)) {
                link(a, b);
                hasJoined = true;
            }
        return hasJoined;
    }

    /// All pieces, one after the other.
    [[nodiscard]] std::vector<unsigned> Concatenated() const
    {
        std::vector<unsigned> tour;
        std::vector<bool> isDone(links_.size());
        const auto append = [&](unsigned node) {
            for (bool goesOn = true; goesOn;) {
                tour.push_back(node);
                isDone[node] = true;
                goesOn = false;
                for (const unsigned next : links_[node])
                    if (!goesOn && !isDone[next]) {
                        node = next;
                        goesOn = true;
                    }
            }
        };
        for (unsigned node = 0; node < links_.size(); ++node)
            if (IsEnd(node) && !isDone[node]) append(node);
        if (tour.empty() && !links_.empty()) append(0); // a ring of required edges
        return tour;
    }

private:
    struct Links {
        unsigned nodes[2];
        unsigned count = 0;

        [[nodiscard]] unsigned size() const { return count; }
        [[nodiscard]] const unsigned* begin() const { return nodes; }
        [[nodiscard]] const unsigned* end() const { return nodes + count; }
    };

    void link(unsigned a, unsigned b)
    {
        links_[a].nodes[links_[a].count++] = b;
        links_[b].nodes[links_[b].count++] = a;
        sets_.Unite(a, b);
    }

    const TourMap& map_;
    CDisjointSets sets_;
    std::vector<Links> links_;
};

} // namespace

std::vector<unsigned> GreedyTour(const TourMap& map, const NeighbourLists& lists)
{
    constexpr unsigned NumNear = 5; // two would do: the nearest end may be the other one of the same piece
    Pieces pieces(map);
    // The gap needs no edges: it lies between the ends that are left over.
    for (bool hasJoined = pieces.Join(lists) || map.NumCities() > 1; hasJoined;) {
        std::vector<unsigned> ends;
        for (unsigned city = 0; city < map.NumCities(); ++city)
            if (pieces.IsEnd(city)) ends.push_back(city);
        hasJoined = pieces.Join(map.NearestAmong(ends, NumNear));
    }
    return pieces.Concatenated();
}

} // namespace VoAlgo
