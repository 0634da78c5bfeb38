// A kd-tree (J. L. Bentley, Commun. ACM 18 (1975) 509-517) with buckets as leaves, searched as in J. H. Friedman,
// J. L. Bentley and R. A. Finkel, ACM Trans. Math. Softw. 3 (1977) 209-226. Nodes are split at the middle of their box,
// not at the median, so that no coordinates are sorted.
// Build:  1. drop the points that are not finite and all but the first of equal points (unique.h);
//         2. make a leaf of at most B points; otherwise split the bounding box at the middle of its longest side,
//            partition the points in place, and build the lower and then the upper child;
//         3. store the coordinates in tree order, by planes in space and by padded rows in other dimensions.
// Search: 4. skip a node whose box lies beyond the current bound;
//         5. descend to the query's side of the split first, then to the other side unless the plane is out of bound;
//         6. scan a leaf eight points at a time; a found point may tighten the bound.
#include "VoAlgorithms/kdtree/tkdtree.h"

#include "kdtree/nearestk.h"
#include "kdtree/unique.h"
#include "platform/simd.h"

#include <algorithm>
#include <limits>

namespace kdtree {
namespace {

using VoAlgo::simd::F8;
using VoAlgo::simd::Lanes;

constexpr unsigned PaddedLength(unsigned dimension)
{
    constexpr auto Width = static_cast<unsigned>(Lanes);
    return (dimension + Width - 1) / Width * Width;
}

/// The memory layout of points and boxes of D dimensions, and distances to them. A box distance adds the same terms in
/// the same order as a point distance, so that rounding never lifts it above the distance of a point inside.
template <unsigned D>
struct Layout {
    static constexpr unsigned Row = PaddedLength(D);
    static constexpr unsigned Box = 2 * Row;

    static float DistanceSq(const float* query, const float* row)
    {
        F8 sum = F8::Set(0.0F);
        for (unsigned k = 0; k < Row; k += Lanes) {
            const F8 d = F8::Load(query + k) - F8::Load(row + k);
            sum = sum + d * d;
        }
        return sum.Sum();
    }
    static float BoxDistanceSq(const float* query, const float* box)
    {
        F8 sum = F8::Set(0.0F);
        for (unsigned k = 0; k < Row; k += Lanes) {
            const F8 q = F8::Load(query + k);
            const F8 d = F8::Max(F8::Max(F8::Load(box + k) - q, q - F8::Load(box + Row + k)), F8::Set(0.0F));
            sum = sum + d * d;
        }
        return sum.Sum();
    }
};

template <>
struct Layout<3> {
    static constexpr unsigned Row = 3;
    static constexpr unsigned Box = 6;

    static float BoxDistanceSq(const float* query, const float* box)
    {
        float term[3];
        for (int k = 0; k < 3; ++k) {
            const float d = std::max(std::max(box[k] - query[k], query[k] - box[k + 3]), 0.0F);
            term[k] = d * d;
        }
        return (term[0] + term[1]) + term[2];
    }
};

/// Calls visitor.Visit(position, distanceSq) in tree order for the points of a leaf, stored by planes, that its
/// Candidates let through. The visitor's bound may shrink on the way, below the distance of a point still to come.
template <class Visitor>
void ScanPlanes(const float* query, const float* planes, std::size_t planeSize, std::uint32_t begin, std::uint32_t end,
                Visitor& visitor)
{
    const F8 qx = F8::Set(query[0]);
    const F8 qy = F8::Set(query[1]);
    const F8 qz = F8::Set(query[2]);
    for (std::uint32_t i = begin; i < end; i += Lanes) {
        const F8 dx = F8::Load(planes + i) - qx;
        const F8 dy = F8::Load(planes + planeSize + i) - qy;
        const F8 dz = F8::Load(planes + 2 * planeSize + i) - qz;
        const F8 distanceSq = (dx * dx + dy * dy) + dz * dz;
        unsigned mask = visitor.Candidates(distanceSq);
        if (end - i < Lanes) mask &= (1U << (end - i)) - 1U;
        if (mask == 0) continue;
        float lanes[Lanes];
        distanceSq.Store(lanes);
        for (; mask != 0; mask &= mask - 1) {
            const auto lane = static_cast<std::uint32_t>(std::countr_zero(mask));
            visitor.Visit(i + lane, lanes[lane]);
        }
    }
}

/// The nearest point strictly within a radius; of equally distant points the first visited.
struct NearestVisitor {
    float bound;
    std::uint32_t best = std::numeric_limits<std::uint32_t>::max();

