#pragma once

#include "VoAlgorithms/numerics/tmatrix.h"
#include "VoAlgorithms/numerics/tvector.h"
#include "solvers/detail_halfspaces.h"

#include <cstddef>
#include <vector>

namespace VoAlgo::detail {

/// The simplex method's walk from vertex to vertex, over rows with coefficients of about unit size. A vertex is given
/// by its basis: as many independent rows as there are dimensions, all met with equality. Nothing but the basis is
/// carried from one vertex to the next, so errors do not add up.
class VertexWalk {
public:
    enum class End { Optimal, Unbounded, GaveUp };

    VertexWalk(const Halfspaces& system, std::vector<std::size_t> basis);

    /// False when double precision cannot solve for the vertex; call nothing else then.
    [[nodiscard]] bool IsRegular() const { return isRegular_; }
    [[nodiscard]] const TVector<double>& Point() const { return point_.x; }
    [[nodiscard]] const std::vector<std::size_t>& Basis() const { return basis_; }
    /// Whether no row is violated by more than rounded coefficients can explain.
    [[nodiscard]] bool IsFeasible() const;
    /// The most violated row; the number of rows when none is violated.
    [[nodiscard]] std::size_t MostViolated() const;
    [[nodiscard]] bool IsInBasis(std::size_t row) const;

    /// Walks uphill in c·z from a feasible vertex.
    [[nodiscard]] End Maximise(const TVector<double>& c);
    /// Brings a row into the basis, in exchange for the one with the largest share in it.
    void ForceIntoBasis(std::size_t row);

private:
    /// The solution x of equations in the basis rows, and the uncertainty of each coordinate in units of ε, when the
    /// coefficients of the equations have a relative uncertainty of ε: u = |rows⁻¹|·(|right-hand sides| + |rows|·|x|).
    struct Solution {
        TVector<double> x;
        TVector<double> u;
    };
    /// A value with its uncertainty in units of ε.
    struct Measured {
        double value;
        double uncertainty;
    };
    struct Blocker {
        std::size_t row;
        bool stalls; ///< the step to it has length 0
    };

    void solveForVertex();
    /// Solves (basis rows)·x = rhs; transposed: for the multipliers x with Σ xᵢ·(basis row i) = rhs.
    [[nodiscard]] Solution solve(const TVector<double>& rhs, bool transposed = false) const;
    /// rhs − row·x
    [[nodiscard]] Measured remainder(std::size_t row, double rhs, const Solution& solution) const;
    [[nodiscard]] Measured slackOf(std::size_t row) const { return remainder(row, system_->Bound(row), point_); }
    /// The basis row to leave, as a position in the basis; its size when the vertex is optimal.
    [[nodiscard]] std::size_t chooseLeaving(const Solution& multipliers, bool smallestIndex) const;
    /// The first row ahead on the edge; the number of rows when there is none.
    [[nodiscard]] Blocker chooseEntering(const Solution& direction, bool smallestIndex) const;

    const Halfspaces* system_;
    std::vector<std::size_t> basis_;
    TMatrix<double> rows_; // of the basis
    TMatrix<double> inverse_;
    Solution point_;
    bool isRegular_ = false;
};

} // namespace VoAlgo::detail
