#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/raster/pixelrect.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace VoAlgo {

/// A triangle in the plane, its corners in any order. Corners on one line are a triangle, too: their closed segment.
/// Answers that are yes or no are exact for all finite coordinates, however large, small or close they are. With a
/// coordinate that is not finite the triangle is invalid: it contains no point, overlaps nothing and has no pixels.
class VOALGO_API CTriangle2D {
public:
    /// x, y.
    using Point = std::array<double, 2>;
    /// A circle.
    struct Circle {
        Point centre;  ///< its centre
        double radius; ///< its radius
    };

    /// 1 when a, b, c turn left where y points up (and right where it points down), −1 when they turn the other way, 0
    /// when they lie on one line: the sign of (b − a) × (c − a). Exact for all finite coordinates; 0 when one is not
    /// finite. Usually a dozen operations; points next to a line take about a hundred nanoseconds.
    /// Source: J. R. Shewchuk, Discrete Comput. Geom. 18 (1997) 305–363, with sums of any exponent in the last stage.
    [[nodiscard]] static int Orientation(const Point& a, const Point& b, const Point& c)
    {
        const double left = (a[0] - c[0]) * (b[1] - c[1]), right = (a[1] - c[1]) * (b[0] - c[0]);
        const double determinant = left - right;
        const double bound = OrientationBound * (std::abs(left) + std::abs(right)) + Underflow;
        if (determinant > bound) return 1;
        if (-determinant > bound) return -1;
        return exactOrientation(a, b, c);
    }
    /// For a, b, c of orientation 1: 1 when d lies within their circle, −1 outside, 0 on it. For orientation −1 the
    /// sign is the opposite; for 0 it says on which side of the line d lies, or 0. Exact for all finite coordinates; 0
    /// when one is not finite. Tens of operations; points next to a circle take microseconds unless they lie on a
    /// lattice.
    [[nodiscard]] static int InCircle(const Point& a, const Point& b, const Point& c, const Point& d);

    /// The triangle of three corners.
    CTriangle2D(const Point& a, const Point& b, const Point& c);

    /// Corner 0, 1 or 2; unchecked.
    [[nodiscard]] const Point& operator[](std::size_t corner) const { return corners_[corner]; }
    /// Whether all coordinates are finite.
    [[nodiscard]] bool IsValid() const { return isValid_; }
    /// Orientation of the corners; 0 also for an invalid triangle.
    [[nodiscard]] int GetOrientation() const { return orientation_; }
    ///@{
    /// The area; with the sign of the orientation, or without.
    [[nodiscard]] double SignedArea() const;
    [[nodiscard]] double Area() const { return std::abs(SignedArea()); }
    ///@}

    /// The weights of the corners, with sum 1, whose mean is p; none for orientation 0.
    [[nodiscard]] std::optional<std::array<double, 3>> Barycentric(const Point& p) const;
    /// The circle through the corners; none for orientation 0. Its digits are those that the angles leave: few for
    /// needles.
    [[nodiscard]] std::optional<Circle> Circumcircle() const;
    /// The largest circle within; of radius 0 for orientation 0. None when the triangle is invalid.
    [[nodiscard]] std::optional<Circle> Incircle() const;

    /// Whether p lies inside or on the border.
    [[nodiscard]] bool Contains(const Point& p) const;
    ///@{
    /// Whether a point is in both, borders included: this triangle and another, the segment from p to q, the rectangle
    /// with the opposite corners p and q.
    [[nodiscard]] bool Overlaps(const CTriangle2D& other) const;
    [[nodiscard]] bool OverlapsSegment(const Point& p, const Point& q) const;
    [[nodiscard]] bool OverlapsRectangle(const Point& p, const Point& q) const;
    ///@}

    /// Calls f(y, xBegin, xEnd) for each row of pixels whose centres lie inside, downwards; only those in `clip`. The
    /// bounds are std::int32_t y, std::int64_t xBegin < xEnd. A centre on the border belongs to the triangle if this is
    /// a left or a top edge: triangles that tile a region cover each of its pixels once. Exact.
    template <class F>
    void ForEachRun(const PixelRect& clip, F&& f) const
    {
        Scan scan(*this, clip);
        for (Run run; scan.Next(run);) f(run.y, run.xBegin, run.xEnd);
    }
    /// The same with values of N channels per corner, linear in between: f(y, xBegin, xEnd, value, step), two arrays of
    /// N doubles; the value at the centre of pixel x is value + (x − xBegin)·step.
    template <std::size_t N, class F>
    void ForEachRun(const PixelRect& clip, const std::array<std::array<double, N>, 3>& values, F&& f) const
    {
        const auto [towardsB, towardsC] = weightGradients();
        std::array<double, N> step, down;
        for (std::size_t k = 0; k < N; ++k) {
            const double b = values[1][k] - values[0][k], c = values[2][k] - values[0][k];
            step[k] = b * towardsB[0] + c * towardsC[0];
            down[k] = b * towardsB[1] + c * towardsC[1];
        }
        ForEachRun(clip, [&](std::int32_t y, std::int64_t xBegin, std::int64_t xEnd) {
            const double dx = static_cast<double>(xBegin) + 0.5 - corners_[0][0], dy = y + 0.5 - corners_[0][1];
            std::array<double, N> value;
            for (std::size_t k = 0; k < N; ++k) value[k] = values[0][k] + (dx * step[k] + dy * down[k]);
            f(y, xBegin, xEnd, value, step);
        });
    }

private:
    struct Run {
        std::int32_t y;
        std::int64_t xBegin, xEnd;
    };
    /// An edge downwards, and where it crosses the centres of a row.
    struct Edge {
        Edge(const Point& from, const Point& to);
        [[nodiscard]] std::int64_t firstPixel(std::int64_t y, std::int64_t begin, std::int64_t end) const;

        Point top, bottom;
        double slope, error;
    };
    /// The rows of pixels, one after another.
    class VOALGO_API Scan {
    public:
        Scan(const CTriangle2D& triangle, const PixelRect& clip);
        bool Next(Run& run);

    private:
        Scan(const std::array<Point, 3>& corners, bool hasArea, const PixelRect& clip);

        Edge long_, upper_, lower_;
        bool isLongLeft_;
        PixelRect rest_;          // the rows to come
        std::int64_t yLower_ = 0; // from here on the lower of the two short edges bounds
    };

    // Rounding errors of the first stage, in units of its sums (Shewchuk, section 4.3); what products may lose below
    // the smallest normal number is far less than the second.
    static constexpr double OrientationBound = 3.3306690738754716e-16, Underflow = 0x1p-1000;
    static int exactOrientation(const Point& a, const Point& b, const Point& c);
    [[nodiscard]] std::array<Point, 2> weightGradients() const;

    std::array<Point, 3> corners_;
    bool isValid_;
    int orientation_;
};

} // namespace VoAlgo
