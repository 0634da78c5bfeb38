#include "VoAlgorithms/verdict/estimatenormals.h"

#include "VoAlgorithms/kdtree/tkdtree.h"
#include "numerics/principalaxes.h"
#include "platform/tasks.h"
#include "verdict/detail_viewsample.h"

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

/// Points connected by edges, and the votes on their side.
struct Piece {
    double sum[3] = {};
    double count = 0.0;
    int outwards = 0; // normals that point away from the centroid, less those that point towards it
    int convex = 0;   // points of the sample at which the surface is convex, less the others
    int sampled = 0;
};

/// Pairs of neighbours and the difference of their normals.
std::vector<Edge> NeighbourEdges(const std::vector<Vec3>& points, const std::vector<Vec3>& normals)
{
    constexpr std::size_t EdgesPerPoint = 8; // the point itself among them
    const Tree tree(points.data(), points.size());
    std::vector<Edge> edges;
    edges.reserve((EdgesPerPoint - 1) * points.size());
    std::vector<Tree::Neighbour> found;
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (normals[i] == Vec3()) continue;
        tree.NearestK(&points[i].x, EdgesPerPoint, std::numeric_limits<float>::infinity(), found);
        for (const Tree::Neighbour& f : found) {
            const auto other = static_cast<std::uint32_t>(f.first);
            if (other == i || normals[other] == Vec3()) continue;
            const float cosine = std::min(1.0F, std::abs(normals[i].Dot(normals[other])));
            edges.push_back(
                {static_cast<std::uint32_t>((1.0F - cosine) * 1048576.0F), static_cast<std::uint32_t>(i), other});
        }
    }
    return edges;
}

/// Makes the signs of neighbouring normals agree: builds a minimum spanning forest (Kruskal), then votes on the side of
/// each tree: by convexity, measured at a sample of the points, or, of small trees, away from their centroids.
void PropagateSigns(const std::vector<Vec3>& points, std::vector<Vec3>& normals)
{
    constexpr int FewestVotes = 50;
    std::vector<Edge> edges = NeighbourEdges(points, normals);
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
    const detail::ViewSample sample = detail::TakeViewSample(points, normals);
    for (std::size_t i = 0; i < sample.points.size(); ++i) {
        Piece& piece = pieces[root[sample.index[i]]];
        const float rise = sample.rise[i].Dot(sample.normals[i]);
        piece.convex += rise > 0.0F ? 1 : (rise < 0.0F ? -1 : 0);
        ++piece.sampled;
    }
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Piece& piece = pieces[root[i]];
        if ((piece.sampled >= FewestVotes ? piece.convex : piece.outwards) < 0) normals[i] = -normals[i];
    }
}

/// Turns each normal towards the viewer who stands at towards(i), relative to point i.
template <class Towards>
void TurnAll(std::vector<Vec3>& normals, Towards towards)
{
    for (std::size_t i = 0; i < normals.size(); ++i)
        if (normals[i].Dot(towards(i)) < 0.0F) normals[i] = -normals[i];
}

/// The view that sees all points, also in a sample dense enough to tell the two sides of a thin body.
std::optional<ViewDirection> FindSingleView(const std::vector<Vec3>& points, const std::vector<Vec3>& normals)
{
    constexpr std::size_t DensePoints = 20000;
    constexpr double MostHidden = 0.05;
    detail::ViewSample sample = detail::TakeViewSample(points, normals);
    std::optional<ViewDirection> view = detail::FindView(sample);
    if (!view) return view;
    std::vector<Vec3> dense;
    for (const std::size_t i : detail::SpreadIndices(points.size(), DensePoints))
        if (normals[i] != Vec3()) dense.push_back(points[i]);
    const auto ratio = static_cast<float>(sample.points.size()) / static_cast<float>(dense.size());
    view->hidden = detail::HiddenShare(dense, sample.spacing * std::min(1.0F, std::sqrt(ratio)), view->direction);
    return view->hidden <= MostHidden ? view : std::nullopt;
}

/// Directions of least spread, of either sign; zero at isolated points, whose fourth neighbour is much farther away
/// than it is from their nearest neighbour (strays close to the surface), or than it is from most points (strays
/// elsewhere).
std::vector<Vec3> UnorientedNormals(const std::vector<Vec3>& points, unsigned neighbours)
{
    constexpr float LocalFactorSq = 9.0F, GlobalFactorSq = 36.0F; // of squared distances
    constexpr std::size_t Isolation = 4;
    std::vector<Vec3> normals(points.size());
    std::vector<float> distanceSq(points.size()); // to the fourth neighbour
    std::vector<std::uint32_t> nearest(points.size());
    const Tree tree(points.data(), points.size());
    VoAlgo::tasks::ForRanges(points.size(), VoAlgo::tasks::NumThreads(0), [&](std::size_t begin, std::size_t end) {
        std::vector<Tree::Neighbour> found;
        for (std::size_t i = begin; i < end; ++i) {
            tree.NearestK(&points[i].x, neighbours, std::numeric_limits<float>::infinity(), found);
            normals[i] = LeastSpread(points, found);
            if (found.size() <= Isolation) continue;
            distanceSq[i] = found[Isolation].second;
            nearest[i] = static_cast<std::uint32_t>(found[found[0].first == static_cast<int>(i) ? 1 : 0].first);
        }
    });
    std::vector<float> sorted = distanceSq;
    const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
    std::nth_element(sorted.begin(), middle, sorted.end());
    for (std::size_t i = 0; i < points.size(); ++i)
        if (distanceSq[i] > LocalFactorSq * distanceSq[nearest[i]] || distanceSq[i] > GlobalFactorSq * *middle)
            normals[i] = {};
    return normals;
}

} // namespace

NormalOrientation AssessNormals(const std::vector<Vec3>& points, const std::vector<Vec3>& normals)
{
    const detail::ViewSample sample = detail::TakeViewSample(points, normals);
    NormalOrientation orientation;
    orientation.disagreeing = sample.disagreeing;
    orientation.convex = detail::ConvexShare(sample);
    return orientation;
}

NormalOrientation OrientNormals(const std::vector<Vec3>& points, std::vector<Vec3>& normals,
                                const std::optional<Vec3>& viewpoint)
{
    ENormalSigns by = ENormalSigns::Viewpoint;
    std::optional<ViewDirection> view;
    if (viewpoint) {
        TurnAll(normals, [&](std::size_t i) { return *viewpoint - points[i]; });
    } else if (view = FindSingleView(points, normals); view) {
        by = ENormalSigns::View;
        TurnAll(normals, [&](std::size_t) { return view->direction; });
    } else {
        by = ENormalSigns::Propagation;
        PropagateSigns(points, normals);
    }
    NormalOrientation orientation = AssessNormals(points, normals);
    orientation.by = by;
    orientation.view = view;
    return orientation;
}

std::vector<Vec3> EstimateNormals(const std::vector<Vec3>& points, const std::optional<Vec3>& viewpoint,
                                  unsigned neighbours, NormalOrientation* orientation)
{
    if (points.size() < 3) return std::vector<Vec3>(points.size());
    std::vector<Vec3> normals = UnorientedNormals(points, neighbours);
    const NormalOrientation outcome = OrientNormals(points, normals, viewpoint);
    if (orientation != nullptr) *orientation = outcome;
    return normals;
}

} // namespace prereg
