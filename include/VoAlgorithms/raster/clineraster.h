#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/raster/pixelrect.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <type_traits>
#include <utility>

namespace VoAlgo {

/// The pixels of the straight line between two ends. Integers name pixels, whose centres are the ends; real numbers are
/// places in the plane, where pixel (x, y) is [x, x+1) × [y, y+1). The pixels do not depend on which end is the first,
/// nor on the clipping. Ends in pixels that 32 bits cannot hold, and ends that are no numbers, are logged as errors on
/// the channel "KEP2.CLineRaster"; such a line has no pixels.
///
/// Steps are exact, in integers for integer ends and by exact signs (CTriangle2D::Orientation) for real ones. Reaching
/// the clip rectangle takes logarithmic time, each pixel thereafter constant time.
class VOALGO_API CLineRaster {
public:
    /// Which pixels a line has.
    enum class EConnection {
        Eight,     ///< one in each column (row, when it is steep): that with the line at its centre
        Four,      ///< all that the line passes; at a corner between four, of the other two that to the right
        Supercover ///< all whose closed squares it touches
    };
    /// x, y.
    using Pixel = std::array<std::int32_t, 2>;
    class Iterator;

    /// The line from (x0, y0) to (x1, y1), all integers or else real numbers.
    template <class X0, class Y0, class X1, class Y1>
    requires(std::is_arithmetic_v<X0>&& std::is_arithmetic_v<Y0>&& std::is_arithmetic_v<X1>&& std::is_arithmetic_v<Y1>)
        CLineRaster(X0 x0, Y0 y0, X1 x1, Y1 y1, EConnection connection = EConnection::Eight)
        : connection_(connection)
    {
        if constexpr (std::is_integral_v<X0> && std::is_integral_v<Y0> && std::is_integral_v<X1> &&
                      std::is_integral_v<Y1>) {
            if (isPixel(x0) && isPixel(y0) && isPixel(x1) && isPixel(y1))
                setPixels({static_cast<std::int32_t>(x0), static_cast<std::int32_t>(y0)},
                          {static_cast<std::int32_t>(x1), static_cast<std::int32_t>(y1)});
            else
                refuse({static_cast<double>(x0), static_cast<double>(y0)},
                       {static_cast<double>(x1), static_cast<double>(y1)});
        } else {
            setPlaces({static_cast<double>(x0), static_cast<double>(y0)},
                      {static_cast<double>(x1), static_cast<double>(y1)});
        }
    }

    /// Leaves out the pixels outside a rectangle.
    CLineRaster& ClipTo(const PixelRect& clip)
    {
        clip_ = clip_.Intersection(clip);
        return *this;
    }

    /// Calls f(x, y) for each pixel, two std::int32_t, from the first end to the second.
    template <class F>
    void ForEachPixel(F&& f) const
    {
        if (connection_ == EConnection::Eight && !areReal_) return forEachStep(f);
        Walk walk(*this, isUpwards_);
        for (Run run; walk.Next(run);) {
            const auto y = static_cast<std::int32_t>(run.y);
            if (isLeftwards_)
                for (std::int64_t x = run.xEnd; x-- > run.xBegin;) f(static_cast<std::int32_t>(x), y);
            else
                for (std::int64_t x = run.xBegin; x < run.xEnd; ++x) f(static_cast<std::int32_t>(x), y);
        }
    }
    /// The same for the 8-connected line between two ends.
    template <class X0, class Y0, class X1, class Y1, class F>
    static void ForEachPixel(X0 x0, Y0 y0, X1 x1, Y1 y1, F&& f)
    {
        CLineRaster(x0, y0, x1, y1).ForEachPixel(std::forward<F>(f));
    }
    /// Calls f(y, xBegin, xEnd) for each row of pixels, downwards: std::int32_t y, std::int64_t xBegin < xEnd.
    template <class F>
    void ForEachRun(F&& f) const
    {
        Walk walk(*this, false);
        for (Run run; walk.Next(run);) f(static_cast<std::int32_t>(run.y), run.xBegin, run.xEnd);
    }
    /// The same for the pixels whose centres are at most thickness / 2 from the segment between the ends (which makes
    /// the ends round), whatever the connection; exact for integer ends. None when the thickness is negative or not
    /// finite. Takes time for each row that the clip rectangle leaves of it.
    template <class F>
    void ForEachThickRun(double thickness, F&& f) const
    {
        ThickWalk walk(*this, thickness);
        for (Run run; walk.Next(run);) f(static_cast<std::int32_t>(run.y), run.xBegin, run.xEnd);
    }

