#include "VoAlgorithms/solvers/cnlssolver.h"

#include "VoAlgorithms/numerics/lapack.h"
#include "VoAlgorithms/solvers/clpsolver.h"
#include "solvers/detail_cnlsfit.h"
#include "solvers/detail_pendinglines.h"
#include "solvers/detail_polytope.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace VoAlgo {
namespace {

constexpr double Infinity = std::numeric_limits<double>::infinity();
constexpr double MachineEpsilon = std::numeric_limits<double>::epsilon();
constexpr double OnRow = 10 * MachineEpsilon;           // a distance
constexpr double ShrinkDistance = 100 * MachineEpsilon; // of the polytope in which a feasible start is sought

/// Moves z by the shortest way to where each of the rows has a slack of so many roundings.
bool MoveInside(const TMatrix<double>& A, const TVector<double>& b, const std::vector<std::size_t>& rows,
                double roundings, TVector<double>& z)
{
    TMatrix<double> normals(rows.size(), z.Size());
    TVector<double> distances(rows.size());
    TVector<double> shift(z.Size());
    for (std::size_t r = 0; r < rows.size(); ++r) {
        const std::size_t i = rows[r];
        const double norm = detail::RowNorm(A, i);
        distances[r] = (b[i] - detail::RowDot(A, i, z) - roundings * detail::SlackRounding(A, b, i, z)) / norm;
        for (std::size_t j = 0; j < z.Size(); ++j) normals(r, j) = A(i, j) / norm;
    }
    if (!lapack::lssolve(normals, distances, shift)) return false;
    z += shift;
    return true;
}

void PrintVector(const TVector<double>& v)
{
    constexpr std::uint32_t most = 10;
    char entry[32];
    std::string text = std::to_string(v.Size()) + "-vector:\n";
    for (std::uint32_t i = 0; i < std::min(v.Size(), most); ++i) {
        std::snprintf(entry, sizeof entry, "\t%g%c", v[i], i + 1 < v.Size() ? ',' : ';');
        text += entry;
    }
    detail::WriteVectorLines(text + "\n");
}

} // namespace

/// A·z ≤ b in every row, without tolerance. Not-a-number violates.
bool CNLSSolver::checkConstraints(const TMatrix<double>& A, const TVector<double>& b, const TVector<double>& z)
{
    for (std::size_t i = 0; i < b.Size(); ++i)
        if (!(detail::RowDot(A, i, z) <= b[i])) return false;
    return true;
}

/// Moves every half-space inward by a distance; by four roundings of its own where those are more, so that it does
/// move.
void CNLSSolver::shrinkConstraints(const TMatrix<double>& A, TVector<double>& b, double epsilon)
{
    for (std::size_t i = 0; i < b.Size(); ++i) {
        const double norm = detail::RowNorm(A, i);
        if (norm == 0 || !std::isfinite(b[i])) continue;
        const double distance = b[i] / norm;
        b[i] = (distance - std::max(epsilon, 4 * MachineEpsilon * std::abs(distance))) * norm;
    }
}

/// Replaces a start outside of the constraints by a vertex of a slightly smaller polytope.
bool CNLSSolver::makeFeasible(Fit& fit)
{
    const std::size_t coefficients = std::size_t{fit.A.Rows()} * fit.A.Cols();
    if (!std::all_of(fit.A.Data(), fit.A.Data() + coefficients, [](double e) { return std::isfinite(e); }))
        return false;
    if (checkConstraints(fit.A, fit.b, fit.z)) return true;
    TVector<double> b = fit.b;
    shrinkConstraints(fit.A, b, ShrinkDistance);
    CLPSolver lp(fit.A, std::move(b), TVector<double>(fit.z.Size(), -1.0));
    if (!lp.Run()) {
        if (lp.GetStatus() == CLPSolver::Unbounded)
            log("(NLS) unbounded constraints detected; introduce upper/lower bounds\n");
        if (lp.GetStatus() == CLPSolver::Infeasible) log("(NLS) infeasible constraints detected\n");
        return false;
    }
    log("(NLS) constructed initial feasible solution\n");
    fit.z = lp.GetSolution(nullptr);
    if (!checkConstraints(fit.A, fit.b, fit.z)) settle(fit.A, fit.b, fit.z);
    PrintVector(fit.z);
    return true;
}

