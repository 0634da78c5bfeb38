#pragma once

#include "VoAlgorithms/colour/channelrange.h"
#include "VoAlgorithms/export.h"

#include <array>
#include <cstddef>
#include <vector>

namespace VoAlgo::cs {

/// A curve from the range of one colour channel into the same range: a piecewise cubic through control points. Between
/// two neighbouring points it is monotone (up to the last rounding), so it stays between their values, and ascending
/// (descending) points make an ascending (descending) curve. It is constant left of the first point and right of the
/// last.
/// Slopes: the weighted harmonic mean of the neighbouring secants, F. N. Fritsch and J. Butland, SIAM J. Sci. Stat.
/// Comput. 5 (1984) 300-304, zero at a local extremum, at the ends the secant. They lie in the region that F. N.
/// Fritsch and R. E. Carlson, SIAM J. Numer. Anal. 17 (1980) 238-246, show to be monotone.
class VOALGO_API CChannelTransferCurve {
public:
    /// A control point.
    struct Point {
        double x = 0; ///< input value
        double y = 0; ///< output value

        /// Exact equality of both coordinates.
        friend constexpr bool operator==(const Point&, const Point&) noexcept = default;
    };

    /// The identity, its control points equally spaced over the range, the first and the last at its ends.
    /// Throws std::invalid_argument ("invalid range") unless both ends are finite and min < max, and ("too few control
    /// points") for fewer than two points.
    CChannelTransferCurve(ChannelRange range, int points);
    /// A curve through these points, from left to right. Throws as above, and ("invalid control point N") for the first
    /// point, counted from 0, that is not finite, lies outside the range, or is not to the right of the one before by
    /// at least 2⁻³² of the range.
    CChannelTransferCurve(ChannelRange range, const std::vector<Point>& points);

    /// The range of x and of y.
    [[nodiscard]] const ChannelRange& Range() const noexcept { return range_; }
    /// Number of control points, at least 2.
    [[nodiscard]] std::size_t NumPoints() const noexcept { return knots_.size(); }
    /// Control point by index, from left to right. Throws std::out_of_range ("invalid control point index").
    [[nodiscard]] Point GetPoint(std::size_t index) const;

    /// Moves a control point. Returns false and changes nothing when the new place is not finite, lies outside the
    /// range in x or y, or is not to the right of the previous point and to the left of the next by at least 2⁻³² of
    /// the range. Linear in the number of points. Throws std::out_of_range ("invalid control point index").
    [[nodiscard]] bool MovePoint(std::size_t index, Point place);

    /// The curve's value. NaN gives NaN. Logarithmic in the number of points.
    [[nodiscard]] double operator()(double x) const noexcept;

private:
    struct Knot {
        Point place;
        double slope = 1;
    };

    CChannelTransferCurve(ChannelRange range, std::size_t points);
    [[nodiscard]] bool isPlace(Point place) const noexcept;
    [[nodiscard]] double smallestGap() const noexcept;
    void updateSlopes() noexcept;

    ChannelRange range_;
    std::vector<Knot> knots_; // ascending in x
};

/// Three channel curves, for the colours of one class.
template <class Color>
class TColorTransferCurve {
public:
    /// Three identities over the class's ranges. Throws std::invalid_argument ("too few control points") for fewer than
    /// two points.
    explicit TColorTransferCurve(int points)
        : channels_{CChannelTransferCurve(Color::Ranges[0], points), CChannelTransferCurve(Color::Ranges[1], points),
                    CChannelTransferCurve(Color::Ranges[2], points)}
    {
    }

    ///@{
    /// The curve of a channel, in the order of the class's components. Throws std::out_of_range for an index above 2.
    CChannelTransferCurve& Channel(std::size_t channel) { return channels_.at(channel); }
    const CChannelTransferCurve& Channel(std::size_t channel) const { return channels_.at(channel); }
    ///@}

    /// The colour with each component replaced by its curve's value.
    [[nodiscard]] Color operator()(const Color& color) const noexcept
    {
        return Color(channels_[0](color[0]), channels_[1](color[1]), channels_[2](color[2]));
    }

private:
    std::array<CChannelTransferCurve, 3> channels_;
};

/// The curve of one channel of a colour class, 0, 1 or 2 in the order of its components. Throws std::out_of_range
/// ("invalid channel index"), or what the constructor of the curve throws.
VOALGO_API CChannelTransferCurve CreateChannelTransferCurve(const ChannelRange (&ranges)[3], int channel, int points);

} // namespace VoAlgo::cs
