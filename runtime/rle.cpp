#include "VoAlgorithms/runtime/rle.h"

#include "runtime/detail_movetofront.h"
#include "runtime/detail_wordparallel.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace VoAlgo::RLE {
namespace {

using detail::MoveToFrontTable;

constexpr std::size_t MaxLiteralRun = 3; // longer ones become a token
constexpr std::size_t MaxShortRun = 128; // longer ones take two bytes for their length
constexpr std::size_t MaxRun = 32768;
constexpr std::size_t SampleSize = 2048;
constexpr unsigned char MTFEscape = 255;
constexpr std::size_t NoLimit = std::numeric_limits<std::size_t>::max();

// The rarest byte value, the smallest of equally rare ones. Deliberate: the sample has a fixed size and fixed places,
// so that the cost does not grow with the input and the choice is repeatable.
unsigned char ChooseEscape(const unsigned char* in, std::size_t n)
{
    unsigned counts[256] = {};
    if (n < SampleSize) {
        for (std::size_t i = 0; i < n; ++i) ++counts[in[i]];
    } else {
        std::uint64_t x = 0x2d223098efbea600U;
        for (std::size_t i = 0; i < SampleSize; i += 2) {
            ++counts[in[x % n]];
            ++counts[in[x * 48271U % n]];
            x *= 0x8ae257e1U;
        }
    }
    return static_cast<unsigned char>(std::min_element(counts, counts + 256) - counts);
}

// 1 ≤ length ≤ MaxRun. Returns the end of its output, as all writers here do.
unsigned char* WriteRun(unsigned char* out, unsigned char value, std::size_t length, unsigned char escape)
{
    if (length > MaxLiteralRun) {
        *out++ = escape;
        if (length > MaxShortRun) *out++ = static_cast<unsigned char>((length - 1) >> 8 | 0x80U);
        *out++ = static_cast<unsigned char>(length - 1);
        *out++ = value;
    } else if (value == escape) {
        *out++ = escape;
        *out++ = static_cast<unsigned char>(length - 1);
    } else {
        for (; length != 0; --length) *out++ = value;
    }
    return out;
}

// Codes [in, end): literals up to the next byte that needs a token, then the run that starts there.
unsigned char* WriteTokens(const unsigned char* in, const unsigned char* end, unsigned char* out, unsigned char escape)
{
    while (in != end) {
        const unsigned char* run = detail::FindRunOrByte(in, end, escape);
        if (run != in) {
            const auto literals = static_cast<std::size_t>(run - in);
            std::memcpy(out, in, literals);
            out += literals;
            if (run == end) break;
        }
        const std::size_t length = detail::RunLength(run, run + std::min<std::ptrdiff_t>(end - run, MaxRun));
        out = WriteRun(out, *run, length, escape);
        in = run + length;
    }
    return out;
}

// Writes the table positions of [in, end). All bytes of a run but the first are at the front.
void WritePositions(const unsigned char* in, const unsigned char* end, unsigned char* out, MoveToFrontTable& table)
{
    while (true) {
        const unsigned char* run = detail::FindRun(in, end);
        table.Encode(in, static_cast<std::size_t>(run - in), out);
        out += run - in;
        if (run == end) return;
        const std::size_t length = detail::RunLength(run, end);
        table.Encode(run, 1, out);
        std::memset(out + 1, 0, length - 1);
        out += length;
        in = run + length;
    }
}

// Writes the tokens of positions that arrive in pieces. The last run is held back, since the next piece may extend it.
class PositionWriter {
public:
    explicit PositionWriter(unsigned char* out) : out_(out) {}

    void Add(const unsigned char* piece, const unsigned char* end)
    {
        const std::size_t first = detail::RunLength(piece, end);
        if (*piece != value_) Finish();
        holdBack(*piece, heldBack_ + first);
        piece += first;
        if (piece == end) return;

        Finish();
        const unsigned char* last = end - 1;
        while (last != piece && last[-1] == *last) --last;
        out_ = WriteTokens(piece, last, out_, MTFEscape);
        holdBack(*last, static_cast<std::size_t>(end - last));
    }
    unsigned char* Finish()
    {
        if (heldBack_ != 0) out_ = WriteRun(out_, value_, heldBack_, MTFEscape);
        heldBack_ = 0;
        return out_;
    }

private:
    void holdBack(unsigned char value, std::size_t length)
    {
        for (; length > MaxRun; length -= MaxRun) out_ = WriteRun(out_, value, MaxRun, MTFEscape);
        value_ = value;
        heldBack_ = length;
    }

    unsigned char* out_;
    unsigned char value_ = 0;
    std::size_t heldBack_ = 0;
};

// The two decoders: each writes the n bytes that literals or a run stand for.
struct PlainBytes {
    static void Literals(const unsigned char* in, std::size_t n, unsigned char* out) { std::memcpy(out, in, n); }
    static void Run(unsigned char value, std::size_t n, unsigned char* out) { std::memset(out, value, n); }
};

struct Positions {
    MoveToFrontTable table;

