#pragma once

#include "VoAlgorithms/export.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace VoAlgo {

/// Disjoint sets of the numbers 0 to n − 1, each at first in a set of its own; sets can be united, not split. Four
/// bytes an element. An element beyond the end throws std::out_of_range. Find shortens paths, so that objects may not
/// be shared by threads without a lock.
///
/// Union by size with path halving: a call takes amortised inverse-Ackermann time.
/// Source: R. E. Tarjan, J. van Leeuwen, J. ACM 31 (1984) 245–281.
class VOALGO_API CDisjointSets {
public:
    /// Every set with its members. Sets are numbered by their smallest member.
    struct Groups {
        std::vector<std::uint32_t> setOf;   ///< the number of each element's set
        std::vector<std::uint32_t> members; ///< all elements, set after set, ascending in each
        std::vector<std::size_t> begin;     ///< where each set starts in `members`; one more entry marks the end

        /// Number of sets.
        [[nodiscard]] std::size_t Size() const { return begin.size() - 1; }
        /// The members of a set, ascending; unchecked.
        [[nodiscard]] std::span<const std::uint32_t> operator[](std::size_t set) const
        {
            return {members.data() + begin[set], members.data() + begin[set + 1]};
        }
    };

    /// n sets of one element. Throws std::length_error when n exceeds 2³¹ − 1.
    explicit CDisjointSets(std::size_t n = 0);

    /// Number of elements.
    [[nodiscard]] std::size_t Size() const { return links_.size(); }
    /// Number of sets.
    [[nodiscard]] std::size_t NumSets() const { return numSets_; }
    /// The representative of the set of i: the same for all its members until the set is united with another.
    [[nodiscard]] std::uint32_t Find(std::size_t i)
    {
        check(i);
        return root(static_cast<std::int32_t>(i));
    }
    /// Unites the sets of a and b; true when they were apart. The larger set keeps its representative; of equal ones,
    /// that of a.
    bool Unite(std::size_t a, std::size_t b)
    {
        std::uint32_t large = Find(a);
        std::uint32_t small = Find(b);
        if (large == small) return false;
        if (links_[large] > links_[small]) std::swap(large, small);
        links_[large] += links_[small];
        links_[small] = static_cast<std::int32_t>(large);
        --numSets_;
        return true;
    }
    /// Whether a and b are in one set.
    [[nodiscard]] bool AreTogether(std::size_t a, std::size_t b) { return Find(a) == Find(b); }
    /// Number of elements in the set of i.
    [[nodiscard]] std::size_t SizeOf(std::size_t i) { return static_cast<std::size_t>(-links_[Find(i)]); }

    /// The representative of every set, in the order of GetGroups. O(n).
    [[nodiscard]] std::vector<std::uint32_t> GetRepresentatives();
    /// Lists all sets. O(n).
    [[nodiscard]] Groups GetGroups();

private:
    void check(std::size_t i) const
    {
        if (i >= links_.size()) throwOutOfRange(i);
    }
    [[noreturn]] void throwOutOfRange(std::size_t i) const;
    [[nodiscard]] std::uint32_t root(std::int32_t i)
    {
        const auto link = [this](std::int32_t e) -> std::int32_t& { return links_[static_cast<std::uint32_t>(e)]; };
        while (link(i) >= 0) {
            const std::int32_t parent = link(i);
            if (link(parent) < 0) return static_cast<std::uint32_t>(parent);
            i = link(i) = link(parent);
        }
        return static_cast<std::uint32_t>(i);
    }

    std::vector<std::int32_t>
        links_; // a representative's: minus the size of its set; another's: an element nearer to it
    std::size_t numSets_;
};

} // namespace VoAlgo
