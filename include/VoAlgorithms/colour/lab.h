#pragma once

#include "VoAlgorithms/colour/xyz.h"
#include "VoAlgorithms/export.h"

#include <bit>
#include <cstdint>

namespace VoAlgo::cs {

/// CIE 1976 L*a*b* under D65: L 0 … 100, a and b nominally −128 … 127. Values outside are kept until Clamp is called.
class Lab : public TColor<Lab> {
public:
    /// Nominal ranges of the components, in their order.
    static constexpr ChannelRange Ranges[3] = {{0, 100}, {-128, 127}, {-128, 127}};

    ///@{
    /// Lightness, green to red, blue to yellow.
    double L = 0;
    double a = 0;
    double b = 0;
    ///@}

    /// All components 0.
    constexpr Lab() noexcept = default;
    /// The components as they are.
    constexpr Lab(double lightness, double greenRed, double blueYellow) noexcept
        : L(lightness), a(greenRed), b(blueYellow)
    {
    }
    /// From tristimulus values, relative to XYZ::WhiteReference; nothing is clamped.
    constexpr Lab(const XYZ& xyz) noexcept
    {
        constexpr XYZ White = XYZ::WhiteReference();
        const double fx = pivotXYZ(xyz.X / White.X), fy = pivotXYZ(xyz.Y / White.Y), fz = pivotXYZ(xyz.Z / White.Z);
        L = 116 * fy - 16;
        a = 500 * (fx - fy);
        b = 200 * (fy - fz);
    }
    /// From linear components; for gamma-coded ones write Lab(XYZ::FromSRGB(rgb)). For whole pictures see ConvertToLab.
    constexpr Lab(const RGB& rgb) noexcept : Lab(XYZ(rgb)) {}

    /// Each component is clamped to 0 … 100, which cuts Z of a bright white (deliberate).
    [[nodiscard]] constexpr XYZ ToXYZ() const noexcept
    {
        constexpr XYZ White = XYZ::WhiteReference();
        const double fy = (L + 16) / 116, fx = a / 500 + fy, fz = fy - b / 200;
        const double y = L > 8 ? fy * fy * fy : L / XYZ::Kappa();
        return XYZ(inversePivot(fx) * White.X, y * White.Y, inversePivot(fz) * White.Z).Clamp();
    }
    /// To linear components, clamped to 0 … 255.
    [[nodiscard]] constexpr RGB ToRGB() const noexcept { return ToXYZ().ToRGB(); }

    /// Clamps each component to its range, NaN excepted. Returns the object.
    constexpr Lab& Clamp() noexcept { return clamp(); }

    /// The squared colour difference CIEDE2000 with kL = kC = kH = 1.
    /// Source: G. Sharma, W. Wu and E. N. Dalal, Color Res. Appl. 30 (2005) 21-30.
    [[nodiscard]] VOALGO_API double DistanceSq_CIEDE2000(const Lab& other) const noexcept;

    /// Exact equality of all components.
    friend constexpr bool operator==(const Lab&, const Lab&) noexcept = default;

private:
    friend class TColor<Lab>;
    static constexpr double Lab::*Components[3] = {&Lab::L, &Lab::a, &Lab::b};

    /// Above Epsilon the cube root of t, from an initial guess built from its bits and two Halley steps (relative error
    /// below 1e-14); below it the line that continues the root. Infinity gives NaN.
    static constexpr double pivotXYZ(double t) noexcept
    {
        if (!(t > XYZ::Epsilon())) return (XYZ::Kappa() * t + 16) / 116;
        const auto high = static_cast<std::uint32_t>(std::bit_cast<std::uint64_t>(t) >> 32);
        double y = std::bit_cast<double>(static_cast<std::uint64_t>(high / 3 + 0x2a9f7893U) << 32);
        for (int step = 0; step < 2; ++step) {
            const double cube = y * y * y;
            y = y * (cube + 2 * t) / (2 * cube + t);
        }
        return y;
    }
    static constexpr double inversePivot(double f) noexcept
    {
        const double cube = f * f * f;
        return cube <= XYZ::Epsilon() ? (f - 0.13793103448275862) / 7.787 : cube;
    }
};

} // namespace VoAlgo::cs