    [[nodiscard]] bool Enters(float boxDistanceSq) const { return !(boxDistanceSq > bound); }
    [[nodiscard]] bool Crosses(float planeDistanceSq) const { return bound > planeDistanceSq; }
    [[nodiscard]] unsigned Candidates(F8 distanceSq) const { return F8::MaskLess(distanceSq, F8::Set(bound)); }
    void Visit(std::uint32_t position, float distanceSq)
    {
        if (!(distanceSq < bound)) return;
        bound = distanceSq;
        best = position;
    }
};

/// Every point within a radius, border included.
struct AllVisitor {
    float bound;
    const std::vector<std::uint32_t>& callerIndices;
    std::vector<int>& found;

    [[nodiscard]] bool Enters(float boxDistanceSq) const { return boxDistanceSq <= bound; }
    [[nodiscard]] bool Crosses(float planeDistanceSq) const { return planeDistanceSq <= bound; }
    [[nodiscard]] unsigned Candidates(F8 distanceSq) const { return F8::MaskLessEqual(distanceSq, F8::Set(bound)); }
    void Visit(std::uint32_t position, float distanceSq)
    {
        if (distanceSq <= bound) found.push_back(static_cast<int>(callerIndices[position]));
    }
};

/// The k nearest points within a radius, border included.
template <class Keeper>
struct NearestKVisitor {
    Keeper keeper;
    const std::vector<std::uint32_t>& callerIndices;

    [[nodiscard]] bool Enters(float boxDistanceSq) const { return boxDistanceSq <= keeper.bound; }
    [[nodiscard]] bool Crosses(float planeDistanceSq) const { return planeDistanceSq <= keeper.bound; }
    [[nodiscard]] unsigned Candidates(F8 distanceSq) const
    {
        return F8::MaskLessEqual(distanceSq, F8::Set(keeper.bound));
    }
    void Visit(std::uint32_t position, float distanceSq) { keeper.Add(callerIndices[position], distanceSq); }
};

} // namespace

/// Splits the points recursively at the middle of the longest side of their box.
template <unsigned D, unsigned B>
class TKdTree<D, B>::Builder {
public:
    Builder(TKdTree& tree, const float* points, std::size_t stride) : tree_(tree), points_(points), stride_(stride) {}

    void Build()
    {
        if (tree_.count_ == 0) throw build_error_empty();
        const std::size_t nodes = 4 * (static_cast<std::size_t>(tree_.count_) / B + 1);
        tree_.nodes_.reserve(nodes);
        tree_.boxes_.reserve(nodes * Layout<D>::Box);
        rows_.resize(tree_.count_ * WorkRow);
        for (std::uint32_t i = 0; i < tree_.count_; ++i) std::copy_n(points_ + tree_.indices_[i] * stride_, D, row(i));
        addNode(0, tree_.count_);
        storeCoordinates();
    }

private:
    // Points are stored row by row while they are partitioned, so that every pass reads in sequence.
    static constexpr unsigned WorkRow = D == 3 ? 4 : Layout<D>::Row;

    [[nodiscard]] float* row(std::uint32_t i) { return &rows_[std::size_t{i} * WorkRow]; }

