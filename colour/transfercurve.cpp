#include "VoAlgorithms/colour/transfercurve.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace VoAlgo::cs {
namespace {

constexpr double SmallestGap = 0x1p-32; // of the range: secants stay finite

bool IsInside(const ChannelRange& range, double value)
{
    return value >= range.min && value <= range.max; // false for NaN
}

} // namespace

CChannelTransferCurve::CChannelTransferCurve(ChannelRange range, std::size_t points) : range_(range)
{
    if (!std::isfinite(range.min) || !std::isfinite(range.max) || !(range.min < range.max))
        throw std::invalid_argument("invalid range");
    if (points < 2) throw std::invalid_argument("too few control points");
    knots_.resize(points);
}

CChannelTransferCurve::CChannelTransferCurve(ChannelRange range, int points)
    : CChannelTransferCurve(range, static_cast<std::size_t>(std::max(points, 0)))
{
    const double last = points - 1;
    for (int i = 0; i < points; ++i) {
        const double x = range.min + (range.max - range.min) * (i / last);
        knots_[static_cast<std::size_t>(i)].place = {x, x};
    }
}

CChannelTransferCurve::CChannelTransferCurve(ChannelRange range, const std::vector<Point>& points)
    : CChannelTransferCurve(range, points.size())
{
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (!isPlace(points[i]) || (i > 0 && points[i].x - points[i - 1].x < smallestGap()))
            throw std::invalid_argument("invalid control point " + std::to_string(i));
        knots_[i].place = points[i];
    }
    updateSlopes();
}

CChannelTransferCurve::Point CChannelTransferCurve::GetPoint(std::size_t index) const
{
    if (index >= knots_.size()) throw std::out_of_range("invalid control point index");
    return knots_[index].place;
}

bool CChannelTransferCurve::MovePoint(std::size_t index, Point place)
{
    if (index >= knots_.size()) throw std::out_of_range("invalid control point index");
    const double gap = smallestGap();
    if (!isPlace(place)) return false;
    if (index > 0 && place.x - knots_[index - 1].place.x < gap) return false;
    if (index + 1 < knots_.size() && knots_[index + 1].place.x - place.x < gap) return false;
    knots_[index].place = place;
    updateSlopes();
    return true;
}

bool CChannelTransferCurve::isPlace(Point place) const noexcept
{
    return IsInside(range_, place.x) && IsInside(range_, place.y);
}

double CChannelTransferCurve::smallestGap() const noexcept
{
    return SmallestGap * (range_.max - range_.min);
}

void CChannelTransferCurve::updateSlopes() noexcept
{
    const auto width = [this](std::size_t i) { return knots_[i + 1].place.x - knots_[i].place.x; };
    const auto secant = [&](std::size_t i) { return (knots_[i + 1].place.y - knots_[i].place.y) / width(i); };
    const std::size_t last = knots_.size() - 1;
    knots_.front().slope = secant(0);
    knots_.back().slope = secant(last - 1);
    for (std::size_t i = 1; i < last; ++i) {
        const double before = secant(i - 1), after = secant(i);
        const double wBefore = width(i - 1) + 2 * width(i), wAfter = 2 * width(i - 1) + width(i);
        knots_[i].slope = before * after > 0 ? (wBefore + wAfter) / (wBefore / before + wAfter / after) : 0;
    }
}

double CChannelTransferCurve::operator()(double x) const noexcept
{
    if (std::isnan(x)) return x;
    const auto next = std::upper_bound(knots_.begin(), knots_.end(), x,
                                       [](double value, const Knot& knot) { return value < knot.place.x; });
    if (next == knots_.begin()) return knots_.front().place.y;
    if (next == knots_.end()) return knots_.back().place.y;
    const Knot& left = *(next - 1);
    const Knot& right = *next;
    const double width = right.place.x - left.place.x, rise = right.place.y - left.place.y;
    const double d0 = width * left.slope, d1 = width * right.slope;
    const double t = (x - left.place.x) / width;
    const double y = left.place.y + t * (d0 + t * (3 * rise - 2 * d0 - d1 + t * (d0 + d1 - 2 * rise)));
    return std::clamp(y, std::min(left.place.y, right.place.y), std::max(left.place.y, right.place.y));
}

CChannelTransferCurve CreateChannelTransferCurve(const ChannelRange (&ranges)[3], int channel, int points)
{
    if (channel < 0 || channel > 2) throw std::out_of_range("invalid channel index");
    return {ranges[channel], points};
}

} // namespace VoAlgo::cs
