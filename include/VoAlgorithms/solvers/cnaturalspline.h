#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/numerics/tmatrix.h"
#include "VoAlgorithms/numerics/tvector.h"

#include <cstddef>
#include <vector>

namespace VoAlgo {

/// A cubic spline y(x): a cubic on each interval between neighbouring x, with continuous first and second derivatives.
/// Read-only after construction; may be shared by threads. Equal inputs give equal values, alone or in bulk.
///
/// Data that define no spline throw std::invalid_argument with the place: lengths that differ, too few points, numbers
/// that are not finite, x not strictly ascending or with gaps whose length or its inverse is not finite.
///
/// Source: C. de Boor, A Practical Guide to Splines, Springer 2001, chapters IV and XIV.
class VOALGO_API CNaturalSpline {
public:
    /// A local minimum or maximum.
    struct Extremum {
        double x;       ///< where
        double y;       ///< value there
        bool isMaximum; ///< or a minimum
    };

    /// The natural spline through at least two points: of all functions through them the one with the least ∫ y″² dx.
    /// Its second derivative is 0 at both ends; beyond them it goes on as a straight line. O(n).
    CNaturalSpline(const std::vector<double>& x, const std::vector<double>& y);
    /// The spline through at least three points that repeats beyond the ends; the last y must equal the first. O(n).
    [[nodiscard]] static CNaturalSpline Periodic(const std::vector<double>& x, const std::vector<double>& y);
    /// The natural spline that minimises Σ wᵢ·(yᵢ − y(xᵢ))² + λ·∫ y″² dx. λ = 0 gives the spline through the points, a
    /// large λ nearly the least-squares line. Each weight, the inverse variance of yᵢ, is positive; none given count
    /// as 1. A negative or infinite λ throws std::invalid_argument. O(n), by a banded Cholesky factorisation. Source:
    /// C. H. Reinsch, Numer. Math. 10 (1967) 177–183.
    [[nodiscard]] static CNaturalSpline Smoothing(const std::vector<double>& x, const std::vector<double>& y,
                                                  double lambda, const std::vector<double>& weights = {});

    ///@{
    /// The first and last x.
    [[nodiscard]] double Begin() const { return knots_[1]; }
    [[nodiscard]] double End() const { return knots_[knots_.size() - 2]; }
    ///@}
    /// The value at x; NaN unless x is finite. O(log n).
    [[nodiscard]] double operator()(double x) const;
    /// The values at many x, in any order; ascending ones that lie close together are found without a search.
    [[nodiscard]] std::vector<double> Values(const std::vector<double>& x) const;
    /// The same for arrays of n numbers, which may be one and the same.
    void Values(const double* x, std::size_t n, double* values) const;
    /// The first or second derivative at x. Throws std::invalid_argument for any other order.
    [[nodiscard]] double Derivative(double x, int order) const;
    /// ∫ y dx from a to b; negative with its sign reversed when b < a. Throws std::invalid_argument unless both are
    /// finite. Costs the number of knots in between.
    [[nodiscard]] double Integral(double a, double b) const;
    /// Where y = 0 in [from, to], ascending, each place once. A minimum or maximum that differs from 0 by no more than
    /// the rounding counts as one place. Of an interval between knots in which y is 0 throughout, the ends are listed.
    /// Throws std::invalid_argument unless both are finite and from ≤ to.
    [[nodiscard]] std::vector<double> Roots(double from, double to) const;
    /// The minima and maxima inside (from, to), ascending; a level stretch is none. Throws as Roots does.
    [[nodiscard]] std::vector<Extremum> Extrema(double from, double to) const;

private:
    struct Piece {
        double value, slope, bend, twist;

        /// The value at t behind the start.
        double operator()(double t) const { return value + t * (slope + t * (bend + t * twist)); }
    };
    struct Zero;
    enum class EOf { Value, Slope };

    CNaturalSpline() = default;
    void setPieces(const std::vector<double>& x, const std::vector<double>& y, const std::vector<double>& curvature);
    [[nodiscard]] std::size_t findPiece(double x) const;
    [[nodiscard]] double startOf(std::size_t k) const { return knots_[k + std::size_t{k == 0}]; }
    [[nodiscard]] std::size_t walk(const double* at, std::size_t n, double* values, std::size_t k) const;
    [[nodiscard]] double wrapped(double x) const;
    [[nodiscard]] std::vector<Zero> zeros(double from, double to, EOf of) const;
    template <class F>
    void forEachPiece(double from, double to, F f) const;

    // Piece k holds for knots_[k] ≤ x < knots_[k + 1]. The first and the last knot are infinite, their pieces straight.
    std::vector<double> knots_;
    std::vector<Piece> pieces_;
    bool isPeriodic_ = false;
};

/// A curve in any number of dimensions whose coordinates are splines of one parameter. Throws as CNaturalSpline does.
class VOALGO_API CNaturalSplineCurve {
public:
    /// Through the rows of an n×D matrix; the parameter is the length of the polygon up to a point, from 0. A closed
    /// curve returns from the last point to the first one, which is not repeated. Neighbours must differ. At least two
    /// points.
    explicit CNaturalSplineCurve(const TMatrix<double>& points, bool isClosed = false);
    /// At given parameters, strictly ascending: n of them; n + 1 for a closed curve, which is at its first point again
    /// at the last of them.
    CNaturalSplineCurve(const TMatrix<double>& points, const std::vector<double>& parameters, bool isClosed = false);

    /// Number of dimensions.
    [[nodiscard]] std::size_t Dimension() const { return coordinates_.size(); }
    ///@{
    /// The first and last parameter.
    [[nodiscard]] double Begin() const { return coordinates_.front().Begin(); }
    [[nodiscard]] double End() const { return coordinates_.front().End(); }
    ///@}
    /// One coordinate as a function of the parameter. Throws std::out_of_range.
    [[nodiscard]] const CNaturalSpline& Coordinate(std::size_t d) const { return coordinates_.at(d); }
    /// The point at t.
    [[nodiscard]] TVector<double> operator()(double t) const;
    /// The first or second derivative by the parameter at t.
    [[nodiscard]] TVector<double> Derivative(double t, int order) const;
    /// The points at many t, one a row.
    [[nodiscard]] TMatrix<double> Values(const std::vector<double>& t) const;

private:
    std::vector<CNaturalSpline> coordinates_;
};

} // namespace VoAlgo
