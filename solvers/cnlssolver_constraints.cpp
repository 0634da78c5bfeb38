#include "VoAlgorithms/solvers/cnlssolver.h"

#include "VoAlgorithms/numerics/lapack.h"
#include "VoAlgorithms/solvers/clpsolver.h"
#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"
#include "platform/finite.h"
#include "platform/format.h"
#include "solvers/detail_cnlsfit.h"
#include "solvers/detail_linebuffer.h"
#include "solvers/detail_polytope.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace VoAlgo {

using detail::Halfspaces;

namespace {

constexpr double Infinity = std::numeric_limits<double>::infinity();
constexpr double MachineEpsilon = std::numeric_limits<double>::epsilon();
constexpr double OnRow = 10 * MachineEpsilon;           // a distance
constexpr double ShrinkDistance = 100 * MachineEpsilon; // of the polytope in which a feasible start is sought

/// Moves z by the shortest vector that gives each of the rows a slack of so many roundings.
bool MoveInside(const Halfspaces& polytope, const std::vector<std::size_t>& rows, double roundings, TVector<double>& z)
{
    TMatrix<double> normals(rows.size(), z.Size());
    TVector<double> distances(rows.size());
    TVector<double> shift(z.Size());
    for (std::size_t r = 0; r < rows.size(); ++r) {
        const std::size_t i = rows[r];
        const double norm = polytope.Norm(i);
        const double slack = polytope.Bound(i) - polytope.Dot(i, z);
        distances[r] = (slack - roundings * detail::SlackRounding(polytope, i, z)) / norm;
        for (std::size_t j = 0; j < z.Size(); ++j) normals(r, j) = polytope.Row(i)[j] / norm;
    }
    if (!lapack::lssolve(normals, distances, shift)) return false;
    z += shift;
    return true;
}

void PrintVector(const TVector<double>& v)
{
    constexpr std::uint32_t MostEntries = 10;
    std::string text = std::to_string(v.Size()) + "-vector:\n";
    for (std::uint32_t i = 0; i < std::min(v.Size(), MostEntries); ++i)
        text += Format("\t%g%c", v[i], i + 1 < v.Size() ? ',' : ';');
    detail::WriteVector(text + "\n");
}

} // namespace

/// Whether z meets every row, without tolerance. Not-a-number violates.
bool CNLSSolver::checkConstraints(const Halfspaces& polytope, const TVector<double>& z)
{
    for (std::size_t i = 0; i < polytope.Count(); ++i)
        if (!(polytope.Dot(i, z) <= polytope.Bound(i))) return false;
    return true;
}

/// Moves every half-space inward by a distance of epsilon, or of four rounding errors of its bound where that is more,
/// so that it does move. b: the bounds of the polytope.
void CNLSSolver::shrinkConstraints(const Halfspaces& polytope, TVector<double>& b, double epsilon)
{
    for (std::size_t i = 0; i < b.Size(); ++i) {
        const double norm = polytope.Norm(i);
        if (norm == 0 || !std::isfinite(b[i])) continue;
        const double distance = b[i] / norm;
        b[i] = (distance - std::max(epsilon, 4 * MachineEpsilon * std::abs(distance))) * norm;
    }
}

/// Sets up the polytope and replaces a start outside of it by a vertex of a slightly smaller one.
bool CNLSSolver::makeFeasible(Fit& fit)
{
    TMatrix<double> A;
    TVector<double> b;
    problem_.GetFreeVariablesInequalities(A, b);
    if (!AllFinite(A.Data(), std::size_t{A.Rows()} * A.Cols())) return false;
    fit.polytope = Halfspaces(A, b);
    if (checkConstraints(fit.polytope, fit.z)) return true;
    shrinkConstraints(fit.polytope, b, ShrinkDistance);
    CLPSolver lp(std::move(A), std::move(b), TVector<double>(fit.z.Size(), -1.0));
    if (!lp.Run()) {
        if (lp.GetStatus() == CLPSolver::Unbounded)
            log("(NLS) unbounded constraints detected; introduce upper/lower bounds\n");
        if (lp.GetStatus() == CLPSolver::Infeasible) log("(NLS) infeasible constraints detected\n");
        return false;
    }
    log("(NLS) constructed initial feasible solution\n");
    fit.z = lp.GetSolution(nullptr);
    if (!checkConstraints(fit.polytope, fit.z)) settle(fit.polytope, fit.z);
    PrintVector(fit.z);
    return true;
}

