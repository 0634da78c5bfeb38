#include "VoAlgorithms/verdict/scanfault.h"

#include "numerics/principalaxes.h"
#include "platform/format.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace prereg {
namespace {

/// Standard deviations along the principal axes, largest first, mm.
std::array<double, 3> PrincipalSpreads(const std::vector<kdtree::Vector<3>>& points)
{
    std::array<double, 3> spreads =
        VoAlgo::ComputePrincipalAxes(points.size(), [&](std::size_t i) { return points[i]; }).variance;
    for (double& spread : spreads) spread = std::sqrt(std::max(spread, 0.0));
    std::sort(spreads.rbegin(), spreads.rend());
    return spreads;
}

bool IsNear(double ratio, double factor, double tolerance)
{
    return ratio > factor / tolerance && ratio < factor * tolerance;
}

/// Refuses extents and spacings that both differ by about the same factor, one that is common between units.
Refusal DifferentUnits(const PreparedScan& fix, const PreparedScan& flt)
{
    const bool fixIsLarger = fix.Extent() > flt.Extent();
    const PreparedScan& large = fixIsLarger ? fix : flt;
    const PreparedScan& small = fixIsLarger ? flt : fix;
    // Both must differ: a scan of a small part has a smaller extent, but not a smaller spacing.
    const double extents = large.Extent() / small.Extent(), spacings = large.spacing / small.spacing;
    for (const double factor : {10.0, 25.4, 100.0, 1000.0})
        if (IsNear(extents, factor, 1.5) && IsNear(spacings, factor, 2.0))
            return {
                ERefusal::UnitsDiffer,
                VoAlgo::Format(
                    "the units of the scans probably differ by a factor of %g: extent %.4g mm, spacing %.3g mm in %s, "
                    "but %.4g mm and %.3g mm in %s; convert one of them",
                    factor, large.Extent(), large.spacing, large.scan.name.c_str(), small.Extent(), small.spacing,
                    small.scan.name.c_str())};
    return {};
}

} // namespace

Refusal FindFault(const PreparedScan& prepared)
{
    constexpr double Flat = 1e-5; // of the largest spread; rounding of the coordinates leaves less
    const std::size_t count = prepared.scan.points.size();
    if (count == 0)
        return {ERefusal::NoFinitePoints,
                VoAlgo::Format("none of its %zu points has finite coordinates", prepared.read)};
    if (count == 1) return Refusal(ERefusal::PointsCoincide);
    if (const double extent = prepared.Extent(); !(extent > 1e-6 && extent < 1e9))
        return {ERefusal::ImplausibleExtent, VoAlgo::Format("an extent of %.3g mm is implausible for a scan", extent)};
    const std::array<double, 3> spread = PrincipalSpreads(prepared.scan.points);
    if (spread[1] <= Flat * spread[0]) return Refusal(ERefusal::PointsCollinear);
    if (spread[2] <= Flat * spread[0]) return Refusal(ERefusal::PointsCoplanar);
    return {};
}

Refusal FindFault(const PreparedScan& fix, const PreparedScan& flt)
{
    for (const PreparedScan* scan : {&fix, &flt})
        if (const Refusal fault = FindFault(*scan)) return {fault.code, scan->scan.name + ": " + fault.text};
    return DifferentUnits(fix, flt);
}

Refusal FindTooFewPoints(const PreparedScan& prepared, std::size_t minPoints)
{
    const std::size_t count = prepared.scan.points.size();
    if (count >= minPoints) return {};
    return {ERefusal::TooFewPoints,
            prepared.scan.name + VoAlgo::Format(": too few points: %zu; the registration needs %zu", count, minPoints)};
}

} // namespace prereg
