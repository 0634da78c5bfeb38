#include "verdict/detail_stability.h"

#include "VoAlgorithms/numerics/symsolvers.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace prereg::detail {
namespace {

using Vec3 = kdtree::Vector<3>;

constexpr std::size_t MinPairs = 10;

} // namespace

double Stability(const std::vector<Vec3>& points, const std::vector<Vec3>& normals)
{
    const std::size_t n = points.size();
    if (n < MinPairs) return 0.0;
    Vec3 centre;
    for (const Vec3& p : points) centre += (p - points[0]) / static_cast<float>(n);
    centre += points[0];
    double squares = 0.0;
    for (const Vec3& p : points) squares += static_cast<double>((p - centre).NormSq());
    const auto scale = static_cast<float>(std::sqrt(static_cast<double>(n) / squares));

    std::array<double, 36> matrix{};
    for (std::size_t i = 0; i < n; ++i) {
        const Vec3& normal = normals[i];
        const Vec3 lever = ((points[i] - centre) * scale).Cross(normal);
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
