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
    const Stepper stepper = stepperAt(height, 1);
    return {stepper.column, stepper.remainder == 0};
}

/// With k rows from the top's centre to the height, d the vector from end to end: x₀ + k·dx/dy, by a half less for a
/// border and by a half more on the lattice of borders, over the denominator 2·dy.
CLineRaster::Stepper CLineRaster::stepperAt(std::int64_t height, int direction) const
{
    const std::int64_t x0 = Floor(top_[0]), dx = Floor(bottom_[0]) - x0;
    const std::int64_t y0 = Floor(top_[1]), dy = Floor(bottom_[1]) - y0;
    const bool areCentresOfColumns = connection_ == EConnection::Eight && !isCentred_;
    const auto size = static_cast<std::uint64_t>(std::abs(dx)) * static_cast<std::uint64_t>(height - y0); // < 2^64
    const auto divisor = static_cast<std::uint64_t>(dy);
    const std::int64_t sign = dx < 0 ? -1 : 1;
    const std::int64_t whole = sign * static_cast<std::int64_t>(size / divisor);
    const std::int64_t rest =
        2 * sign * static_cast<std::int64_t>(size % divisor) - (isCentred_ ? 0 : dx) + (areCentresOfColumns ? 0 : dy);
    Stepper stepper;
    stepper.divisor = 2 * dy;
    stepper.column = x0 + whole + FloorQuotient(rest, stepper.divisor);
    stepper.remainder = rest - FloorQuotient(rest, stepper.divisor) * stepper.divisor;
    stepper.step = FloorQuotient(direction * dx, dy);
    stepper.stepRemainder = 2 * (direction * dx - stepper.step * dy);
    return stepper;
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
    if (!line.areReal_ && !line.isFlat_) stepper_ = line.stepperAt(height_, isUpwards_ ? -1 : 1);
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
};

/// All x with |x| ≤ radius at height y, a little more at the poles.
Interval RowOfDisc(double y, double radius)
{
    if (std::abs(y) > radius + 0.25) return {};
    const double half = std::sqrt(std::max(0.0, (radius - y) * (radius + y)));
    return {-half, half};
}

/// All x at height y at most `radius` from the segment from 0 to d, but for its ends; d[1] ≥ 0.
Interval RowOfBand(const Vector& d, double y, double radius)
{
    const double length = std::hypot(d[0], d[1]);
    if (length == 0) return {};
    Interval row{-HUGE_VAL, HUGE_VAL};
    const auto cut = [&row](double a, double b) {
        row = {std::max(row.low, std::min(a, b)), std::min(row.high, std::max(a, b))};
    };
    if (d[1] != 0)
        cut((d[0] * y - radius * length) / d[1], (d[0] * y + radius * length) / d[1]);
    else if (std::abs(y) > radius)
        return {};
    if (d[0] != 0)
        cut(-d[1] * y / d[0], (d[0] + (d[1] / d[0]) * (d[1] - y)));
    else if (y < 0 || y > d[1])
        return {};
    return row;
}

} // namespace

/// The row of a convex shape is one run; rounded bounds are corrected by the pixels next to them.
bool CLineRaster::findThickRun(const PixelRect& box, double radius, Run& run) const
{
    const double y = static_cast<double>(run.y) + 0.5;
    const Vector d = Difference(bottom_, top_);
    const auto isInside = [&](std::int64_t column) {
        const Vector centre = {static_cast<double>(column) + 0.5, y}, u = Difference(centre, top_),
                     v = Difference(centre, bottom_);
        return IsWithin(u, radius) || IsWithin(v, radius) ||
               (SignOfProduct(u, d) > 0 && SignOfProduct(v, d) < 0 && IsNearLine(u, d, radius));
    };
    Interval row = RowOfDisc(y - top_[1], radius); // from the upper end
    const Interval atBottom = RowOfDisc(y - bottom_[1], radius);
    row.Include({atBottom.low + d[0], atBottom.high + d[0]});
    row.Include(RowOfBand(d, y - top_[1], radius));
    if (row.low > row.high) return false;
    const auto column = [&](double x) {
        return static_cast<std::int64_t>(std::clamp(std::floor(x + top_[0]), static_cast<double>(box.xBegin) - 2,
                                                    static_cast<double>(box.xEnd) + 2));
    };
    const std::int64_t last = std::min(column(row.high) + 1, box.xEnd - 1);
    run.xBegin = std::max(column(row.low) - 1, box.xBegin);
    while (run.xBegin <= last && !isInside(run.xBegin)) ++run.xBegin;
    run.xEnd = last + 1;
    while (run.xEnd > run.xBegin && !isInside(run.xEnd - 1)) --run.xEnd;
    return run.xBegin < run.xEnd;
}

} // namespace VoAlgo
