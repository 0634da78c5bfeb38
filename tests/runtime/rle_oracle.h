#pragma once

// The run-length format read and written one byte at a time, and comparisons of the library with it. Used by the unit
// tests and by the fuzz target.

#include "VoAlgorithms/runtime/rle.h"

#include <algorithm>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <vector>

namespace rle_test {

using namespace VoAlgo::RLE;
using Bytes = std::vector<unsigned char>;

inline Bytes AllValues()
{
    Bytes values(256);
    std::iota(values.begin(), values.end(), static_cast<unsigned char>(0));
    return values;
}

/// Move-to-front positions of bytes, or the bytes at such positions.
inline Bytes PlainMoveToFront(const Bytes& in, bool inverse)
{
    Bytes table = AllValues(), out;
    for (const unsigned char b : in) {
        const auto at = inverse ? table.begin() + b : std::find(table.begin(), table.end(), b);
        out.push_back(inverse ? *at : static_cast<unsigned char>(at - table.begin()));
        std::rotate(table.begin(), at, at + 1);
    }
    return out;
}

inline Bytes PlainTokens(const Bytes& bytes, unsigned char escape)
{
    Bytes out;
    for (std::size_t i = 0, length = 0; i < bytes.size(); i += length) {
        const unsigned char v = bytes[i];
        for (length = 1; i + length < bytes.size() && bytes[i + length] == v && length < 32768;) ++length;
        const auto low = static_cast<unsigned char>(length - 1);
        const auto high = static_cast<unsigned char>(0x80U | (length - 1) >> 8);
        if (length > 128)
            out.insert(out.end(), {escape, high, low, v});
        else if (length > 3)
            out.insert(out.end(), {escape, low, v});
        else if (v == escape)
            out.insert(out.end(), {escape, low});
        else
            out.insert(out.end(), length, v);
    }
    return out;
}

struct PlainDecoded {
    Bytes bytes;
    EDecoded end = EDecoded::Whole;
};

/// The bytes of a stream, or with `front` its positions, up to a capacity.
inline PlainDecoded PlainRead(const Bytes& stream, bool front, std::size_t capacity)
{
    PlainDecoded result;
    for (std::size_t i = front ? 0 : 1; i < stream.size();) {
        const unsigned char escape = front ? 255 : stream[0];
        const auto next = [&] { return i < stream.size() ? stream[i++] : (++i, 0); };
        std::size_t length = 1;
        auto v = static_cast<unsigned char>(next());
        if (v == escape) {
            const auto c = static_cast<std::size_t>(next());
            length = c < 128 ? c + 1 : (c - 128) * 256 + static_cast<std::size_t>(next()) + 1;
            if (c > 2) v = static_cast<unsigned char>(next());
        }
        result.end = i > stream.size()                         ? EDecoded::CutShort
                     : result.bytes.size() + length > capacity ? EDecoded::TooLarge
                                                               : EDecoded::Whole;
        if (result.end != EDecoded::Whole) break;
        result.bytes.insert(result.bytes.end(), length, v);
    }
    return result;
}

/// The output of a function. Both buffers have the exact size, so that the address sanitizer notices one byte too many.
template <class Function>
Bytes Output(const Bytes& in, std::size_t capacity, Function function)
{
    const std::unique_ptr<unsigned char[]> input(new unsigned char[in.size()]);
    std::copy(in.begin(), in.end(), input.get());
    const std::unique_ptr<unsigned char[]> output(new unsigned char[capacity]);
    const std::size_t size = function(input.get(), output.get(), in.size());
    if (size > capacity) throw std::length_error("more output than room");
    return {output.get(), output.get() + size};
}

inline Bytes Compressed(const Bytes& bytes, int escape, std::size_t capacity)
{
    return Output(bytes, capacity, [escape](auto in, auto out, auto n) { return Compress(in, out, n, escape); });
}

/// Whether both forms of a decoder agree with the oracle: with exactly enough room, one byte less, half of it, none.
/// Of streams that decode to more than `limit` bytes, only the tokens that fit are decoded.
inline bool DecodesAsOracle(const Bytes& stream, bool front, std::size_t limit = SIZE_MAX)
{
    const PlainDecoded read = PlainRead(stream, front, limit);
    const Bytes all = front ? PlainMoveToFront(read.bytes, true) : read.bytes;
    if (read.end != EDecoded::TooLarge && Output(stream, all.size(), front ? UncompressWithMTF : Uncompress) != all)
        return false;
    for (const std::size_t less : {std::size_t{0}, std::size_t{1}, all.size() / 2, all.size()}) {
        const std::size_t capacity = all.size() - std::min(all.size(), less);
        const PlainDecoded part = PlainRead(stream, front, capacity);
        DecodeResult result{};
        const Bytes bytes = Output(stream, capacity, [&](auto in, auto out, auto n) {
            result = (front ? UncompressWithMTFChecked : UncompressChecked)(in, out, n, capacity);
            return result.size;
        });
        if (result.end != part.end || bytes.size() != part.bytes.size() ||
            !std::equal(bytes.begin(), bytes.end(), all.begin()))
            return false;
    }
    return true;
}

/// Whether all coders agree with the oracle, and their streams decode to the bytes.
inline bool CodesAsOracle(const Bytes& bytes, int escape)
{
    Bytes plain = PlainTokens(bytes, static_cast<unsigned char>(escape));
    if (!bytes.empty()) plain.insert(plain.begin(), static_cast<unsigned char>(escape));
    const Bytes positions = PlainMoveToFront(bytes, false), front = PlainTokens(positions, 255);
    const auto allOf = [](auto transform) { // they return the output, or null when there is nothing to do
        return [transform](auto in, auto out, auto n) { return transform(in, out, n) == out ? n : std::size_t{0}; };
    };
    return Compressed(bytes, escape, plain.size()) == plain && DecodesAsOracle(plain, false) &&
           PlainRead(plain, false, SIZE_MAX).bytes == bytes &&
           Output(bytes, bytes.size(), allOf(MoveToFront)) == positions &&
           Output(positions, bytes.size(), allOf(InverseMoveToFront)) == bytes &&
           Output(bytes, front.size(), CompressWithMTF) == front && DecodesAsOracle(front, true) &&
           PlainRead(front, true, SIZE_MAX).bytes == positions;
}

} // namespace rle_test
