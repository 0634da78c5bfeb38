#include "platform/simd.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

using VoAlgo::simd::F8;
using VoAlgo::simd::Lanes;
using VoAlgo::simd::ScalarF8;

constexpr float Infinity = std::numeric_limits<float>::infinity();
constexpr float NaN = std::numeric_limits<float>::quiet_NaN();

// Any bit pattern, ordinary numbers, and values that break kernels.
float AnyFloat(std::mt19937& engine)
{
    using Limits = std::numeric_limits<float>;
    static const float special[] = {
        0,       -0.0F,    0.5F,          1.5F,      2.5F,          -0.5F,         -1.5F,
        NaN,     NaN,      Infinity,      -Infinity, Limits::max(), Limits::min(), Limits::denorm_min(),
        0x1p31F, -0x1p31F, 0x1.fffffep30F};
    const auto kind = engine() % 4;
    if (kind == 0) return special[engine() % std::size(special)];
    if (kind == 1) return std::bit_cast<float>(static_cast<std::uint32_t>(engine()));
    return std::uniform_real_distribution<float>(-10.0F, 10.0F)(engine);
}

// The bits of a float. All NaNs count as equal: their payload is not specified.
std::uint32_t Bits(float x)
{
    return x != x ? 0x7FC00000U : std::bit_cast<std::uint32_t>(x);
}

// All operations of one pack on the same input, as bits.
template <class Pack>
std::vector<std::uint32_t> EveryOperation(const float* a, const float* b, unsigned mask)
{
    const Pack x = Pack::Load(a);
    const Pack y = Pack::Load(b);
    std::vector<std::uint32_t> bits;
    for (const Pack& r : {x + y, x - y, x * y, x / y, Pack::Max(x, y), Pack::Min(x, y), Pack::Abs(x), Pack::Sqrt(x),
                          Pack::Set(a[0]), Pack::ApproximateReciprocalSqrt(x), Pack::OneWhereGreater(x, y),
                          Pack::WithSignOf(x, y), Pack::FiniteOr(x, y), Pack::ZeroWhereNan(x)}) {
        float lanes[Lanes];
        r.Store(lanes);
        std::transform(lanes, lanes + Lanes, std::back_inserter(bits), Bits);
    }
    bits.insert(bits.end(), {Pack::MaskLess(x, y), Pack::MaskLessEqual(x, y), Bits(x.Sum()), Bits(x.SumOfPairs())});
    float compressed[Lanes] = {};
    Pack::Compress(x, mask, compressed);
    std::uint32_t numbers[Lanes] = {}, codes[Lanes], counts[3 * 11];
    Pack::CompressNumbers(100, mask, numbers);
    for (int i = 0; i < std::popcount(mask); ++i) bits.insert(bits.end(), {Bits(compressed[i]), numbers[i]});
    Pack::StoreCodes(x, y, y * x, 10, codes);
    Pack::template CountCodes<11>(codes, Lanes, counts);
    bits.insert(bits.end(), std::begin(codes), std::end(codes));
    bits.insert(bits.end(), std::begin(counts), std::end(counts));
    return bits;
}

// Catches differences between the register and the scalar pack in operand order, treatment of NaN, or order of sums.
TEST(Simd, PacksGiveTheBitsOfTheirPlainTwin)
{
    std::mt19937 engine(1);
    for (unsigned round = 0; round < 20000; ++round) {
        float a[Lanes], b[Lanes];
        for (std::size_t i = 0; i < Lanes; ++i) {
            a[i] = AnyFloat(engine);
            b[i] = engine() % 8 == 0 ? a[i] : AnyFloat(engine);
        }
        ASSERT_EQ(EveryOperation<F8>(a, b, round % 256), EveryOperation<ScalarF8>(a, b, round % 256)) << round;
    }
}

TEST(Simd, RoundsToNearestWithTiesToEven)
{
    const std::pair<float, int> rows[] = {{0.5F, 0},        {1.5F, 2},    {2.5F, 2},        {-0.5F, 0},
                                          {-1.5F, -2},      {10.49F, 10}, {NaN, INT32_MIN}, {Infinity, INT32_MIN},
                                          {3e9F, INT32_MIN}};
    for (const auto& [x, expected] : rows) EXPECT_EQ(VoAlgo::simd::RoundToInt(x), expected) << x;
}

TEST(Simd, ReciprocalsAreAsGoodAsPromised)
{
    std::mt19937 engine(2);
    std::uniform_real_distribution<float> exponent(-30.0F, 30.0F);
    for (int i = 0; i < 20000; ++i) {
        const float x = std::exp2(exponent(engine));
        const auto exact = static_cast<double>(x);
        EXPECT_NEAR(static_cast<double>(VoAlgo::simd::ApproximateReciprocal(x)) * exact, 1.0, 1.5 / 4096);
        EXPECT_NEAR(static_cast<double>(VoAlgo::simd::ApproximateReciprocalSqrt(x)) * std::sqrt(exact), 1.0,
                    1.5 / 4096);
    }
    EXPECT_EQ(VoAlgo::simd::ApproximateReciprocalSqrt(0.0F), Infinity);
}

// The check value of CRC-32C, with its usual inversions, is 0xE3069283 for "123456789" (RFC 3720, appendix B.4 and the
// catalogue of parametrised CRCs); the instruction must give what the bitwise twin does.
TEST(Simd, Crc32cIsTheCastagnoliOne)
{
    std::uint32_t crc = 0xFFFFFFFFU;
    for (const char c : std::string("123456789")) crc = VoAlgo::simd::Crc32cByte(crc, static_cast<std::uint8_t>(c));
    EXPECT_EQ(~crc, 0xE3069283U);
    std::mt19937_64 engine(3);
    for (int i = 0; i < 1000; ++i) {
        const auto start = static_cast<std::uint32_t>(engine());
        const std::uint64_t data = engine();
        const auto low = static_cast<std::uint32_t>(data);
        EXPECT_EQ(VoAlgo::simd::Crc32c(start, data), VoAlgo::simd::Crc32cScalar(start, data));
        EXPECT_EQ(VoAlgo::simd::Crc32c(start, low), VoAlgo::simd::Crc32cScalar(start, low));
    }
}

} // namespace
