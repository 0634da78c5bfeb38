#include "VoAlgorithms/solvers/clpsolver.h"

#include "platform/finite.h"
#include "solvers/detail_vertexwalk.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

// The two-phase simplex method on the vertices of the polyhedron (V. Chvátal, Linear Programming, Freeman 1983,
// chapters 3 and 8; against cycling: R. G. Bland, Math. Oper. Res. 2 (1977) 103–107):
// 1. drop rows that bound nothing; scale rows, columns and costs by powers of two;
// 2. find independent rows and columns by elimination; without a share in the rows' span, the cost is unbounded;
// 3. phase one: from the vertex of these rows to a feasible one, by minimising a slack x₀ that relaxes the violated
// rows;
// 4. phase two: walk uphill in c·z to the optimum, or along an edge without end;
// 5. undo the scaling. Each vertex is computed anew from the rows of its basis (detail_vertexwalk).

namespace VoAlgo {

using detail::Halfspaces;
using detail::VertexWalk;

CLPSolver::CLPSolver(TMatrix<double> A, TVector<double> b, TVector<double> c)
    : lhs_(std::move(A)), rhs_(std::move(b)), cost_(std::move(c))
{
}

TVector<double> CLPSolver::GetSolution(bool* valid) const
{
    if (valid != nullptr) *valid = status_ == Optimal;
    return solution_;
}

namespace {

bool IsWellFormed(const TMatrix<double>& A, const TVector<double>& b, const TVector<double>& c)
{
    return A.Rows() == b.Size() && A.Cols() == c.Size() && AllFinite(A.Data(), std::size_t{A.Rows()} * A.Cols()) &&
           AllFinite(c.Data(), c.Size()) && std::none_of(b.begin(), b.end(), [](double e) { return std::isnan(e); });
}

/// Exponent of the power of two that brings a magnitude to between 1/2 and 1; 0 for 0.
int ScaleExponent(double largest)
{
    int exponent = 0;
    if (largest > 0) std::frexp(largest, &exponent);
    return -exponent;
}

/// The programme without rows that bound nothing, scaled: z = 2^exponent·(scaled z) in every coordinate.
struct ScaledProgramme {
    Halfspaces rows;
    TVector<double> c;
    std::vector<int> columnExponents;
    bool unmeetable = false; ///< some row has a bound of −∞, or no coefficients and a negative bound

    ScaledProgramme(const TMatrix<double>& A, const TVector<double>& b, const TVector<double>& cost)
        : rows(A.Cols()), c(cost), columnExponents(A.Cols())
    {
        for (std::size_t j = 0; j < A.Cols(); ++j) {
            columnExponents[j] = ScaleExponent(TVector<double>(A.Column(j)).MaxAbs());
            c[j] = std::ldexp(c[j], columnExponents[j]);
        }
        for (std::size_t i = 0; i < A.Rows(); ++i) {
            TVector<double> row = A.Row(i);
            for (std::size_t j = 0; j < A.Cols(); ++j) row[j] = std::ldexp(row[j], columnExponents[j]);
            const double largest = row.MaxAbs();
            const int exponent = ScaleExponent(largest);
            const double bound = std::ldexp(b[i], exponent);
            if (bound == -HUGE_VAL || (largest == 0 && bound < 0)) unmeetable = true;
            if (bound == HUGE_VAL || largest == 0) continue;
            for (double& e : row) e = std::ldexp(e, exponent);
            rows.Add(row, bound);
        }
        const int exponent = ScaleExponent(c.MaxAbs());
        for (double& e : c) e = std::ldexp(e, exponent);
    }
};

/// A maximal set of independent rows and columns, and whether c lies in the span of the rows: if it does not, some
/// direction changes c·z and no row. Gaussian elimination with complete pivoting.
struct RegularPart {
    std::vector<std::size_t> rows;
    std::vector<std::size_t> columns;
    bool spansCost = true;

    RegularPart(const Halfspaces& system, TVector<double> cost)
        : rest_(system.Count(), system.Dimension()), usedRow_(system.Count()), usedColumn_(system.Dimension())
    {
        for (std::size_t i = 0; i < system.Count(); ++i)
            for (std::size_t j = 0; j < system.Dimension(); ++j) rest_(i, j) = system.Row(i)[j];
        while (findPivot()) {
            const std::size_t row = rows.back();
            const std::size_t column = columns.back();
            const double costFactor = cost[column] / rest_(row, column);
            for (std::size_t j = 0; j < system.Dimension(); ++j)
                if (!usedColumn_[j]) {
                    const double factor = rest_(row, j) / rest_(row, column);
                    for (std::size_t i = 0; i < system.Count(); ++i)
                        if (!usedRow_[i]) rest_(i, j) -= factor * rest_(i, column);
                    cost[j] -= costFactor * rest_(row, j);
                }
        }
        for (std::size_t j = 0; j < system.Dimension(); ++j)
            if (!usedColumn_[j] && std::abs(cost[j]) > Negligible) spansCost = false;
    }

private:
    static constexpr double Negligible = 1e-12; // beside coefficients of about 1

