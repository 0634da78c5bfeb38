#include "VoAlgorithms/verdict/scan.h"

#include "platform/finite.h"

#include <algorithm>
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

/// The centre of the points that are finite; 0 when none is.
Position CentreOf(const double* points, std::size_t n)
{
    Position low, high;
    low.fill(std::numeric_limits<double>::infinity());
    high.fill(-std::numeric_limits<double>::infinity());
    for (std::size_t i = 0; i < n; ++i, points += 3) {
        if (!VoAlgo::AllFinite(points, 3)) continue;
        for (unsigned k = 0; k < 3; ++k) {
            low[k] = std::min(low[k], points[k]);
            high[k] = std::max(high[k], points[k]);
        }
    }
    if (!(low[0] <= high[0])) return {};
    return {0.5 * (low[0] + high[0]), 0.5 * (low[1] + high[1]), 0.5 * (low[2] + high[2])};
}

} // namespace

Scan Scan::From(const float* points, std::size_t n, const float* normals)
{
    return ScanFrom(points, n, normals, {});
}

Scan Scan::From(const double* points, std::size_t n, const double* normals)
{
    return ScanFrom(points, n, normals, CentreOf(points, n));
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
