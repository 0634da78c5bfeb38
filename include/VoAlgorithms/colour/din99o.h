#pragma once

#include "VoAlgorithms/colour/lab.h"
#include "VoAlgorithms/export.h"

namespace VoAlgo::cs {

/// DIN99o (DIN 6176), a space in which the Euclidean distance approximates the perceived difference. L 0 … 100; a and b
/// nominally −128 … 127.
class DIN99o : public TColor<DIN99o> {
public:
    /// Nominal ranges of the components, in their order.
    static constexpr ChannelRange Ranges[3] = {{0, 100}, {-128, 127}, {-128, 127}};

    ///@{
    /// Lightness, green to red, blue to yellow.
    double L = 0;
    double a = 0;
    double b = 0;
    ///@}

    /// Three bytes: each component rounded to the nearest integer, ties to even, and clamped to its range; NaN becomes
    /// the lower end.
    struct Packed {
        ///@{
        /// Components: L 0 to 100, a and b −128 to 127.
        unsigned char L = 0;
        signed char a = 0;
        signed char b = 0;
        ///@}

        /// All components 0.
        constexpr Packed() noexcept = default;
        /// Rounded and clamped.
        constexpr explicit Packed(const DIN99o& color) noexcept { fromDIN99o(color.L, color.a, color.b); }

        /// Equality of all bytes.
        friend constexpr bool operator==(const Packed&, const Packed&) noexcept = default;

    private:
        constexpr void fromDIN99o(double lightness, double redness, double yellowness) noexcept
        {
            L = static_cast<unsigned char>(Ranges[0].Round(lightness));
            a = static_cast<signed char>(Ranges[1].Round(redness));
            b = static_cast<signed char>(Ranges[2].Round(yellowness));
        }
    };

    /// All components 0.
    constexpr DIN99o() noexcept = default;
    ///@{
    /// The components as they are.
    constexpr DIN99o(double lightness, double redness, double yellowness) noexcept
        : L(lightness), a(redness), b(yellowness)
    {
    }
    constexpr DIN99o(const Packed& bytes) noexcept : L(bytes.L), a(bytes.a), b(bytes.b) {}
    ///@}
    /// From L*a*b*; nothing is clamped.
    DIN99o(const Lab& lab) noexcept { fromLab(lab); }

    /// To L*a*b*; the inverse of the constructor above.
    [[nodiscard]] VOALGO_API Lab ToLab() const noexcept;

    ///@{
    /// Euclidean distance over (L, a, b), chromatic distance over (a, b) only; Sq: its square.
    [[nodiscard]] constexpr double DistanceSq(const DIN99o& other) const noexcept
    {
        const double dL = other.L - L;
        return dL * dL + ChromaticDistanceSq(other);
    }
    [[nodiscard]] VOALGO_API double Distance(const DIN99o& other) const noexcept;
    [[nodiscard]] constexpr double ChromaticDistanceSq(const DIN99o& other) const noexcept
    {
        const double da = other.a - a, db = other.b - b;
        return da * da + db * db;
    }
    [[nodiscard]] VOALGO_API double ChromaticDistance(const DIN99o& other) const noexcept;
    ///@}

    /// √(a² + b²)
    [[nodiscard]] VOALGO_API double Chroma() const noexcept;
    /// The other colour's chroma minus this one's.
    [[nodiscard]] double DeltaC(const DIN99o& other) const noexcept { return other.Chroma() - Chroma(); }
    /// In degrees, from 0 to 360 plus a rounding error; 0 for grey. On the b axis 90.00000000000017 and
    /// 269.9999999999999 (deliberate).
    [[nodiscard]] VOALGO_API double Hue() const noexcept;

    /// Exact equality of all components.
    friend constexpr bool operator==(const DIN99o&, const DIN99o&) noexcept = default;

private:
    friend class TColor<DIN99o>;
    static constexpr double DIN99o::*Components[3] = {&DIN99o::L, &DIN99o::a, &DIN99o::b};

    VOALGO_API void fromLab(const Lab& lab) noexcept;
};

} // namespace VoAlgo::cs
