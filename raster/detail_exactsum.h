#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace VoAlgo {

/// The exact sum of products of `Degree` finite doubles each, of any exponents, by its sign: a fixed-point number whose
/// last digit is that of the smallest product. Up to 2³⁰ products.
/// Source: U. Kulisch, W. L. Miranker, SIAM Rev. 28 (1986) 1–40.
template <std::size_t Degree>
class ExactSum {
public:
    /// Adds sign·(product of the factors), sign = ±1.
    void Add(int sign, const std::array<double, Degree>& factors)
    {
        Product product;
        for (const double factor : factors) product.Multiply(factor);
        const std::int64_t signs = product.isNegative ? -sign : sign;
        product.ShiftLeft(product.exponent % 32);
        std::int64_t* digit = digits_.data() + product.exponent / 32;
        for (std::size_t k = 0; k < product.size; ++k) digit[k] += signs * product.digits[k];
    }

    /// −1, 0 or 1.
    [[nodiscard]] int Sign() const
    {
        std::int64_t carry = 0;
        bool isZero = true;
        for (const std::int64_t digit : digits_) {
            const std::int64_t sum = digit + carry;
            isZero &= (sum & 0xffffffff) == 0;
            carry = sum >> 32;
        }
        return carry < 0 ? -1 : isZero && carry == 0 ? 0 : 1;
    }

private:
    static constexpr std::size_t Bits = Degree * (1074 + 1024);

    /// digits·2^(exponent − 1074·Degree), the least significant digit of 32 bits first.
    struct Product {
        std::array<std::uint32_t, 2 * Degree + 2> digits{1};
        std::size_t size = 1;
        std::uint32_t exponent = 0;
        bool isNegative = false;

        void Multiply(double factor)
        {
            const auto bits = std::bit_cast<std::uint64_t>(factor);
            const auto biased = static_cast<std::uint32_t>(bits >> 52) & 0x7ff;
            const std::uint64_t fraction = bits & ((std::uint64_t{1} << 52) - 1);
            const std::uint64_t mantissa = biased == 0 ? fraction : fraction | std::uint64_t{1} << 52;
            isNegative ^= bits >> 63 != 0;
            exponent += biased == 0 ? 0 : biased - 1;
            multiplyBy(mantissa & 0xffffffff, mantissa >> 32);
        }
        void ShiftLeft(std::uint32_t bits) // fewer than 32
        {
            std::uint64_t carry = 0;
            for (std::size_t k = 0; k < size; ++k) {
                carry |= std::uint64_t{digits[k]} << bits;
                digits[k] = static_cast<std::uint32_t>(carry);
                carry >>= 32;
            }
            digits[size++] = static_cast<std::uint32_t>(carry);
        }

    private:
        void multiplyBy(std::uint64_t low, std::uint64_t high)
        {
            std::uint64_t previous = 0, carry = 0;
            for (std::size_t k = 0; k < size; ++k) {
                const std::uint64_t digit = digits[k], lows = digit * low, highs = previous * high;
                const std::uint64_t sum = (lows & 0xffffffff) + (highs & 0xffffffff) + carry;
                digits[k] = static_cast<std::uint32_t>(sum);
                carry = (lows >> 32) + (highs >> 32) + (sum >> 32);
                previous = digit;
            }
            const std::uint64_t top = previous * high + carry; // high has 21 bits
            digits[size] = static_cast<std::uint32_t>(top);
            digits[size + 1] = static_cast<std::uint32_t>(top >> 32);
            size += 2;
        }
    };

    std::array<std::int64_t, Bits / 32 + 4> digits_{}; // carries are left to Sign()
};

} // namespace VoAlgo
