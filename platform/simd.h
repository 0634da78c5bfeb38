#pragma once

// Eight-wide single precision. All intrinsics of the library live here, except those for four doubles (simd_double.h)
// and for the bytes of the move-to-front table (runtime/detail_movetofront.h). Kernels are templates over the pack
// type: the library runs them with F8, and tests compare that with ScalarF8. Every operation rounds like the plain
// float operation, so both give the same bits.

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

// Compilers announce instruction sets differently: MSVC defines __AVX2__ (with /arch:AVX2), but neither __SSE4_2__ nor
// __BMI2__. Every processor with AVX2 has both.
#if defined(__SSE2__) || defined(_M_X64)
#define VOALGO_SIMD_SSE2 1
#include <immintrin.h>
#endif
#if defined(__SSE4_2__) || defined(__AVX2__)
#define VOALGO_SIMD_SSE42 1
#endif
#if defined(__AVX2__)
#define VOALGO_SIMD_AVX2 1
#endif

namespace VoAlgo::simd {

inline constexpr std::size_t Lanes = 8;
inline constexpr std::size_t CodeBytes = 3;

/// The processor's approximate reciprocal square root (relative error below 1.5 · 2⁻¹²). Without SSE the exact value
/// cut to 12 bits of mantissa: same error bound, other bits.
inline float ApproximateReciprocalSqrt(float x)
{
#if defined(VOALGO_SIMD_SSE2)
    return _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(x)));
#else
    const auto bits = std::bit_cast<std::uint32_t>(1.0F / std::sqrt(x));
    return std::bit_cast<float>(bits & 0xFFFFF800U);
#endif
}

/// The processor's approximate reciprocal, with the same error bound and the same fallback.
inline float ApproximateReciprocal(float x)
{
#if defined(VOALGO_SIMD_SSE2)
    return _mm_cvtss_f32(_mm_rcp_ss(_mm_set_ss(x)));
#else
    const auto bits = std::bit_cast<std::uint32_t>(1.0F / x);
    return std::bit_cast<float>(bits & 0xFFFFF800U);
#endif
}

/// Updates a CRC-32C (Castagnoli, reflected polynomial 0x82F63B78) with one byte, bit by bit.
constexpr std::uint32_t Crc32cByte(std::uint32_t crc, std::uint8_t byte)
{
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1U) != 0 ? 0x82F63B78U : 0U);
    return crc;
}

/// Updates it with the bytes of an integer, low byte first, as the processor's crc32 instruction does.
template <class Integer>
std::uint32_t Crc32cScalar(std::uint32_t crc, Integer data)
{
    for (std::size_t byte = 0; byte < sizeof(Integer); ++byte)
        crc = Crc32cByte(crc, static_cast<std::uint8_t>(data >> (8 * byte)));
    return crc;
}

inline std::uint32_t Crc32c(std::uint32_t crc, std::uint64_t data)
{
#if defined(VOALGO_SIMD_SSE42)
    return static_cast<std::uint32_t>(_mm_crc32_u64(crc, data));
#else
    return Crc32cScalar(crc, data);
#endif
}

inline std::uint32_t Crc32c(std::uint32_t crc, std::uint32_t data)
{
#if defined(VOALGO_SIMD_SSE42)
    return _mm_crc32_u32(crc, data);
#else
    return Crc32cScalar(crc, data);
#endif
}

/// Sets to 1 each of eight bytes whose bit in the mask is set; leaves the others.
inline void SetBytes(unsigned mask, std::uint8_t* bytes)
{
#if defined(VOALGO_SIMD_AVX2)
    std::uint64_t all = 0;
    std::memcpy(&all, bytes, sizeof(all));
    all |= _pdep_u64(mask, 0x0101010101010101ULL);
    std::memcpy(bytes, &all, sizeof(all));
#else
    for (std::size_t i = 0; i < 8; ++i)
        if ((mask >> i & 1U) != 0) bytes[i] = 1;
#endif
}

/// Nearest integer, ties to even; the smallest int for NaN and values out of range.
inline int RoundToInt(float x)
{
#if defined(VOALGO_SIMD_SSE2)
    return _mm_cvtss_si32(_mm_set_ss(x));
#else
    return x >= -2147483648.0F && x < 2147483648.0F ? static_cast<int>(std::nearbyint(x)) : INT32_MIN;
#endif
}

/// The scalar twin of the eight-wide pack.
struct ScalarF8 {
    float v[Lanes];

