#include "VoAlgorithms/raster/clineraster.h"

#include "VoAlgorithms/raster/ctriangle2d.h"
#include "platform/log.h"
#include "raster/detail_exactsum.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <tuple>
#include <utility>

namespace VoAlgo {
namespace {

const Logging::CLogger& Logger()
{
    static const Logging::CLogger& logger = Logging::GetLogger("KEP2.CLineRaster");
    return logger;
}

std::int64_t FloorQuotient(std::int64_t a, std::int64_t b) // b > 0
{
    return a / b - (a % b < 0);
}

std::int64_t FloorRemainder(std::int64_t a, std::int64_t b) // b > 0
{
    return a - b * FloorQuotient(a, b);
}

std::int64_t Floor(double v)
{
    return static_cast<std::int64_t>(std::floor(v));
}

std::int64_t Ceil(double v)
{
    return static_cast<std::int64_t>(std::ceil(v));
}

bool IsInPixel(double v)
{
    return v >= INT32_MIN && v < 2147483648.0;
}

/// The first of [begin, end) that fulfils a condition which holds from there on; end if none does.
template <class Condition>
std::int64_t FirstOf(std::int64_t begin, std::int64_t end, Condition&& condition)
{
    while (begin < end) {
        const std::int64_t middle = begin + (end - begin) / 2;
        if (condition(middle))
            end = middle;
        else
            begin = middle + 1;
    }
    return begin;
}

} // namespace

void CLineRaster::refuse(const Place& from, const Place& to)
{
    VOALGO_LOG(Logger(), Error, "CLineRaster::CLineRaster",
               L"a line from (%g, %g) to (%g, %g) has ends that are no pixels of 32-bit coordinates", from[0], from[1],
               to[0], to[1]);
    clip_ = {};
}

void CLineRaster::setPixels(const Pixel& from, const Pixel& to)
{
    const auto centre = [](const Pixel& p) { return Place{p[0] + 0.5, p[1] + 0.5}; };
    setPlaces(centre(from), centre(to));
    areReal_ = false;
}

void CLineRaster::setPlaces(const Place& from, const Place& to)
{
    if (!IsInPixel(from[0]) || !IsInPixel(from[1]) || !IsInPixel(to[0]) || !IsInPixel(to[1])) return refuse(from, to);
    areReal_ = true;
    isUpwards_ = to[1] < from[1];
    isLeftwards_ = to[0] < from[0];
    top_ = isUpwards_ ? to : from;
    bottom_ = isUpwards_ ? from : to;
    isFlat_ = top_[1] == bottom_[1];
    isFalling_ = top_[0] <= bottom_[0];
    isCentred_ = connection_ == EConnection::Eight && bottom_[1] - top_[1] > std::abs(bottom_[0] - top_[0]);
    const double left = std::min(from[0], to[0]), right = std::max(from[0], to[0]);
    box_ = connection_ == EConnection::Supercover
               ? PixelRect{Ceil(left) - 1, Ceil(top_[1]) - 1, Floor(right) + 1, Floor(bottom_[1]) + 1}
               : PixelRect{Floor(left), Floor(top_[1]), Floor(right) + 1, Floor(bottom_[1]) + 1};
    setOffsets();
}

/// The pixel on either side of a crossing where a run begins or ends. Those of Eight are crossings of the centres of
/// columns (in flat lines); a centre on the border of two rows belongs to the lower one.
void CLineRaster::setOffsets()
{
    if (connection_ == EConnection::Supercover) leftOffset_ = {0, -1}; // both sides of a corner
    if (connection_ != EConnection::Eight || isCentred_) return;
    leftOffset_ = isFalling_ ? std::array<std::int8_t, 2>{1, 0} : std::array<std::int8_t, 2>{1, 1};
    rightOffset_ = isFalling_ ? std::array<std::int8_t, 2>{0, -1} : std::array<std::int8_t, 2>{0, 0};
}

/// At the upper border of row `height`, or its centre when that is what counts.
CLineRaster::Crossing CLineRaster::crossing(std::int64_t height) const
{
    if (isFlat_) return {};
    if (areReal_) return realCrossing(height);
    const Stepper stepper = stepperAt(height, false);
    return {stepper.column, stepper.remainder == 0};
}

/// The floor of origin + (first + 2·k·numerator) / (2·denominator) for the
/// k given and then for those before or behind it. Exact for |numerator|, denominator < 2^32 and k ≤ 2^32.
CLineRaster::Stepper CLineRaster::makeStepper(std::int64_t origin, std::int64_t first, std::int64_t numerator,
                                              std::int64_t denominator, std::int64_t k, bool isBackwards)
{
    const auto size = static_cast<std::uint64_t>(std::abs(numerator)) * static_cast<std::uint64_t>(k); // < 2^64
    const std::int64_t sign = numerator < 0 ? -1 : 1;
    const std::int64_t whole = sign * static_cast<std::int64_t>(size / static_cast<std::uint64_t>(denominator));
    const std::int64_t rest = sign * static_cast<std::int64_t>(size % static_cast<std::uint64_t>(denominator));
    const std::int64_t growth = isBackwards ? -numerator : numerator;
    Stepper stepper;
    stepper.divisor = 2 * denominator;
    stepper.column = origin + whole + FloorQuotient(first + 2 * rest, stepper.divisor);
    stepper.remainder = FloorRemainder(first + 2 * rest, stepper.divisor);
    stepper.step = FloorQuotient(growth, denominator);
    stepper.stepRemainder = 2 * FloorRemainder(growth, denominator);
    return stepper;
}

/// With d the vector between the ends and k rows from the first, the line crosses borders at x₀ + 1/2 + (k − 1/2)·dx/dy
/// and centres of rows at x₀ + 1/2 + k·dx/dy. The lattice of centres of columns is 1/2 to the right.
CLineRaster::Stepper CLineRaster::stepperAt(std::int64_t height, bool isUpwards) const
{
    const std::int64_t x0 = Floor(top_[0]), dx = Floor(bottom_[0]) - x0;
    const std::int64_t y0 = Floor(top_[1]), dy = Floor(bottom_[1]) - y0;
    const bool areCentresOfColumns = connection_ == EConnection::Eight && !isCentred_;
    return makeStepper(x0, (isCentred_ ? 0 : -dx) + (areCentresOfColumns ? 0 : dy), dx, dy, height - y0, isUpwards);
}

CLineRaster::Steps CLineRaster::visibleSteps() const
{
    const PixelRect visible = box_.Intersection(clip_);
    if (visible.IsEmpty()) return {};
    // Along rows when steep, else columns; from the least of them, whose other coordinate is `origin`.
    const bool isBackwards = isCentred_ ? isUpwards_ : isLeftwards_;
    const std::int64_t least = isCentred_ ? box_.yBegin : box_.xBegin;
    const std::int64_t length = isCentred_ ? box_.yEnd - box_.yBegin - 1 : box_.xEnd - box_.xBegin - 1;
    const std::int64_t low = isCentred_ ? box_.xBegin : box_.yBegin, high = isCentred_ ? box_.xEnd : box_.yEnd;
    const std::int64_t origin = isFalling_ ? low : high - 1, rise = isFalling_ ? high - 1 - low : low + 1 - high;
    const auto stepper = [&](std::int64_t i) {
        return makeStepper(origin, length, rise, std::max<std::int64_t>(length, 1), i - least, isBackwards);
    };
    std::int64_t begin = isCentred_ ? visible.yBegin : visible.xBegin, end = isCentred_ ? visible.yEnd : visible.xEnd;
    const std::int64_t visibleLow = isCentred_ ? visible.xBegin : visible.yBegin;
    const std::int64_t visibleHigh = isCentred_ ? visible.xEnd : visible.yEnd;
    const auto isBelow = [&](std::int64_t i) { return stepper(i).column < visibleLow; };
    const auto isAbove = [&](std::int64_t i) { return stepper(i).column >= visibleHigh; };
    begin = FirstOf(begin, end, [&](std::int64_t i) { return isFalling_ ? !isBelow(i) : !isAbove(i); });
    end = FirstOf(begin, end, [&](std::int64_t i) { return isFalling_ ? isAbove(i) : isBelow(i); });
    if (begin == end) return {};
    return isBackwards ? Steps{end - 1, begin - 1, stepper(end - 1)} : Steps{begin, end, stepper(begin)};
}

/// A rounded crossing serves unless the lattice is as near as its error; then the exact orientation decides.
CLineRaster::Crossing CLineRaster::realCrossing(std::int64_t height) const
{
    const double offset = connection_ == EConnection::Eight && !isCentred_ ? 0.5 : 0;
    // Centres of rows beyond an end are as good as the end.
    const double border = static_cast<double>(height);
    const double y = isCentred_ ? std::clamp(border + 0.5, top_[1], bottom_[1]) : border;
    const double x = top_[0] + (y - top_[1]) * ((bottom_[0] - top_[0]) / (bottom_[1] - top_[1])) - offset;
    const double error = 8 * DBL_EPSILON * (std::abs(top_[0]) + std::abs(bottom_[0]) + 1);
    // The box suffices, for runs end there, and the first and the last run at its corners.
    std::int64_t begin = box_.xBegin - 1, end = box_.xEnd + 1;
    if (!isCentred_ && height <= box_.yBegin) return {isFalling_ ? begin : end, false};
    if (!isCentred_ && height >= box_.yEnd) return {isFalling_ ? end : begin, false};
    const auto bounded = [&](double v) {
        return v > static_cast<double>(begin) ? v < static_cast<double>(end) ? Ceil(v) : end : begin;
    };
    if (x - error <= x + error) std::tie(begin, end) = std::pair(bounded(x - error), bounded(x + error));
    const auto orientation = [&](std::int64_t column) {
        return CTriangle2D::Orientation(top_, bottom_, {static_cast<double>(column) + offset, y});
    };
    if (begin == end) return {begin - 1, false};
    const std::int64_t first = FirstOf(begin, end, [&](std::int64_t column) { return orientation(column) <= 0; });
    return orientation(first) == 0 ? Crossing{first, true} : Crossing{first - 1, false};
}

CLineRaster::Walk::Walk(const CLineRaster& line, bool isUpwards)
    : line_(line), visible_(line.box_.Intersection(line.clip_)), isUpwards_(isUpwards)
{
    if (visible_.IsEmpty()) return;
    // Rows before and behind the visible columns, seen downwards.
    const auto lastBorder = [&line](std::int64_t y) { return line.isCentred_ ? y : y + 1; };
    const auto run = [&](std::int64_t y) {
        return line.makeRun(y, line.crossing(y), line.crossing(lastBorder(y)), visible_);
    };
    const auto isBefore = [&](std::int64_t y) {
        return line.isFalling_ ? run(y).xEnd <= visible_.xBegin : run(y).xBegin >= visible_.xEnd;
    };
    const auto isBehind = [&](std::int64_t y) {
        return line.isFalling_ ? run(y).xBegin >= visible_.xEnd : run(y).xEnd <= visible_.xBegin;
    };
    visible_.yBegin = FirstOf(visible_.yBegin, visible_.yEnd, [&](std::int64_t y) { return !isBefore(y); });
    visible_.yEnd = FirstOf(visible_.yBegin, visible_.yEnd, isBehind);
    numRows_ = visible_.yEnd - visible_.yBegin;
    if (numRows_ <= 0) return;
    y_ = isUpwards_ ? visible_.yEnd - 1 : visible_.yBegin;
    height_ = isUpwards_ ? lastBorder(y_) : y_;
    crossing_ = line.crossing(height_);
    if (!line.areReal_ && !line.isFlat_) stepper_ = line.stepperAt(height_, isUpwards_);
}

PixelRect CLineRaster::thickBox(double thickness) const
{
    if (!(thickness >= 0 && thickness <= DBL_MAX) || clip_.IsEmpty()) return {};
    const PixelRect everything = PixelRect::Everything();
    const auto bound = [](double v, std::int64_t low, std::int64_t high) {
        return static_cast<std::int64_t>(std::clamp(v, static_cast<double>(low), static_cast<double>(high)));
    };
    const double reach = thickness / 2 + 1, left = std::min(top_[0], bottom_[0]), right = std::max(top_[0], bottom_[0]);
    return clip_.Intersection({bound(std::floor(left - reach), everything.xBegin, everything.xEnd),
                               bound(std::floor(top_[1] - reach), everything.yBegin, everything.yEnd),
                               bound(std::ceil(right + reach), everything.xBegin, everything.xEnd),
                               bound(std::ceil(bottom_[1] + reach), everything.yBegin, everything.yEnd)});
}

namespace {

using Vector = std::array<double, 2>;

Vector Difference(const Vector& a, const Vector& b)
{
    return {a[0] - b[0], a[1] - b[1]};
}

/// The sign of a·b.
int SignOfProduct(const Vector& a, const Vector& b)
{
    const double x = a[0] * b[0], y = a[1] * b[1], sum = x + y;
    if (std::abs(sum) > 4 * DBL_EPSILON * (std::abs(x) + std::abs(y))) return sum > 0 ? 1 : -1;
    ExactSum<2> exact;
    exact.Add(1, {a[0], b[0]});
    exact.Add(1, {a[1], b[1]});
    return exact.Sign();
}

/// Whether |v| ≤ radius.
bool IsWithin(const Vector& v, double radius)
{
    const double lengthSq = v[0] * v[0] + v[1] * v[1], radiusSq = radius * radius;
    if (std::abs(lengthSq - radiusSq) > 8 * DBL_EPSILON * (lengthSq + radiusSq)) return lengthSq < radiusSq;
    ExactSum<2> exact;
    exact.Add(1, {v[0], v[0]});
    exact.Add(1, {v[1], v[1]});
    exact.Add(-1, {radius, radius});
    return exact.Sign() <= 0;
}

/// Whether v lies at most `radius` from the line through 0 along d: (d × v)² ≤ radius²·d².
bool IsNearLine(const Vector& v, const Vector& d, double radius)
{
    const double forth = d[0] * v[1], back = d[1] * v[0], reach = radius * std::hypot(d[0], d[1]);
    const double distance = std::abs(forth - back);
    if (std::abs(distance - reach) > 8 * DBL_EPSILON * (std::abs(forth) + std::abs(back) + reach))
        return distance < reach;
    ExactSum<4> exact;
    exact.Add(1, {d[0], d[0], v[1], v[1]});
    exact.Add(-1, {2 * d[0], d[1], v[0], v[1]});
    exact.Add(1, {d[1], d[1], v[0], v[0]});
    exact.Add(-1, {d[0], d[0], radius, radius});
    exact.Add(-1, {d[1], d[1], radius, radius});
    return exact.Sign() <= 0;
}

struct Interval {
    double low = 0, high = -1;

