#pragma once

namespace VoAlgo::cs {

/// The nominal range of one colour component, both ends included. min and max are integers in every class.
struct ChannelRange {
    double min = 0; ///< lowest nominal value
    double max = 0; ///< highest nominal value

    /// min below the range, max above it; NaN stays NaN.
    [[nodiscard]] constexpr double Clamp(double value) const noexcept
    {
        return value < min ? min : (max < value ? max : value);
    }
    /// The nearest integer, ties to even, clamped to the range; min for NaN.
    [[nodiscard]] constexpr int Round(double value) const noexcept
    {
        const double inside = value > min ? (value < max ? value : max) : min; // rounding keeps order: clamp first
        const int integer = static_cast<int>(inside);
        const double rest = inside - integer; // exact
        const bool odd = integer % 2 != 0;
        if (rest > 0.5 || (rest == 0.5 && odd)) return integer + 1;
        if (rest < -0.5 || (rest == -0.5 && odd)) return integer - 1;
        return integer;
    }

    /// Equality of both ends.
    friend constexpr bool operator==(const ChannelRange&, const ChannelRange&) noexcept = default;
};

} // namespace VoAlgo::cs
