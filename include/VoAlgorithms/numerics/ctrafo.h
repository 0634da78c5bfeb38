#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/kdtree/vector.h"
#include "VoAlgorithms/numerics/cbmatrix4.h"
#include "VoAlgorithms/numerics/quaternion.h"

#include <cstddef>
#include <utility>

namespace VoAlgo {

/// A rigid pose p′ = R·p + t in single precision: three rows of R, then t, 16 bytes each. Lengths are millimetres,
/// angles radians. Operations return a new value. R is a rotation unless a function says otherwise. Only element access
/// throws.
class VOALGO_API CTrafo {
public:
    /// Points and directions, millimetres.
    using Vector3 = kdtree::Vector<3>;

    /// The identity.
    constexpr CTrafo() : rows_{Vector3(1, 0, 0), Vector3(0, 1, 0), Vector3(0, 0, 1), Vector3(0, 0, 0)} {}
    /// Copied unchanged.
    constexpr CTrafo(const Vector3& row0, const Vector3& row1, const Vector3& row2, const Vector3& translation)
        : rows_{row0, row1, row2, translation}
    {
    }
    /// R = Rz(γ)·Ry(β)·Rx(α) for eulerAngles (α, β, γ); for small angles I + [eulerAngles]×.
    CTrafo(const Vector3& eulerAngles, const Vector3& translation);
    /// For a unit quaternion.
    CTrafo(const Quaternion& rotation, const Vector3& translation);
    ///@{
    /// Upper-left 3×3 and last column; the last row is not read.
    CTrafo(const CbMatrix4Rd& m); // NOLINT(google-explicit-constructor)
    CTrafo(const CbMatrix4Rf& m); // NOLINT(google-explicit-constructor)
    ///@}

    /// R = I, t = 0.
    [[nodiscard]] static constexpr CTrafo Identity() { return {}; }
    /// All components NaN: the library's value for a missing result.
    [[nodiscard]] static CTrafo Invalid();
    /// True when all components of R and t are finite.
    explicit operator bool() const
    {
        return rows_[0].IsValid() && rows_[1].IsValid() && rows_[2].IsValid() && rows_[3].IsValid();
    }

    /// Element of the homogeneous 4×4 view: column 3 is t, row 3 is (0, 0, 0, 1). Throws std::invalid_argument
    /// ("invalid row or column index") beyond 3.
    float operator()(unsigned row, unsigned col) const;
    ///@{
    /// The homogeneous 4×4 view.
    operator CbMatrix4Rd() const; // NOLINT(google-explicit-constructor)
    operator CbMatrix4Rf() const; // NOLINT(google-explicit-constructor)
    ///@}
    /// Row 0, 1 or 2 of R; 3 is t. Unchecked.
    [[nodiscard]] constexpr const Vector3& GetRow(unsigned row) const { return rows_[row]; }
    /// t, millimetres.
    [[nodiscard]] constexpr const Vector3& GetTranslation() const { return rows_[3]; }

    /// `other` applied first, then this: R = R_this·R_other, t = R_this·t_other + t_this.
    CTrafo operator*(const CTrafo& other) const;
    /// R·p + t, each component summed ((x + y) + z) + t.
    constexpr Vector3 operator*(const Vector3& p) const { return Rotate(p) + rows_[3]; }
    /// R·v, each component summed (x + y) + z.
    [[nodiscard]] constexpr Vector3 Rotate(const Vector3& v) const
    {
        return {rows_[0].Dot(v), rows_[1].Dot(v), rows_[2].Dot(v)};
    }
    /// (R·point + t, R·normal).
    [[nodiscard]] constexpr std::pair<Vector3, Vector3> Transform(const Vector3& point, const Vector3& normal) const
    {
        return {*this * point, Rotate(normal)};
    }
    /// Exact equality of x, y and z of R's rows and t.
    constexpr bool operator==(const CTrafo& other) const
    {
        return rows_[0] == other.rows_[0] && rows_[1] == other.rows_[1] && rows_[2] == other.rows_[2] &&
               rows_[3] == other.rows_[3];
    }

    /// rigid: Rᵀ and −Rᵀ·t. Otherwise the inverse of a general 3×3 by cofactors in double precision; the identity when
    /// |det R| is below the float epsilon.
    [[nodiscard]] CTrafo GetInverse(bool rigid = true) const;
    /// R without the translation. The flag says, as in GetInverse, that R is a rotation; the result is the same.
    [[nodiscard]] CTrafo GetRotationPart(bool rigid = true) const;
    /// Rᵀ without a translation, whatever the flag says.
    [[nodiscard]] CTrafo GetTransposedRotationPart(bool rigid = true) const;
    /// t + v.
    [[nodiscard]] CTrafo Translate(const Vector3& v) const;
    /// This transform followed by the scaling diag(v); no longer rigid.
    [[nodiscard]] CTrafo Scale(const Vector3& v) const;

    /// R as a unit quaternion with w ≥ 0 and no component −0; equal rotations give equal bits.
    [[nodiscard]] Quaternion GetQuaternion() const;
    /// (α, β, γ) of the Euler constructor: β within ±π/2, α and γ within ±π; when cos β is exactly 0, γ is 0 or ±π.
    [[nodiscard]] Vector3 GetEulerAngles() const;
    /// Angle between both rotations, 2·acos(min(1, |q₁·q₂|)), 0 to π; +∞ when a rotation is invalid.
    [[nodiscard]] float GetRotationDistance(const CTrafo& other) const;

    /// The pose at fraction s of the way to `other`: Quaternion::Slerp and t + s·(t_other − t).
    [[nodiscard]] CTrafo Lerp(const CTrafo& other, double s) const;
    /// The normalised sum of the rotations' quaternions, each with the sign that brings it nearer to the first one, and
    /// the mean translation, both summed in double precision. Invalid() for n = 0, a null array, an invalid pose or
    /// rotations that cancel out.
    [[nodiscard]] static CTrafo Mean(const CTrafo* trafos, std::size_t n);
    /// The rigid fit b ≈ R·a + t of n corresponding points by symsolvers::Procrustes. `weights`: n values, or null for
    /// all 1. Invalid() for n < 3, a null array, points that are not finite, or an ambiguous fit.
    [[nodiscard]] static CTrafo LeastSquaresFit(const Vector3* a, const Vector3* b, unsigned n,
                                                const double* weights = nullptr);

    /// Prints the homogeneous 4×4 view to standard output, a line per row, each element as " %5.3f".
    void Dump() const;

private:
    Vector3 rows_[4]; // rows of R, then t
};

} // namespace VoAlgo
