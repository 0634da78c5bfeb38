#pragma once

#include "VoAlgorithms/numerics/symsolvers.h"

#include <array>
#include <cstddef>

namespace VoAlgo {

/// Mean and principal axes of points.
struct PrincipalAxes {
    std::array<double, 3> mean = {};
    std::array<double, 3> variance = {}; ///< along each axis (divided by n), in no order; rounding may leave it below 0
    std::array<std::array<double, 3>, 3> axis = {}; ///< unit vectors; zero when all points coincide
};

/// Of n points; at(i) gives point i, anything with [0] to [2]. One pass for the mean, one for the covariance.
template <class PointAt>
PrincipalAxes ComputePrincipalAxes(std::size_t n, PointAt at)
{
    PrincipalAxes result;
    auto& mean = result.mean;
    for (std::size_t i = 0; i < n; ++i)
        for (unsigned k = 0; k < 3; ++k) mean[k] += static_cast<double>(at(i)[k]);
    for (double& m : mean) m /= static_cast<double>(n);
    double scatter[9] = {};
    for (std::size_t i = 0; i < n; ++i) {
        const auto& p = at(i);
        const double d[3] = {static_cast<double>(p[0]) - mean[0], static_cast<double>(p[1]) - mean[1],
                             static_cast<double>(p[2]) - mean[2]};
        for (unsigned r = 0; r < 3; ++r)
            for (unsigned c = 0; c < 3; ++c) scatter[3 * r + c] += d[r] * d[c];
    }
    const double trace = scatter[0] + scatter[4] + scatter[8];
    if (!(trace > 0.0)) return result;
    for (double& s : scatter) s /= trace; // the eigen-solver stops at an absolute threshold
    double values[3], vectors[9], work[3];
    symsolvers::JacobiIteration(scatter, values, vectors, 3, 20, work);
    for (unsigned k = 0; k < 3; ++k) {
        result.variance[k] = values[k] * trace / static_cast<double>(n);
        result.axis[k] = {vectors[k], vectors[3 + k], vectors[6 + k]};
    }
    return result;
}

} // namespace VoAlgo
