#pragma once

// Eight-wide single precision. All intrinsics of the library live here. Kernels are templates over the pack type: the
// library runs them with F8, tests hold that against ScalarF8. Every operation rounds like the plain float operation, so
// both give the same bits.

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>

#if defined(__SSE2__) || defined(_M_X64)
#define VOALGO_SIMD_SSE2 1
#include <immintrin.h>
#endif
#if defined(__AVX2__)
#define VOALGO_SIMD_AVX2 1
#endif

namespace VoAlgo::simd {

inline constexpr std::size_t Lanes = 8;

/// The processor's approximate reciprocal square root (relative error below 1.5 · 2⁻¹²). Elsewhere: the exact value
/// rounded to 12 bits of mantissa, which has the same error bound but other bits.
inline float ApproximateReciprocalSqrt(float x)
{
#if defined(VOALGO_SIMD_SSE2)
    return _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(x)));
#else
    const auto bits = std::bit_cast<std::uint32_t>(1.0F / std::sqrt(x));
    return std::bit_cast<float>(bits & 0xFFFFF800U);
#endif
}

/// The processor's approximate reciprocal, with the same bound and the same stand-in.
inline float ApproximateReciprocal(float x)
{
#if defined(VOALGO_SIMD_SSE2)
    return _mm_cvtss_f32(_mm_rcp_ss(_mm_set_ss(x)));
#else
    const auto bits = std::bit_cast<std::uint32_t>(1.0F / x);
    return std::bit_cast<float>(bits & 0xFFFFF800U);
#endif
}

/// One byte more of a CRC-32C (Castagnoli, reflected polynomial 0x82F63B78), bit by bit.
constexpr std::uint32_t Crc32cByte(std::uint32_t crc, std::uint8_t byte)
{
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1U) != 0 ? 0x82F63B78U : 0U);
    return crc;
}

/// What the processor's crc32 instruction does with the bytes of an integer, low byte first.
template <class Integer>
std::uint32_t Crc32cScalar(std::uint32_t crc, Integer data)
{
    for (std::size_t byte = 0; byte < sizeof(Integer); ++byte)
        crc = Crc32cByte(crc, static_cast<std::uint8_t>(data >> (8 * byte)));
    return crc;
}

inline std::uint32_t Crc32c(std::uint32_t crc, std::uint64_t data)
{
#if defined(__SSE4_2__)
    return static_cast<std::uint32_t>(_mm_crc32_u64(crc, data));
#else
    return Crc32cScalar(crc, data);
#endif
}

inline std::uint32_t Crc32c(std::uint32_t crc, std::uint32_t data)
{
#if defined(__SSE4_2__)
    return _mm_crc32_u32(crc, data);
#else
    return Crc32cScalar(crc, data);
#endif
}

/// Nearest integer, ties to even; the smallest int for NaN and what does not fit.
inline int RoundToInt(float x)
{
#if defined(VOALGO_SIMD_SSE2)
    return _mm_cvtss_si32(_mm_set_ss(x));
#else
    return x >= -2147483648.0F && x < 2147483648.0F ? static_cast<int>(std::nearbyint(x)) : INT32_MIN;
#endif
}

/// Plain twin of the eight-wide pack.
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
    /// The second operand when one is NaN, like the processor's instruction.
    static ScalarF8 Max(const ScalarF8& a, const ScalarF8& b)
    {
        return Map(a, b, [](float x, float y) { return x > y ? x : y; });
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
    /// Nearest integers, see RoundToInt.
    static void RoundToInt(const ScalarF8& a, int* out)
    {
        for (std::size_t i = 0; i < Lanes; ++i) out[i] = simd::RoundToInt(a.v[i]);
    }
    /// Writes the lanes whose mask bit is set back to back. All eight entries of `out` may be overwritten.
    static void Compress(const ScalarF8& a, unsigned mask, float* out)
    {
        std::size_t n = 0;
        for (std::size_t i = 0; i < Lanes; ++i)
            if ((mask >> i & 1U) != 0) out[n++] = a.v[i];
    }
    /// ((v0 + v4) + (v2 + v6)) + ((v1 + v5) + (v3 + v7)), the pairwise reduction of the processor's halves.
    [[nodiscard]] float Sum() const { return ((v[0] + v[4]) + (v[2] + v[6])) + ((v[1] + v[5]) + (v[3] + v[7])); }
};

/// For every mask the positions of its set bits, then anything.
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
inline constexpr CompressTable compressTable;

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
    static void RoundToInt(AvxF8 a, int* out)
    {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), _mm256_cvtps_epi32(a.v));
    }
    static void Compress(AvxF8 a, unsigned mask, float* out)
    {
        const __m256i lanes = _mm256_load_si256(reinterpret_cast<const __m256i*>(compressTable.lanes[mask]));
        _mm256_storeu_ps(out, _mm256_permutevar8x32_ps(a.v, lanes));
    }
    [[nodiscard]] float Sum() const
    {
        const __m128 a = _mm_add_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1)); // v0+v4 .. v3+v7
        const __m128 b = _mm_add_ps(a, _mm_movehl_ps(a, a));                                  // even, odd sums
        return _mm_cvtss_f32(_mm_add_ss(b, _mm_shuffle_ps(b, b, 1)));
    }
};

using F8 = AvxF8;
#else
using F8 = ScalarF8;
#endif

} // namespace VoAlgo::simd
