#include "VoAlgorithms/prereg/ellipsoid.h"

#include "VoAlgorithms/numerics/ctrafo.h"
#include "VoAlgorithms/numerics/symsolvers.h"
#include "prereg/detail_textfile.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace prereg {

using Vec3 = kdtree::Vector<3>;

Ellipsoid::Ellipsoid(const Vec3* points, std::size_t n)
{
    if (points == nullptr || n == 0) return;
    constexpr double Chi2Quantile95 = 7.8147; // three degrees of freedom
    constexpr int MaxSweeps = 20;

    double mean[3] = {};
    std::size_t finite = 0; // the others do not count
    for (std::size_t i = 0; i < n; ++i) {
        if (!points[i].IsValid()) continue;
        ++finite;
        mean[0] += static_cast<double>(points[i].x);
        mean[1] += static_cast<double>(points[i].y);
        mean[2] += static_cast<double>(points[i].z);
    }
    if (finite == 0) return;
    for (double& m : mean) m /= static_cast<double>(finite);
    double covariance[9] = {};
    for (std::size_t i = 0; i < n; ++i) {
        if (!points[i].IsValid()) continue;
        const double d[3] = {points[i].x - mean[0], points[i].y - mean[1], points[i].z - mean[2]};
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) covariance[3 * r + c] += d[r] * d[c];
    }
    for (double& c : covariance) c /= static_cast<double>(finite);

    double eigenvalues[3];
    double eigenvectors[9];
    double work[6];
    VoAlgo::symsolvers::JacobiIteration(covariance, eigenvalues, eigenvectors, 3, MaxSweeps, work);
    VoAlgo::symsolvers::SortEigenV(eigenvalues, eigenvectors, 3, true);
    points_[0] = Vec3(static_cast<float>(mean[0]), static_cast<float>(mean[1]), static_cast<float>(mean[2]));
    for (std::size_t k = 0; k < 3; ++k) {
        const double a = std::sqrt(std::max(0.0, eigenvalues[k]) * Chi2Quantile95);
        points_[k + 1] = Vec3(static_cast<float>(mean[0] + a * eigenvectors[k]),
                              static_cast<float>(mean[1] + a * eigenvectors[3 + k]),
                              static_cast<float>(mean[2] + a * eigenvectors[6 + k]));
    }
}

Ellipsoid::Ellipsoid(const Vec3& center, const Vec3& end0, const Vec3& end1, const Vec3& end2)
    : points_{center, end0, end1, end2}
{
}

float Ellipsoid::DistanceSq(const Ellipsoid& other) const
{
    float sum = 0.0F;
    for (int k = 1; k <= 3; ++k) {
        sum += (points_[k] - other.points_[k]).NormSq();
        const Vec3 opposite = 2.0F * points_[0] - points_[k];
        const Vec3 otherOpposite = 2.0F * other.points_[0] - other.points_[k];
        sum += (opposite - otherOpposite).NormSq();
    }
    return sum / 6.0F;
}

Ellipsoid Ellipsoid::Transformed(const VoAlgo::CTrafo& trafo) const
{
    return {trafo * points_[0], trafo * points_[1], trafo * points_[2], trafo * points_[3]};
}

void Ellipsoid::SaveXYZNC(const std::string& fileName) const
{
    std::ofstream out = detail::OpenText(fileName);
    std::string line;
    const auto write = [&](const Vec3& p, const Vec3& n, int c) {
        line.clear();
        detail::AppendNumbers(line, p, detail::Digits::AsNeeded, ' ');
        detail::AppendNumbers(line, n, detail::Digits::AsNeeded, ' ');
        out << line + std::to_string(c) + '\n';
    };
    write(points_[0], Vec3(), 0);
    for (int k = 1; k <= 3; ++k) {
        const Vec3 axis = points_[k] - points_[0];
        const float length = axis.Norm();
        const Vec3 outwards = length > 0.0F ? axis / length : Vec3();
        write(points_[k], outwards, k);
        write(2.0F * points_[0] - points_[k], -outwards, k);
    }
    out.close();
}

} // namespace prereg
