#include "VoAlgorithms/numerics/lapack.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>
#include <utility>
#include <vector>

// Linear equations in general: all their solutions, by a pivoted QR factorisation.

namespace VoAlgo::lapack {
namespace {

/// Scales every equation by a power of two, which rounds nothing, so that its largest coefficient lies in [1/2, 1).
void ScaleEquations(TMatrix<double>& a, TVector<double>& b)
{
    for (std::size_t i = 0; i < a.Rows(); ++i) {
        const double largest = a.Row(i).MaxAbs();
        if (largest == 0) continue;
        int exponent = 0;
        std::frexp(largest, &exponent);
        for (std::size_t j = 0; j < a.Cols(); ++j) a(i, j) = std::ldexp(a(i, j), -exponent);
        b[i] = std::ldexp(b[i], -exponent);
    }
}

std::size_t Rank(const TMatrix<double>& r)
{
    const std::size_t diagonal = std::min(r.Rows(), r.Cols());
    if (diagonal == 0) return 0;
    const double smallest =
        4 * std::max(r.Rows(), r.Cols()) * std::numeric_limits<double>::epsilon() * std::abs(r(0, 0));
    std::size_t rank = 0;
    while (rank < diagonal && std::abs(r(rank, rank)) > smallest) ++rank;
    return rank;
}

/// Solves the leading triangle of r for the leading part of a column, in place.
void BackSubstitute(const TMatrix<double>& r, std::size_t rank, std::span<double> y)
{
    for (std::size_t i = rank; i-- > 0;) {
        for (std::size_t j = i + 1; j < rank; ++j) y[i] -= r(i, j) * y[j];
        y[i] /= r(i, i);
    }
}

/// Solves equations·solutions = rhs, column by column, for the unknowns of the leading triangle of r; `solutions` comes
/// with those of the others. Residuals correct the first solution: where unknowns of unlike size share an equation,
/// what is rounding to the largest would drown the smallest.
void SolveForDependent(const TMatrix<double>& equations, const TMatrix<double>& q, const TMatrix<double>& r,
                       const CPMatrix& p, std::size_t rank, const TMatrix<double>& rhs, TMatrix<double>& solutions)
{
    constexpr int Passes = 3;
    TMatrix<double> correction;
    for (int pass = 0; pass < Passes; ++pass) {
        MultiplyTransposed(q, rhs - equations * solutions, correction);
        for (std::size_t c = 0; c < solutions.Cols(); ++c) {
            const auto y = correction.Column(c);
            BackSubstitute(r, rank, y);
            for (std::size_t i = 0; i < rank; ++i) solutions(p[i], c) += y[i];
        }
    }
}

/// An equation in a single unknown fixes it, without the roundings of the factorisation.
void FixSingleUnknowns(const TMatrix<double>& equations, const TMatrix<double>& rhs, TMatrix<double>& solutions)
{
    for (std::size_t i = 0; i < equations.Rows(); ++i) {
        const TVector<double> row = equations.Row(i);
        if (std::count(row.begin(), row.end(), 0.0) + 1 != row.Size()) continue;
        const auto unknown = std::find_if(row.begin(), row.end(), [](double e) { return e != 0; }) - row.begin();
        for (std::size_t c = 0; c < solutions.Cols(); ++c) solutions(unknown, c) = rhs(i, c) / row[unknown];
    }
}

bool Satisfies(const TMatrix<double>& a, const TVector<double>& x, const TVector<double>& b)
{
    constexpr double Tolerance = 1e-12; // some thousand roundings
    for (std::size_t i = 0; i < a.Rows(); ++i) {
        double missed = -b[i];
        double magnitude = std::abs(b[i]);
        for (std::size_t j = 0; j < a.Cols(); ++j) {
            missed += a(i, j) * x[j];
            magnitude += std::abs(a(i, j) * x[j]);
        }
        if (!(std::abs(missed) <= Tolerance * magnitude)) return false;
    }
    return true;
}

} // namespace

TMatrix<double> qrp_kernel(TMatrix<double>& a, TVector<double>& b, CPMatrix& p)
{
    TVector<double> values = b.Empty() ? TVector<double>(a.Rows()) : b;
    if (values.Size() != a.Rows() || !std::isfinite(values.MaxAbs())) return {};
    ScaleEquations(a, values);
    const TMatrix<double> equations = a;
    const std::size_t unknowns = a.Cols();
    TMatrix<double> q(a.Rows(), a.Rows());
    TMatrix<double> r(a.Rows(), a.Cols());
    CPMatrix pivots(unknowns);
    if (!qrp(a, q, r, pivots)) return {};
    const std::size_t rank = Rank(r);
    std::sort(pivots.Data() + rank, pivots.Data() + unknowns); // the free unknowns, whatever the pivoting did

    // Column 0 becomes the particular solution, with 0 at the free unknowns; each of the others has one of these at 1.
    const std::size_t free = unknowns - rank;
    TMatrix<double> rhs(a.Rows(), 1 + free);
    std::copy(values.begin(), values.end(), rhs.Data());
    TMatrix<double> solutions(unknowns, 1 + free);
    for (std::size_t k = 0; k < free; ++k) solutions(pivots[rank + k], k + 1) = 1;
    SolveForDependent(equations, q, r, pivots, rank, rhs, solutions);
    FixSingleUnknowns(equations, rhs, solutions);

    TMatrix<double> kernel(unknowns, free);
    std::copy_n(solutions.Data() + unknowns, unknowns * free, kernel.Data());
    TVector<double> x(solutions.Column(0));
    b = Satisfies(equations, x, values) ? std::move(x) : TVector<double>();
    p = std::move(pivots);
    return kernel;
}

} // namespace VoAlgo::lapack
