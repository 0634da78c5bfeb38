#include "sampling.h"

#include "VoAlgorithms/kdtree/tkdtree.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace voalgo {

Sampling MeasureSampling(const Cloud& cloud)
{
    constexpr std::size_t Samples = 2000;
    constexpr double InlierShare = 0.9;
    Sampling sampling;
    if (cloud.points.size() < 2) return sampling;
    const kdtree::TKdTree<3, 48> tree(&cloud.points[0].x, cloud.points.size(), 4);
    std::vector<std::pair<int, float>> nearest;
    std::vector<double> errors;
    double sum = 0.0;
    const std::size_t step = std::max<std::size_t>(1, cloud.points.size() / Samples);
    for (std::size_t i = 0; i < cloud.points.size(); i += step) {
        tree.NearestK(&cloud.points[i].x, 2, INFINITY, nearest);
        if (nearest.size() < 2) continue;
        const auto neighbour = static_cast<std::size_t>(nearest[1].first);
        const kdtree::Vector<3> d = cloud.points[neighbour] - cloud.points[i];
        sum += std::sqrt(static_cast<double>(nearest[1].second));
        errors.push_back(std::max(std::fabs(d.Dot(cloud.normals[i])), std::fabs(d.Dot(cloud.normals[neighbour]))));
    }
    if (errors.empty()) return sampling;
    sampling.spacing = sum / static_cast<double>(errors.size());
    std::sort(errors.begin(), errors.end());
    errors.resize(static_cast<std::size_t>(std::ceil(InlierShare * static_cast<double>(errors.size()))));
    double squares = 0.0;
    for (const double error : errors) squares += error * error;
    sampling.roughness = std::sqrt(squares / static_cast<double>(errors.size()));
    return sampling;
}

double MeanSpacing(const Cloud& cloud)
{
    return MeasureSampling(cloud).spacing;
}

} // namespace voalgo
