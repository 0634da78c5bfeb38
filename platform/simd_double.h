#pragma once

// Four-wide double precision, only where the target has AVX2. The scalar twin of a kernel is the loop over single
// values: every operation rounds like the plain double operation, so both give the same bits.

#include "platform/simd.h"

#if defined(VOALGO_SIMD_AVX2)

namespace VoAlgo::simd {

/// Four doubles in one register.
struct AvxD4 {
    static constexpr std::size_t Lanes = 4;

    __m256d v;

    static AvxD4 Set(double x) { return {_mm256_set1_pd(x)}; }
    friend AvxD4 operator+(AvxD4 a, AvxD4 b) { return {_mm256_add_pd(a.v, b.v)}; }
    friend AvxD4 operator-(AvxD4 a, AvxD4 b) { return {_mm256_sub_pd(a.v, b.v)}; }
    friend AvxD4 operator*(AvxD4 a, AvxD4 b) { return {_mm256_mul_pd(a.v, b.v)}; }
    friend AvxD4 operator/(AvxD4 a, AvxD4 b) { return {_mm256_div_pd(a.v, b.v)}; }
    friend AvxD4 operator*(double a, AvxD4 b) { return Set(a) * b; }
    /// x clamped to min … max; NaN stays NaN.
    static AvxD4 Clamp(AvxD4 x, double min, double max)
    {
        return {_mm256_min_pd(_mm256_set1_pd(max), _mm256_max_pd(_mm256_set1_pd(min), x.v))}; // NaN: the second operand
    }
    /// Per lane a where t > threshold, else b.
    static AvxD4 WhereGreater(AvxD4 t, AvxD4 threshold, AvxD4 a, AvxD4 b)
    {
        return {_mm256_blendv_pd(b.v, a.v, _mm256_cmp_pd(t.v, threshold.v, _CMP_GT_OQ))};
    }
    static bool AllGreater(AvxD4 t, AvxD4 threshold)
    {
        return _mm256_movemask_pd(_mm256_cmp_pd(t.v, threshold.v, _CMP_GT_OQ)) == 0xF;
    }
    /// Divides the upper 32 bits by 3 (as an unsigned integer), adds the offset, and clears the lower ones.
    static AvxD4 ThirdOfHighWord(AvxD4 a, std::uint32_t offset)
    {
        const __m256i high = _mm256_srli_epi64(_mm256_castpd_si256(a.v), 32);
        const __m256i third = _mm256_srli_epi64(_mm256_mul_epu32(high, _mm256_set1_epi64x(0xAAAAAAABLL)), 33);
        const __m256i sum = _mm256_add_epi64(third, _mm256_set1_epi64x(offset));
        return {_mm256_castsi256_pd(_mm256_slli_epi64(sum, 32))};
    }

    /// Four triples x0 y0 z0 x1 … to and from one register per component.
    static void LoadTriples(const double* p, AvxD4& x, AvxD4& y, AvxD4& z)
    {
        const __m256d p0 = _mm256_loadu_pd(p), p1 = _mm256_loadu_pd(p + 4), p2 = _mm256_loadu_pd(p + 8);
        const __m256d xy = _mm256_permute2f128_pd(p0, p1, 0x30); // x0 y0 x2 y2
        const __m256d zx = _mm256_permute2f128_pd(p0, p2, 0x21); // z0 x1 z2 x3
        const __m256d yz = _mm256_permute2f128_pd(p1, p2, 0x30); // y1 z1 y3 z3
        x.v = _mm256_shuffle_pd(xy, zx, 0b1010);
        y.v = _mm256_shuffle_pd(xy, yz, 0b0101);
        z.v = _mm256_shuffle_pd(zx, yz, 0b1010);
    }
    static void LoadTriples(const std::uint8_t* p, AvxD4& x, AvxD4& y, AvxD4& z)
    {
        std::int64_t first = 0;
        std::int32_t last = 0;
        std::memcpy(&first, p, sizeof(first));
        std::memcpy(&last, p + sizeof(first), sizeof(last));
        const __m128i bytes = _mm_insert_epi32(_mm_cvtsi64_si128(first), last, 2);
        const auto component = [bytes](int i) { // every third byte, as four integers
            const __m128i pick = _mm_setr_epi32(i, i + 3, i + 6, i + 9);
            return _mm256_cvtepi32_pd(_mm_shuffle_epi8(bytes, _mm_or_si128(pick, _mm_set1_epi32(-256))));
        };
        x.v = component(0);
        y.v = component(1);
        z.v = component(2);
    }
    static void StoreTriples(AvxD4 x, AvxD4 y, AvxD4 z, double* p)
    {
        const __m256d xy = _mm256_unpacklo_pd(x.v, y.v); // x0 y0 x2 y2
        const __m256d zx = _mm256_shuffle_pd(z.v, x.v, 0b1010);
        const __m256d yz = _mm256_unpackhi_pd(y.v, z.v);
        _mm256_storeu_pd(p, _mm256_permute2f128_pd(xy, zx, 0x20));
        _mm256_storeu_pd(p + 4, _mm256_permute2f128_pd(yz, xy, 0x30));
        _mm256_storeu_pd(p + 8, _mm256_permute2f128_pd(zx, yz, 0x31));
    }
};

} // namespace VoAlgo::simd

#endif
