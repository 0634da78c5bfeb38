#include "VoAlgorithms/colour/xyz.h"

#include <cmath>

namespace VoAlgo::cs {
namespace {

double GammaCoded(double c)
{
    return c <= 0.0031308 ? 12.92 * c : 1.055 * std::exp(0.4166666666666667 * std::log(c)) - 0.055;
}

} // namespace

double XYZ::pivotRGB(double c) noexcept
{
    return 100 * (c <= 0.04045 ? c / 12.92 : std::exp(2.4 * std::log((c + 0.055) / 1.055)));
}

XYZ XYZ::FromSRGB(RGB rgb) noexcept
{
    const RGB c = unit(rgb);
    const double r = pivotRGB(c.r), g = pivotRGB(c.g), b = pivotRGB(c.b);
    return {0.412453 * r + 0.35758 * g + 0.180423 * b, 0.212671 * r + 0.71516 * g + 0.072169 * b,
            0.019334 * r + 0.119193 * g + 0.950227 * b};
}

RGB XYZ::ToSRGB() const noexcept
{
    const RGB c = linear();
    return RGB(255 * GammaCoded(c.r), 255 * GammaCoded(c.g), 255 * GammaCoded(c.b)).Clamp();
}

} // namespace VoAlgo::cs
