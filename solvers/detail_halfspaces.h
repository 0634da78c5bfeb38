#pragma once

#include "VoAlgorithms/numerics/tmatrix.h"
#include "VoAlgorithms/numerics/tvector.h"

#include <cmath>
#include <cstddef>
#include <span>
#include <vector>

namespace VoAlgo::detail {

/// The half-spaces aᵢ·z ≤ bᵢ of a polyhedron, stored row by row. Rows of zeros and rows with bᵢ = +∞ bound nothing.
class Halfspaces {
public:
    explicit Halfspaces(std::size_t dimension = 0) : dimension_(dimension) {}
    /// A·z ≤ b, one row for each entry of b.
    Halfspaces(const TMatrix<double>& A, const TVector<double>& b) : Halfspaces(A.Cols())
    {
        for (std::size_t i = 0; i < b.Size(); ++i) Add(A.Row(i), b[i]);
    }

    void Add(std::span<const double> row, double bound)
    {
        double normSq = 0;
        for (const double e : row) normSq += e * e;
        coefficients_.insert(coefficients_.end(), row.begin(), row.end());
        bounds_.push_back(bound);
        norms_.push_back(std::sqrt(normSq));
    }
    [[nodiscard]] std::size_t Dimension() const { return dimension_; }
    [[nodiscard]] std::size_t Count() const { return bounds_.size(); }
    [[nodiscard]] std::span<const double> Row(std::size_t i) const
    {
        return {coefficients_.data() + i * dimension_, dimension_};
    }
    [[nodiscard]] double Bound(std::size_t i) const { return bounds_[i]; }
    /// ‖aᵢ‖
    [[nodiscard]] double Norm(std::size_t i) const { return norms_[i]; }
    /// aᵢ·v for a v of Dimension() entries, summed in order.
    [[nodiscard]] double Dot(std::size_t i, const TVector<double>& v) const
    {
        const double* a = coefficients_.data() + i * dimension_;
        const double* x = v.Data();
        double sum = 0;
        for (std::size_t j = 0; j < dimension_; ++j) sum += a[j] * x[j];
        return sum;
    }

private:
    std::size_t dimension_;
    std::vector<double> coefficients_;
    std::vector<double> bounds_;
    std::vector<double> norms_;
};

} // namespace VoAlgo::detail
