#include "kdtree/unique.h"

#include <bit>
#include <cmath>

namespace kdtree::detail {
namespace {

constexpr std::uint32_t None = 0xFFFFFFFFU;

bool IsFinite(const float* p, unsigned dimension)
{
    for (unsigned k = 0; k < dimension; ++k)
        if (!std::isfinite(p[k])) return false;
    return true;
}

bool IsEqual(const float* a, const float* b, unsigned dimension)
{
    for (unsigned k = 0; k < dimension; ++k)
        if (a[k] != b[k]) return false;
    return true;
}

std::uint64_t Hash(const float* p, unsigned dimension)
{
    std::uint64_t h = 0;
    for (unsigned k = 0; k < dimension; ++k) // adding 0 turns −0 into 0
        h = (std::rotl(h, 5) ^ std::bit_cast<std::uint32_t>(p[k] + 0.0F)) * 0x9E3779B97F4A7C15ULL;
    return h ^ (h >> 32);
}

} // namespace

std::vector<std::uint32_t> UniqueFinite(const float* points, std::size_t n, std::size_t stride, unsigned dimension)
{
    const std::size_t slots = std::bit_ceil(2 * n + 1);
    std::vector<std::uint32_t> table(slots, None); // open addressing, at most half full
    std::vector<std::uint32_t> survivors;
    survivors.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        const float* p = points + i * stride;
        if (!IsFinite(p, dimension)) continue;
        std::size_t slot = Hash(p, dimension) & (slots - 1);
        while (table[slot] != None && !IsEqual(points + table[slot] * stride, p, dimension))
            slot = (slot + 1) & (slots - 1);
        if (table[slot] != None) continue;
        table[slot] = static_cast<std::uint32_t>(i);
        survivors.push_back(static_cast<std::uint32_t>(i));
    }
    return survivors;
}

} // namespace kdtree::detail
