#pragma once

#include "VoAlgorithms/colour/hsl.h"
#include "VoAlgorithms/colour/rgb.h"

#include <algorithm>

namespace VoAlgo::cs {

/// Hue (degrees, 0 … 360), saturation and value (unit fractions, 0 … 1; HSL has percent instead).
class HSV : public TColor<HSV> {
public:
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
    /// Clamps each component to its range, NaN excepted.
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

    /// To components of 0 … 255. A hue outside its range counts as the nearer end.
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

    /// Exact equality of all components.
    friend constexpr bool operator==(const HSV&, const HSV&) noexcept = default;

private:
    friend class TColor<HSV>;
    static constexpr double HSV::*Components[3] = {&HSV::H, &HSV::S, &HSV::V};
};

} // namespace VoAlgo::cs
