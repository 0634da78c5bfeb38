#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

namespace VoAlgo::test {

/// An integer of any size, slow and plain.
class BigInteger {
public:
    BigInteger() = default;
    /// v / 2^-1074, exactly.
    static BigInteger FromDouble(double v)
    {
        int exponent = 0;
        const double fraction = std::frexp(std::abs(v), &exponent); // v = (fraction·2^53)·2^(exponent − 53)
        auto mantissa = static_cast<std::uint64_t>(std::ldexp(fraction, 53));
        int shift = exponent - 53 + 1074;
        for (; shift < 0; ++shift) mantissa /= 2; // zeros, for v is a multiple
        BigInteger n;
        n.isNegative_ = v < 0;
        n.digits_.assign(static_cast<std::size_t>(shift / 32), 0);
        const auto low = static_cast<std::uint32_t>(mantissa), high = static_cast<std::uint32_t>(mantissa >> 32);
        const std::uint64_t lows = std::uint64_t{low} << (shift % 32), highs = std::uint64_t{high} << (shift % 32);
        const std::uint64_t middle = (lows >> 32) + (highs & 0xffffffff);
        for (const std::uint64_t digit : {lows, middle, (highs >> 32) + (middle >> 32)})
            n.digits_.push_back(static_cast<std::uint32_t>(digit));
        return n;
    }

    [[nodiscard]] int Sign() const
    {
        for (const std::uint32_t digit : digits_)
            if (digit != 0) return isNegative_ ? -1 : 1;
        return 0;
    }

    friend BigInteger operator-(BigInteger a)
    {
        a.isNegative_ = !a.isNegative_;
        return a;
    }
    friend BigInteger operator-(const BigInteger& a, const BigInteger& b) { return a + -b; }
    friend BigInteger operator+(const BigInteger& a, const BigInteger& b)
    {
        if (a.isNegative_ != b.isNegative_ && a.isSmaller(b)) return b + a;
        BigInteger sum = a;
        sum.digits_.resize(std::max(a.digits_.size(), b.digits_.size()) + 1);
        std::int64_t carry = 0;
        for (std::size_t k = 0; k < sum.digits_.size(); ++k) {
            const std::int64_t digit = b.digit(k);
            carry += sum.digits_[k] + (a.isNegative_ == b.isNegative_ ? digit : -digit);
            sum.digits_[k] = static_cast<std::uint32_t>(carry);
            carry >>= 32;
        }
        return sum;
    }
    friend BigInteger operator*(const BigInteger& a, const BigInteger& b)
    {
        BigInteger product;
        product.isNegative_ = a.isNegative_ != b.isNegative_;
        product.digits_.resize(a.digits_.size() + b.digits_.size());
        for (std::size_t i = 0; i < a.digits_.size(); ++i) {
            std::uint64_t carry = 0;
            for (std::size_t j = 0; j < b.digits_.size(); ++j) {
                carry += product.digits_[i + j] + std::uint64_t{a.digits_[i]} * b.digits_[j];
                product.digits_[i + j] = static_cast<std::uint32_t>(carry);
                carry >>= 32;
            }
            product.digits_[i + b.digits_.size()] = static_cast<std::uint32_t>(carry);
        }
        return product;
    }

private:
    [[nodiscard]] std::uint32_t digit(std::size_t k) const { return k < digits_.size() ? digits_[k] : 0; }
    [[nodiscard]] bool isSmaller(const BigInteger& b) const // without the signs
    {
        for (std::size_t k = std::max(digits_.size(), b.digits_.size()); k-- > 0;)
            if (digit(k) != b.digit(k)) return digit(k) < b.digit(k);
        return false;
    }

    std::vector<std::uint32_t> digits_; // the least significant first
    bool isNegative_ = false;
};

} // namespace VoAlgo::test
