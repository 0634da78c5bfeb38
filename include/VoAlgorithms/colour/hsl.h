#pragma once

#include "VoAlgorithms/colour/rgb.h"

#include <algorithm>
#include <cstddef>

namespace VoAlgo::cs {

/// Hue (degrees, 0 … 360), saturation and lightness (percent, 0 … 100; HSV has unit fractions instead). The conversions
/// are kept with their odd scales: from RGB they take components of 0 … 1 and give S and L of 0 … 1, to RGB they take
/// percent and give components of 0 … 1.
class HSL {
public:
    static constexpr int dim = 3; ///< number of components
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
    /// Brings each component into its range, NaN excepted.
    constexpr HSL(double hue, double saturation, double lightness) noexcept
        : H(Ranges[0].Clamp(hue)), S(Ranges[1].Clamp(saturation)), L(Ranges[2].Clamp(lightness))
    {
    }
    /// Of the components as they are, meant to be 0 … 1; nothing is scaled or clamped.
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

    ///@{
    /// Component 0, 1 or 2; unchecked.
    constexpr double operator[](std::size_t i) const noexcept { return i == 0 ? H : (i == 1 ? S : L); }
    constexpr double& operator[](std::size_t i) noexcept { return i == 0 ? H : (i == 1 ? S : L); }
    ///@}

    ///@{
    /// Identity curves to shape one channel (0, 1 or 2; else std::out_of_range) or all; at least two control points
    /// each (else std::invalid_argument).
    [[nodiscard]] static CChannelTransferCurve CreateChannelTransferCurve(int channel, int points)
    {
        return cs::CreateChannelTransferCurve(Ranges, channel, points);
    }
    [[nodiscard]] static TColorTransferCurve<HSL> CreateColorTransferCurve(int points)
    {
        return TColorTransferCurve<HSL>(points);
    }
    ///@}

    /// Exact equality of all components.
    friend constexpr bool operator==(const HSL&, const HSL&) noexcept = default;

private:
    friend class HSV;

    /// Degrees; delta = max − min is not 0.
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
