#include "VoAlgorithms/verdict/scan.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace prereg {
namespace {

using Position = std::array<double, 3>;

template <class T>
std::vector<kdtree::Vector<3>> Vectors(const T* xyz, std::size_t n, const Position& origin)
{
    std::vector<kdtree::Vector<3>> vectors(n);
    for (kdtree::Vector<3>& v : vectors) {
        for (unsigned k = 0; k < 3; ++k) v[k] = static_cast<float>(xyz[k] - origin[k]);
        xyz += 3;
    }
    return vectors;
}

template <class T>
Scan ScanFrom(const T* points, std::size_t n, const T* normals, const Position& origin)
{
    Scan scan;
    scan.points = Vectors(points, n, origin);
    if (normals != nullptr) scan.normals = Vectors(normals, n, {});
    scan.origin = origin;
    return scan;
}

/// 0 where single precision resolves the points well; else the centre of the finite ones.
Position OriginOf(const double* points, std::size_t n)
{
    constexpr double Near = 4.0; // times the extent: costs two or three bits of a float
    Position low, high;
    low.fill(std::numeric_limits<double>::infinity());
    high.fill(-std::numeric_limits<double>::infinity());
    for (std::size_t i = 0; i < n; ++i, points += 3) {
        if (!std::isfinite(points[0]) || !std::isfinite(points[1]) || !std::isfinite(points[2])) continue;
        for (unsigned k = 0; k < 3; ++k) {
            low[k] = std::min(low[k], points[k]);
            high[k] = std::max(high[k], points[k]);
        }
    }
    double extent = 0.0, farthest = 0.0;
    Position centre;
    for (unsigned k = 0; k < 3; ++k) {
        extent = std::max(extent, high[k] - low[k]);
        farthest = std::max({farthest, std::abs(low[k]), std::abs(high[k])});
        centre[k] = low[k] + 0.5 * (high[k] - low[k]);
    }
    const bool isNear = !(low[0] <= high[0]) || farthest <= Near * extent;
    return isNear ? Position{} : centre;
}

} // namespace

Scan Scan::From(const float* points, std::size_t n, const float* normals)
{
    return ScanFrom(points, n, normals, {});
}

Scan Scan::From(const double* points, std::size_t n, const double* normals)
{
    return ScanFrom(points, n, normals, OriginOf(points, n));
}

Position Scan::At(std::size_t i) const
{
    const kdtree::Vector<3>& p = points[i];
    return {origin[0] + double{p.x}, origin[1] + double{p.y}, origin[2] + double{p.z}};
}

std::optional<kdtree::Vector<3>> Scan::LocalViewpoint() const
{
    if (!viewpoint) return std::nullopt;
    return Vectors(viewpoint->data(), 1, origin)[0];
}

} // namespace prereg