/// Makes good what rounding did to a z on rows or beyond them: puts it onto each such row (onto a bound to the bit),
/// and where that is not inside of all, by parts of a rounding farther in. Where the polytope has no interior, there
/// may be no z that meets all rows in floating point; it then stays within rounding.
void CNLSSolver::settle(const TMatrix<double>& A, const TVector<double>& b, TVector<double>& z)
{
    std::vector<std::size_t> close;
    for (std::size_t i = 0; i < b.Size(); ++i) {
        const double excess = detail::RowDot(A, i, z) - b[i];
        const double rounding = detail::SlackRounding(A, b, i, z);
        const double norm = detail::RowNorm(A, i);
        if (norm == 0 || !(excess >= -2 * rounding)) continue;
        close.push_back(i);
        if (excess < -rounding) continue;
        for (std::size_t j = 0; j < z.Size(); ++j) z[j] -= excess / norm * (A(i, j) / norm);
    }
    // Less than a whole rounding: the rows must still count as met at distance 0.
    for (double margin = 0.125; margin < 1 && !checkConstraints(A, b, z); margin *= 2) {
        TVector<double> inner = z;
        if (MoveInside(A, b, close, margin, inner) && checkConstraints(A, b, inner)) z = inner;
    }
}

/// The step h from z, cut back where it meets the nearest row ahead. When z is on that row already, the step is
/// projected onto it, and cut back where it meets the next one.
///
/// In exact arithmetic a row at slack 0 is met at distance 0, also by steps that lead inward, and one parallel to the
/// step never. Rounding must not decide about either: a z that a step has put on a row may be a few roundings on either
/// side of it, and beyond it the row would lie behind.
TVector<double> CNLSSolver::cutBack(const TMatrix<double>& A, const TVector<double>& b, const TVector<double>& z,
                                    const TVector<double>& h, bool projected)
{
    if (!(h.MaxAbs() > 0)) return h;
    double length = 0;
    const TVector<double> d = detail::Direction(h, length);
    double distance = Infinity;
    std::size_t nearest = 0;
    for (std::size_t i = 0; i < b.Size(); ++i) {
        const double rate = detail::RowDot(A, i, d);
        const double slack = b[i] - detail::RowDot(A, i, z);
        if (std::abs(rate) <= detail::Rounding(A.Cols(), detail::RowNorm(A, i))) continue;
        const double rounding = detail::SlackRounding(A, b, i, z);
        const bool onRow = rate > 0 ? slack <= rounding : slack <= 0 && slack >= -rounding;
        const double ahead = onRow ? 0 : slack / rate;
        if (!(ahead >= 0 && ahead < distance)) continue;
        distance = ahead;
        nearest = i;
    }
    if (!projected && distance < OnRow) {
        TVector<double> along = h;
        detail::Project(along, A.Row(nearest) * (1 / detail::RowNorm(A, nearest)));
        return cutBack(A, b, z, along, true);
    }
    return length > distance ? d * distance : h;
}

/// The chord of the polytope through p along d is [p − lo·d, p + hi·d]; infinite where there is no bound. That is so
/// for a p inside. On a row or beyond, crossings are sorted by the side on which they lie, which is not always that of
/// the row; a refined fit sorts by the direction in which the row bounds. For a p outside, one of the two is then
/// negative, or their sum is: the line misses the polytope.
void CNLSSolver::distanceToConstraints(const TMatrix<double>& A, const TVector<double>& b, const TVector<double>& p,
                                       const TVector<double>& d, double& lo, double& hi) const
{
    lo = Infinity;
    hi = Infinity;
    for (std::size_t i = 0; i < b.Size(); ++i) {
        const double rate = detail::RowDot(A, i, d);
        if (rate == 0) continue;
        const double distance = (b[i] - detail::RowDot(A, i, p)) / rate;
        if (refinement_ ? rate > 0 : distance > 0)
            hi = std::min(hi, distance);
        else
            lo = std::min(lo, -distance);
    }
}

} // namespace VoAlgo
