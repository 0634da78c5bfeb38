#pragma once

// The 256 byte values in the order of their last use, the last one first; at the start in ascending order. Encode
// writes for each byte the position it has, Decode for each position the byte there; both then move it to the front.
// Input and output may be the same. WordTable runs everywhere, the other one where the processor can; both give the
// same bytes.

#include "platform/simd.h"
#include "runtime/detail_wordparallel.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace VoAlgo::RLE::detail {

/// Eight values to a word: those before the word of the one that moves shift by one byte, and in its word the bytes up
/// to it.
class WordTable {
public:
    WordTable()
    {
        for (std::size_t word = 0; word < Words; ++word)
            words_[word] = 0x0706050403020100U + word * Broadcast(WordBytes);
    }

    [[nodiscard]] unsigned char Front() const { return static_cast<unsigned char>(words_[0]); }

    void Encode(const unsigned char* in, std::size_t n, unsigned char* out)
    {
        for (std::size_t i = 0; i < n; ++i) {
            const std::uint64_t wanted = Broadcast(in[i]);
            std::uint64_t incoming = in[i];
            std::size_t word = 0;
            for (; MarkZeroBytes(words_[word] ^ wanted) == 0; ++word) incoming = Shift(word, incoming);
            const std::uint64_t marks = MarkZeroBytes(words_[word] ^ wanted);
            ShiftUpTo(word, incoming, marks ^ (marks - 1));
            out[i] = static_cast<unsigned char>(WordBytes * word + LowestByte(marks));
        }
    }

    void Decode(const unsigned char* in, std::size_t n, unsigned char* out)
    {
        for (std::size_t i = 0; i < n; ++i) {
            const std::size_t last = in[i] / WordBytes;
            const unsigned shift = 8U * (in[i] % WordBytes);
            out[i] = static_cast<unsigned char>(words_[last] >> shift);
            std::uint64_t incoming = out[i];
            for (std::size_t word = 0; word < last; ++word) incoming = Shift(word, incoming);
            ShiftUpTo(last, incoming, ~std::uint64_t{0} >> (56U - shift));
        }
    }

private:
    static constexpr std::size_t Words = 256 / WordBytes;

    // One byte comes in from below, the highest one goes out.
    std::uint64_t Shift(std::size_t word, std::uint64_t incoming)
    {
        const std::uint64_t outgoing = words_[word] >> 56;
        words_[word] = words_[word] << 8 | incoming;
        return outgoing;
    }
    void ShiftUpTo(std::size_t word, std::uint64_t incoming, std::uint64_t mask)
    {
        words_[word] = (words_[word] & ~mask) | ((words_[word] << 8 | incoming) & mask);
    }

    std::uint64_t words_[Words];
};

#if defined(VOALGO_SIMD_AVX2)

/// The first 32 values in two registers, where nearly all of a text's are found; a step there has no branch and no trip
/// through memory.
class VectorTable {
public:
    VectorTable()
    {
        for (std::size_t i = 0; i < sizeof(values_); ++i) values_[i] = static_cast<unsigned char>(i);
    }

    [[nodiscard]] unsigned char Front() const { return values_[0]; }

