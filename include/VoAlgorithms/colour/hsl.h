#pragma once

#include "VoAlgorithms/colour/rgb.h"

#include <algorithm>

namespace VoAlgo::cs {

/// Hue (degrees, 0 … 360), saturation and lightness (percent, 0 … 100; HSV has unit fractions instead). The scales of
/// the conversions are odd, but deliberate: from RGB they take components of 0 … 1 and give S and L of 0 … 1; to RGB
/// they take percent and give components of 0 … 1.
class HSL : public TColor<HSL> {
public:
    /// Nominal ranges of the components, in their order.
    static constexpr ChannelRange Ranges[3] = {{0, 360}, {0, 100}, {0, 100}};

    ///@{
    /// Hue (degrees), saturation and lightness (percent, or 0 … 1 after a conversion from RGB).
    double H = 0;
    double S = 0;
    double L = 0;
    ///@}

    /// All components 0.
    constexpr HSL() noexcept = default;
    /// Clamps each component to its range, NaN excepted.
    constexpr HSL(double hue, double saturation, double lightness) noexcept
        : H(Ranges[0].Clamp(hue)), S(Ranges[1].Clamp(saturation)), L(Ranges[2].Clamp(lightness))
    {
    }
    /// From components as they are, expected in 0 … 1; nothing is scaled or clamped.
    constexpr HSL(const RGB& rgb) noexcept
    {
        const double max = std::max(std::max(rgb.r, rgb.g), rgb.b), min = std::min(std::min(rgb.r, rgb.g), rgb.b);
        const double delta = max - min;
        L = (max + min) / 2;
        if (delta != 0) S = delta / (L <= 0.5 ? max + min : 2 - max + min); // deliberate: + min, not − min
        if (S != 0) H = hue(rgb, max, delta);
    }

    /// Components of 0 … 1 (not 255).
    [[nodiscard]] constexpr RGB ToRGB() const noexcept
    {
        const double s = S / 100, l = L / 100, h = H / 360;
        const double q = l < 0.5 ? l * (1 + s) : l + s - l * s, p = 2 * l - q;
        return {component(p, q, h + 1.0 / 3), component(p, q, h), component(p, q, h - 1.0 / 3)};
    }

    /// Exact equality of all components.
    friend constexpr bool operator==(const HSL&, const HSL&) noexcept = default;

private:
    friend class TColor<HSL>;
    static constexpr double HSL::*Components[3] = {&HSL::H, &HSL::S, &HSL::L};

    friend class HSV; // for the hue

    /// In degrees; delta = max − min must not be 0.
    static constexpr double hue(const RGB& rgb, double max, double delta) noexcept
    {
        double sextant = 0;
        if (rgb.r == max)
            sextant = (rgb.g - rgb.b) / delta;
        else if (rgb.g == max)
            sextant = (rgb.b - rgb.r) / delta + 2;
        else
            sextant = (rgb.r - rgb.g) / delta + 4;
        const double degrees = sextant * 60;
        return degrees < 0 ? degrees + 360 : degrees;
    }
    static constexpr double component(double p, double q, double t) noexcept
    {
        if (t <= 0)
            t += 1;
        else if (t >= 1)
            t -= 1;
        double value = p;
        if (t < 1.0 / 6)
            value = p + (q - p) * 6 * t;
        else if (t < 1.0 / 2)
            value = q;
        else if (t < 2.0 / 3)
            value = p + (q - p) * 6 * (2.0 / 3 - t);
        return ChannelRange{0, 1}.Clamp(value);
    }
};

} // namespace VoAlgo::cs