    static ScalarF8 Load(const float* p)
    {
        ScalarF8 r;
        for (std::size_t i = 0; i < Lanes; ++i) r.v[i] = p[i];
        return r;
    }
    static ScalarF8 Set(float x)
    {
        ScalarF8 r;
        for (float& lane : r.v) lane = x;
        return r;
    }
    void Store(float* p) const
    {
        for (std::size_t i = 0; i < Lanes; ++i) p[i] = v[i];
    }
    template <class Op>
    static ScalarF8 Map(const ScalarF8& a, const ScalarF8& b, Op op)
    {
        ScalarF8 r;
        for (std::size_t i = 0; i < Lanes; ++i) r.v[i] = op(a.v[i], b.v[i]);
        return r;
    }
    friend ScalarF8 operator+(const ScalarF8& a, const ScalarF8& b)
    {
        return Map(a, b, [](float x, float y) { return x + y; });
    }
    friend ScalarF8 operator-(const ScalarF8& a, const ScalarF8& b)
    {
        return Map(a, b, [](float x, float y) { return x - y; });
    }
    friend ScalarF8 operator*(const ScalarF8& a, const ScalarF8& b)
    {
        return Map(a, b, [](float x, float y) { return x * y; });
    }
    friend ScalarF8 operator/(const ScalarF8& a, const ScalarF8& b)
    {
        return Map(a, b, [](float x, float y) { return x / y; });
    }
    /// Max and Min return the second operand when one is NaN, like the processor's instructions.
    static ScalarF8 Max(const ScalarF8& a, const ScalarF8& b)
    {
        return Map(a, b, [](float x, float y) { return x > y ? x : y; });
    }
    static ScalarF8 Min(const ScalarF8& a, const ScalarF8& b)
    {
        return Map(a, b, [](float x, float y) { return x < y ? x : y; });
    }
    static ScalarF8 Abs(const ScalarF8& a)
    {
        return Map(a, a, [](float x, float) { return std::fabs(x); });
    }
    static ScalarF8 Sqrt(const ScalarF8& a)
    {
        return Map(a, a, [](float x, float) { return std::sqrt(x); });
    }
    static ScalarF8 ApproximateReciprocalSqrt(const ScalarF8& a)
    {
        return Map(a, a, [](float x, float) { return simd::ApproximateReciprocalSqrt(x); });
    }
    /// 1 in the lanes where a > b, else 0.
    static ScalarF8 OneWhereGreater(const ScalarF8& a, const ScalarF8& b)
    {
        return Map(a, b, [](float x, float y) { return x > y ? 1.0F : 0.0F; });
    }
    /// a with the sign bit of s.
    static ScalarF8 WithSignOf(const ScalarF8& a, const ScalarF8& s)
    {
        return Map(a, s, [](float x, float y) { return std::copysign(x, y); });
    }
    /// a where it is finite, else b.
    static ScalarF8 FiniteOr(const ScalarF8& a, const ScalarF8& b)
    {
        return Map(a, b, [](float x, float y) { return std::isfinite(x) ? x : y; });
    }
    /// a with 0 in the lanes that are NaN.
    static ScalarF8 ZeroWhereNan(const ScalarF8& a)
    {
        return Map(a, a, [](float x, float) { return x == x ? x : 0.0F; });
    }
    /// Bit i is set when lane i of a is less than (less than or equal to, greater than) that of b.
    static unsigned MaskLess(const ScalarF8& a, const ScalarF8& b)
    {
        unsigned mask = 0;
        for (std::size_t i = 0; i < Lanes; ++i) mask |= (a.v[i] < b.v[i] ? 1U : 0U) << i;
        return mask;
    }
    static unsigned MaskLessEqual(const ScalarF8& a, const ScalarF8& b)
    {
        unsigned mask = 0;
        for (std::size_t i = 0; i < Lanes; ++i) mask |= (a.v[i] <= b.v[i] ? 1U : 0U) << i;
        return mask;
    }
    /// Eight codes of three bytes: the nearest integers (see RoundToInt) of a, b and c, clamped to 0 … largest ≤ 255,
    /// the lowest byte that of a; the highest byte is 0.
    static void StoreCodes(const ScalarF8& a, const ScalarF8& b, const ScalarF8& c, int largest, std::uint32_t* codes)
    {
        const auto byte = [largest](float x) {
            return static_cast<std::uint32_t>(std::clamp(simd::RoundToInt(x), 0, largest));
        };
        for (std::size_t i = 0; i < Lanes; ++i) codes[i] = byte(a.v[i]) | byte(b.v[i]) << 8 | byte(c.v[i]) << 16;
    }
    /// Overwrites counts[place · Values + value] with the number of codes whose byte `place` has that value, 0 to
    /// Values − 1. The number of codes is a multiple of eight.
    template <std::size_t Values>
    static void CountCodes(const std::uint32_t* codes, std::size_t n, std::uint32_t* counts)
    {
        std::fill_n(counts, CodeBytes * Values, 0U);
        for (std::size_t i = 0; i < n; ++i)
            for (std::size_t place = 0; place < CodeBytes; ++place)
                if (const std::uint32_t byte = codes[i] >> (8 * place) & 0xFFU; byte < Values)
                    ++counts[place * Values + byte];
    }
    /// Writes the lanes whose mask bit is set, without gaps. All eight entries of `out` may be overwritten.
    static void Compress(const ScalarF8& a, unsigned mask, float* out)
    {
        std::size_t n = 0;
        for (std::size_t i = 0; i < Lanes; ++i)
            if ((mask >> i & 1U) != 0) out[n++] = a.v[i];
    }
    /// The same for the numbers first + lane.
    static void CompressNumbers(std::uint32_t first, unsigned mask, std::uint32_t* out)
    {
        std::size_t n = 0;
        for (std::uint32_t i = 0; i < Lanes; ++i)
            if ((mask >> i & 1U) != 0) out[n++] = first + i;
    }
    /// ((v0 + v4) + (v2 + v6)) + ((v1 + v5) + (v3 + v7)), which halves the register at each step.
    [[nodiscard]] float Sum() const { return ((v[0] + v[4]) + (v[2] + v[6])) + ((v[1] + v[5]) + (v[3] + v[7])); }
    /// ((v0 + v1) + (v2 + v3)) + ((v4 + v5) + (v6 + v7)), neighbours in pairs; slower.
    [[nodiscard]] float SumOfPairs() const { return ((v[0] + v[1]) + (v[2] + v[3])) + ((v[4] + v[5]) + (v[6] + v[7])); }
};