    ///@{
    /// The pixels one by one, as by ForEachPixel. The line must outlive the iterators.
    [[nodiscard]] Iterator begin() const;
    [[nodiscard]] std::default_sentinel_t end() const { return {}; }
    ///@}

private:
    using Place = std::array<double, 2>;
    struct Run {
        std::int64_t y, xBegin, xEnd;
    };
    /// Where the line crosses a height: the last place on the lattice that is not right of it, and whether it is there.
    struct Crossing {
        std::int64_t column;
        bool isExact;
    };
    /// The crossings of integer lines, height after height: the floor of a fraction that grows by a fraction.
    struct Stepper {
        void Next()
        {
            remainder += stepRemainder;
            const bool hasCarry = remainder >= divisor;
            column += step + hasCarry;
            remainder -= hasCarry ? divisor : 0;
        }

        std::int64_t column = 0, remainder = 0, step = 0, stepRemainder = 0, divisor = 1;
    };
    /// The visible runs, downwards or upwards.
    class VOALGO_API Walk {
    public:
        Walk(const CLineRaster& line, bool isUpwards);
        bool Next(Run& run)
        {
            for (; numRows_ > 0; --numRows_) {
                const Crossing exit = line_.isCentred_ ? crossing_ : nextCrossing();
                run = line_.makeRun(y_, isUpwards_ ? exit : crossing_, isUpwards_ ? crossing_ : exit, visible_);
                crossing_ = line_.isCentred_ ? nextCrossing() : exit;
                y_ += isUpwards_ ? -1 : 1;
                if (run.xBegin < run.xEnd) {
                    --numRows_;
                    return true;
                }
            }
            return false;
        }

    private:
        Crossing nextCrossing()
        {
            if (line_.areReal_) return line_.realCrossing(height_ += isUpwards_ ? -1 : 1);
            stepper_.Next();
            return {stepper_.column, stepper_.remainder == 0};
        }

        const CLineRaster& line_;
        PixelRect visible_;
        bool isUpwards_;
        std::int64_t y_ = 0, numRows_ = 0, height_ = 0;
        Stepper stepper_;
        Crossing crossing_{}; // on entry of row y_
    };

    /// The visible pixels of an 8-connected integer line, one for each row if it is steep, else for each column.
    struct Steps {
        std::int64_t begin = 0, end = 0; // rows or columns, in the order of travel
        Stepper other;                   // the column or row there
    };
    /// The visible runs of a thick line, downwards.
    class VOALGO_API ThickWalk {
    public:
        ThickWalk(const CLineRaster& line, double thickness);
        bool Next(Run& run);

    private:
        [[nodiscard]] bool isInside(std::int64_t column, double y) const;

        PixelRect box_; // the rows to come
        Place top_, bottom_, difference_;
        double radius_, length_, lean_, halfWidth_, slope_;
    };

