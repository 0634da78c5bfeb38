#pragma once

#include "VoAlgorithms/colour/rgb.h"
#include "VoAlgorithms/export.h"

namespace VoAlgo::cs {

/// CIE 1931 tristimulus values on the scale where white has Y = 100. All components are clamped to 0 … 100, even Z,
/// although the white point's Z is greater (deliberate).
class XYZ : public TColor<XYZ> {
public:
    /// Nominal ranges of the components, in their order.
    static constexpr ChannelRange Ranges[3] = {{0, 100}, {0, 100}, {0, 100}};

    ///@{
    /// Tristimulus values; white has Y = 100.
    double X = 0;
    double Y = 0;
    double Z = 0;
    ///@}

    /// All components 0.
    constexpr XYZ() noexcept = default;
    /// The components as they are.
    constexpr XYZ(double x, double y, double z) noexcept : X(x), Y(y), Z(z) {}
    /// From linear components, clamped to 0 … 255; primaries of ITU-R BT.709, white point D65. No gamma is removed.
    constexpr XYZ(const RGB& rgb) noexcept
    {
        const RGB c = unit(rgb);
        X = 100 * (0.412453 * c.r + 0.35758 * c.g + 0.180423 * c.b);
        Y = 100 * (0.212671 * c.r + 0.71516 * c.g + 0.072169 * c.b);
        Z = 100 * (0.019334 * c.r + 0.119193 * c.g + 0.950227 * c.b);
    }

    /// From gamma-coded components (IEC 61966-2-1), clamped to 0 … 255.
    [[nodiscard]] VOALGO_API static XYZ FromSRGB(RGB rgb) noexcept;
    /// To linear components, clamped to 0 … 255.
    [[nodiscard]] constexpr RGB ToRGB() const noexcept
    {
        const RGB c = linear();
        return RGB(255 * c.r, 255 * c.g, 255 * c.b).Clamp();
    }
    /// To gamma-coded components (IEC 61966-2-1), clamped to 0 … 255.
    [[nodiscard]] VOALGO_API RGB ToSRGB() const noexcept;

    /// Clamps each component to its range, NaN excepted. Returns the object.
    constexpr XYZ& Clamp() noexcept { return clamp(); }

    /// The white point D65.
    [[nodiscard]] static constexpr XYZ WhiteReference() noexcept { return {95.047, 100.0, 108.883}; }
    /// 216/24389: below it a line replaces the cube root of L*a*b*.
    [[nodiscard]] static constexpr double Epsilon() noexcept { return 0.008856451679035631; }
    /// 24389/27, the slope of that line.
    [[nodiscard]] static constexpr double Kappa() noexcept { return 903.2962962962963; }

    /// Exact equality of all components.
    friend constexpr bool operator==(const XYZ&, const XYZ&) noexcept = default;

private:
    friend class TColor<XYZ>;
    static constexpr double XYZ::*Components[3] = {&XYZ::X, &XYZ::Y, &XYZ::Z};

    /// Clamped and scaled to 0 … 1.
    static constexpr RGB unit(RGB rgb) noexcept
    {
        constexpr double Scale = 0.00392156862745098; // 1/255
        rgb.Clamp();
        return {rgb.r * Scale, rgb.g * Scale, rgb.b * Scale};
    }
    /// Linear components on the scale 0 … 1, not clamped.
    [[nodiscard]] constexpr RGB linear() const noexcept
    {
        const double x = X / 100, y = Y / 100, z = Z / 100;
        return {3.240479 * x - 1.53715 * y - 0.498535 * z, -0.969256 * x + 1.875992 * y + 0.041556 * z,
                0.055648 * x - 0.204043 * y + 1.057311 * z};
    }
    /// Removes the gamma of a component 0 … 1; the result is on the scale 0 … 100.
    static double pivotRGB(double c) noexcept;
};

} // namespace VoAlgo::cs