/// For every mask, the positions of its set bits; the remaining entries mean nothing.
struct CompressTable {
    alignas(32) std::int32_t lanes[256][Lanes];

    constexpr CompressTable() : lanes()
    {
        for (int mask = 0; mask < 256; ++mask) {
            std::size_t n = 0;
            for (int i = 0; i < 8; ++i)
                if ((mask >> i & 1) != 0) lanes[mask][n++] = i;
        }
    }
};
inline constexpr CompressTable LanesOfMask;

#if defined(VOALGO_SIMD_AVX2)

/// Eight floats in one register.
struct AvxF8 {
    __m256 v;

    static AvxF8 Load(const float* p) { return {_mm256_loadu_ps(p)}; }
    static AvxF8 Set(float x) { return {_mm256_set1_ps(x)}; }
    void Store(float* p) const { _mm256_storeu_ps(p, v); }
    friend AvxF8 operator+(AvxF8 a, AvxF8 b) { return {_mm256_add_ps(a.v, b.v)}; }
    friend AvxF8 operator-(AvxF8 a, AvxF8 b) { return {_mm256_sub_ps(a.v, b.v)}; }
    friend AvxF8 operator*(AvxF8 a, AvxF8 b) { return {_mm256_mul_ps(a.v, b.v)}; }
    friend AvxF8 operator/(AvxF8 a, AvxF8 b) { return {_mm256_div_ps(a.v, b.v)}; }
    static AvxF8 Max(AvxF8 a, AvxF8 b) { return {_mm256_max_ps(a.v, b.v)}; }
    static AvxF8 Min(AvxF8 a, AvxF8 b) { return {_mm256_min_ps(a.v, b.v)}; }
    static AvxF8 Abs(AvxF8 a) { return {_mm256_andnot_ps(_mm256_set1_ps(-0.0F), a.v)}; }
    static AvxF8 Sqrt(AvxF8 a) { return {_mm256_sqrt_ps(a.v)}; }
    static AvxF8 ApproximateReciprocalSqrt(AvxF8 a) { return {_mm256_rsqrt_ps(a.v)}; }
    static AvxF8 OneWhereGreater(AvxF8 a, AvxF8 b)
    {
        return {_mm256_and_ps(_mm256_cmp_ps(a.v, b.v, _CMP_GT_OQ), _mm256_set1_ps(1.0F))};
    }
    static AvxF8 WithSignOf(AvxF8 a, AvxF8 s)
    {
        const __m256 sign = _mm256_set1_ps(-0.0F);
        return {_mm256_or_ps(_mm256_andnot_ps(sign, a.v), _mm256_and_ps(sign, s.v))};
    }
    static AvxF8 FiniteOr(AvxF8 a, AvxF8 b)
    {
        const __m256 finite = _mm256_cmp_ps(Abs(a).v, _mm256_set1_ps(INFINITY), _CMP_LT_OQ);
        return {_mm256_blendv_ps(b.v, a.v, finite)};
    }
    static AvxF8 ZeroWhereNan(AvxF8 a) { return {_mm256_and_ps(a.v, _mm256_cmp_ps(a.v, a.v, _CMP_ORD_Q))}; }
    static unsigned MaskLess(AvxF8 a, AvxF8 b)
    {
        return static_cast<unsigned>(_mm256_movemask_ps(_mm256_cmp_ps(a.v, b.v, _CMP_LT_OQ)));
    }
    static unsigned MaskLessEqual(AvxF8 a, AvxF8 b)
    {
        return static_cast<unsigned>(_mm256_movemask_ps(_mm256_cmp_ps(a.v, b.v, _CMP_LE_OQ)));
    }
    static void StoreCodes(AvxF8 a, AvxF8 b, AvxF8 c, int largest, std::uint32_t* codes)
    {
        const auto bytes = [highest = _mm256_set1_epi32(largest)](AvxF8 x) {
            return _mm256_min_epi32(_mm256_max_epi32(_mm256_cvtps_epi32(x.v), _mm256_setzero_si256()), highest);
        };
        const __m256i ab = _mm256_or_si256(bytes(a), _mm256_slli_epi32(bytes(b), 8));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(codes), _mm256_or_si256(ab, _mm256_slli_epi32(bytes(c), 16)));
    }
    template <std::size_t Values>
    static void CountCodes(const std::uint32_t* codes, std::size_t n, std::uint32_t* counts)
    {
        std::fill_n(counts, CodeBytes * Values, 0U);
        countCodes(codes, n, counts, std::make_index_sequence<Values>());
    }
    static void Compress(AvxF8 a, unsigned mask, float* out)
    {
        const __m256i lanes = _mm256_load_si256(reinterpret_cast<const __m256i*>(LanesOfMask.lanes[mask]));
        _mm256_storeu_ps(out, _mm256_permutevar8x32_ps(a.v, lanes));
    }
    static void CompressNumbers(std::uint32_t first, unsigned mask, std::uint32_t* out)
    {
        const __m256i lanes = _mm256_load_si256(reinterpret_cast<const __m256i*>(LanesOfMask.lanes[mask]));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out),
                            _mm256_add_epi32(lanes, _mm256_set1_epi32(static_cast<int>(first))));
    }
    [[nodiscard]] float Sum() const
    {
        const __m128 a = _mm_add_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1)); // v0+v4 .. v3+v7
        const __m128 b = _mm_add_ps(a, _mm_movehl_ps(a, a));                                 // even, odd sums
        return _mm_cvtss_f32(_mm_add_ss(b, _mm_shuffle_ps(b, b, 1)));
    }
    [[nodiscard]] float SumOfPairs() const
    {
        const __m256 pairs = _mm256_hadd_ps(v, v);
        const __m256 fours = _mm256_hadd_ps(pairs, pairs);
        return _mm_cvtss_f32(_mm_add_ss(_mm256_castps256_ps128(fours), _mm256_extractf128_ps(fours, 1)));
    }

