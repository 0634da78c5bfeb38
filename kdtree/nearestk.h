#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <utility>
#include <vector>

/// Keeps the k nearest of the points that a search comes across; of equally distant ones those with the lowest indices.
namespace kdtree::detail {

/// A squared distance and an index in one number that sorts by the distance, then by the index: squared distances are
/// not negative, and the bits of such floats sort as they do.
using Ranked = std::uint64_t;
inline constexpr std::uint32_t NoIndex = std::numeric_limits<std::uint32_t>::max();

inline Ranked Rank(float distanceSq, std::uint32_t index)
{
    return Ranked{std::bit_cast<std::uint32_t>(distanceSq)} << 32 | index;
}
inline float DistanceSqOf(Ranked r)
{
    return std::bit_cast<float>(static_cast<std::uint32_t>(r >> 32));
}
inline std::uint32_t IndexOf(Ranked r)
{
    return static_cast<std::uint32_t>(r);
}

/// At most `Places` points, sorted. Free places hold the radius. A new point moves those behind it by one place, all
/// without a branch: which place it gets cannot be predicted.
template <std::size_t Places>
class FewNearest {
public:
    FewNearest(std::size_t k, float radiusSq) : k_(k)
    {
        std::fill(nearest_, begin(), Ranked{0}); // nothing sorts before these
        Limit(radiusSq);
    }
    float bound; ///< farther points need not be added

    /// Another radius, before the first point.
    void Limit(float radiusSq)
    {
        std::fill(begin(), std::end(nearest_), Rank(radiusSq, NoIndex));
        bound = radiusSq;
    }

    void Add(std::uint32_t index, float distanceSq)
    {
        const Ranked found = Rank(distanceSq, index);
        Ranked next = nearest_[Places - 1];
        for (std::size_t i = Places - 1; i > 0; --i) {
            const Ranked here = next;
            next = nearest_[i - 1];
            const Ranked moved = next > found ? next : found;
            nearest_[i] = here < moved ? here : moved;
        }
        nearest_[0] = next < found ? next : found;
        bound = DistanceSqOf(nearest_[Places - 1]);
    }
    [[nodiscard]] bool IsFull() const { return IndexOf(Farthest()) != NoIndex; }
    [[nodiscard]] Ranked Farthest() const { return nearest_[Places - 1]; }
    /// Nearest first.
    void Report(std::vector<std::pair<int, float>>& result)
    {
        for (const Ranked* r = begin(); r != std::end(nearest_) && IndexOf(*r) != NoIndex; ++r)
            result.emplace_back(static_cast<int>(IndexOf(*r)), DistanceSqOf(*r));
    }

private:
    [[nodiscard]] Ranked* begin() { return std::end(nearest_) - k_; }

    std::size_t k_;
    Ranked nearest_[Places];
};

/// Any number of points, in a heap with the farthest on top.
class ManyNearest {
public:
    ManyNearest(std::size_t k, float radiusSq) : bound(radiusSq), k_(k) {}
    float bound; ///< farther points need not be added

    /// Another radius, before the first point.
    void Limit(float radiusSq) { bound = radiusSq; }

    void Add(std::uint32_t index, float distanceSq)
    {
        if (!(distanceSq <= bound)) return;
        const Ranked found = Rank(distanceSq, index);
        if (IsFull()) {
            if (found > heap_.front()) return;
            std::pop_heap(heap_.begin(), heap_.end());
            heap_.back() = found;
        } else {
            heap_.push_back(found);
        }
        std::push_heap(heap_.begin(), heap_.end());
        if (IsFull()) bound = DistanceSqOf(heap_.front());
    }
    [[nodiscard]] bool IsFull() const { return heap_.size() == k_; }
    /// Nearest first; to be called once.
    void Report(std::vector<std::pair<int, float>>& result)
    {
        std::sort_heap(heap_.begin(), heap_.end());
        for (const Ranked r : heap_) result.emplace_back(static_cast<int>(IndexOf(r)), DistanceSqOf(r));
    }

private:
    std::size_t k_;
    std::vector<Ranked> heap_;
};

/// Replaces `result` by the nearest points that search(empty) leaves in the keeper it returns, a copy of the empty
/// keeper of k points within the radius, border included.
template <class Search>
void FindNearestK(std::size_t k, float radiusSq, std::vector<std::pair<int, float>>& result, const Search& search)
{
    result.clear();
    if (k == 0 || !(radiusSq >= 0.0F)) return;
    if (k <= 8)
        search(FewNearest<8>(k, radiusSq)).Report(result);
    else if (k <= 16)
        search(FewNearest<16>(k, radiusSq)).Report(result);
    else
        search(ManyNearest(k, radiusSq)).Report(result);
}

} // namespace kdtree::detail
