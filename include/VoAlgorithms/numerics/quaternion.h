#pragma once

#include "VoAlgorithms/export.h"

#include <array>

namespace VoAlgo {

/// A quaternion w + i·x + j·y + k·z in double precision; unit quaternions represent rotations, q and −q the same one.
/// Nothing here throws: failures return Invalid(). Angles are radians.
class VOALGO_API Quaternion {
public:
    double w = 1.0; ///< scalar part
    ///@{
    /// Vector part, the factors of i, j and k.
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
    ///@}

    /// No rotation: (1, 0, 0, 0).
    constexpr Quaternion() = default;
    /// The components as they are; not normalised.
    constexpr Quaternion(double scalar, double i, double j, double k) : w(scalar), x(i), y(j), z(k) {}
    /// R = Rz(c)·Ry(b)·Rx(a), as the Euler constructor of CTrafo; normalised.
    Quaternion(double a, double b, double c);
    /// From a rotation matrix given row by row; normalised, w ≥ 0, no component is −0. The largest of the four squared
    /// components selects the formula, so that no small divisor occurs (Shepperd, J. Guidance and Control 1 (1978)
    /// 223).
    Quaternion(double m00, double m01, double m02, double m10, double m11, double m12, double m20, double m21,
               double m22);
    /// The smallest rotation that turns direction `from` to direction `to`, both of any non-zero length; for opposite
    /// directions, half a turn about an axis perpendicular to `from`.
    Quaternion(const std::array<double, 3>& from, const std::array<double, 3>& to);

    /// Rotation by `angle` about `axis`, whose length may be anything but zero.
    [[nodiscard]] static Quaternion FromAxisAngle(const std::array<double, 3>& axis, double angle);
    /// All components NaN.
    [[nodiscard]] static Quaternion Invalid();
    /// True when all components are finite.
    explicit operator bool() const;

    /// Unit axis of the rotation; (1, 0, 0) when there is none.
    [[nodiscard]] std::array<double, 3> GetAxis() const;
    /// 2·acos(w), 0 to 2π, for a unit quaternion; w beyond ±1 by rounding counts as ±1.
    [[nodiscard]] double GetAngle() const;
    /// √(w² + x² + y² + z²).
    [[nodiscard]] double GetNorm() const;
    /// Divided by its norm; invalid for the zero quaternion.
    [[nodiscard]] Quaternion GetNormalized() const;
    /// The scalar product of the four components; ±1 for equal rotations.
    [[nodiscard]] double Dot(const Quaternion& other) const;
    /// Angle of the rotation between two unit quaternions: 2·acos(min(1, |dot|)), 0 to π; exactly 0 for q, q and q, −q.
    /// NaN when one of them is invalid.
    [[nodiscard]] double Distance(const Quaternion& other) const;

    /// Hamilton product; as rotations, `other` is applied first.
    Quaternion operator*(const Quaternion& other) const;
    /// All components negated: the same rotation.
    Quaternion operator-() const { return {-w, -x, -y, -z}; }
    /// Conjugate: the inverse of a unit quaternion.
    Quaternion operator~() const { return {w, -x, -y, -z}; }
    /// Exact equality of all components.
    bool operator==(const Quaternion& other) const = default;

    /// The vector turned by this unit quaternion.
    [[nodiscard]] std::array<double, 3> Rotate(const std::array<double, 3>& v) const;
    /// (a, b, c) of the Euler constructor: b within ±π/2, a and c within ±π; when cos b is exactly 0, c is 0 or ±π.
    [[nodiscard]] std::array<double, 3> GetEulerAngles() const;
    /// The rotation at fraction s of the shorter way to `other` at constant speed, both of unit length; s outside [0,
    /// 1] extrapolates. When the angle between them vanishes the interpolation is linear.
    [[nodiscard]] Quaternion Slerp(const Quaternion& other, double s) const;

    /// Prints "w + i*x + j*y + k*z" and a line break to standard output.
    void Dump() const;
};

} // namespace VoAlgo