    void Encode(const unsigned char* in, std::size_t n, unsigned char* out)
    {
        __m128i low = Load(values_);
        __m128i high = Load(values_ + Half);
        for (std::size_t i = 0; i < n; ++i) {
            const __m128i wanted = _mm_set1_epi8(static_cast<char>(in[i]));
            const __m128i inLow = _mm_cmpeq_epi8(low, wanted);
            const __m128i inHigh = _mm_cmpeq_epi8(high, wanted);
            const unsigned match = static_cast<unsigned>(_mm_movemask_epi8(inLow)) |
                                   static_cast<unsigned>(_mm_movemask_epi8(inHigh)) << Half;
            if (match == 0) {
                Store(low, high);
                const void* found = std::memchr(values_ + Near, in[i], sizeof(values_) - Near);
                out[i] = static_cast<unsigned char>(static_cast<const unsigned char*>(found) - values_);
                MoveFar(out[i], low, high);
                continue;
            }
            const __m128i missing = _mm_cmpeq_epi64(inLow, _mm_setzero_si128()); // all ones in halves without a match
            const __m128i missingInLow = _mm_and_si128(missing, _mm_shuffle_epi32(missing, 0x4E));
            high = _mm_blendv_epi8(high, _mm_alignr_epi8(high, low, Half - 1),
                                   _mm_and_si128(missingInLow, UpToMatch(inHigh)));
            low = _mm_blendv_epi8(low, _mm_alignr_epi8(low, wanted, Half - 1), UpToMatch(inLow));
            out[i] = static_cast<unsigned char>(std::countr_zero(match));
        }
        Store(low, high);
    }

    void Decode(const unsigned char* in, std::size_t n, unsigned char* out)
    {
        __m128i low = Load(values_);
        __m128i high = Load(values_ + Half);
        for (std::size_t i = 0; i < n; ++i) {
            const unsigned char position = in[i];
            if (position >= Near) {
                Store(low, high);
                out[i] = values_[position];
                MoveFar(position, low, high);
                continue;
            }
            const auto& step = moves.steps[position];
            const __m128i oldLow = low;
            low = _mm_or_si128(_mm_shuffle_epi8(oldLow, Load(step[0])), _mm_shuffle_epi8(high, Load(step[1])));
            high = _mm_or_si128(_mm_shuffle_epi8(oldLow, Load(step[2])), _mm_shuffle_epi8(high, Load(step[3])));
            out[i] = static_cast<unsigned char>(_mm_cvtsi128_si32(low));
        }
        Store(low, high);
    }

private:
    static constexpr int Half = 16;
    static constexpr int Near = 32; // both halves

    // For each position the shuffles that move it to the front: of what comes to the low half from low and from high,
    // and of what comes to the high half. 0x80 gives a zero.
    struct Moves {
        alignas(16) unsigned char steps[Near][4][Half];

        constexpr Moves() : steps()
        {
            for (int position = 0; position < Near; ++position)
                for (int to = 0; to < Near; ++to) {
                    const int from = to == 0 ? position : to <= position ? to - 1 : to;
                    for (int half = 0; half < 2; ++half)
                        steps[position][to / Half * 2 + half][to % Half] =
                            static_cast<unsigned char>(from / Half == half ? from % Half : 0x80);
                }
        }
    };
    static const Moves moves;

    static __m128i Load(const unsigned char* p) { return _mm_load_si128(reinterpret_cast<const __m128i*>(p)); }
    void Store(__m128i low, __m128i high)
    {
        _mm_store_si128(reinterpret_cast<__m128i*>(values_), low);
        _mm_store_si128(reinterpret_cast<__m128i*>(values_ + Half), high);
    }

    // All bits up to the byte that is all ones, and every bit when there is none. In 64 bits: x | (x − 1).
    static __m128i UpToMatch(__m128i match)
    {
        const __m128i ones = _mm_set1_epi64x(-1);
        const __m128i missing = _mm_cmpeq_epi64(match, _mm_setzero_si128());
        return _mm_and_si128(_mm_or_si128(match, _mm_add_epi64(match, ones)), _mm_unpacklo_epi64(ones, missing));
    }

    void MoveFar(unsigned char position, __m128i& low, __m128i& high)
    {
        const unsigned char value = values_[position];
        std::memmove(values_ + 1, values_, position);
        values_[0] = value;
        low = Load(values_);
        high = Load(values_ + Half);
    }

    alignas(16) unsigned char values_[256];
};

inline constexpr VectorTable::Moves VectorTable::moves;

using MoveToFrontTable = VectorTable;
#else
using MoveToFrontTable = WordTable;
#endif

} // namespace VoAlgo::RLE::detail
