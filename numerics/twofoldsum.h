#pragma once

#include <cmath>

namespace VoAlgo {

/// A sum of products as if computed in twice the working precision and rounded at the end.
/// Source: T. Ogita, S. M. Rump, S. Oishi, SIAM J. Sci. Comput. 26 (2005) 1955–1988, algorithm Dot2.
class TwofoldSum {
public:
    explicit TwofoldSum(double start) : sum_(start) {}
    void Add(double a, double b)
    {
        const double product = a * b;
        const double sum = sum_ + product;
        const double part = sum - sum_;
        error_ += (sum_ - (sum - part)) + (product - part) + std::fma(a, b, -product);
        sum_ = sum;
    }
    [[nodiscard]] double Value() const { return sum_ + error_; }

private:
    double sum_;
    double error_ = 0;
};

} // namespace VoAlgo
