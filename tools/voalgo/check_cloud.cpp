#include "check_cloud.h"

#include "VoAlgorithms/numerics/symsolvers.h"
#include "console.h"
#include "errors.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace voalgo {

namespace {

/// Standard deviations along the principal axes, largest first, mm.
std::array<double, 3> PrincipalSpreads(const std::vector<kdtree::Vector<3>>& points)
{
    double mean[3] = {};
    for (const auto& p : points)
        for (unsigned k = 0; k < 3; ++k) mean[k] += p[k];
    for (double& m : mean) m /= static_cast<double>(points.size());
    double covariance[9] = {};
    for (const auto& p : points) {
        const double d[3] = {p.x - mean[0], p.y - mean[1], p.z - mean[2]};
        for (unsigned r = 0; r < 3; ++r)
            for (unsigned c = 0; c < 3; ++c) covariance[3 * r + c] += d[r] * d[c];
    }
    const double trace = covariance[0] + covariance[4] + covariance[8];
    if (!(trace > 0.0)) return {0.0, 0.0, 0.0};
    for (double& c : covariance) c /= trace; // the eigen-solver stops at an absolute threshold
    double values[3], vectors[9], work[3];
    VoAlgo::symsolvers::JacobiIteration(covariance, values, vectors, 3, 20, work);
    std::array<double, 3> spreads{};
    for (unsigned k = 0; k < 3; ++k)
        spreads[k] = std::sqrt(std::max(values[k], 0.0) * trace / static_cast<double>(points.size()));
    std::sort(spreads.rbegin(), spreads.rend());
    return spreads;
}

bool Near(double ratio, double factor, double tolerance)
{
    return ratio > factor / tolerance && ratio < factor * tolerance;
}

} // namespace

void RequireShape(const PreparedCloud& prepared)
{
    constexpr double Flat = 1e-5; // of the largest spread; rounding of the coordinates leaves less
    const std::array<double, 3> spread = PrincipalSpreads(prepared.cloud.points);
    if (prepared.cloud.points.size() == 1) throw InputError(prepared.name + ": all points lie at one place");
    if (const double extent = prepared.Extent(); !(extent > 1e-6 && extent < 1e9))
        throw InputError(prepared.name + Format(": an extent of %.3g mm is that of no scan", extent));
    if (spread[1] <= Flat * spread[0])
        throw InputError(prepared.name + ": all points lie on a line; that does not tell a pose");
    if (spread[2] <= Flat * spread[0])
        throw InputError(prepared.name + ": all points lie on a plane; that does not tell a pose");
}

void RequirePoints(const PreparedCloud& prepared, std::size_t minPoints)
{
    const std::size_t count = prepared.cloud.points.size();
    if (count < minPoints)
        throw InputError(prepared.name + Format(": too few points: %zu, the registration needs %zu", count, minPoints));
}

void RequireSameUnit(const PreparedCloud& fix, const PreparedCloud& flt)
{
    const bool fixIsLarger = fix.Extent() > flt.Extent();
    const PreparedCloud& large = fixIsLarger ? fix : flt;
    const PreparedCloud& small = fixIsLarger ? flt : fix;
    // Both figures must agree: a scan of a small part has a smaller extent, but not a smaller spacing.
    const double extents = large.Extent() / small.Extent(), spacings = large.spacing / small.spacing;
    for (const double factor : {10.0, 25.4, 100.0, 1000.0})
        if (Near(extents, factor, 1.5) && Near(spacings, factor, 2.0))
            throw InputError(
                Format("the units of the files probably differ by %g: extent %.4g mm, spacing %.3g mm in %s, "
                       "but %.4g mm and %.3g mm in %s; convert one of them",
                       factor, large.Extent(), large.spacing, large.name.c_str(), small.Extent(), small.spacing,
                       small.name.c_str()));
}

} // namespace voalgo
