#include "verdict/detail_stability.h"

#include "VoAlgorithms/numerics/symsolvers.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace prereg::detail {
namespace {

using Vec3 = kdtree::Vector<3>;

constexpr std::size_t Samples = 2000;
constexpr std::size_t MinPairs = 10;

/// Matched points of the overlap, in the frame of fix, and their normals.
struct Overlap {
    std::vector<Vec3> points;
    std::vector<Vec3> normals;
};

Overlap FindOverlap(const CPointSet& fix, const CPointSet& flt, const VoAlgo::CTrafo& pose, double radius, double angle)
{
    const auto radiusSq = static_cast<float>(radius * radius);
    const auto cosTolerance = static_cast<float>(std::cos(angle));
    Overlap overlap;
    const std::size_t step = std::max<std::size_t>(1, flt.Size() / Samples);
    for (std::size_t i = 0; i < flt.Size(); i += step) {
        const auto [p, n] = pose.Transform(flt.GetPoint(i), flt.GetNormal(i));
        const int partner = fix.GetPointsKdTree().Nearest(&p.x, radiusSq);
        if (partner < 0) continue;
        const Vec3& partnerNormal = fix.GetNormal(static_cast<std::size_t>(partner));
        if (!(n.Dot(partnerNormal) > cosTolerance)) continue;
        overlap.points.push_back(p);
        overlap.normals.push_back(partnerNormal);
    }
    return overlap;
}

} // namespace

double PoseStability(const CPointSet& fix, const CPointSet& flt, const VoAlgo::CTrafo& pose, double radius,
                     double angle)
{
    const Overlap overlap = FindOverlap(fix, flt, pose, radius, angle);
    const std::size_t n = overlap.points.size();
    if (n < MinPairs) return 0.0;
    Vec3 centre;
    for (const Vec3& p : overlap.points) centre += (p - overlap.points[0]) / static_cast<float>(n);
    centre += overlap.points[0];
    double squares = 0.0;
    for (const Vec3& p : overlap.points) squares += static_cast<double>((p - centre).NormSq());
    const auto scale = static_cast<float>(std::sqrt(static_cast<double>(n) / squares));

    std::array<double, 36> matrix{};
    for (std::size_t i = 0; i < n; ++i) {
        const Vec3& normal = overlap.normals[i];
        const Vec3 lever = ((overlap.points[i] - centre) * scale).Cross(normal);
        const std::array<double, 6> row = {lever.x, lever.y, lever.z, normal.x, normal.y, normal.z};
        for (std::size_t r = 0; r < 6; ++r)
            for (std::size_t c = 0; c < 6; ++c) matrix[6 * r + c] += row[r] * row[c] / static_cast<double>(n);
    }
    constexpr int MaxSweeps = 50;
    std::array<double, 6> eigenvalues{};
    std::array<double, 36> eigenvectors{};
    std::array<double, 6> work{};
    VoAlgo::symsolvers::JacobiIteration(matrix.data(), eigenvalues.data(), eigenvectors.data(), 6, MaxSweeps,
                                        work.data());
    return *std::min_element(eigenvalues.begin(), eigenvalues.end());
}

} // namespace prereg::detail
