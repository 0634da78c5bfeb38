#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace prereg::detail {

/// Set of indices that may take a few for members that are not. FNV-1a over the index's bytes, low byte first; probe i
/// is h + i·(h mod 2³²).
/// Sized for `capacity` members at the wanted rate, m = −n·ln p ÷ ln² 2 bits and m ÷ n · ln 2 probes (B. H. Bloom, CACM
/// 13 (1970) 422–426), with no more bits than `maxBits`.
class BloomFilter {
public:
    BloomFilter(std::size_t capacity, double falsePositiveRate, std::size_t maxBits)
    {
        const double ln2 = std::log(2.0);
        const auto n = static_cast<double>(std::max<std::size_t>(capacity, 1));
        const double wanted = std::ceil(-n * std::log(falsePositiveRate) / (ln2 * ln2));
        bits_ = static_cast<std::uint64_t>(std::clamp(wanted, 64.0, static_cast<double>(maxBits)));
        bits_ = (bits_ - 1) | 1U; // odd: with an even number every other step would reach half of the bits only
        probes_ = static_cast<unsigned>(std::max(1.0, std::round(static_cast<double>(bits_) / n * ln2)));
        probes_ = std::min(probes_, MaxProbes);
        words_.resize((bits_ + 63) / 64);
    }

    /// Adds the index; false when it was there already (or seems so).
    bool Insert(std::uint32_t index)
    {
        const std::uint64_t h = fnv1a(index);
        const std::uint64_t step = h & 0xFFFFFFFFU;
        bool isNew = false;
        for (unsigned i = 0; i < probes_; ++i) {
            const std::uint64_t bit = (h + i * step) % bits_;
            std::uint64_t& word = words_[bit / 64];
            const std::uint64_t mask = std::uint64_t{1} << (bit % 64);
            isNew = isNew || (word & mask) == 0;
            word |= mask;
        }
        return isNew;
    }

private:
    static constexpr unsigned MaxProbes = 16;

    static std::uint64_t fnv1a(std::uint32_t index)
    {
        std::uint64_t h = 0xCBF29CE484222325ULL;
        for (int byte = 0; byte < 4; ++byte) h = (h ^ (index >> (8 * byte) & 0xFFU)) * 0x100000001B3ULL;
        return h;
    }

    std::uint64_t bits_;
    unsigned probes_;
    std::vector<std::uint64_t> words_;
};

} // namespace prereg::detail