    void addNode(std::uint32_t begin, std::uint32_t end)
    {
        const auto self = static_cast<std::uint32_t>(tree_.nodes_.size());
        tree_.nodes_.push_back({begin, end, 0, 0, 0.0F});
        float lowest[PaddedLength(D)];
        float highest[PaddedLength(D)];
        boundingBox(begin, end, lowest, highest);
        storeBox(lowest, highest);
        if (end - begin <= B) return;
        unsigned dimension = 0;
        float longest = 0.0F;
        for (unsigned k = 0; k < D; ++k) {
            const float halfExtent =
                0.5F * highest[k] - 0.5F * lowest[k]; // halves first: the difference cannot overflow
            if (!(halfExtent > longest)) continue;
            longest = halfExtent;
            dimension = k;
        }
        if (!(longest > 0.0F)) throw build_error_duplicates();
        float split = 0.5F * highest[dimension] + 0.5F * lowest[dimension];
        if (!(split > lowest[dimension])) split = highest[dimension]; // no float lies between neighbouring floats
        const std::uint32_t middle = partition(begin, end, dimension, split);
        addNode(begin, middle);
        Node& node = tree_.nodes_[self];
        node.splitDimension = dimension;
        node.split = split;
        node.upper = static_cast<std::uint32_t>(tree_.nodes_.size());
        addNode(middle, end);
    }

    void boundingBox(std::uint32_t begin, std::uint32_t end, float* lowest, float* highest)
    {
        if constexpr (D == 3) {
            if (end - begin == 1) {
                std::copy_n(row(begin), D, lowest);
                std::copy_n(row(begin), D, highest);
                return;
            }
            bounds(row(begin), row(end - 2), 2 * WorkRow, lowest, highest); // two points at a time
            for (unsigned k = 0; k < D; ++k) {
                lowest[k] = std::min(lowest[k], lowest[k + WorkRow]);
                highest[k] = std::max(highest[k], highest[k + WorkRow]);
            }
        } else {
            for (unsigned k = 0; k < WorkRow; k += Lanes)
                bounds(row(begin) + k, row(end - 1) + k, WorkRow, lowest + k, highest + k);
        }
    }

    /// Bounds of the eight floats that start at first, first + step, … and at last.
    static void bounds(const float* first, const float* last, std::size_t step, float* lowest, float* highest)
    {
        F8 low = F8::Load(last);
        F8 high = low;
        for (const float* p = first; p < last; p += step) {
            low = F8::Min(F8::Load(p), low);
            high = F8::Max(F8::Load(p), high);
        }
        low.Store(lowest);
        high.Store(highest);
    }

    /// Two-pointer swap; returns the first position of the upper part.
    std::uint32_t partition(std::uint32_t begin, std::uint32_t end, unsigned dimension, float split)
    {
        while (true) {
            while (begin < end && row(begin)[dimension] < split) ++begin;
            while (begin < end && !(row(end - 1)[dimension] < split)) --end;
            if (begin >= end) return begin;
            --end;
            std::swap_ranges(row(begin), row(begin) + WorkRow, row(end));
            std::swap(tree_.indices_[begin++], tree_.indices_[end]);
        }
    }

    void storeBox(const float* lowest, const float* highest)
    {
        const std::size_t at = tree_.boxes_.size();
        tree_.boxes_.resize(at + Layout<D>::Box, 0.0F);
        std::copy_n(lowest, D, &tree_.boxes_[at]);
        std::copy_n(highest, D, &tree_.boxes_[at + Layout<D>::Row]);
    }

    void storeCoordinates()
    {
        if constexpr (D == 3) {
            const std::size_t n = tree_.count_;
            tree_.coordinates_.assign(3 * n + Lanes, 0.0F); // a block of eight may reach past the last point
            for (std::uint32_t i = 0; i < n; ++i)
                for (unsigned k = 0; k < 3; ++k) tree_.coordinates_[k * n + i] = row(i)[k];
        } else {
            tree_.coordinates_ = std::move(rows_);
        }
    }

