#pragma once

#include "VoAlgorithms/colour/tcolor.h"

namespace VoAlgo::cs {

/// Red, green and blue, nominally 0 … 255 each. The caller decides whether they are linear or gamma-coded (sRGB).
class RGB : public TColor<RGB> {
public:
    /// Nominal ranges of the components, in their order.
    static constexpr ChannelRange Ranges[3] = {{0, 255}, {0, 255}, {0, 255}};

    ///@{
    /// Components, nominally 0 … 255.
    double r = 0;
    double g = 0;
    double b = 0;
    ///@}

    /// Three bytes.
    struct Packed {
        ///@{
        /// Components, 0 to 255.
        unsigned char r = 0;
        unsigned char g = 0;
        unsigned char b = 0;
        ///@}

        /// All components 0.
        constexpr Packed() noexcept = default;
        /// Rounded and clamped as in FromRGB.
        constexpr explicit Packed(const RGB& color) noexcept { FromRGB(color.r, color.g, color.b); }
        /// Rounds to the nearest integers, ties to even, and clamps to 0 … 255; NaN becomes 0. Returns the object.
        constexpr Packed& FromRGB(double red, double green, double blue) noexcept
        {
            r = toByte(red);
            g = toByte(green);
            b = toByte(blue);
            return *this;
        }

        /// Equality of all bytes.
        friend constexpr bool operator==(const Packed&, const Packed&) noexcept = default;
    };

    /// All components 0.
    constexpr RGB() noexcept = default;
    ///@{
    /// The components as they are.
    constexpr RGB(double red, double green, double blue) noexcept : r(red), g(green), b(blue) {}
    constexpr RGB(const Packed& bytes) noexcept : r(bytes.r), g(bytes.g), b(bytes.b) {}
    ///@}

    /// Clamps each component to its range, NaN excepted. Returns the object.
    constexpr RGB& Clamp() noexcept { return clamp(); }

    ///@{
    /// Packing into 32 bits: the name lists the bytes from the most significant down. Components are rounded as in
    /// Packed; A is 0xFF.
    [[nodiscard]] constexpr unsigned int ToARGB() const noexcept { return pack(0xFF, ToR(), ToG(), ToB()); }
    [[nodiscard]] constexpr unsigned int ToABGR() const noexcept { return pack(0xFF, ToB(), ToG(), ToR()); }
    [[nodiscard]] constexpr unsigned int ToBGRA() const noexcept { return pack(ToB(), ToG(), ToR(), 0xFF); }
    [[nodiscard]] constexpr unsigned int ToRGBA() const noexcept { return pack(ToR(), ToG(), ToB(), 0xFF); }
    ///@}
    ///@{
    /// Unpacking of 32 bits; the name lists the bytes as above. A is ignored.
    [[nodiscard]] static constexpr RGB FromARGB(unsigned int argb) noexcept
    {
        RGB c;
        double ignored = 0;
        unpack(argb, ignored, c.r, c.g, c.b);
        return c;
    }
    [[nodiscard]] static constexpr RGB FromABGR(unsigned int abgr) noexcept
    {
        RGB c;
        double ignored = 0;
        unpack(abgr, ignored, c.b, c.g, c.r);
        return c;
    }
    [[nodiscard]] static constexpr RGB FromBGRA(unsigned int bgra) noexcept
    {
        RGB c;
        unpack(bgra, c.b, c.g, c.r);
        return c;
    }
    [[nodiscard]] static constexpr RGB FromRGBA(unsigned int rgba) noexcept
    {
        RGB c;
        unpack(rgba, c.r, c.g, c.b);
        return c;
    }
    ///@}

    ///@{
    /// Single components as bytes, rounded as in Packed.
    [[nodiscard]] constexpr unsigned char ToR() const noexcept { return toByte(r); }
    [[nodiscard]] constexpr unsigned char ToG() const noexcept { return toByte(g); }
    [[nodiscard]] constexpr unsigned char ToB() const noexcept { return toByte(b); }
    ///@}
    /// The luminance 0.212671·r + 0.71516·g + 0.072169·b as a byte.
    [[nodiscard]] constexpr unsigned char ToGray() const noexcept
    {
        return toByte(0.212671 * r + 0.71516 * g + 0.072169 * b);
    }

    /// Exact equality of all components.
    friend constexpr bool operator==(const RGB&, const RGB&) noexcept = default;

private:
    friend class TColor<RGB>;
    static constexpr double RGB::*Components[3] = {&RGB::r, &RGB::g, &RGB::b};

    static constexpr unsigned char toByte(double component) noexcept
    {
        return static_cast<unsigned char>(Ranges[0].Round(component));
    }
    /// The first argument becomes the most significant byte.
    static constexpr unsigned int pack(unsigned char b3, unsigned char b2, unsigned char b1, unsigned char b0) noexcept
    {
        return static_cast<unsigned int>(b3) << 24 | static_cast<unsigned int>(b2) << 16 |
               static_cast<unsigned int>(b1) << 8 | b0;
    }
    /// The most significant byte comes first.
    static constexpr void unpack(unsigned int packed, double& c3, double& c2, double& c1) noexcept
    {
        c3 = packed >> 24 & 0xFFU;
        c2 = packed >> 16 & 0xFFU;
        c1 = packed >> 8 & 0xFFU;
    }
    static constexpr void unpack(unsigned int packed, double& c3, double& c2, double& c1, double& c0) noexcept
    {
        unpack(packed, c3, c2, c1);
        c0 = packed & 0xFFU;
    }
};

} // namespace VoAlgo::cs
