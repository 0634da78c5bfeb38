#pragma once

#include "VoAlgorithms/numerics/tmatrix.h"
#include "VoAlgorithms/numerics/tvector.h"

#include <cstddef>
#include <span>
#include <vector>

namespace VoAlgo::detail {

/// The half-spaces aᵢ·z ≤ bᵢ of a polyhedron, their coefficients of about unit size.
class Halfspaces {
public:
    explicit Halfspaces(std::size_t dimension) : dimension_(dimension) {}

    void Add(std::span<const double> row, double bound)
    {
        coefficients_.insert(coefficients_.end(), row.begin(), row.end());
        bounds_.push_back(bound);
    }
    [[nodiscard]] std::size_t Dimension() const { return dimension_; }
    [[nodiscard]] std::size_t Count() const { return bounds_.size(); }
    [[nodiscard]] std::span<const double> Row(std::size_t i) const
    {
        return {coefficients_.data() + i * dimension_, dimension_};
    }
    [[nodiscard]] double Bound(std::size_t i) const { return bounds_[i]; }

private:
    std::size_t dimension_;
    std::vector<double> coefficients_; // row by row
    std::vector<double> bounds_;
};

/// The simplex method's walk from vertex to vertex. A vertex is given by its basis: as many independent rows as there
/// are dimensions, all met with equality. Nothing is carried from one vertex to the next but the basis, so errors do
/// not add up.
class VertexWalk {
public:
    enum class End { Optimal, Unbounded, GaveUp };

    VertexWalk(const Halfspaces& system, std::vector<std::size_t> basis);

    /// False when double precision cannot solve for the vertex; nothing else may be asked then.
    [[nodiscard]] bool IsRegular() const { return isRegular_; }
    [[nodiscard]] const TVector<double>& Point() const { return point_.x; }
    [[nodiscard]] const std::vector<std::size_t>& Basis() const { return basis_; }
    /// No row is missed by more than what rounded coefficients explain.
    [[nodiscard]] bool IsFeasible() const;
    /// The row that is missed most; the number of rows when none is.
    [[nodiscard]] std::size_t MostViolated() const;
    [[nodiscard]] bool IsInBasis(std::size_t row) const;

    /// Walks uphill in c·z, from a vertex that is feasible.
    [[nodiscard]] End Maximise(const TVector<double>& c);
    /// Brings a row into the basis, in place of the one that carries most of it.
    void ForceIntoBasis(std::size_t row);

private:
    /// The solution x of equations in the basis rows, and by how many ε each coordinate is uncertain when the
    /// coefficients of the equations are so by a share ε: u = |rows⁻¹|·(|right-hand sides| + |rows|·|x|).
    struct Solution {
        TVector<double> x;
        TVector<double> u;
    };
    /// A value with its own uncertainty, in ε.
    struct Measured {
        double value;
        double uncertainty;
    };
    struct Blocker {
        std::size_t row;
        bool stalls; ///< the step to it has no length
    };

    void SolveForVertex();
    /// Solves (basis rows)·x = rhs; transposed: for the multipliers x with Σ xᵢ·(basis row i) = rhs.
    [[nodiscard]] Solution Solve(const TVector<double>& rhs, bool transposed = false) const;
    /// rhs − row·x
    [[nodiscard]] Measured Remainder(std::size_t row, double rhs, const Solution& solution) const;
    [[nodiscard]] Measured Slack(std::size_t row) const { return Remainder(row, system_->Bound(row), point_); }
    /// The basis row to leave, as a position in the basis; its size when the vertex is optimal.
    [[nodiscard]] std::size_t Leaving(const Solution& multipliers, bool smallestIndex) const;
    /// The first row ahead on the edge; the number of rows when there is none.
    [[nodiscard]] Blocker Entering(const Solution& direction, bool smallestIndex) const;

    const Halfspaces* system_;
    std::vector<std::size_t> basis_;
    TMatrix<double> rows_; // of the basis
    TMatrix<double> inverse_;
    Solution point_;
    bool isRegular_ = false;
};

} // namespace VoAlgo::detail
