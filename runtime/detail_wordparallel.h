#pragma once

// Eight bytes at a time in plain 64-bit words: the same code on every processor.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace VoAlgo::RLE::detail {

static_assert(std::endian::native == std::endian::little, "byte i in memory must be bits 8·i of a word");

constexpr std::size_t WordBytes = sizeof(std::uint64_t);

inline std::uint64_t LoadWord(const unsigned char* bytes)
{
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

/// The byte repeated eight times.
constexpr std::uint64_t Broadcast(unsigned char byte)
{
    return byte * 0x0101010101010101U;
}

/// A word whose lowest set bit is the highest bit of the lowest zero byte; 0 when there is no zero byte. (Bytes above
/// it may be marked wrongly: the subtraction borrows.)
constexpr std::uint64_t MarkZeroBytes(std::uint64_t word)
{
    return (word - Broadcast(1)) & ~word & Broadcast(0x80);
}

/// Index of the lowest byte that is not 0; the word is not 0.
constexpr std::size_t LowestByte(std::uint64_t word)
{
    return static_cast<std::size_t>(std::countr_zero(word)) / 8;
}

/// Length of the run of equal bytes that starts at `in`; in < end.
inline std::size_t RunLength(const unsigned char* in, const unsigned char* end)
{
    constexpr std::size_t Block = 4 * WordBytes;
    const std::uint64_t value = Broadcast(*in);
    const auto difference = [value](const unsigned char* p) { return LoadWord(p) ^ value; };
    const auto left = [end](const unsigned char* p) { return static_cast<std::size_t>(end - p); };

    const unsigned char* p = in;
    while (left(p) >= Block && (difference(p) | difference(p + WordBytes) | difference(p + 2 * WordBytes) |
                                difference(p + 3 * WordBytes)) == 0)
        p += Block;
    for (; left(p) >= WordBytes; p += WordBytes)
        if (const std::uint64_t other = difference(p); other != 0)
            return static_cast<std::size_t>(p - in) + LowestByte(other);
    while (p != end && *p == *in) ++p;
    return static_cast<std::size_t>(p - in);
}

/// The first place in [in, end) where four equal bytes begin or `mark` marks a byte; end when there is none. mark: maps
/// a word to marked bytes, as MarkZeroBytes does.
template <class Mark>
const unsigned char* FindRun(const unsigned char* in, const unsigned char* end, Mark mark)
{
    for (; static_cast<std::size_t>(end - in) >= WordBytes + 3; in += WordBytes) {
        const std::uint64_t first = LoadWord(in);
        const std::uint64_t second = LoadWord(in + 1);
        const std::uint64_t third = LoadWord(in + 2);
        const std::uint64_t differences = (first ^ second) | (second ^ third) | (third ^ LoadWord(in + 3));
        const std::uint64_t marks = MarkZeroBytes(differences) | mark(first);
        if (marks != 0) return in + LowestByte(marks);
    }
    for (; in != end; ++in) {
        if ((mark(Broadcast(*in)) != 0) || (end - in > 3 && in[0] == in[1] && in[0] == in[2] && in[0] == in[3])) break;
    }
    return in;
}

inline const unsigned char* FindRun(const unsigned char* in, const unsigned char* end)
{
    return FindRun(in, end, [](std::uint64_t) { return std::uint64_t{0}; });
}

inline const unsigned char* FindRunOrByte(const unsigned char* in, const unsigned char* end, unsigned char byte)
{
    return FindRun(in, end, [byte](std::uint64_t word) { return MarkZeroBytes(word ^ Broadcast(byte)); });
}

} // namespace VoAlgo::RLE::detail
