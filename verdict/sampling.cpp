#include "VoAlgorithms/verdict/sampling.h"

#include "VoAlgorithms/kdtree/tkdtree.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace prereg {

Sampling MeasureSampling(const Scan& scan)
{
    constexpr std::size_t Samples = 2000;
    constexpr double InlierShare = 0.9;
    Sampling sampling;
    if (scan.points.size() < 2) return sampling;
    const kdtree::TKdTree<3, 48> tree(&scan.points[0].x, scan.points.size(), 4);
    std::vector<std::pair<int, float>> nearest;
    std::vector<double> errors;
    double sum = 0.0;
    const std::size_t step = std::max<std::size_t>(1, scan.points.size() / Samples);
    for (std::size_t i = 0; i < scan.points.size(); i += step) {
        tree.NearestK(&scan.points[i].x, 2, INFINITY, nearest);
        if (nearest.size() < 2) continue;
        const auto neighbour = static_cast<std::size_t>(nearest[1].first);
        const kdtree::Vector<3> d = scan.points[neighbour] - scan.points[i];
        sum += std::sqrt(static_cast<double>(nearest[1].second));
        errors.push_back(std::max(std::fabs(d.Dot(scan.normals[i])), std::fabs(d.Dot(scan.normals[neighbour]))));
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

} // namespace prereg
