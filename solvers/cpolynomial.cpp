#include "VoAlgorithms/solvers/cpolynomial.h"

#include "platform/finite.h"
#include "solvers/detail_doubledouble.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>

namespace VoAlgo {

namespace {

template <class T>
T Horner(const std::vector<double>& coefficients, T x)
{
    T value = 0;
    for (std::size_t k = coefficients.size(); k-- > 0;) value = value * x + coefficients[k];
    return value;
}

CPolynomial Combined(const CPolynomial& p, const CPolynomial& q, double sign)
{
    std::vector<double> sum = p.Coefficients();
    const std::vector<double>& other = q.Coefficients();
    sum.resize(std::max(sum.size(), other.size()));
    for (std::size_t k = 0; k < other.size(); ++k) sum[k] += sign * other[k];
    return CPolynomial(std::move(sum));
}

} // namespace

CPolynomial::CPolynomial(std::vector<double> ascending) : coefficients_(std::move(ascending))
{
    if (!AllFinite(coefficients_.data(), coefficients_.size()))
        throw std::invalid_argument("A polynomial needs finite coefficients");
    while (!coefficients_.empty() && coefficients_.back() == 0) coefficients_.pop_back();
}

double CPolynomial::operator()(double x) const
{
    return Horner(coefficients_, x);
}

std::complex<double> CPolynomial::operator()(std::complex<double> x) const
{
    return Horner(coefficients_, x);
}

double CPolynomial::CompensatedValue(double x) const
{
    double value = 0, error = 0; // of the same polynomial with the rounding errors as coefficients
    for (std::size_t k = coefficients_.size(); k-- > 0;) {
        const DoubleDouble product = DoubleDouble::Product(value, x);
        const DoubleDouble sum = DoubleDouble::Sum(product.high, coefficients_[k]);
        value = sum.high;
        error = error * x + (product.low + sum.low);
    }
    return value + error;
}

CPolynomial CPolynomial::operator+(const CPolynomial& other) const
{
    return Combined(*this, other, 1);
}

CPolynomial CPolynomial::operator-(const CPolynomial& other) const
{
    return Combined(*this, other, -1);
}

CPolynomial CPolynomial::operator*(const CPolynomial& other) const
{
    if (Degree() < 0 || other.Degree() < 0) return CPolynomial(std::vector<double>{});
    const std::vector<double>&a = coefficients_, &b = other.coefficients_;
    std::vector<double> product(a.size() + b.size() - 1);
    for (std::size_t i = 0; i < a.size(); ++i)
        for (std::size_t j = 0; j < b.size(); ++j) product[i + j] += a[i] * b[j];
    return CPolynomial(std::move(product));
}

CPolynomial CPolynomial::operator*(double factor) const
{
    std::vector<double> product = coefficients_;
    for (double& a : product) a *= factor;
    return CPolynomial(std::move(product));
}

std::pair<CPolynomial, CPolynomial> CPolynomial::DividedBy(const CPolynomial& divisor) const
{
    const std::vector<double>& d = divisor.coefficients_;
    if (d.empty()) throw std::domain_error("Division by the zero polynomial");
    if (coefficients_.size() < d.size()) return {CPolynomial(std::vector<double>{}), *this};
    std::vector<double> rest = coefficients_, quotient(rest.size() - d.size() + 1);
    for (std::size_t k = quotient.size(); k-- > 0;) {
        quotient[k] = rest[k + d.size() - 1] / d.back();
        for (std::size_t i = 0; i < d.size(); ++i) rest[k + i] -= quotient[k] * d[i];
    }
    rest.resize(d.size() - 1); // above it, zero but for rounding
    return {CPolynomial(std::move(quotient)), CPolynomial(std::move(rest))};
}

CPolynomial CPolynomial::Derivative() const
{
    std::vector<double> derivative;
    for (std::size_t k = 1; k < coefficients_.size(); ++k)
        derivative.push_back(static_cast<double>(k) * coefficients_[k]);
    return CPolynomial(std::move(derivative));
}

CPolynomial CPolynomial::Integral() const
{
    std::vector<double> integral{0};
    for (std::size_t k = 0; k < coefficients_.size(); ++k)
        integral.push_back(coefficients_[k] / static_cast<double>(k + 1));
    return CPolynomial(std::move(integral));
}

CPolynomial CPolynomial::Of(const CPolynomial& inner) const
{
    CPolynomial result({});
    for (std::size_t k = coefficients_.size(); k-- > 0;)
        result = result * inner + CPolynomial(std::vector<double>{coefficients_[k]});
    return result;
}

} // namespace VoAlgo
