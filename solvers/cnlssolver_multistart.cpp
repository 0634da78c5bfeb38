#include "VoAlgorithms/solvers/cnlssolver.h"

#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"
#include "platform/randomseed.h"
#include "solvers/detail_halfspaces.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <random>

namespace VoAlgo {

/// The random numbers of one series of starts.
struct CNLSSolver::Random {
    std::mt19937_64 engine{RandomSeed};
    std::function<double(double, double)> uniform = [this](double a, double b) {
        return a + (b - a) * std::uniform_real_distribution<double>(0, 1)(engine);
    };
};

CNLSSolver::EResult CNLSSolver::Run(TVector<double>& params, double& rmse, int maxIter, double tau, int multistarts,
                                    ESampler sampler)
{
    constexpr int MaxErrors = 5; // in a row
    const TVector<double> start = params;
    EResult result = run(params, rmse, maxIter, tau);
    if (multistarts <= 0) return result;
    if (!problem_.HasInequalities()) {
        log("(NLS) warning: skipping multistart (no inequality constraints!)\n");
        return result;
    }

    // A fit whose residuals are not numbers is worse than any other.
    double best = std::isnan(rmse) ? std::numeric_limits<double>::infinity() : rmse;
    const double perfect = start.Size() * std::numeric_limits<double>::epsilon() * 10;
    const detail::Halfspaces polytope(problem_.GetInequalitiesLHS(), problem_.GetInequalitiesRHS());
    Random random;
    TVector<double> point = params; // the first walk begins at the fit, the others at the start
    int shown = 1;
    int completed = 0;
    int errors = 0;
    CProgressPart progress(progress_);
    progress.Begin("multistart", static_cast<std::uint64_t>(multistarts));
    while (best > perfect && errors < MaxErrors && completed < multistarts && !progress.IsCancelled()) {
        log("(NLS) SAMPLING FOR MULTISTART RUN %i OF %i (try #%i)\n", shown, multistarts, errors + 1);
        if (warmUp(polytope, start, point, sampler, random)) {
            double pointRMSE = 0;
            const EResult pointResult = run(point, pointRMSE, maxIter, tau);
            if (pointResult == AlmostSingular || pointResult == ConstraintsViolated) {
                log("(NLS) multistart run #%i/#%i failed: %s\n", shown, multistarts,
                    pointResult == AlmostSingular ? "close to singular matrix" : "constraint violation");
                --completed;
                --shown;
                ++errors;
            } else {
                errors = 0;
                progress.Advance();
            }
            if (pointRMSE < best) {
                best = pointRMSE;
                params = point;
                result = pointResult;
            }
        } else {
            log("(NLS) warmup failed.\n");
            progress.Advance();
        }
        point = start;
        ++completed;
        ++shown;
    }
    if (progress.IsCancelled())
        log("(NLS) multistart series cancelled\n");
    else if (completed < multistarts)
        log(best <= perfect ? "(NLS) obtained the best possible residual - omitting further multistart runs\n"
                            : "(NLS) multistart series aborted (too many errors)\n");
    rmse = best;
    log("(NLS) final residual RMSE=%g\n", rmse);
    return result;
}

/// Moves the point to a random place in the polytope. False after five walks that ended outside; all but the first
/// begin at the start.
bool CNLSSolver::warmUp(const detail::Halfspaces& polytope, const TVector<double>& start, TVector<double>& point,
                        ESampler sampler, Random& random) const
{
    constexpr int Attempts = 5;
    if (start.Size() != polytope.Dimension()) return false;
    for (int attempt = 0; attempt < Attempts; ++attempt) {
        for (int sweep = 0; sweep < samplingSweeps_; ++sweep) {
            if (sampler == Gibbs)
                sampleGibbs(polytope, point, random);
            else
                sampleHitAndRun(polytope, point, random);
        }
        if (checkConstraints(polytope, point)) return true;
        point = start;
    }
    return false;
}

/// Moves p along d by a uniform draw from the chord of the polytope. A refined fit stays where it is when the chord is
/// empty or unbounded; a plain one draws from it all the same, and its walk ends outside or at infinity.
void CNLSSolver::moveAlong(const detail::Halfspaces& polytope, const TVector<double>& d, TVector<double>& p,
                           Random& random) const
{
    double lo = 0;
    double hi = 0;
    distanceToConstraints(polytope, p, d, lo, hi);
    if (refinement_ && (!(lo + hi >= 0) || !std::isfinite(lo + hi))) return;
    const double step = random.uniform(-lo, hi);
    for (std::size_t i = 0; i < p.Size(); ++i) p[i] += step * d[i];
}

void CNLSSolver::sampleGibbs(const detail::Halfspaces& polytope, TVector<double>& p, Random& random) const
{
    TVector<double> axis(p.Size());
    for (std::size_t j = 0; j < p.Size(); ++j) {
        axis[j] = 1;
        moveAlong(polytope, axis, p, random);
        axis[j] = 0;
    }
}

void CNLSSolver::sampleHitAndRun(const detail::Halfspaces& polytope, TVector<double>& p, Random& random) const
{
    std::normal_distribution<double> normal;
    TVector<double> direction(p.Size());
    for (double& e : direction) e = normal(random.engine);
    direction *= 1 / direction.Norm();
    moveAlong(polytope, direction, p, random);
}

} // namespace VoAlgo
