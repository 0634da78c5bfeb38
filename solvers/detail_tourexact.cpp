#include "solvers/detail_tourexact.h"

#include <cstdint>

namespace VoAlgo {
namespace {

/// Of a path: more required edges count before a smaller length.
struct Cost {
    int numRequired = -1;
    double length = 0;

    [[nodiscard]] bool IsBetterThan(const Cost& other) const
    {
        return numRequired != other.numRequired ? numRequired > other.numRequired : length < other.length;
    }
};

} // namespace

// M. Held, R. M. Karp, J. SIAM 10 (1962) 196-210. The last node is the base, from which all paths start: best[set·m +
// j] is the best one through a set of the other m nodes that ends at j.
std::vector<unsigned> ShortestTour(const TourMap& map)
{
    const unsigned m = map.NumNodes() - 1, base = m, numSets = 1U << m;
    const auto extended = [&](const Cost& cost, unsigned from, unsigned to) {
        return Cost{cost.numRequired + int{map.IsRequired(from, to)}, cost.length + map.Distance(from, to)};
    };
    std::vector<Cost> best(std::size_t{numSets} * m);
    std::vector<std::uint8_t> before(best.size());
    for (unsigned j = 0; j < m; ++j) best[(std::size_t{1} << j) * m + j] = extended({0, 0}, base, j);
    for (unsigned set = 1; set < numSets; ++set)
        for (unsigned i = 0; i < m; ++i) {
            const Cost& here = best[std::size_t{set} * m + i];
            if (here.numRequired < 0) continue; // i is not in the set
            for (unsigned j = 0; j < m; ++j) {
                if ((set >> j & 1) != 0) continue;
                const std::size_t there = std::size_t{set | 1U << j} * m + j;
                const Cost cost = extended(here, i, j);
                if (!cost.IsBetterThan(best[there])) continue;
                best[there] = cost;
                before[there] = static_cast<std::uint8_t>(i);
            }
        }
    std::vector<unsigned> tour = {base};
    unsigned set = numSets - 1, end = 0;
    const auto closed = [&](unsigned j) { return extended(best[std::size_t{set} * m + j], j, base); };
    for (unsigned j = 1; j < m; ++j)
        if (closed(j).IsBetterThan(closed(end))) end = j;
    while (set != 0) {
        tour.push_back(end);
        const unsigned last = end;
        end = before[std::size_t{set} * m + end];
        set &= ~(1U << last);
    }
    return tour;
}

} // namespace VoAlgo
