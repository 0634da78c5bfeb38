#include "solvers/detail_tourbound.h"

#include "VoAlgorithms/clustering/cdisjointsets.h"

#include <algorithm>

namespace VoAlgo {
namespace {

constexpr double Infinite = std::numeric_limits<double>::infinity();
constexpr unsigned NumSteps = 100;       // of an ascent, at least
constexpr unsigned CheapSteps = 100'000; // divided by the number of cities: as many more
constexpr unsigned NumAscents = 2;       // the second one knows edges that the first one missed

/// An edge and its weight under the penalties; ties by nodes, so that no ring can arise.
struct Edge {
    unsigned a = 0, b = 0; // a < b
    double weight = Infinite;

    [[nodiscard]] bool IsLighterThan(const Edge& other) const
    {
        if (weight != other.weight) return weight < other.weight;
        return HasEarlierEnds(other);
    }
    [[nodiscard]] bool HasEarlierEnds(const Edge& other) const { return a != other.a ? a < other.a : b < other.b; }
};

/// The special node of a 1-tree, which has exactly two edges, is the gap if there is one, otherwise the leaf of the
/// spanning tree whose second edge weighs most: the tree without a leaf is a least one of the other nodes.
class OneTree {
public:
    OneTree(const TourMap& map, const NeighbourLists& lists, const std::vector<unsigned>& tour);

    double Bound();

private:
    void add(unsigned a, unsigned b);
    void tidyEdges();
    void ascend(double target);
    [[nodiscard]] double weight(unsigned a, unsigned b) const
    {
        return map_.Distance(a, b) + penalties_[a] + penalties_[b];
    }

    double grow(bool amongAll);
    void growTree(bool amongAll);
    void offer(unsigned a, unsigned b, double weight);
    void offerListed(std::vector<Edge>& edges);
    void offerAll();
    void offerNear();
    void unite();
    void closeAtGap();
    void closeAtLeaf(bool amongAll);
    void take(unsigned a, unsigned b);