private:
    /// One register of byte counters per value. A counter holds at most 255, so that many groups of eight codes are
    /// counted at a time.
    template <std::size_t... Value>
    static void countCodes(const std::uint32_t* codes, std::size_t n, std::uint32_t* counts,
                           std::index_sequence<Value...>)
    {
        constexpr std::size_t MostCodes = 255 * Lanes;
        for (std::size_t begin = 0; begin < n; begin += MostCodes) {
            __m256i counters[] = {(static_cast<void>(Value), _mm256_setzero_si256())...};
            for (std::size_t i = begin; i < std::min(n, begin + MostCodes); i += Lanes) {
                const __m256i group = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(codes + i));
                ((counters[Value] = _mm256_sub_epi8(
                      counters[Value], _mm256_cmpeq_epi8(group, _mm256_set1_epi8(static_cast<char>(Value))))),
                 ...);
            }
            (addBytePlaces(counters[Value], counts + Value, sizeof...(Value)), ...);
        }
    }
    /// counts[place · stride] += the sum over the eight lanes of the byte at that place.
    static void addBytePlaces(__m256i counters, std::uint32_t* counts, std::size_t stride)
    {
        const __m256i byPlace = _mm256_shuffle_epi8( // the four bytes of each place side by side, in both halves
            counters, _mm256_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15, 0, 4, 8, 12, 1, 5, 9, 13,
                                       2, 6, 10, 14, 3, 7, 11, 15));
        const __m256i pairs = _mm256_maddubs_epi16(byPlace, _mm256_set1_epi8(1));
        const __m256i sums = _mm256_madd_epi16(pairs, _mm256_set1_epi16(1));
        const __m128i both = _mm_add_epi32(_mm256_castsi256_si128(sums), _mm256_extracti128_si256(sums, 1));
        counts[0] += static_cast<std::uint32_t>(_mm_cvtsi128_si32(both));
        counts[stride] += static_cast<std::uint32_t>(_mm_extract_epi32(both, 1));
        counts[2 * stride] += static_cast<std::uint32_t>(_mm_extract_epi32(both, 2));
    }
};

using F8 = AvxF8;
#else
using F8 = ScalarF8;
#endif

} // namespace VoAlgo::simd
