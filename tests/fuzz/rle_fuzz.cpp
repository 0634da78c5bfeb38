// Any bytes as a stream: the decoders do not read beyond them and write as many bytes as a walk over the tokens counts;
// the checked forms never exceed their room and report when it is too small. Any bytes as data: the output of the
// coders fits the documented room and decodes to the same bytes. The address sanitizer watches blocks of exact size.

#include "VoAlgorithms/runtime/rle.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

using namespace VoAlgo::RLE;

// Keeps inputs cheap: few are decoded to the length of the longest runs.
std::size_t MaxDecoded(std::size_t choice)
{
    return choice % 16 == 0 ? 65536 : 2048;
}

void Require(bool holds)
{
    if (!holds) std::abort();
}

struct Block {
    explicit Block(std::size_t n) : size(n), bytes(new unsigned char[n]) {}
    Block(const std::uint8_t* data, std::size_t n) : Block(n)
    {
        if (n != 0) std::memcpy(bytes.get(), data, n);
    }
    [[nodiscard]] bool Equals(const unsigned char* other, std::size_t n) const
    {
        return n == size && (n == 0 || std::memcmp(bytes.get(), other, n) == 0);
    }

    std::size_t size;
    std::unique_ptr<unsigned char[]> bytes;
};

struct Lengths {
    std::size_t decoded = 0;
    bool cutShort = false;
};

Lengths Walk(const unsigned char* tokens, std::size_t n, unsigned char escape)
{
    Lengths result;
    for (std::size_t i = 0; i < n;) {
        std::size_t length = 1;
        std::size_t bytes = 1;
        if (tokens[i] == escape) {
            const std::size_t c = i + 1 < n ? tokens[i + 1] : 0;
            bytes = c < 3 ? 2 : c < 128 ? 3 : 4;
            result.cutShort = bytes > n - i;
            if (result.cutShort) break;
            length = c < 128 ? c + 1 : (c - 128) * 256 + tokens[i + 2] + 1;
        }
        result.decoded += length;
        i += bytes;
    }
    return result;
}

using Decode = std::size_t (*)(const unsigned char*, void*, std::size_t) noexcept;
using DecodeChecked = DecodeResult (*)(const unsigned char*, void*, std::size_t, std::size_t) noexcept;

void TryDecoders(const Block& stream, const Lengths& lengths, Decode decode, DecodeChecked decodeChecked,
                 std::size_t smallRoom)
{
    const EDecoded end = lengths.cutShort ? EDecoded::CutShort : EDecoded::Whole;
    const Block small(smallRoom);
    const DecodeResult part = decodeChecked(stream.bytes.get(), small.bytes.get(), stream.size, small.size);
    Require(part.size <= small.size);
    Require(part.end == (lengths.decoded > small.size ? EDecoded::TooLarge : end));
    if (lengths.decoded > MaxDecoded(smallRoom)) return;

    const Block exact(lengths.decoded);
    Require(decode(stream.bytes.get(), exact.bytes.get(), stream.size) == exact.size);
    const Block checked(lengths.decoded);
    const DecodeResult whole = decodeChecked(stream.bytes.get(), checked.bytes.get(), stream.size, checked.size);
    Require(whole.end == end && exact.Equals(checked.bytes.get(), whole.size));
    if (part.size != 0) Require(std::memcmp(small.bytes.get(), exact.bytes.get(), part.size) == 0);
}

void TryRoundTrip(const Block& data, const Block& coded, Decode decode)
{
    const Block decoded(data.size);
    const std::size_t size = decode(coded.bytes.get(), decoded.bytes.get(), coded.size);
    Require(data.Equals(decoded.bytes.get(), size));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t n)
{
    const Block bytes(data, n);
    const unsigned char* in = bytes.bytes.get();
    const unsigned char choice = n == 0 ? 0 : in[n - 1];
    TryDecoders(bytes, n == 0 ? Lengths() : Walk(in + 1, n - 1, *in), Uncompress, UncompressChecked, choice);
    TryDecoders(bytes, Walk(in, n, 255), UncompressWithMTF, UncompressWithMTFChecked, choice);

    const Block room(1 + 2 * n);
    const std::size_t plain = Compress(in, room.bytes.get(), n, choice % 4 == 0 ? -1 : choice);
    TryRoundTrip(bytes, Block(room.bytes.get(), plain), Uncompress);

    const Block frontRoom(2 * n);
    const std::size_t front = CompressWithMTF(in, frontRoom.bytes.get(), n);
    TryRoundTrip(bytes, Block(frontRoom.bytes.get(), front), UncompressWithMTF);

    const Block positions(n);
    const Block back(n);
    if (n == 0) return 0;
    Require(MoveToFront(in, positions.bytes.get(), n) == positions.bytes.get());
    Require(InverseMoveToFront(positions.bytes.get(), back.bytes.get(), n) == back.bytes.get());
    Require(bytes.Equals(back.bytes.get(), n));
    return 0;
}
