#include "VoAlgorithms/numerics/quaternion.h"

#include "numerics/detail_rotation.h"
#include "platform/format.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace VoAlgo {

namespace {

double Norm(const std::array<double, 3>& v)
{
    return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
}

/// Any direction square to v: v crossed with the axis that it is farthest from.
std::array<double, 3> Perpendicular(const std::array<double, 3>& v)
{
    const double ax = std::abs(v[0]), ay = std::abs(v[1]), az = std::abs(v[2]);
    if (ax <= ay && ax <= az) return {0.0, v[2], -v[1]};
    if (ay <= az) return {-v[2], 0.0, v[0]};
    return {v[1], -v[0], 0.0};
}

} // namespace

Quaternion::Quaternion(double a, double b, double c)
{
    const double ca = std::cos(a / 2), sa = std::sin(a / 2);
    const double cb = std::cos(b / 2), sb = std::sin(b / 2);
    const double cc = std::cos(c / 2), sc = std::sin(c / 2);
    *this = Quaternion(ca * cb * cc + sa * sb * sc, sa * cb * cc - ca * sb * sc, ca * sb * cc + sa * cb * sc,
                       ca * cb * sc - sa * sb * cc)
                .GetNormalized();
}

Quaternion::Quaternion(double m00, double m01, double m02, double m10, double m11, double m12, double m20, double m21,
                       double m22)
{
    // Each candidate is 4·(one component)·q; the largest component gives the best one.
    const double trace = m00 + m11 + m22;
    Quaternion q;
    if (m00 > trace && m00 >= m11 && m00 >= m22)
        q = {m21 - m12, 1 + m00 - m11 - m22, m01 + m10, m02 + m20};
    else if (m11 > trace && m11 >= m22)
        q = {m02 - m20, m01 + m10, 1 - m00 + m11 - m22, m12 + m21};
    else if (m22 > trace)
        q = {m10 - m01, m02 + m20, m12 + m21, 1 - m00 - m11 + m22};
    else
        q = {1 + trace, m21 - m12, m02 - m20, m10 - m01};
    q = q.GetNormalized();
    if (q.w < 0) q = -q;
    *this = {q.w + 0.0, q.x + 0.0, q.y + 0.0, q.z + 0.0}; // −0 + 0 = 0: equal rotations have equal bits
}

Quaternion::Quaternion(const std::array<double, 3>& from, const std::array<double, 3>& to)
{
    const double fromNorm = Norm(from), toNorm = Norm(to);
    const std::array<double, 3> f = {from[0] / fromNorm, from[1] / fromNorm, from[2] / fromNorm};
    const std::array<double, 3> t = {to[0] / toNorm, to[1] / toNorm, to[2] / toNorm};
    // With the half-way vector h, q = (f·h, f × h); it vanishes for opposite directions.
    const std::array<double, 3> h = {f[0] + t[0], f[1] + t[1], f[2] + t[2]};
    if (Norm(h) > 1e-8) {
        *this = Quaternion(f[0] * h[0] + f[1] * h[1] + f[2] * h[2], f[1] * h[2] - f[2] * h[1],
                           f[2] * h[0] - f[0] * h[2], f[0] * h[1] - f[1] * h[0])
                    .GetNormalized();
    } else {
        const auto axis = Perpendicular(f);
        *this = Quaternion(0.0, axis[0], axis[1], axis[2]).GetNormalized();
    }
}

Quaternion Quaternion::FromAxisAngle(const std::array<double, 3>& axis, double angle)
{
    const double norm = Norm(axis);
    if (!(norm > 0) || !std::isfinite(norm)) return Invalid();
    const double s = std::sin(angle / 2) / norm;
    return {std::cos(angle / 2), s * axis[0], s * axis[1], s * axis[2]};
}

Quaternion Quaternion::Invalid()
{
    constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
    return {NaN, NaN, NaN, NaN};
}

Quaternion::operator bool() const
{
    return std::isfinite(w) && std::isfinite(x) && std::isfinite(y) && std::isfinite(z);
}

std::array<double, 3> Quaternion::GetAxis() const
{
    const double norm = Norm({x, y, z});
    if (norm == 0) return {1.0, 0.0, 0.0};
    return {x / norm, y / norm, z / norm};
}

double Quaternion::GetAngle() const
{
    return 2 * std::acos(std::clamp(w, -1.0, 1.0));
}

double Quaternion::GetNorm() const
{
    return std::sqrt(Dot(*this));
}

Quaternion Quaternion::GetNormalized() const
{
    const double norm = GetNorm();
    return {w / norm, x / norm, y / norm, z / norm};
}

double Quaternion::Dot(const Quaternion& other) const
{
    return w * other.w + x * other.x + y * other.y + z * other.z;
}

double Quaternion::Distance(const Quaternion& other) const
{
    // A product that rounding leaves just below 1 would come out as 3e-8.
    if (*this == other || *this == -other) return 0.0;
    return 2 * std::acos(std::min(std::abs(Dot(other)), 1.0)); // in this order min keeps a NaN
}

Quaternion Quaternion::operator*(const Quaternion& o) const
{
    return {w * o.w - x * o.x - y * o.y - z * o.z, w * o.x + x * o.w + y * o.z - z * o.y,
            w * o.y - x * o.z + y * o.w + z * o.x, w * o.z + x * o.y - y * o.x + z * o.w};
}

std::array<double, 3> Quaternion::Rotate(const std::array<double, 3>& v) const
{
    double r[3][3];
    detail::RotationOfQuaternion(w, x, y, z, r);
    return detail::Multiply(r, v);
}

std::array<double, 3> Quaternion::GetEulerAngles() const
{
    double r[3][3];
    detail::RotationOfQuaternion(w, x, y, z, r);
    return detail::EulerAnglesOfRotation(r);
}

Quaternion Quaternion::Slerp(const Quaternion& other, double s) const
{
    const Quaternion end = Dot(other) < 0 ? -other : other;
    const Quaternion difference(end.w - w, end.x - x, end.y - y, end.z - z);
    const Quaternion sum(end.w + w, end.x + x, end.y + y, end.z + z);
    // The half-angle form is exact for small angles too, where acos of the dot product is not.
    const double theta = 2 * std::atan2(difference.GetNorm(), sum.GetNorm());
    const double sine = std::sin(theta);
    const double a = sine == 0 ? 1 - s : std::sin((1 - s) * theta) / sine;
    const double b = sine == 0 ? s : std::sin(s * theta) / sine;
    return {a * w + b * end.w, a * x + b * end.x, a * y + b * end.y, a * z + b * end.z};
}

void Quaternion::Dump() const
{
    std::fputs(Format("%g + i*%g + j*%g + k*%g\n", w, x, y, z).c_str(), stdout);
}

} // namespace VoAlgo
