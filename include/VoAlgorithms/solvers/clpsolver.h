#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/numerics/tmatrix.h"
#include "VoAlgorithms/numerics/tvector.h"

namespace VoAlgo {

/// Linear programming: maximises c·z over all z with A·z ≤ b. The z are free in sign.
///
/// A two-phase simplex method on the vertices of the polyhedron. The entering and leaving rows follow the steepest
/// multiplier and the largest pivot; at a degenerate vertex they follow Bland's rule of smallest indices, which cannot
/// cycle. Rows and columns are scaled by powers of two, which rounds nothing. Every vertex is computed anew from the
/// original rows, with residuals in twice the working precision, and is accurate to a few units in the last place, even
/// if the polyhedron has no interior (an equation written as two inequalities) or rows are redundant.
/// The feasibility test allows for rows that are results of computations: a row counts as met when relative changes of
/// the coefficients by 1e-12 can explain the violation. If a vertex meets all rows to rounding, so does the solution.
///
/// Source: R. G. Bland, Math. Oper. Res. 2 (1977) 103–107; V. Chvátal, Linear Programming, Freeman 1983, chapters 3, 8.
class VOALGO_API CLPSolver {
public:
    /// How a Run ended.
    enum EStatus : int {
        NotRun = 0,      ///< there was none
        Optimal = 1,     ///< GetSolution has the optimum
        Unbounded = 2,   ///< there are feasible z, and c·z grows without limit among them
        GaveUp = 3,      ///< beyond double precision: indistinguishable vertices, or a solution out of range
        Infeasible = -1, ///< no z meets all rows
        BadInput = -2,   ///< sizes that do not match; a not-a-number; an infinity in A or c
    };

    /// Stores the programme; Run checks the sizes. A row of zeros has no effect when its b is ≥ 0; otherwise nothing
    /// meets it.
    /// @param A   one row for each inequality; may have none.
    /// @param b   one entry for each row; +∞ disables a row, −∞ makes the programme infeasible.
    /// @param c   one entry for each column of A; all zero asks for any feasible point.
    CLPSolver(TMatrix<double> A, TVector<double> b, TVector<double> c);

    /// Solves; true when there is an optimum. Equal inputs give equal bits. Each step costs O(n³ + m·n) for m rows and
    /// n columns.
    [[nodiscard]] bool Run();
    /// How the last Run ended, an EStatus.
    [[nodiscard]] int GetStatus() const { return status_; }
    /// The optimum of the last Run: a vertex, if the polyhedron has any (otherwise as many rows as possible hold with
    /// equality, and the unknowns that remain free are 0). Empty unless Run succeeded.
    /// @param valid   null, or out: whether Run succeeded.
    [[nodiscard]] TVector<double> GetSolution(bool* valid = nullptr) const;

private:
    [[nodiscard]] EStatus solve();

    TMatrix<double> lhs_;
    TVector<double> rhs_;
    TVector<double> cost_;
    TVector<double> solution_;
    int status_ = NotRun;
};

} // namespace VoAlgo
