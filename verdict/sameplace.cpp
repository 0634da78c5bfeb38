#include "VoAlgorithms/verdict/sameplace.h"

#include <bit>
#include <cstdint>
#include <limits>

namespace prereg {
namespace {

/// Mixes the bits of the coordinates; −0 counts as 0.
std::uint64_t HashOf(const kdtree::Vector<3>& p)
{
    std::uint64_t hash = 0;
    for (unsigned k = 0; k < 3; ++k) {
        hash = (hash ^ std::bit_cast<std::uint32_t>(p[k] + 0.0F)) * 0x9E3779B97F4A7C15U;
        hash ^= hash >> 29U;
    }
    return hash;
}

} // namespace

std::vector<std::size_t> FirstAtSamePlace(const std::vector<kdtree::Vector<3>>& points)
{
    // Open addressing with at most two thirds in use; a slot holds an index and bits of its hash, so that few points
    // are looked at.
    struct Slot {
        std::uint32_t index = std::numeric_limits<std::uint32_t>::max();
        std::uint32_t tag = 0;
    };
    std::vector<std::size_t> first(points.size());
    const std::size_t mask = std::bit_ceil(points.size() + points.size() / 2 + 1) - 1;
    std::vector<Slot> slots(mask + 1);
    for (std::size_t i = 0; i < points.size(); ++i) {
        first[i] = i;
        if (!points[i].IsValid()) continue;
        const std::uint64_t hash = HashOf(points[i]);
        const auto tag = static_cast<std::uint32_t>(hash);
        for (std::size_t s = (hash >> 32U) & mask;; s = (s + 1) & mask) {
            Slot& slot = slots[s];
            if (slot.index == Slot().index) {
                slot = {static_cast<std::uint32_t>(i), tag};
                break;
            }
            if (slot.tag == tag && points[slot.index] == points[i]) {
                first[i] = slot.index;
                break;
            }
        }
    }
    return first;
}

} // namespace prereg
