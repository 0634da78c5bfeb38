#pragma once

#include "VoAlgorithms/colour/hsl.h"
#include "VoAlgorithms/colour/rgb.h"

#include <algorithm>
#include <cstddef>

namespace VoAlgo::cs {

/// Hue (degrees, 0 … 360), saturation and value (unit fractions, 0 … 1; HSL has percent instead).
class HSV {
public:
    static constexpr int dim = 3; ///< number of components
    /// Nominal ranges of the components, in their order.
    static constexpr ChannelRange Ranges[3] = {{0, 360}, {0, 1}, {0, 1}};

    ///@{
    /// Hue (degrees), saturation and value (0 … 1).
    double H = 0;
    double S = 0;
    double V = 0;
    ///@}

    /// All components 0.
    constexpr HSV() noexcept = default;
    /// Brings each component into its range, NaN excepted.
    constexpr HSV(double hue, double saturation, double value) noexcept
        : H(Ranges[0].Clamp(hue)), S(Ranges[1].Clamp(saturation)), V(Ranges[2].Clamp(value))
    {
    }
    /// From components of 0 … 255; nothing is clamped.
    constexpr HSV(const RGB& rgb) noexcept
    {
        const double max = std::max(std::max(rgb.r, rgb.g), rgb.b), min = std::min(std::min(rgb.r, rgb.g), rgb.b);
        const double delta = max - min;
        V = max / 255;
        if (max != 0) S = delta / max;
        if (S != 0) H = HSL::hue(rgb, max, delta);
    }

    /// To components of 0 … 255. A hue outside its range counts as its nearer end.
    [[nodiscard]] constexpr RGB ToRGB() const noexcept
    {
        const double x = Ranges[0].Clamp(H) / 360, six = x == 1 ? 0 : 6 * x;
        int i = 0; // ⌊six⌋
        while (six >= i + 1) ++i;
        const double v = 255 * V, f = six - i;
        const double p = v * (1 - S), q = v * (1 - S * f), t = v * (1 - S * (1 - f));
        switch (i) {
        case 0:
            return {v, t, p};
        case 1:
            return {q, v, p};
        case 2:
            return {p, v, t};
        case 3:
            return {p, q, v};
        case 4:
            return {t, p, v};
        default:
            return {v, p, q};
        }
    }

    ///@{
    /// Component 0, 1 or 2; unchecked.
    constexpr double operator[](std::size_t i) const noexcept { return i == 0 ? H : (i == 1 ? S : V); }
    constexpr double& operator[](std::size_t i) noexcept { return i == 0 ? H : (i == 1 ? S : V); }
    ///@}

    ///@{
    /// Identity curves to shape one channel (0, 1 or 2; else std::out_of_range) or all; at least two control points
    /// each (else std::invalid_argument).
    [[nodiscard]] static CChannelTransferCurve CreateChannelTransferCurve(int channel, int points)
    {
        return cs::CreateChannelTransferCurve(Ranges, channel, points);
    }
    [[nodiscard]] static TColorTransferCurve<HSV> CreateColorTransferCurve(int points)
    {
        return TColorTransferCurve<HSV>(points);
    }
    ///@}

    /// Exact equality of all components.
    friend constexpr bool operator==(const HSV&, const HSV&) noexcept = default;
};

} // namespace VoAlgo::cs