    bool findPivot()
    {
        double largest = Negligible;
        std::size_t row = rest_.Rows();
        std::size_t column = 0;
        for (std::size_t j = 0; j < rest_.Cols(); ++j)
            for (std::size_t i = 0; i < rest_.Rows(); ++i)
                if (!usedRow_[i] && !usedColumn_[j] && std::abs(rest_(i, j)) > largest) {
                    largest = std::abs(rest_(i, j));
                    row = i;
                    column = j;
                }
        if (row == rest_.Rows()) return false;
        usedRow_[row] = true;
        usedColumn_[column] = true;
        rows.push_back(row);
        columns.push_back(column);
        return true;
    }

    TMatrix<double> rest_;
    std::vector<bool> usedRow_;
    std::vector<bool> usedColumn_;
};

/// The system in the columns of its regular part; the others do not enlarge the range of A·z.
Halfspaces Restricted(const Halfspaces& system, const std::vector<std::size_t>& columns)
{
    Halfspaces restricted(columns.size());
    TVector<double> row(columns.size());
    for (std::size_t i = 0; i < system.Count(); ++i) {
        for (std::size_t k = 0; k < columns.size(); ++k) row[k] = system.Row(i)[columns[k]];
        restricted.Add(row, system.Bound(i));
    }
    return restricted;
}

/// Phase one: from any vertex to a feasible one, with one more unknown x₀ ≥ 0 that relaxes every row outside the basis
/// and is minimised. Returns Optimal when the walk ends at a feasible vertex.
CLPSolver::EStatus MakeFeasible(const Halfspaces& system, VertexWalk& walk)
{
    if (!walk.IsRegular()) return CLPSolver::GaveUp;
    if (walk.IsFeasible()) return CLPSolver::Optimal;

    // Row 0 is −x₀ ≤ 0; row i + 1 is row i of the system.
    Halfspaces relaxed(system.Dimension() + 1);
    TVector<double> minusX0(system.Dimension() + 1);
    minusX0[system.Dimension()] = -1;
    relaxed.Add(minusX0, 0);
    std::vector<std::size_t> basis = walk.Basis();
    for (std::size_t i = 0; i < system.Count(); ++i) {
        TVector<double> row(system.Row(i));
        row.Append(walk.IsInBasis(i) ? 0 : -1);
        relaxed.Add(row, system.Bound(i));
    }
    basis.push_back(walk.MostViolated());
    for (std::size_t& i : basis) ++i;
    VertexWalk relaxedWalk(relaxed, std::move(basis));
    if (relaxedWalk.Maximise(minusX0) != VertexWalk::End::Optimal) return CLPSolver::GaveUp;

    relaxedWalk.ForceIntoBasis(0);
    basis = relaxedWalk.Basis();
    basis.erase(std::find(basis.begin(), basis.end(), 0U));
    for (std::size_t& i : basis) --i;
    walk = VertexWalk(system, std::move(basis));
    if (!walk.IsRegular()) return CLPSolver::GaveUp;
    return walk.IsFeasible() ? CLPSolver::Optimal : CLPSolver::Infeasible;
}

} // namespace

bool CLPSolver::Run()
{
    solution_ = {};
    status_ = solve();
    return status_ == Optimal;
}

CLPSolver::EStatus CLPSolver::solve()
{
    if (!IsWellFormed(lhs_, rhs_, cost_)) return BadInput;
    const ScaledProgramme scaled(lhs_, rhs_, cost_);
    if (scaled.unmeetable) return Infeasible;
    const RegularPart regular(scaled.rows, scaled.c);
    const Halfspaces system = Restricted(scaled.rows, regular.columns);

    VertexWalk walk(system, regular.rows);
    if (const EStatus status = MakeFeasible(system, walk); status != Optimal) return status;
    if (!regular.spansCost) return Unbounded;
    TVector<double> cost(regular.columns.size());
    for (std::size_t k = 0; k < cost.Size(); ++k) cost[k] = scaled.c[regular.columns[k]];
    switch (walk.Maximise(cost)) {
    case VertexWalk::End::Unbounded:
        return Unbounded;
    case VertexWalk::End::GaveUp:
        return GaveUp;
    case VertexWalk::End::Optimal:
        break;
    }

    TVector<double> solution(cost_.Size());
    for (std::size_t k = 0; k < cost.Size(); ++k) {
        const std::size_t j = regular.columns[k];
        solution[j] = std::ldexp(walk.Point()[k], scaled.columnExponents[j]);
    }
    if (!std::isfinite(solution.MaxAbs())) return GaveUp;
    solution_ = std::move(solution);
    return Optimal;
}

} // namespace VoAlgo
