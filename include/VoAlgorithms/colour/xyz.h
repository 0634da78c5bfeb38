#pragma once

#include "VoAlgorithms/colour/rgb.h"
#include "VoAlgorithms/export.h"

#include <cstddef>

namespace VoAlgo::cs {

/// CIE 1931 tristimulus values on the scale where white has Y = 100. Clamps use 0 … 100 for each component, Z too,
/// although the white point's Z is greater (deliberate).
class XYZ {
public:
    static constexpr int dim = 3; ///< number of components
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
    /// From linear components, clamped to 0 … 255; primaries of ITU-R BT.709, white D65. No gamma is removed.
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

    ///@{
    /// Component 0, 1 or 2; unchecked.
    constexpr double operator[](std::size_t i) const noexcept { return i == 0 ? X : (i == 1 ? Y : Z); }
    constexpr double& operator[](std::size_t i) noexcept { return i == 0 ? X : (i == 1 ? Y : Z); }
    ///@}

    /// Brings each component into its range, NaN excepted. Returns the object.
    constexpr XYZ& Clamp() noexcept
    {
        X = Ranges[0].Clamp(X);
        Y = Ranges[1].Clamp(Y);
        Z = Ranges[2].Clamp(Z);
        return *this;
    }

    /// D65.
    [[nodiscard]] static constexpr XYZ WhiteReference() noexcept { return {95.047, 100.0, 108.883}; }
    /// 216/24389, where the cube root of L*a*b* gives way to a line.
    [[nodiscard]] static constexpr double Epsilon() noexcept { return 0.008856451679035631; }
    /// 24389/27, the slope of that line.
    [[nodiscard]] static constexpr double Kappa() noexcept { return 903.2962962962963; }

    ///@{
    /// Identity curves to shape one channel (0, 1 or 2; else std::out_of_range) or all; at least two control points
    /// each (else std::invalid_argument).
    [[nodiscard]] static CChannelTransferCurve CreateChannelTransferCurve(int channel, int points)
    {
        return cs::CreateChannelTransferCurve(Ranges, channel, points);
    }
    [[nodiscard]] static TColorTransferCurve<XYZ> CreateColorTransferCurve(int points)
    {
        return TColorTransferCurve<XYZ>(points);
    }
    ///@}

    /// Exact equality of all components.
    friend constexpr bool operator==(const XYZ&, const XYZ&) noexcept = default;

private:
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
