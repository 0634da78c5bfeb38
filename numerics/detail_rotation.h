#pragma once

#include <array>
#include <cmath>

namespace VoAlgo::detail {

/// Row-major rotation of a unit quaternion.
inline void RotationOfQuaternion(double w, double x, double y, double z, double (*r)[3])
{
    r[0][0] = w * w + x * x - y * y - z * z;
    r[0][1] = 2 * (x * y - w * z);
    r[0][2] = 2 * (x * z + w * y);
    r[1][0] = 2 * (x * y + w * z);
    r[1][1] = w * w - x * x + y * y - z * z;
    r[1][2] = 2 * (y * z - w * x);
    r[2][0] = 2 * (x * z - w * y);
    r[2][1] = 2 * (y * z + w * x);
    r[2][2] = w * w - x * x - y * y + z * z;
}

/// (α, β, γ) of r = Rz(γ)·Ry(β)·Rx(α). α is read from Rz(γ)ᵀ·r, so it makes up for an arbitrary γ near the gimbal lock
/// and no threshold is needed.
inline std::array<double, 3> EulerAnglesOfRotation(const double (*r)[3])
{
    const double gamma = std::atan2(r[1][0], r[0][0]);
    const double beta = std::atan2(-r[2][0], std::hypot(r[0][0], r[1][0]));
    const double c = std::cos(gamma), s = std::sin(gamma);
    const double alpha = std::atan2(s * r[0][2] - c * r[1][2], c * r[1][1] - s * r[0][1]);
    return {alpha, beta, gamma};
}

inline std::array<double, 3> Multiply(const double (*r)[3], const std::array<double, 3>& v)
{
    std::array<double, 3> result{};
    for (unsigned i = 0; i < 3; ++i) result[i] = r[i][0] * v[0] + r[i][1] * v[1] + r[i][2] * v[2];
    return result;
}

} // namespace VoAlgo::detail
