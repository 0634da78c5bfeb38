#include "VoAlgorithms/colour/converttolab.h"

#include "platform/simd_double.h"

#include <algorithm>
#include <type_traits>

namespace VoAlgo::cs {
namespace {

#if defined(VOALGO_SIMD_AVX2)

using simd::AvxD4;

static_assert(sizeof(RGB) == 3 * sizeof(double) && std::is_standard_layout_v<RGB>);
static_assert(sizeof(Lab) == 3 * sizeof(double) && std::is_standard_layout_v<Lab>);
static_assert(sizeof(RGB::Packed) == 3 && std::is_standard_layout_v<RGB::Packed>);

// The steps of XYZ(const RGB&) and Lab(const XYZ&) for four pixels at a time.
AvxD4 Pivot(AvxD4 t)
{
    const AvxD4 two = AvxD4::Set(2), epsilon = AvxD4::Set(XYZ::Epsilon());
    AvxD4 y = AvxD4::ThirdOfHighWord(t, 0x2a9f7893U);
    for (int step = 0; step < 2; ++step) {
        const AvxD4 cube = y * y * y;
        y = y * (cube + two * t) / (two * cube + t);
    }
    if (AvxD4::AllGreater(t, epsilon)) return y;
    return AvxD4::WhereGreater(t, epsilon, y, (XYZ::Kappa() * t + AvxD4::Set(16)) / AvxD4::Set(116));
}

AvxD4 Unit(AvxD4 component)
{
    return AvxD4::Clamp(component, 0, 255) * AvxD4::Set(0.00392156862745098);
}

void ConvertFour(AvxD4 r, AvxD4 g, AvxD4 b, Lab* to)
{
    constexpr XYZ White = XYZ::WhiteReference();
    r = Unit(r);
    g = Unit(g);
    b = Unit(b);
    const AvxD4 X = 100 * (0.412453 * r + 0.35758 * g + 0.180423 * b);
    const AvxD4 Y = 100 * (0.212671 * r + 0.71516 * g + 0.072169 * b);
    const AvxD4 Z = 100 * (0.019334 * r + 0.119193 * g + 0.950227 * b);
    const AvxD4 fx = Pivot(X / AvxD4::Set(White.X)), fy = Pivot(Y / AvxD4::Set(White.Y)),
                fz = Pivot(Z / AvxD4::Set(White.Z));
    AvxD4::StoreTriples(116 * fy - AvxD4::Set(16), 500 * (fx - fy), 200 * (fy - fz), &to->L);
}

#endif

template <class Pixel>
std::size_t Convert(std::span<const Pixel> from, std::span<Lab> to)
{
    const std::size_t n = std::min(from.size(), to.size());
    std::size_t i = 0;
#if defined(VOALGO_SIMD_AVX2)
    for (; i + AvxD4::Lanes <= n; i += AvxD4::Lanes) {
        AvxD4 r, g, b;
        AvxD4::LoadTriples(&from[i].r, r, g, b);
        ConvertFour(r, g, b, &to[i]);
    }
#endif
    for (; i < n; ++i) to[i] = Lab(RGB(from[i]));
    return n;
}

} // namespace

std::size_t ConvertToLab(std::span<const RGB> from, std::span<Lab> to) noexcept
{
    return Convert(from, to);
}

std::size_t ConvertToLab(std::span<const RGB::Packed> from, std::span<Lab> to) noexcept
{
    return Convert(from, to);
}

} // namespace VoAlgo::cs