    void Include(const Interval& other)
    {
        if (other.low > other.high) return;
        *this = low > high ? other : Interval{std::min(low, other.low), std::max(high, other.high)};
    }
    void Cut(double a, double b) { *this = {std::max(low, std::min(a, b)), std::min(high, std::max(a, b))}; }
};

} // namespace

CLineRaster::ThickWalk::ThickWalk(const CLineRaster& line, double thickness)
    : box_(line.thickBox(thickness)), top_(line.top_), bottom_(line.bottom_), difference_(Difference(bottom_, top_)),
      radius_(thickness / 2), length_(std::hypot(difference_[0], difference_[1])),
      lean_(difference_[1] == 0 ? 0 : difference_[0] / difference_[1]),
      halfWidth_(difference_[1] == 0 ? HUGE_VAL : radius_ * (length_ / difference_[1])),
      slope_(difference_[0] == 0 ? 0 : difference_[1] / difference_[0])
{
}

bool CLineRaster::ThickWalk::isInside(std::int64_t column, double y) const
{
    const Vector centre = {static_cast<double>(column) + 0.5, y};
    const Vector u = Difference(centre, top_), v = Difference(centre, bottom_);
    return IsWithin(u, radius_) || IsWithin(v, radius_) ||
           (SignOfProduct(u, difference_) > 0 && SignOfProduct(v, difference_) < 0 &&
            IsNearLine(u, difference_, radius_));
}

/// In a row of a convex shape is one run: that of both discs and of the band between them. Rounded bounds serve unless
/// a centre is as near as their error.
bool CLineRaster::ThickWalk::Next(Run& run)
{
    for (; box_.yBegin < box_.yEnd; ++box_.yBegin) {
        const double yCentre = static_cast<double>(box_.yBegin) + 0.5, y = yCentre - top_[1],
                     yBelow = yCentre - bottom_[1];
        Interval row; // from the top
        const auto includeDisc = [&](double x, double height) {
            if (std::abs(height) > radius_) return;
            const double half = std::sqrt((radius_ - height) * (radius_ + height));
            row.Include({x - half, x + half});
        };
        includeDisc(0, y);
        includeDisc(difference_[0], yBelow);
        // |dx·y − dy·x| ≤ radius·length, and the foot lies between the ends
        Interval band{lean_ * y - halfWidth_, lean_ * y + halfWidth_};
        if (difference_[0] != 0) band.Cut(-slope_ * y, difference_[0] - slope_ * yBelow);
        const bool hasBand = difference_[0] != 0 ? difference_[1] != 0 || std::abs(y) <= radius_ : y > 0 && yBelow < 0;
        if (hasBand) row.Include(band);
        if (row.low > row.high) continue;

        const auto error = [&](double x) {
            const double leaning = difference_[1] == 0 ? 0 : std::abs(lean_ * y) + halfWidth_;
            return 16 * DBL_EPSILON * (std::abs(x) + std::abs(top_[0]) + std::abs(bottom_[0]) + radius_ + leaning + 1);
        };
        const auto clamped = [&](double x) { // both bounds as closed ends
            return static_cast<std::int64_t>(
                std::clamp(x, static_cast<double>(box_.xBegin) - 1, static_cast<double>(box_.xEnd)));
        };
        const double low = row.low + top_[0] - 0.5, high = row.high + top_[0] - 0.5;
        std::int64_t first = clamped(std::ceil(low)), last = clamped(std::floor(high));
        if (std::abs(low - std::round(low)) <= error(low)) {
            const std::int64_t end = std::min(last + 2, box_.xEnd);
            while (first >= box_.xBegin && isInside(first - 1, yCentre)) --first;
            while (first < end && !isInside(first, yCentre)) ++first;
        }
        if (std::abs(high - std::round(high)) <= error(high)) {
            while (last < box_.xEnd && isInside(last + 1, yCentre)) ++last;
            while (last >= first && !isInside(last, yCentre)) --last;
        }
        run = {box_.yBegin, std::max(first, box_.xBegin), std::min(last + 1, box_.xEnd)};
        if (run.xBegin >= run.xEnd) continue;
        ++box_.yBegin;
        return true;
    }
    return false;
}

} // namespace VoAlgo