    TKdTree& tree_;
    const float* points_;
    std::size_t stride_;
    std::vector<float> rows_; // in step with the indices
};

/// Depth-first search that takes the query's side of every split first.
template <unsigned D, unsigned B>
template <class Visitor>
class TKdTree<D, B>::Search {
public:
    Search(const TKdTree& tree, const float* query, Visitor& visitor) : tree_(tree), visitor_(visitor)
    {
        std::copy_n(query, D, query_);
        if (!tree_.nodes_.empty() && visitor_.Enters(boxDistanceSq(0))) descend(0);
    }

private:
    [[nodiscard]] float boxDistanceSq(std::uint32_t node) const
    {
        return Layout<D>::BoxDistanceSq(query_, &tree_.boxes_[static_cast<std::size_t>(node) * Layout<D>::Box]);
    }

    void descend(std::uint32_t at)
    {
        const Node& node = tree_.nodes_[at];
        if (node.upper == 0) return scanLeaf(node);
        const float d = node.split - query_[node.splitDimension];
        const std::uint32_t lower = at + 1;
        const std::uint32_t nearChild = d >= 0.0F ? lower : node.upper;
        const std::uint32_t farChild = d >= 0.0F ? node.upper : lower;
        if (visitor_.Enters(boxDistanceSq(nearChild))) descend(nearChild);
        if (visitor_.Crosses(d * d) && visitor_.Enters(boxDistanceSq(farChild))) descend(farChild);
    }

    void scanLeaf(const Node& node)
    {
        const float* coordinates = tree_.coordinates_.data();
        if constexpr (D == 3) {
            ScanPlanes(query_, coordinates, tree_.count_, node.begin, node.end, visitor_);
        } else {
            for (std::uint32_t i = node.begin; i < node.end; ++i) {
                const float d = Layout<D>::DistanceSq(query_, coordinates + std::size_t{i} * Layout<D>::Row);
                if (visitor_.Enters(d)) visitor_.Visit(i, d);
            }
        }
    }

    const TKdTree& tree_;
    Visitor& visitor_;
    float query_[PaddedLength(D)] = {};
};

template <unsigned D, unsigned B>
TKdTree<D, B>::TKdTree(const float* points, std::size_t n, std::size_t stride)
{
    if (n == 0) return;
    indices_ = detail::UniqueFinite(points, n, stride, D);
    count_ = static_cast<std::uint32_t>(indices_.size());
    try {
        Builder(*this, points, stride).Build();
    } catch (const build_error_empty&) {
        *this = TKdTree();
    } catch (const build_error_duplicates&) { // a tree without root, which finds nothing
        nodes_.clear();
        boxes_.clear();
    }
}

template <unsigned D, unsigned B>
std::size_t TKdTree<D, B>::GetMemUsage() const
{
    return coordinates_.capacity() * sizeof(float) + indices_.capacity() * sizeof(std::uint32_t) +
           nodes_.capacity() * sizeof(Node) + boxes_.capacity() * sizeof(float);
}

template <unsigned D, unsigned B>
int TKdTree<D, B>::Nearest(const float* query, float radiusSq, float* distanceSq) const
{
    NearestVisitor visitor{radiusSq};
    Search<NearestVisitor>(*this, query, visitor);
    if (visitor.best == std::numeric_limits<std::uint32_t>::max()) return -1;
    if (distanceSq != nullptr) *distanceSq = visitor.bound;
    return static_cast<int>(indices_[visitor.best]);
}

template <unsigned D, unsigned B>
void TKdTree<D, B>::AllWithin(const float* query, float radiusSq, std::vector<int>& indices) const
{
    indices.clear();
    AllVisitor visitor{radiusSq, indices_, indices};
    Search<AllVisitor>(*this, query, visitor);
}

template <unsigned D, unsigned B>
void TKdTree<D, B>::NearestK(const float* query, unsigned k, float radiusSq, std::vector<Neighbour>& result) const
{
    detail::FindNearestK(k, radiusSq, result, [&](auto empty) {
        NearestKVisitor<decltype(empty)> visitor{empty, indices_};
        Search<decltype(visitor)>(*this, query, visitor);
        return visitor.keeper;
    });
}

template class TKdTree<3, 48>;
template class TKdTree<33, 6>;

} // namespace kdtree
