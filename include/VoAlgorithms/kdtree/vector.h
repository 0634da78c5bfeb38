#pragma once

#include <cmath>
#include <cstddef>

namespace kdtree {

/// A point of D single-precision coordinates, packed.
template <unsigned D>
struct Vector {
    float data[D] = {}; ///< the coordinates, initially 0

    ///@{
    /// Coordinate i < D; unchecked.
    constexpr float operator[](std::size_t i) const { return data[i]; }
    constexpr float& operator[](std::size_t i) { return data[i]; }
    ///@}
};

/// A point or direction in space. The fourth lane is always 0, so that points and matrix rows combine in four-wide
/// operations; every operation here preserves that.
template <>
struct alignas(16) Vector<3> {
    ///@{
    /// Coordinate.
    float x = 0.0F;
    float y = 0.0F;
    float z = 0.0F;
    ///@}
    float w = 0.0F; ///< always 0

    /// The origin.
    constexpr Vector() = default;
    /// The point (px, py, pz).
    constexpr Vector(float px, float py, float pz) : x(px), y(py), z(pz) {}

    ///@{
    /// Component i of 0, 1, 2; unchecked.
    constexpr float operator[](std::size_t i) const { return i == 0 ? x : (i == 1 ? y : z); }
    constexpr float& operator[](std::size_t i) { return i == 0 ? x : (i == 1 ? y : z); }
    ///@}

    ///@{
    /// Componentwise arithmetic in single precision. Division divides; it does not multiply by a reciprocal.
    constexpr Vector operator-() const { return {-x, -y, -z}; }
    constexpr Vector operator+(const Vector& o) const { return {x + o.x, y + o.y, z + o.z}; }
    constexpr Vector operator-(const Vector& o) const { return {x - o.x, y - o.y, z - o.z}; }
    constexpr Vector operator*(float s) const { return {x * s, y * s, z * s}; }
    constexpr Vector operator/(float s) const { return {x / s, y / s, z / s}; }
    constexpr Vector& operator+=(const Vector& o) { return *this = *this + o; }
    constexpr Vector& operator-=(const Vector& o) { return *this = *this - o; }
    constexpr Vector& operator*=(float s) { return *this = *this * s; }
    constexpr Vector& operator/=(float s) { return *this = *this / s; }
    ///@}

    ///@{
    /// Whether x, y and z are equal exactly; −0 equals 0, NaN nothing.
    constexpr bool operator==(const Vector& o) const { return x == o.x && y == o.y && z == o.z; }
    constexpr bool operator!=(const Vector& o) const { return !(*this == o); }
    ///@}

    /// (x·x + y·y) + z·z, summed in this order.
    [[nodiscard]] constexpr float Dot(const Vector& o) const { return (x * o.x + y * o.y) + z * o.z; }
    /// The cross product this × o, perpendicular to both.
    [[nodiscard]] constexpr Vector Cross(const Vector& o) const
    {
        return {y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x};
    }
    /// Squared length, Dot(*this).
    [[nodiscard]] constexpr float NormSq() const { return Dot(*this); }
    /// Length, √NormSq(); infinite when the square overflows.
    [[nodiscard]] float Norm() const { return std::sqrt(NormSq()); }
    /// True when all components are finite.
    [[nodiscard]] bool IsValid() const { return std::isfinite(x) && std::isfinite(y) && std::isfinite(z); }
};

/// s·v, as v * s.
constexpr Vector<3> operator*(float s, const Vector<3>& v)
{
    return v * s;
}

} // namespace kdtree
