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
namespace {

/// A row that holds the step: a·h = 0 in the model's minimum.
struct Held {
    TVector<double> normal;   // a ÷ ‖a‖
    TVector<double> response; // (N + µI)⁻¹ · normal
};

/// λ of S·λ = c with S(i, j) = normalᵢ·responseⱼ, cᵢ = normalᵢ·h: h − Σ λᵢ·responseᵢ leads along all held rows.
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

/// Takes what rounding has left in h along the held rows, through an orthonormal basis of their normals.
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

/// The row that h leads out of most, by more than rounding.
std::optional<std::size_t> LeadingOut(const TMatrix<double>& A, const std::vector<std::size_t>& rows,
                                      const TVector<double>& h)
{
    std::optional<std::size_t> worst;
    double fastest = detail::Rounding(A.Cols(), h.Norm());
    for (const std::size_t i : rows) {
        const double rate = detail::RowDot(A, i, h) / detail::RowNorm(A, i);
        if (!(rate > fastest)) continue;
        fastest = rate;
        worst = i;
    }
    return worst;
}

/// The part of h that leads to the first of the rows.
TVector<double> CutBackAt(const TMatrix<double>& A, const TVector<double>& b, const TVector<double>& z,
                          const std::vector<std::size_t>& rows, const TVector<double>& h)
{
    double part = 1;
    for (const std::size_t i : rows) {
        const double rate = detail::RowDot(A, i, h);
        if (rate > 0) part = std::min(part, (b[i] - detail::RowDot(A, i, z)) / rate);
    }
    return h * part;
}

} // namespace

/// The best step from a z on rows of the polytope: the minimum of the damped model, gᵀh + ½hᵀ(N + µI)h, among the h
/// that lead out through none of the rows at z, cut back at the others. The full step is that minimum without the rows;
/// rows that it leads out of are held one by one, and those whose multipliers turn negative, so that the model falls
/// inward of them, are let go (the active-set method of quadratic programming: J. Nocedal, S. J. Wright, Numerical
/// Optimization, Springer 2006, section 16.5). Nothing when z is on no row or the search finds no end.
std::optional<TVector<double>> CNLSSolver::faceStep(Fit& fit, const TVector<double>& full)
{
    const std::size_t k = fit.z.Size();
    std::vector<std::size_t> here; // the rows at z, and the others
    std::vector<std::size_t> elsewhere;
    for (std::size_t i = 0; i < fit.b.Size(); ++i) {
        const double norm = detail::RowNorm(fit.A, i);
        const double tolerance =
            std::max(detail::SlackRounding(fit.A, fit.b, i, fit.z), detail::SmallLength(fit.z) * norm);
        if (norm == 0) continue;
        (fit.b[i] - detail::RowDot(fit.A, i, fit.z) <= tolerance ? here : elsewhere).push_back(i);
    }
    if (here.empty()) return std::nullopt;

    std::vector<Held> held;
    TVector<double> h = full;
    for (std::size_t changes = 0; changes <= 4 * (here.size() + 2); ++changes) {
        const auto worst = LeadingOut(fit.A, here, h);
        if (!worst) return CutBackAt(fit.A, fit.b, fit.z, elsewhere, h);
        Held row{fit.A.Row(*worst) * (1 / detail::RowNorm(fit.A, *worst)), TVector<double>(k)};
        if (!fit.system.Solve(fit.N, fit.mu, row.normal, row.response)) return std::nullopt;
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
