#include "solvers/detail_vertexwalk.h"

#include "numerics/twofoldsum.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace VoAlgo::detail {

namespace {

// Relative changes of the coefficients that are too small to matter: a value that they can turn into 0 counts as 0.
constexpr double Negligible = 1e-12;                                    // for feasibility, slopes and multipliers
constexpr double Rounding = 2 * std::numeric_limits<double>::epsilon(); // for distances along an edge

/// Gauss–Jordan elimination with row pivoting. False when the matrix is singular to working precision.
bool Invert(TMatrix<double> m, TMatrix<double>& inverse)
{
    const std::size_t n = m.Rows();
    inverse = TMatrix<double>::Identity(n);
    for (std::size_t k = 0; k < n; ++k) {
        std::size_t pivot = k;
        for (std::size_t i = k + 1; i < n; ++i)
            if (std::abs(m(i, k)) > std::abs(m(pivot, k))) pivot = i;
        if (!(std::abs(m(pivot, k)) > std::numeric_limits<double>::epsilon())) return false;
        for (TMatrix<double>* side : {&m, &inverse})
            for (std::size_t j = 0; j < n; ++j) {
                const auto column = side->Column(j);
                std::swap(column[k], column[pivot]);
            }
        const TVector<double> factors(m.Column(k));
        for (TMatrix<double>* side : {&m, &inverse})
            for (std::size_t j = 0; j < n; ++j) {
                const auto column = side->Column(j);
                column[k] /= factors[k];
                for (std::size_t i = 0; i < n; ++i)
                    if (i != k) column[i] -= factors[i] * column[k];
            }
    }
    return true;
}

} // namespace

VertexWalk::VertexWalk(const Halfspaces& system, std::vector<std::size_t> basis)
    : system_(&system), basis_(std::move(basis))
{
    solveForVertex();
}

void VertexWalk::solveForVertex()
{
    const std::size_t n = basis_.size();
    rows_.Reset(n, n);
    TVector<double> bounds(n);
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < n; ++j) rows_(i, j) = system_->Row(basis_[i])[j];
        bounds[i] = system_->Bound(basis_[i]);
    }
    isRegular_ = Invert(rows_, inverse_);
    if (isRegular_) point_ = solve(bounds);
}

// x = inverse·rhs, then corrected by residuals in twice the working precision: every coordinate is accurate to about
// the last place, however ill-conditioned the system is.
VertexWalk::Solution VertexWalk::solve(const TVector<double>& rhs, bool transposed) const
{
    const std::size_t n = rhs.Size();
    const auto row = [&](std::size_t i, std::size_t j) { return transposed ? rows_(j, i) : rows_(i, j); };
    Solution solution{TVector<double>(n), TVector<double>(n)};
    TVector<double> residual = rhs;
    TVector<double> correction;
    for (int step = 0; step < 4; ++step) {
        transposed ? MultiplyTransposed(inverse_, residual, correction) : Multiply(inverse_, residual, correction);
        solution.x += correction;
        for (std::size_t i = 0; i < n; ++i) {
            TwofoldSum sum(rhs[i]);
            for (std::size_t j = 0; j < n; ++j) sum.Add(-row(i, j), solution.x[j]);
            residual[i] = sum.Value();
        }
    }
    for (std::size_t i = 0; i < n; ++i) {
        double magnitude = std::abs(rhs[i]);
        for (std::size_t j = 0; j < n; ++j) magnitude += std::abs(row(i, j) * solution.x[j]);
        for (std::size_t j = 0; j < n; ++j)
            solution.u[j] += std::abs(transposed ? inverse_(i, j) : inverse_(j, i)) * magnitude;
    }
    // Error that the corrections leave in a coordinate of 0.
    const double remnant = std::numeric_limits<double>::epsilon() * solution.u.MaxAbs();
    for (double& u : solution.u) u += remnant;
    return solution;
}

VertexWalk::Measured VertexWalk::remainder(std::size_t row, double rhs, const Solution& solution) const
{
    const auto a = system_->Row(row);
    TwofoldSum sum(rhs);
    double uncertainty = std::abs(rhs);
    for (std::size_t j = 0; j < a.size(); ++j) {
        sum.Add(-a[j], solution.x[j]);
        uncertainty += std::abs(a[j]) * solution.u[j];
    }
    return {sum.Value(), uncertainty};
}

