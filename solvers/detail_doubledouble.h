#pragma once

#include <cmath>

namespace VoAlgo {

/// An unevaluated sum high + low of twice the precision of double, by error-free transformations.
/// Source: T. J. Dekker, Numer. Math. 18 (1971) 224–242; D. E. Knuth, The Art of Computer Programming 2, 4.2.2.
struct DoubleDouble {
    double high = 0, low = 0;

    /// a + b exactly.
    static DoubleDouble Sum(double a, double b)
    {
        const double sum = a + b, t = sum - a;
        return {sum, (a - (sum - t)) + (b - t)};
    }
    /// a·b exactly, without underflow.
    static DoubleDouble Product(double a, double b)
    {
        const double product = a * b;
        return {product, std::fma(a, b, -product)};
    }

    friend DoubleDouble operator+(const DoubleDouble& a, const DoubleDouble& b)
    {
        const DoubleDouble s = Sum(a.high, b.high), t = Sum(a.low, b.low);
        const DoubleDouble r = normalized(s.high, s.low + t.high);
        return normalized(r.high, r.low + t.low);
    }
    friend DoubleDouble operator-(const DoubleDouble& a, const DoubleDouble& b)
    {
        return a + DoubleDouble{-b.high, -b.low};
    }
    friend DoubleDouble operator*(const DoubleDouble& a, const DoubleDouble& b)
    {
        const DoubleDouble p = Product(a.high, b.high);
        return normalized(p.high, p.low + (a.high * b.low + a.low * b.high));
    }
    friend DoubleDouble operator*(double a, const DoubleDouble& b) { return DoubleDouble{a, 0} * b; }

private:
    /// For |high| ≥ |low|.
    static DoubleDouble normalized(double high, double low)
    {
        const double sum = high + low;
        return {sum, low - (sum - high)};
    }
};

} // namespace VoAlgo
