#include "VoAlgorithms/verdict/estimatenormals.h"

#include "VoAlgorithms/kdtree/tkdtree.h"
#include "numerics/principalaxes.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>

namespace prereg {
namespace {

using Vec3 = kdtree::Vector<3>;
using Tree = kdtree::TKdTree<3, 48>;

/// Two neighbours and how much their normals differ as lines: 1 − |n·m|, in steps of 2⁻²⁰ so that ties have one order.
struct Edge {
    std::uint32_t difference;
    std::uint32_t from;
    std::uint32_t to;

    bool operator<(const Edge& o) const
    {
        if (difference != o.difference) return difference < o.difference;
        return from != o.from ? from < o.from : to < o.to;
    }
};

/// Disjoint sets that also record whether the sign of an element agrees with that of its set's root.
class SignedSets {
public:
    explicit SignedSets(std::size_t n) : parent_(n), flipped_(n, 0), size_(n, 1)
    {
        std::iota(parent_.begin(), parent_.end(), 0U);
    }

    struct Place {
        std::uint32_t root;
        bool flipped; // against the root
    };

    Place Find(std::uint32_t i)
    {
        bool flipped = false;
        while (parent_[i] != i) {
            const std::uint32_t up = parent_[i];
            flipped_[i] ^= flipped_[up]; // path halving; a root is never flipped
            parent_[i] = parent_[up];
            flipped ^= flipped_[i] != 0;
            i = parent_[i];
        }
        return {i, flipped};
    }

    /// Joins the sets of a and b so that a and b agree, or disagree when `opposite`. No effect within one set.
    void Join(std::uint32_t a, std::uint32_t b, bool opposite)
    {
        Place big = Find(a), small = Find(b);
        if (big.root == small.root) return;
        if (size_[big.root] < size_[small.root]) std::swap(big, small);
        parent_[small.root] = big.root;
        flipped_[small.root] = (big.flipped != small.flipped) != opposite ? 1 : 0;
        size_[big.root] += size_[small.root];
    }

private:
    std::vector<std::uint32_t> parent_;
    std::vector<char> flipped_; // against the parent
    std::vector<std::uint32_t> size_;
};

/// The direction of least spread of the points found; zero for fewer than three.
Vec3 LeastSpread(const std::vector<Vec3>& points, const std::vector<Tree::Neighbour>& found)
{
    if (found.size() < 3) return {};
    const VoAlgo::PrincipalAxes axes = VoAlgo::ComputePrincipalAxes(
        found.size(), [&](std::size_t i) { return points[static_cast<std::size_t>(found[i].first)]; });
    const auto& [x, y, z] = axes.axis[static_cast<std::size_t>(
        std::min_element(axes.variance.begin(), axes.variance.end()) - axes.variance.begin())];
    const Vec3 n(static_cast<float>(x), static_cast<float>(y), static_cast<float>(z));
    const float length = n.Norm();
    return length > 0.0F ? n / length : Vec3{};
}

/// Points connected by edges.
struct Piece {
    double sum[3] = {};
    double count = 0.0;
    int outwards = 0; // normals that point away from the centroid, less those that point towards it
};

/// Makes the signs of neighbouring normals agree: builds a minimum spanning forest of `edges` (Kruskal), then takes one
/// vote per tree.
void PropagateSigns(const std::vector<Vec3>& points, std::vector<Vec3>& normals, std::vector<Edge>& edges)
{
    std::sort(edges.begin(), edges.end());
    SignedSets sets(points.size());
    for (const Edge& e : edges) sets.Join(e.from, e.to, normals[e.from].Dot(normals[e.to]) < 0.0F);

    std::vector<Piece> pieces(points.size()); // at the index of the root
    std::vector<std::uint32_t> root(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
        const SignedSets::Place place = sets.Find(static_cast<std::uint32_t>(i));
        root[i] = place.root;
        if (place.flipped) normals[i] = -normals[i];
        Piece& piece = pieces[root[i]];
        for (unsigned k = 0; k < 3; ++k) piece.sum[k] += points[i][k];
        piece.count += 1.0;
    }
    for (std::size_t i = 0; i < points.size(); ++i) {
        Piece& piece = pieces[root[i]];
        double away = 0.0;
        for (unsigned k = 0; k < 3; ++k) away += normals[i][k] * (points[i][k] - piece.sum[k] / piece.count);
        piece.outwards += away > 0.0 ? 1 : (away < 0.0 ? -1 : 0);
    }
    for (std::size_t i = 0; i < points.size(); ++i)
        if (pieces[root[i]].outwards < 0) normals[i] = -normals[i];
}

} // namespace

std::vector<Vec3> EstimateNormals(const std::vector<Vec3>& points, const std::optional<Vec3>& viewpoint,
                                  unsigned neighbours)
{
    constexpr std::size_t EdgesPerPoint = 8;
    std::vector<Vec3> normals(points.size());
    if (points.size() < 3) return normals;
    const Tree tree(&points.front().x, points.size(), 4);
    std::vector<Edge> edges;
    std::vector<Tree::Neighbour> found;
    for (std::size_t i = 0; i < points.size(); ++i) {
        tree.NearestK(&points[i].x, neighbours, std::numeric_limits<float>::infinity(), found);
        normals[i] = LeastSpread(points, found);
        if (viewpoint) {
            if (normals[i].Dot(*viewpoint - points[i]) < 0.0F) normals[i] = -normals[i];
            continue;
        }
        for (std::size_t k = 0; k < std::min(found.size(), EdgesPerPoint); ++k)
            if (const auto other = static_cast<std::uint32_t>(found[k].first); other != i)
                edges.push_back({0, static_cast<std::uint32_t>(i), other});
    }
    if (viewpoint) return normals;
    for (Edge& e : edges) {
        const float cosine = std::min(1.0F, std::abs(normals[e.from].Dot(normals[e.to])));
        e.difference = static_cast<std::uint32_t>((1.0F - cosine) * 1048576.0F);
    }
    PropagateSigns(points, normals, edges);
    return normals;
}

} // namespace prereg