bool VertexWalk::IsFeasible() const
{
    for (std::size_t i = 0; i < system_->Count(); ++i) {
        if (IsInBasis(i)) continue;
        const Measured slack = slackOf(i);
        if (slack.value < -Negligible * slack.uncertainty) return false;
    }
    return true;
}

std::size_t VertexWalk::MostViolated() const
{
    std::size_t worst = system_->Count();
    double least = 0;
    for (std::size_t i = 0; i < system_->Count(); ++i) {
        const double slack = slackOf(i).value;
        if (slack >= least || IsInBasis(i)) continue;
        worst = i;
        least = slack;
    }
    return worst;
}

bool VertexWalk::IsInBasis(std::size_t row) const
{
    return std::find(basis_.begin(), basis_.end(), row) != basis_.end();
}

VertexWalk::End VertexWalk::Maximise(const TVector<double>& c)
{
    // No sensible problem comes near this bound; it only guards against rounding that leads in circles.
    const std::size_t maxSteps = 10'000 + 100 * (system_->Count() + system_->Dimension());
    bool stalled = false;
    for (std::size_t step = 0; isRegular_ && step < maxSteps; ++step) {
        const std::size_t leaving = chooseLeaving(solve(c, true), stalled);
        if (leaving == basis_.size()) return End::Optimal;

        TVector<double> away(basis_.size()); // away from the leaving row, along all others
        away[leaving] = -1;
        const Blocker entering = chooseEntering(solve(away), stalled);
        if (entering.row == system_->Count()) return End::Unbounded;
        stalled = entering.stalls;
        basis_[leaving] = entering.row;
        solveForVertex();
    }
    return End::GaveUp;
}

// c = Σ yᵢ·aᵢ over the basis: where yᵢ is negative, leaving row i leads uphill.
std::size_t VertexWalk::chooseLeaving(const Solution& multipliers, bool smallestIndex) const
{
    const auto& [y, u] = multipliers;
    std::size_t leaving = basis_.size();
    for (std::size_t i = 0; i < basis_.size(); ++i) {
        if (!(y[i] < -Negligible * u[i])) continue;
        if (leaving == basis_.size() || (smallestIndex ? basis_[i] < basis_[leaving] : y[i] < y[leaving])) leaving = i;
    }
    return leaving;
}

VertexWalk::Blocker VertexWalk::chooseEntering(const Solution& direction, bool smallestIndex) const
{
    struct Candidate {
        std::size_t row;
        double approach; // decrease of the slack per unit of distance
        Measured slack;
    };
    std::vector<Candidate> ahead;
    double shortest = std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i < system_->Count(); ++i) {
        if (IsInBasis(i)) continue;
        const Measured slope = remainder(i, 0, direction);
        if (!(-slope.value > Negligible * slope.uncertainty)) continue;
        Measured slack = slackOf(i);
        if (slack.value < Rounding * slack.uncertainty) slack.value = 0;
        ahead.push_back({i, -slope.value, slack});
        shortest = std::min(shortest, slack.value / -slope.value);
    }

    // Of the rows that are met at the same distance, the one that cuts the edge most squarely.
    Blocker first{system_->Count(), shortest == 0};
    double firstApproach = 0;
    for (const Candidate& candidate : ahead) {
        if (candidate.slack.value - shortest * candidate.approach > Rounding * candidate.slack.uncertainty) continue;
        if (first.row != system_->Count() && (smallestIndex || candidate.approach <= firstApproach)) continue;
        first.row = candidate.row;
        firstApproach = candidate.approach;
    }
    return first;
}

void VertexWalk::ForceIntoBasis(std::size_t row)
{
    if (IsInBasis(row)) return;
    const TVector<double> shares = solve(TVector<double>(system_->Row(row)), true).x;
    std::size_t largest = 0;
    for (std::size_t i = 1; i < basis_.size(); ++i)
        if (std::abs(shares[i]) > std::abs(shares[largest])) largest = i;
    basis_[largest] = row;
    solveForVertex();
}

} // namespace VoAlgo::detail
