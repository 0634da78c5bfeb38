#include "VoAlgorithms/runtime/rle.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::size_t Size = std::size_t{64} << 20;

// A label image: runs of 100 to 300 bytes of four labels.
const Bytes& Mask()
{
    static const Bytes mask = [] {
        std::mt19937 engine(1);
        std::uniform_int_distribution<std::size_t> length(100, 300);
        Bytes bytes;
        while (bytes.size() < Size) bytes.insert(bytes.end(), length(engine), static_cast<unsigned char>(engine() % 4));
        bytes.resize(Size);
        return bytes;
    }();
    return mask;
}

const Bytes& Noise()
{
    static const Bytes noise = [] {
        std::mt19937 engine(2);
        Bytes bytes(Size);
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<unsigned char>(engine() >> 24); });
        return bytes;
    }();
    return noise;
}

// Independent letters with the frequencies of English prose (blanks included), in two cases: entropy 4.2 bits.
const Bytes& Text()
{
    static const Bytes text = [] {
        const std::string symbols = " etaoinshrdlcumwfgypbvkxjqzETAOINS.,\n";
        std::mt19937 engine(3);
        std::discrete_distribution<std::size_t> symbol(
            {1830, 1027, 751, 653, 616, 571, 571, 532, 503, 499, 328, 332, 223, 228, 203, 170, 142, 198, 166,
             143,  126,  80,  56,  10,  9,   8,   5,   20,  20,  20,  15,  15,  15,  15,  90,  100, 20});
        Bytes bytes(Size);
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<unsigned char>(symbols[symbol(engine)]); });
        return bytes;
    }();
    return text;
}

// Figures are per decoded byte in both directions.
void CountBytes(benchmark::State& state)
{
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(Size));
}

void BM_Memcpy(benchmark::State& state)
{
    const Bytes& in = Noise();
    Bytes out(Size);
    for (auto _ : state) {
        std::memcpy(out.data(), in.data(), Size);
        benchmark::ClobberMemory();
    }
    CountBytes(state);
}

using Encode = std::size_t (*)(const void*, unsigned char*, std::size_t);
using Decode = std::size_t (*)(const unsigned char*, void*, std::size_t) noexcept;

std::size_t CompressAutomatic(const void* in, unsigned char* out, std::size_t n)
{
    return VoAlgo::RLE::Compress(in, out, n, -1);
}
std::size_t ToFront(const void* in, unsigned char* out, std::size_t n)
{
    return VoAlgo::RLE::MoveToFront(in, out, n) == nullptr ? 0 : n;
}
std::size_t FromFront(const unsigned char* in, void* out, std::size_t n) noexcept
{
    return VoAlgo::RLE::InverseMoveToFront(in, out, n) == nullptr ? 0 : n;
}

void BM_Encode(benchmark::State& state, Encode encode, const Bytes& (*input)())
{
    const Bytes& in = input();
    Bytes out(1 + 2 * Size);
    std::size_t size = 0;
    for (auto _ : state) benchmark::DoNotOptimize(size = encode(in.data(), out.data(), Size));
    CountBytes(state);
    state.counters["share"] = static_cast<double>(size) / static_cast<double>(Size);
}

void BM_Decode(benchmark::State& state, Encode encode, Decode decode, const Bytes& (*input)())
{
    Bytes stream(1 + 2 * Size);
    stream.resize(encode(input().data(), stream.data(), Size));
    Bytes out(Size);
    for (auto _ : state) benchmark::DoNotOptimize(decode(stream.data(), out.data(), stream.size()));
    CountBytes(state);
    if (out != input()) state.SkipWithError("decoded bytes differ");
}

BENCHMARK(BM_Memcpy);
BENCHMARK_CAPTURE(BM_Encode, mask, CompressAutomatic, Mask);
BENCHMARK_CAPTURE(BM_Decode, mask, CompressAutomatic, VoAlgo::RLE::Uncompress, Mask);
BENCHMARK_CAPTURE(BM_Encode, noise, CompressAutomatic, Noise);
BENCHMARK_CAPTURE(BM_Decode, noise, CompressAutomatic, VoAlgo::RLE::Uncompress, Noise);
BENCHMARK_CAPTURE(BM_Encode, text, CompressAutomatic, Text);
BENCHMARK_CAPTURE(BM_Decode, text, CompressAutomatic, VoAlgo::RLE::Uncompress, Text);
BENCHMARK_CAPTURE(BM_Encode, mask_front, VoAlgo::RLE::CompressWithMTF, Mask);
BENCHMARK_CAPTURE(BM_Decode, mask_front, VoAlgo::RLE::CompressWithMTF, VoAlgo::RLE::UncompressWithMTF, Mask);
BENCHMARK_CAPTURE(BM_Encode, text_front, VoAlgo::RLE::CompressWithMTF, Text);
BENCHMARK_CAPTURE(BM_Decode, text_front, VoAlgo::RLE::CompressWithMTF, VoAlgo::RLE::UncompressWithMTF, Text);
BENCHMARK_CAPTURE(BM_Encode, text_transform_only, ToFront, Text);
BENCHMARK_CAPTURE(BM_Decode, text_transform_only, ToFront, FromFront, Text);
BENCHMARK_CAPTURE(BM_Encode, noise_transform_only, ToFront, Noise);
BENCHMARK_CAPTURE(BM_Decode, noise_transform_only, ToFront, FromFront, Noise);

} // namespace
