#include "verdict/detail_seenspace.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace prereg::detail {
namespace {

using Vec3 = kdtree::Vector<3>;

constexpr float Unseen = std::numeric_limits<float>::quiet_NaN();
constexpr std::uint32_t MinPointsPerPixel = 2; // a single point may be a stray
constexpr float MaxSide = 1000.0F;             // of the image, in pixels

} // namespace

SeenSpace::SeenSpace(const std::vector<Vec3>& points, const View& view, double pixel)
    : view_(view), pixel_(static_cast<float>(pixel))
{
    if (points.empty()) return;
    right_ = view.direction.Cross(std::fabs(view.direction.x) < 0.6F ? Vec3(1, 0, 0) : Vec3(0, 1, 0));
    right_ = right_ / right_.Norm();
    up_ = view.direction.Cross(right_);
    if (view.viewpoint) {
        Vec3 centre;
        for (const Vec3& p : points) centre += (p - points[0]) / static_cast<float>(points.size());
        viewDistance_ = (*view.viewpoint - points[0] - centre).Dot(view.direction);
    }

    std::vector<Projection> projections;
    projections.reserve(points.size());
    float highColumn = -INFINITY;
    float highRow = -INFINITY;
    lowColumn_ = lowRow_ = INFINITY;
    for (const Vec3& p : points) {
        const Projection q = projections.emplace_back(project(p));
        if (!std::isfinite(q.column) || !std::isfinite(q.row)) continue; // behind the viewer
        lowColumn_ = std::min(lowColumn_, q.column);
        lowRow_ = std::min(lowRow_, q.row);
        highColumn = std::max(highColumn, q.column);
        highRow = std::max(highRow, q.row);
    }
    const float side = std::max(highColumn - lowColumn_, highRow - lowRow_);
    if (!(side >= 0.0F)) return;
    pixel_ = std::max(pixel_, side / MaxSide);
    if (!(pixel_ > 0.0F)) return;
    columns_ = static_cast<std::size_t>((highColumn - lowColumn_) / pixel_) + 1;
    rows_ = static_cast<std::size_t>((highRow - lowRow_) / pixel_) + 1;

    std::vector<float> depth(columns_ * rows_, -INFINITY);
    std::vector<std::uint32_t> count(columns_ * rows_, 0);
    for (const Projection& q : projections) {
        const auto at = pixelOf(q);
        if (!at) continue;
        depth[*at] = std::max(depth[*at], q.height);
        ++count[*at];
    }
    front_.assign(columns_ * rows_, Unseen);
    for (std::size_t r = 0; r < rows_; ++r)
        for (std::size_t c = 0; c < columns_; ++c) {
            if (count[r * columns_ + c] < MinPointsPerPixel) continue;
            float front = -INFINITY;
            for (std::size_t y = r - std::min<std::size_t>(r, 1); y <= std::min(r + 1, rows_ - 1); ++y)
                for (std::size_t x = c - std::min<std::size_t>(c, 1); x <= std::min(c + 1, columns_ - 1); ++x)
                    front = std::max(front, depth[y * columns_ + x]);
            front_[r * columns_ + c] = front;
        }
}

SeenSpace::Projection SeenSpace::project(const Vec3& p) const
{
    if (!view_.viewpoint) return {p.Dot(right_), p.Dot(up_), p.Dot(view_.direction)};
    const Vec3 ray = p - *view_.viewpoint;
    const float distance = -ray.Dot(view_.direction);
    if (!(distance > 0.0F)) return {Unseen, Unseen, Unseen};
    const float scale = viewDistance_ / distance;
    return {ray.Dot(right_) * scale, ray.Dot(up_) * scale, -ray.Norm()};
}

std::optional<std::size_t> SeenSpace::pixelOf(const Projection& projection) const
{
    const float column = std::floor((projection.column - lowColumn_) / pixel_);
    const float row = std::floor((projection.row - lowRow_) / pixel_);
    if (!(column >= 0.0F && column < static_cast<float>(columns_) && row >= 0.0F && row < static_cast<float>(rows_)))
        return std::nullopt;
    return static_cast<std::size_t>(row) * columns_ + static_cast<std::size_t>(column);
}

float SeenSpace::InFront(const Vec3& p) const
{
    const Projection q = project(p);
    const auto at = pixelOf(q);
    return at ? q.height - front_[*at] : Unseen;
}

} // namespace prereg::detail
