#pragma once

#include "VoAlgorithms/export.h"

#include <complex>
#include <utility>
#include <vector>

namespace VoAlgo {

/// A polynomial a₀ + a₁·x + … + aₙ·xⁿ with real coefficients; aₙ ≠ 0, and the zero polynomial has none. Every function
/// whose result has a coefficient beyond the range of double throws std::invalid_argument.
class VOALGO_API CPolynomial {
public:
    /// From coefficients in ascending order of the powers; zeros at the end are dropped.
    /// Throws std::invalid_argument for a NaN or an infinity.
    explicit CPolynomial(std::vector<double> ascending);

    /// −1 for the zero polynomial.
    [[nodiscard]] int Degree() const { return static_cast<int>(coefficients_.size()) - 1; }
    /// Ascending, Degree() + 1 of them.
    [[nodiscard]] const std::vector<double>& Coefficients() const { return coefficients_; }
    /// Equal degrees and coefficients.
    [[nodiscard]] bool operator==(const CPolynomial&) const = default;

    ///@{
    /// The value at x by Horner's scheme.
    [[nodiscard]] double operator()(double x) const;
    [[nodiscard]] std::complex<double> operator()(std::complex<double> x) const;
    ///@}
    /// The value at x as accurate as if computed in twice the working precision and then rounded, at about twice
    /// the cost of operator(), unless an intermediate result overflows or underflows.
    /// Source: P. Langlois, N. Louvet, 18th IEEE Symposium on Computer Arithmetic (2007) 141–149.
    [[nodiscard]] double CompensatedValue(double x) const;

    ///@{
    /// Sums, differences and products, with coefficients rounded at every operation.
    [[nodiscard]] CPolynomial operator+(const CPolynomial& other) const;
    [[nodiscard]] CPolynomial operator-(const CPolynomial& other) const;
    [[nodiscard]] CPolynomial operator*(const CPolynomial& other) const;
    [[nodiscard]] CPolynomial operator*(double factor) const;
    ///@}
    /// Quotient and remainder: *this = quotient·divisor + remainder, whose degree is below the divisor's.
    /// Throws std::domain_error for the zero polynomial as divisor.
    [[nodiscard]] std::pair<CPolynomial, CPolynomial> DividedBy(const CPolynomial& divisor) const;
    /// The first derivative.
    [[nodiscard]] CPolynomial Derivative() const;
    /// The antiderivative that is 0 at 0.
    [[nodiscard]] CPolynomial Integral() const;
    /// The polynomial x ↦ (*this)(inner(x)).
    [[nodiscard]] CPolynomial Of(const CPolynomial& inner) const;

    /// The real roots, ascending; a multiple root is repeated. See Roots.
    [[nodiscard]] std::vector<double> RealRoots() const;
    /// All Degree() roots: the real ones ascending with an imaginary part of +0, then the conjugate pairs by real part,
    /// the root above the real axis first. A multiple root is repeated.
    ///
    /// Closed forms give the start; Ehrlich-Aberth steps, in the end with values of the polynomial in twice the working
    /// precision, make simple roots accurate to about one unit in the last place of their modulus, also in clusters
    /// with conditions of 1e9. Roots of like size are computed in a scale of their own, a power of two, so that nothing
    /// overflows but a root beyond the range of double (then infinite, or 0).
    ///
    /// A multiple root is reported where the rounding of the coefficients explains it: where the product of the rounded
    /// roots, fitted by Gauss-Newton steps, differs in no coefficient by more than (n + 1)·2⁻⁵³ of that of
    /// |aₙ|·∏(x + |root|). Equal bits need equal libraries of mathematical functions, as the start uses them.
    ///
    /// Throws std::domain_error for a degree of 5 and more, and for the zero polynomial.
    /// Source: O. Aberth, Math. Comp. 27 (1973) 339–344; D. A. Bini, Numer. Algorithms 13 (1996) 179–200;
    /// Z. Zeng, Math. Comp. 74 (2005) 869–903.
    [[nodiscard]] std::vector<std::complex<double>> Roots() const;

private:
    std::vector<double> coefficients_;
};

/// The multiple of a polynomial.
[[nodiscard]] inline CPolynomial operator*(double factor, const CPolynomial& p)
{
    return p * factor;
}

} // namespace VoAlgo