/// Corrects the rounding errors of a z on rows or slightly beyond them: moves it onto each such row (exactly, if the
/// row is a bound), and if it then still violates some row, farther in by fractions of a rounding error. A polytope
/// without interior may have no floating-point z that meets all rows; z then stays within rounding of them.
void CNLSSolver::settle(const Halfspaces& polytope, TVector<double>& z)
{
    std::vector<std::size_t> close;
    for (std::size_t i = 0; i < polytope.Count(); ++i) {
        const double excess = polytope.Dot(i, z) - polytope.Bound(i);
        const double rounding = detail::SlackRounding(polytope, i, z);
        const double norm = polytope.Norm(i);
        if (norm == 0 || !(excess >= -2 * rounding)) continue;
        close.push_back(i);
        if (excess < -rounding) continue;
        for (std::size_t j = 0; j < z.Size(); ++j) z[j] -= excess / norm * (polytope.Row(i)[j] / norm);
    }
    // Less than a whole rounding error, so that z still counts as being on the rows.
    for (double margin = 0.125; margin < 1 && !checkConstraints(polytope, z); margin *= 2) {
        TVector<double> inner = z;
        if (MoveInside(polytope, close, margin, inner) && checkConstraints(polytope, inner)) z = inner;
    }
}

/// The step h from z, cut back where it meets the nearest row ahead. When z is on that row already, the step is
/// projected onto it, and cut back where it meets the next one.
///
/// In exact arithmetic a row with slack 0 is met at distance 0, even by a step that leads inward, and a row parallel to
/// the step is never met. Rounding must decide neither: a z that an earlier step has put on a row may be a few rounding
/// errors on either side of it, and from beyond it the row would lie behind.
TVector<double> CNLSSolver::cutBack(const Halfspaces& polytope, const TVector<double>& z, const TVector<double>& h,
                                    bool projected)
{
    if (!(h.MaxAbs() > 0)) return h;
    double length = 0;
    const TVector<double> d = detail::Direction(h, length);
    double distance = Infinity;
    std::size_t nearest = 0;
    for (std::size_t i = 0; i < polytope.Count(); ++i) {
        const double rate = polytope.Dot(i, d);
        if (std::abs(rate) <= detail::Rounding(polytope.Dimension(), polytope.Norm(i))) continue;
        const double slack = polytope.Bound(i) - polytope.Dot(i, z);
        const double rounding = detail::SlackRounding(polytope, i, z);
        const bool onRow = rate > 0 ? slack <= rounding : slack <= 0 && slack >= -rounding;
        const double ahead = onRow ? 0 : slack / rate;
        if (!(ahead >= 0 && ahead < distance)) continue;
        distance = ahead;
        nearest = i;
    }
    if (!projected && distance < OnRow) {
        TVector<double> along = h;
        detail::Project(along, detail::UnitNormal(polytope, nearest));
        return cutBack(polytope, z, along, true);
    }
    return length > distance ? d * distance : h;
}

/// The chord of the polytope through a p inside, along d, is [p − lo·d, p + hi·d]; infinite where there is no bound. A
/// plain fit assigns each crossing to the side of p on which it lies; with p on a row or outside, that may be the wrong
/// end of the chord. A refined fit assigns it by the sign of a·d; with p outside, lo or hi is then negative, and lo +
/// hi is when the line misses the polytope.
void CNLSSolver::distanceToConstraints(const Halfspaces& polytope, const TVector<double>& p, const TVector<double>& d,
                                       double& lo, double& hi) const
{
    lo = Infinity;
    hi = Infinity;
    for (std::size_t i = 0; i < polytope.Count(); ++i) {
        const double rate = polytope.Dot(i, d);
        if (rate == 0) continue;
        const double distance = (polytope.Bound(i) - polytope.Dot(i, p)) / rate;
        if (refinement_ ? rate > 0 : distance > 0)
            hi = std::min(hi, distance);
        else
            lo = std::min(lo, -distance);
    }
}

} // namespace VoAlgo
