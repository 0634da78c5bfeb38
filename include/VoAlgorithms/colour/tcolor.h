#pragma once

#include "VoAlgorithms/colour/channelrange.h"
#include "VoAlgorithms/colour/transfercurve.h"

#include <cstddef>

namespace VoAlgo::cs {

/// Base of the colour classes: access to its three components by index, and transfer curves
/// over their ranges. `Color` states `Ranges` and names its components, in the same order, in the private `Components`.
template <class Color>
class TColor {
public:
    /// Number of components.
    static constexpr int dim = 3; // NOLINT(readability-identifier-naming): hosts know it by this name

    /// Component 0, 1 or 2; unchecked.
    constexpr double operator[](std::size_t i) const noexcept { return self().*Color::Components[i]; }
    /// The same, to be changed.
    constexpr double& operator[](std::size_t i) noexcept { return self().*Color::Components[i]; }

    /// An identity curve to shape one channel (0, 1 or 2; else std::out_of_range) with at least two control points
    /// (else std::invalid_argument).
    [[nodiscard]] static CChannelTransferCurve CreateChannelTransferCurve(int channel, int points)
    {
        return cs::CreateChannelTransferCurve(Color::Ranges, channel, points);
    }
    /// Identity curves to shape all channels, with at least two control points each (else std::invalid_argument).
    [[nodiscard]] static TColorTransferCurve<Color> CreateColorTransferCurve(int points)
    {
        return TColorTransferCurve<Color>(points);
    }

    /// The part without components: always equal.
    friend constexpr bool operator==(const TColor&, const TColor&) noexcept = default;

protected:
    /// Clamps each component to its range, NaN excepted. Returns the object.
    constexpr Color& clamp() noexcept
    {
        Color& color = self();
        color[0] = Color::Ranges[0].Clamp(color[0]);
        color[1] = Color::Ranges[1].Clamp(color[1]);
        color[2] = Color::Ranges[2].Clamp(color[2]);
        return color;
    }

private:
    friend Color;
    constexpr TColor() noexcept = default;
    constexpr Color& self() noexcept { return static_cast<Color&>(*this); }
    [[nodiscard]] constexpr const Color& self() const noexcept { return static_cast<const Color&>(*this); }
};

} // namespace VoAlgo::cs
