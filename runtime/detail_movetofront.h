#pragma once

// The 256 byte values, most recently used first; initially in ascending order. Encode writes the position of each byte,
// Decode the byte at each position; both then move that byte to the front. Input and output may be the same. WordTable
// runs everywhere, VectorTable where the target has AVX2; both give the same bytes.

#include "platform/simd.h"
#include "runtime/detail_wordparallel.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace VoAlgo::RLE::detail {

/// Eight values to a word. All words before that of the moving byte shift by one byte; in its own word only the bytes
/// up to it do.
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
            for (; MarkZeroBytes(words_[word] ^ wanted) == 0; ++word) incoming = shiftWord(word, incoming);
            const std::uint64_t marks = MarkZeroBytes(words_[word] ^ wanted);
            shiftUpTo(word, incoming, marks ^ (marks - 1));
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
            for (std::size_t word = 0; word < last; ++word) incoming = shiftWord(word, incoming);
            shiftUpTo(last, incoming, ~std::uint64_t{0} >> (56U - shift));
        }
    }

private:
    static constexpr std::size_t Words = 256 / WordBytes;

    // One byte enters at the bottom, the highest one leaves.
    std::uint64_t shiftWord(std::size_t word, std::uint64_t incoming)
    {
        const std::uint64_t outgoing = words_[word] >> 56;
        words_[word] = words_[word] << 8 | incoming;
        return outgoing;
    }
    void shiftUpTo(std::size_t word, std::uint64_t incoming, std::uint64_t mask)
    {
        words_[word] = (words_[word] & ~mask) | ((words_[word] << 8 | incoming) & mask);
    }

    std::uint64_t words_[Words];
};

#if defined(VOALGO_SIMD_AVX2)

/// The first 32 values, which hold nearly all bytes of a text, in two registers: a step among them takes neither a
/// branch nor a memory access.
class VectorTable {
public:
    VectorTable()
    {
        for (std::size_t i = 0; i < sizeof(values_); ++i) values_[i] = static_cast<unsigned char>(i);
    }

    [[nodiscard]] unsigned char Front() const { return values_[0]; }

    void Encode(const unsigned char* in, std::size_t n, unsigned char* out)
    {
        __m128i low = load(values_);
        __m128i high = load(values_ + Half);
        for (std::size_t i = 0; i < n; ++i) {
            const __m128i wanted = _mm_set1_epi8(static_cast<char>(in[i]));
            const __m128i inLow = _mm_cmpeq_epi8(low, wanted);
            const __m128i inHigh = _mm_cmpeq_epi8(high, wanted);
            const unsigned match = static_cast<unsigned>(_mm_movemask_epi8(inLow)) |
                                   static_cast<unsigned>(_mm_movemask_epi8(inHigh)) << Half;
            if (match == 0) {
                store(low, high);
                const void* found = std::memchr(values_ + Near, in[i], sizeof(values_) - Near);
                out[i] = static_cast<unsigned char>(static_cast<const unsigned char*>(found) - values_);
                moveFar(out[i], low, high);
                continue;
            }
            const __m128i missing = _mm_cmpeq_epi64(inLow, _mm_setzero_si128()); // all ones in halves without a match
            const __m128i missingInLow = _mm_and_si128(missing, _mm_shuffle_epi32(missing, 0x4E));
            high = _mm_blendv_epi8(high, _mm_alignr_epi8(high, low, Half - 1),
                                   _mm_and_si128(missingInLow, upToMatch(inHigh)));
            low = _mm_blendv_epi8(low, _mm_alignr_epi8(low, wanted, Half - 1), upToMatch(inLow));
            out[i] = static_cast<unsigned char>(std::countr_zero(match));
        }
        store(low, high);
    }

    void Decode(const unsigned char* in, std::size_t n, unsigned char* out)
    {
        __m128i low = load(values_);
        __m128i high = load(values_ + Half);
        for (std::size_t i = 0; i < n; ++i) {
            const unsigned char position = in[i];
            if (position >= Near) {
                store(low, high);
                out[i] = values_[position];
                moveFar(position, low, high);
                continue;
            }
            const auto& step = MovesToFront.steps[position];
            const __m128i oldLow = low;
            low = _mm_or_si128(_mm_shuffle_epi8(oldLow, load(step[0])), _mm_shuffle_epi8(high, load(step[1])));
            high = _mm_or_si128(_mm_shuffle_epi8(oldLow, load(step[2])), _mm_shuffle_epi8(high, load(step[3])));
            out[i] = static_cast<unsigned char>(_mm_cvtsi128_si32(low));
        }
        store(low, high);
    }

private:
    static constexpr int Half = 16;
    static constexpr int Near = 32; // both halves

    // For each position the four shuffles that move it to the front: into the low half from low and from high, then
    // into the high half. 0x80 gives a zero.
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
    static const Moves MovesToFront;

    static __m128i load(const unsigned char* p) { return _mm_load_si128(reinterpret_cast<const __m128i*>(p)); }
    void store(__m128i low, __m128i high)
    {
        _mm_store_si128(reinterpret_cast<__m128i*>(values_), low);
        _mm_store_si128(reinterpret_cast<__m128i*>(values_ + Half), high);
    }

    // All bits up to and including the byte that is all ones; all bits when there is none. In 64 bits: x | (x − 1).
    static __m128i upToMatch(__m128i match)
    {
        const __m128i ones = _mm_set1_epi64x(-1);
        const __m128i missing = _mm_cmpeq_epi64(match, _mm_setzero_si128());
        return _mm_and_si128(_mm_or_si128(match, _mm_add_epi64(match, ones)), _mm_unpacklo_epi64(ones, missing));
    }

    void moveFar(unsigned char position, __m128i& low, __m128i& high)
    {
        const unsigned char value = values_[position];
        std::memmove(values_ + 1, values_, position);
        values_[0] = value;
        low = load(values_);
        high = load(values_ + Half);
    }

    alignas(16) unsigned char values_[256];
};

inline constexpr VectorTable::Moves VectorTable::MovesToFront;

using MoveToFrontTable = VectorTable;
#else
using MoveToFrontTable = WordTable;
#endif

} // namespace VoAlgo::RLE::detail
