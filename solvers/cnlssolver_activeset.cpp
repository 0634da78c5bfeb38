#include "VoAlgorithms/solvers/cnlssolver.h"

#include "VoAlgorithms/numerics/lapack.h"
#include "solvers/detail_cnlsfit.h"
#include "solvers/detail_polytope.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

namespace VoAlgo {

using detail::Halfspaces;

namespace {

/// A row that the step must stay on: a·h = 0.
struct Held {
    TVector<double> normal;   // a ÷ ‖a‖
    TVector<double> response; // (N + µD²)⁻¹ · normal
};

/// λ of S·λ = c with S(i, j) = normalᵢ·responseⱼ, cᵢ = normalᵢ·h: h − Σ λᵢ·responseᵢ is parallel to all held rows.
bool Multipliers(const std::vector<Held>& held, const TVector<double>& h, TVector<double>& lambda)
{
    const std::size_t q = held.size();
    TMatrix<double> S(q, q);
    TVector<double> c(q);
    for (std::size_t i = 0; i < q; ++i) {
        c[i] = held[i].normal.Dot(h);
        for (std::size_t j = 0; j < q; ++j) S(i, j) = held[i].normal.Dot(held[j].response);
    }
    lambda = TVector<double>(q);
    return lapack::lssolve(S, c, lambda);
}

/// Removes the rounding errors of h across the held rows, through an orthonormal basis of their normals.
void ProjectOnto(const std::vector<Held>& held, TVector<double>& h)
{
    std::vector<TVector<double>> basis;
    for (const Held& row : held) {
        TVector<double> n = row.normal;
        for (const TVector<double>& e : basis) detail::Project(n, e);
        if (n.Norm() < 1e-10) continue; // depends on the others
        double length = 0;
        basis.push_back(detail::Direction(n, length));
        detail::Project(h, basis.back());
    }
    for (const TVector<double>& e : basis) detail::Project(h, e);
}

/// The row that h violates fastest, by more than rounding.
std::optional<std::size_t> FastestViolated(const Halfspaces& polytope, const std::vector<std::size_t>& rows,
                                           const TVector<double>& h)
{
    std::optional<std::size_t> worst;
    double fastest = detail::Rounding(polytope.Dimension(), h.Norm());
    for (const std::size_t i : rows) {
        const double rate = polytope.Dot(i, h) / polytope.Norm(i);
        if (!(rate > fastest)) continue;
        fastest = rate;
        worst = i;
    }
    return worst;
}

/// h, shortened to end on the first of the rows that it meets.
TVector<double> CutBackAt(const Halfspaces& polytope, const TVector<double>& z, const std::vector<std::size_t>& rows,
                          const TVector<double>& h)
{
    double part = 1;
    for (const std::size_t i : rows) {
        const double rate = polytope.Dot(i, h);
        if (rate > 0) part = std::min(part, (polytope.Bound(i) - polytope.Dot(i, z)) / rate);
    }
    return h * part;
}

} // namespace

/// The best step from a z on rows of the polytope: the minimum of the damped model gᵀh + ½hᵀ(N + µD²)h over all h that
/// violate none of the rows at z, cut back at the other rows. The full step is the minimum without rows; rows that it
/// violates are added to the active set one by one, and rows whose multipliers turn negative are dropped, since the
/// model decreases inward of them (the active-set method of quadratic programming: J. Nocedal, S. J. Wright, Numerical
/// Optimization, Springer 2006, section 16.5). Nothing when z is on no row, or when the search does not end.
std::optional<TVector<double>> CNLSSolver::faceStep(Fit& fit, const TVector<double>& full)
{
    const std::size_t k = fit.z.Size();
    const Halfspaces& polytope = fit.polytope;
    std::vector<std::size_t> here; // the rows at z, and the others
    std::vector<std::size_t> elsewhere;
    for (std::size_t i = 0; i < polytope.Count(); ++i) {
        const double norm = polytope.Norm(i);
        if (norm == 0) continue;
        const double tolerance = std::max(detail::SlackRounding(polytope, i, fit.z), detail::SmallLength(fit.z) * norm);
        (polytope.Bound(i) - polytope.Dot(i, fit.z) <= tolerance ? here : elsewhere).push_back(i);
    }
    if (here.empty()) return std::nullopt;

    std::vector<Held> held;
    TVector<double> h = full;
    for (std::size_t changes = 0; changes <= 4 * (here.size() + 2); ++changes) {
        const auto worst = FastestViolated(polytope, here, h);
        if (!worst) return CutBackAt(polytope, fit.z, elsewhere, h);
        Held row{detail::UnitNormal(polytope, *worst), TVector<double>(k)};
        if (!fit.system.SolveNormal(fit.N, fit.mu, fit.D, row.normal, row.response)) return std::nullopt;
        held.push_back(std::move(row));

        TVector<double> lambda;
        for (;;) {
            if (!Multipliers(held, full, lambda)) return std::nullopt;
            const auto lowest = std::min_element(lambda.begin(), lambda.end() - 1); // the newest stays
            if (lowest == lambda.end() - 1 || *lowest >= 0) break;
            held.erase(held.begin() + (lowest - lambda.begin()));
        }
        h = full;
        double magnitude = full.Norm();
        for (std::size_t i = 0; i < held.size(); ++i) {
            h -= held[i].response * lambda[i];
            magnitude += std::abs(lambda[i]) * held[i].response.Norm();
        }
        ProjectOnto(held, h);
        if (h.Norm() <= detail::Rounding(k, magnitude)) h.Fill(0);
    }
    return std::nullopt;
}

} // namespace VoAlgo