    void Literals(const unsigned char* in, std::size_t n, unsigned char* out) { table.Decode(in, n, out); }
    void Run(unsigned char position, std::size_t n, unsigned char* out)
    {
        std::memset(out, position == 0 ? table.Front() : position, n);
        if (position != 0) table.Decode(out, n, out);
    }
};

// A token that begins with the escape.
struct RunToken {
    std::size_t bytes; // of the stream; 0 when the token is cut short
    std::size_t length;
    unsigned char value;
};

RunToken ReadRunToken(const unsigned char* in, std::size_t n)
{
    if (n < 2) return {};
    const unsigned char c = in[1];
    if (c < MaxLiteralRun) return {2, c + std::size_t{1}, in[0]};
    if (c < MaxShortRun) return n < 3 ? RunToken{} : RunToken{3, c + std::size_t{1}, in[2]};
    return n < 4 ? RunToken{} : RunToken{4, (c & 0x7FU) * std::size_t{256} + in[2] + 1, in[3]};
}

template <class Decoder>
DecodeResult ReadTokens(const unsigned char* in, const unsigned char* end, unsigned char* out, std::size_t capacity,
                        unsigned char escape, Decoder decoder)
{
    std::size_t size = 0;
    while (in != end) {
        const auto left = static_cast<std::size_t>(end - in);
        const std::size_t room = capacity - size;
        if (*in == escape) {
            const RunToken run = ReadRunToken(in, left);
            if (run.bytes == 0) return {size, EDecoded::CutShort};
            if (run.length > room) return {size, EDecoded::TooLarge};
            decoder.Run(run.value, run.length, out + size);
            size += run.length;
            in += run.bytes;
        } else {
            const void* next = std::memchr(in, escape, left);
            const std::size_t literals =
                next == nullptr ? left : static_cast<std::size_t>(static_cast<const unsigned char*>(next) - in);
            const std::size_t fitting = std::min(literals, room);
            if (fitting != 0) decoder.Literals(in, fitting, out + size);
            size += fitting;
            if (fitting != literals) return {size, EDecoded::TooLarge};
            in += literals;
        }
    }
    return {size, EDecoded::Whole};
}

} // namespace

std::size_t Compress(const void* in, unsigned char* out, std::size_t n, int escape)
{
    if (in == nullptr || out == nullptr || n == 0) return 0;
    if (escape < -1 || escape > 255) throw std::invalid_argument("invalid escape symbol");
    const auto* bytes = static_cast<const unsigned char*>(in);
    *out = escape == -1 ? ChooseEscape(bytes, n) : static_cast<unsigned char>(escape);
    return static_cast<std::size_t>(WriteTokens(bytes, bytes + n, out + 1, *out) - out);
}

std::size_t Uncompress(const unsigned char* in, void* out, std::size_t n) noexcept
{
    return UncompressChecked(in, out, n, NoLimit).size;
}

DecodeResult UncompressChecked(const unsigned char* in, void* out, std::size_t n, std::size_t capacity) noexcept
{
    if (in == nullptr || n == 0) return {0, EDecoded::Whole};
    return ReadTokens(in + 1, in + n, static_cast<unsigned char*>(out), out == nullptr ? 0 : capacity, *in,
                      PlainBytes());
}

std::size_t CompressWithMTF(const void* in, unsigned char* out, std::size_t n) noexcept
{
    if (in == nullptr || out == nullptr || n == 0) return 0;
    const auto* bytes = static_cast<const unsigned char*>(in);
    MoveToFrontTable table;
    PositionWriter writer(out);
    unsigned char positions[4096];
    for (std::size_t begin = 0; begin < n; begin += sizeof(positions)) {
        const std::size_t piece = std::min(n - begin, sizeof(positions));
        WritePositions(bytes + begin, bytes + begin + piece, positions, table);
        writer.Add(positions, positions + piece);
    }
    return static_cast<std::size_t>(writer.Finish() - out);
}

std::size_t UncompressWithMTF(const unsigned char* in, void* out, std::size_t n) noexcept
{
    return UncompressWithMTFChecked(in, out, n, NoLimit).size;
}

DecodeResult UncompressWithMTFChecked(const unsigned char* in, void* out, std::size_t n, std::size_t capacity) noexcept
{
    if (in == nullptr || n == 0) return {0, EDecoded::Whole};
    return ReadTokens(in, in + n, static_cast<unsigned char*>(out), out == nullptr ? 0 : capacity, MTFEscape,
                      Positions());
}

void* MoveToFront(const void* in, void* out, std::size_t n) noexcept
{
    if (in == nullptr || out == nullptr || n == 0) return nullptr;
    const auto* bytes = static_cast<const unsigned char*>(in);
    MoveToFrontTable table;
    WritePositions(bytes, bytes + n, static_cast<unsigned char*>(out), table);
    return out;
}

void* InverseMoveToFront(const void* in, void* out, std::size_t n) noexcept
{
    if (in == nullptr || out == nullptr || n == 0) return nullptr;
    MoveToFrontTable().Decode(static_cast<const unsigned char*>(in), n, static_cast<unsigned char*>(out));
    return out;
}

} // namespace VoAlgo::RLE