    template <class F>
    void forEachStep(F&& f) const
    {
        Steps steps = visibleSteps();
        const auto walk = [&](auto&& g) {
            const std::int64_t direction = steps.begin <= steps.end ? 1 : -1;
            for (std::int64_t i = steps.begin; i != steps.end; i += direction, steps.other.Next())
                g(static_cast<std::int32_t>(i), static_cast<std::int32_t>(steps.other.column));
        };
        if (isCentred_)
            walk([&](std::int32_t y, std::int32_t x) { f(x, y); });
        else
            walk([&](std::int32_t x, std::int32_t y) { f(x, y); });
    }
    [[nodiscard]] Steps visibleSteps() const;
    template <class Integer>
    static bool isPixel(Integer v)
    {
        const auto pixel = static_cast<std::int32_t>(v);
        return static_cast<Integer>(pixel) == v && (v < Integer{}) == (pixel < 0);
    }
    void setPixels(const Pixel& from, const Pixel& to);
    void setPlaces(const Place& from, const Place& to);
    void refuse(const Place& from, const Place& to);
    void setOffsets();
    /// Crossings are those of the upper and the lower border of the row, or both that of its centre.
    [[nodiscard]] Run makeRun(std::int64_t y, const Crossing& upper, const Crossing& lower,
                              const PixelRect& visible) const
    {
        if (isFlat_) return {y, visible.xBegin, visible.xEnd};
        const Crossing &left = isFalling_ ? upper : lower, &right = isFalling_ ? lower : upper;
        const std::int64_t first = left.column + leftOffset_[left.isExact];
        const std::int64_t last = right.column + rightOffset_[right.isExact];
        return {y, first > visible.xBegin ? first : visible.xBegin, last < visible.xEnd ? last + 1 : visible.xEnd};
    }
    [[nodiscard]] Crossing crossing(std::int64_t height) const;
    [[nodiscard]] Crossing realCrossing(std::int64_t height) const;
    [[nodiscard]] static Stepper makeStepper(std::int64_t origin, std::int64_t first, std::int64_t numerator,
                                             std::int64_t denominator, std::int64_t k, bool isBackwards);
    [[nodiscard]] Stepper stepperAt(std::int64_t height, bool isUpwards) const;
    [[nodiscard]] PixelRect thickBox(double thickness) const;

    EConnection connection_;
    bool areReal_ = false;                         // the ends are places, not pixels
    bool isUpwards_ = false, isLeftwards_ = false; // from the first end to the second
    bool isFalling_ = true;                        // from its upper end to the right, or straight down
    bool isFlat_ = true;                           // both ends at the same height
    bool isCentred_ = false;                       // steep: what counts is the crossing of the centre of each row
    std::array<std::int8_t, 2> leftOffset_{}, rightOffset_{}; // from a crossing (inexact, exact) to the ends of runs
    Place top_{}, bottom_{};                                  // the ends; centres of pixels
    PixelRect box_, clip_ = PixelRect::Everything();          // the pixels between the ends, and those wanted
};

/// Steps through the pixels of a line.
class CLineRaster::Iterator {
public:
    ///@{
    /// For the standard library.
    using value_type = Pixel;
    using difference_type = std::ptrdiff_t;
    ///@}

    /// The first pixel of a line.
    explicit Iterator(const CLineRaster& line) : walk_(line, line.isUpwards_), isLeftwards_(line.isLeftwards_)
    {
        nextRun();
    }

    /// The pixel.
    Pixel operator*() const
    {
        return {static_cast<std::int32_t>(isLeftwards_ ? run_.xEnd - 1 : run_.xBegin),
                static_cast<std::int32_t>(run_.y)};
    }
    ///@{
    /// To the next pixel.
    Iterator& operator++()
    {
        isLeftwards_ ? --run_.xEnd : ++run_.xBegin;
        if (run_.xBegin >= run_.xEnd) nextRun();
        return *this;
    }
    void operator++(int) { ++*this; }
    ///@}
    /// Whether all pixels are done.
    bool operator==(std::default_sentinel_t) const { return isDone_; }

private:
    void nextRun() { isDone_ = !walk_.Next(run_); }

    Walk walk_;
    Run run_{};
    bool isLeftwards_, isDone_ = false;
};

inline CLineRaster::Iterator CLineRaster::begin() const
{
    return Iterator(*this);
}

} // namespace VoAlgo
