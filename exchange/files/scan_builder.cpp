#include "exchange/files/scan_builder.h"

#include <utility>

namespace voalgo {

void ScanBuilder::Reserve(std::size_t n)
{
    scan_.points.reserve(n);
}

void ScanBuilder::AddPoint(const std::array<double, 3>& p)
{
    constexpr std::size_t Most = std::size_t{1} << 16U; // points that wait for the origin
    if (hasOrigin_) {
        const auto local = [&](unsigned k) { return static_cast<float>(p[k] * mmPerUnit_ - scan_.origin[k]); };
        scan_.points.emplace_back(local(0), local(1), local(2));
        return;
    }
    for (const double v : p) first_.push_back(v * mmPerUnit_);
    if (first_.size() == 3 * Most) placeOrigin();
}

void ScanBuilder::AddNormal(const std::array<double, 3>& n)
{
    scan_.normals.emplace_back(static_cast<float>(n[0]), static_cast<float>(n[1]), static_cast<float>(n[2]));
}

prereg::Scan ScanBuilder::Take() &&
{
    if (!hasOrigin_) placeOrigin();
    return std::move(scan_);
}

void ScanBuilder::placeOrigin()
{
    const prereg::Scan placed = prereg::Scan::From(first_.data(), first_.size() / 3);
    scan_.points.insert(scan_.points.end(), placed.points.begin(), placed.points.end());
    scan_.origin = placed.origin;
    first_ = {};
    hasOrigin_ = true;
}

} // namespace voalgo