    const TourMap& map_;
    unsigned n_; // cities
    double tourLength_;
    std::vector<Edge> listed_;
    std::vector<double> penalties_; // of all nodes
    // The tree at hand.
    std::vector<Edge> tree_;
    std::vector<int> degree_;
    double length_ = 0;
    CDisjointSets sets_;
    std::vector<Edge> lightest_; // out of each set, by representative
};

OneTree::OneTree(const TourMap& map, const NeighbourLists& lists, const std::vector<unsigned>& tour)
    : map_(map), n_(map.NumCities()), tourLength_(map.LengthOf(tour)), penalties_(map.NumNodes())
{
    for (unsigned a = 0; a < n_; ++a)
        for (const unsigned b : lists[a]) add(a, b);
    for (std::size_t i = 0; i < tour.size(); ++i) add(tour[i], tour[i + 1 < tour.size() ? i + 1 : 0]);
    tidyEdges();
}

/// The gap's edges are no part of the spanning tree.
void OneTree::add(unsigned a, unsigned b)
{
    if (std::max(a, b) < n_) listed_.push_back({std::min(a, b), std::max(a, b), 0});
}

void OneTree::tidyEdges()
{
    std::sort(listed_.begin(), listed_.end(), [](const Edge& e, const Edge& f) { return e.HasEarlierEnds(f); });
    const auto isSame = [](const Edge& e, const Edge& f) { return e.a == f.a && e.b == f.b; };
    listed_.erase(std::unique(listed_.begin(), listed_.end(), isSame), listed_.end());
}

double OneTree::Bound()
{
    double bound = grow(true);
    for (unsigned i = 0; i < NumAscents; ++i) {
        ascend(tourLength_);
        bound = std::max(bound, grow(true));
        for (const Edge& e : std::vector<Edge>(tree_)) add(e.a, e.b);
        tidyEdges();
    }
    return bound;
}

/// Subgradient ascent among the listed edges: a node with too many edges becomes dearer, one with too few cheaper.
/// Leaves the penalties of the heaviest tree. The steps would reach the target, the length of the tour, if the bound
/// went on as steeply as here; they become shorter. M. Held, P. Wolfe, H. P. Crowder, Math. Programming 6 (1974) 62-88.
void OneTree::ascend(double target)
{
    std::vector<double> best = penalties_;
    double bound = -Infinite;
    const unsigned numSteps = NumSteps + CheapSteps / n_;
    for (unsigned i = 0; i < numSteps; ++i) {
        const double value = grow(false);
        if (value > bound) {
            bound = value;
            best = penalties_;
        }
        double slopeSq = 0;
        for (const int degree : degree_) slopeSq += (degree - 2) * (degree - 2);
        if (slopeSq == 0 || value >= target) break; // a tour
        const double left = 1.0 - static_cast<double>(i) / numSteps;
        const double step = left * left * (target - value) / slopeSq;
        for (std::size_t node = 0; node < penalties_.size(); ++node) penalties_[node] += step * (degree_[node] - 2);
    }
    penalties_ = best;
}

/// Makes the least 1-tree of the listed edges, or of all, and returns its weight less twice the penalties.
double OneTree::grow(bool amongAll)
{
    growTree(amongAll);
    if (map_.HasGap())
        closeAtGap();
    else
        closeAtLeaf(amongAll);
    double value = length_;
    for (std::size_t node = 0; node < penalties_.size(); ++node) value += (degree_[node] - 2) * penalties_[node];
    return value;
}

/// Boruvka: the lightest edge out of each part of the forest, until there is one part.
void OneTree::growTree(bool amongAll)
{
    sets_ = CDisjointSets(n_);
    tree_.clear();
    degree_.assign(map_.NumNodes(), 0);
    length_ = 0;
    lightest_.assign(n_, Edge());
    for (const auto& [a, b] : map_.Required())
        if (b < n_ && sets_.Unite(a, b)) take(a, b);
    std::vector<Edge> edges = listed_;
    for (Edge& e : edges) e.weight = weight(e.a, e.b);
    while (sets_.NumSets() > 1) {
        offerListed(edges);
        if (amongAll) map_.Tree() != nullptr ? offerNear() : offerAll();
        unite();
    }
}

void OneTree::take(unsigned a, unsigned b)
{
    tree_.push_back({a, b, 0});
    ++degree_[a];
    ++degree_[b];
    length_ += map_.Distance(a, b);
}

void OneTree::offer(unsigned a, unsigned b, double weight)
{
    const Edge edge{std::min(a, b), std::max(a, b), weight};
    for (const unsigned end : {a, b})
        if (Edge& lightest = lightest_[sets_.Find(end)]; edge.IsLighterThan(lightest)) lightest = edge;
}

/// Also drops edges inside a part.
void OneTree::offerListed(std::vector<Edge>& edges)
{
    std::size_t kept = 0;
    for (const Edge& e : edges) {
        const unsigned setA = sets_.Find(e.a), setB = sets_.Find(e.b);
        if (setA == setB) continue;
        if (e.IsLighterThan(lightest_[setA])) lightest_[setA] = e;
        if (e.IsLighterThan(lightest_[setB])) lightest_[setB] = e;
        edges[kept++] = e;
    }
    edges.resize(kept);
}

void OneTree::offerAll()
{
    for (unsigned b = 1; b < n_; ++b)
        for (unsigned a = 0; a < b; ++a)
            if (!sets_.AreTogether(a, b)) offer(a, b, weight(a, b));
}

/// As offerAll, by a search around every city that passes over nodes of the tree which lie in the same part or are too
/// far away even for their smallest penalty.
void OneTree::offerNear()
{
    const PointTree& tree = *map_.Tree();
    std::vector<unsigned> setOf(n_);
    for (unsigned city = 0; city < n_; ++city) setOf[city] = sets_.Find(city);
    struct Summary {
        double penalty; // the smallest one
        unsigned set;   // of all points, or None
    };
    const std::vector<PointTree::Node>& nodes = tree.Nodes();
    std::vector<Summary> summaries(nodes.size());
    for (std::size_t i = nodes.size(); i-- > 0;) { // children first
        if (nodes[i].IsLeaf()) {
            const unsigned begin = nodes[i].begin, end = nodes[i].end;
            summaries[i] = {*std::min_element(&penalties_[begin], &penalties_[begin] + (end - begin)), setOf[begin]};
            for (unsigned p = begin; p < end; ++p)
                if (setOf[p] != setOf[begin]) summaries[i].set = TourMap::None;
        } else {
            const Summary &lower = summaries[i + 1], &upper = summaries[nodes[i].upper];
            summaries[i] = {std::min(lower.penalty, upper.penalty), lower.set == upper.set ? lower.set : TourMap::None};
        }
    }
    for (unsigned city = 0; city < n_; ++city) {
        const Edge& lightest = lightest_[setOf[city]];
        tree.Search(
            map_.Points()[city],
            [&](unsigned node, double boxSq) {
                const double room = lightest.weight - penalties_[city] - summaries[node].penalty;
                return summaries[node].set == setOf[city] || room < 0 || boxSq > room * room;
            },
            [&](unsigned other) {
                if (setOf[other] != setOf[city]) offer(city, other, weight(city, other));
            });
    }
}

void OneTree::unite()
{
    for (Edge& e : lightest_) {
        if (e.weight < Infinite && sets_.Unite(e.a, e.b)) take(e.a, e.b);
        e = Edge();
    }
}

/// Gives the gap its two lightest edges, which weigh what their cities' penalties do; required ones come first.
void OneTree::closeAtGap()
{
    const unsigned gap = map_.Gap();
    const auto isLess = [&](unsigned a, unsigned b) {
        const bool requiresA = map_.IsRequired(gap, a), requiresB = map_.IsRequired(gap, b);
        return requiresA != requiresB ? requiresA : penalties_[a] < penalties_[b];
    };
    unsigned first = 0, second = 1;
    if (isLess(second, first)) std::swap(first, second);
    for (unsigned city = 2; city < n_; ++city)
        if (isLess(city, first)) {
            second = first;
            first = city;
        } else if (isLess(city, second)) {
            second = city;
        }
    take(first, gap);
    take(second, gap);
}

void OneTree::closeAtLeaf(bool amongAll)
{
    std::vector<unsigned> neighbour(n_);
    for (const Edge& e : tree_) {
        neighbour[e.a] = e.b;
        neighbour[e.b] = e.a;
    }
    std::vector<Edge> second(n_);
    for (const Edge& e : listed_) {
        const Edge edge{e.a, e.b, weight(e.a, e.b)};
        for (const auto& [leaf, other] : {std::pair(e.a, e.b), std::pair(e.b, e.a)})
            if (degree_[leaf] == 1 && neighbour[leaf] != other && edge.IsLighterThan(second[leaf])) second[leaf] = edge;
    }
    unsigned leaf = TourMap::None;
    for (unsigned city = 0; city < n_; ++city)
        if (degree_[city] == 1 && second[city].weight < Infinite)
            if (leaf == TourMap::None || second[city].weight > second[leaf].weight) leaf = city;
    if (leaf == TourMap::None) return;
    Edge last = second[leaf];
    for (unsigned other = 0; amongAll && other < n_; ++other)
        if (other != leaf && other != neighbour[leaf]) {
            const Edge edge{std::min(leaf, other), std::max(leaf, other), weight(leaf, other)};
            if (edge.IsLighterThan(last)) last = edge;
        }
    take(last.a, last.b);
}

} // namespace

double LowerBound(const TourMap& map, const NeighbourLists& lists, const std::vector<unsigned>& tour)
{
    return OneTree(map, lists, tour).Bound();
}

} // namespace VoAlgo
