#include "VoAlgorithms/solvers/cnlssolver.h"

#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"
#include "platform/c_numbers.h"
#include "platform/finite.h"
#include "solvers/detail_cnlsfit.h"
#include "solvers/detail_linebuffer.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <limits>
#include <string>
#include <utility>

// One fit, a damped Gauss-Newton iteration (K. Madsen, H. B. Nielsen, O. Tingleff, Methods for Non-Linear Least Squares
// Problems, DTU 2004, section 3.2), in free variables z:
// 1. start: z from the parameters; a start outside of the inequalities is replaced by a vertex (_constraints);
// 2. residuals r, derivatives J, weights W (_weights), normal equations N = JᵀWJ, g = JᵀWr;
// 3. step h of (N + µI)·h = −g, cut back at the inequalities (_constraints);
// 4. accept it when ‖r‖² and its model both decrease, and lower µ by the gain; otherwise raise µ;
// 5. repeat from 3 until the gradient or the step is small.
// A refined fit also tries a step along the rows at hand (_activeset) before it rejects one, and has two more stages
// (nextStage). Run repeats the whole from random starts (_multistart).

namespace VoAlgo {
namespace {

constexpr double AbsurdLength = 4503599627370496.0; // 2⁵²
constexpr int LogInterval = 5;                      // iterations
constexpr double RootEpsilon = 0x1p-26;

constexpr char Texts[][32] = {
    "small gradient (++)",        "small step size (++)",    "maxiter exceeded (-)",
    "almost singular matrix (-)", "LS solution failed (--)", "constraints violated (-)",
};

} // namespace

CNLSSolver::CNLSSolver(CNLSObjectiveFunction& problem, bool robust, int samplingSweeps)
    : problem_(problem), robust_(robust),
      samplingSweeps_(samplingSweeps < 1 ? 2 * problem.GetNumParams() : samplingSweeps)
{
}

const char* CNLSSolver::ResultText(EResult result)
{
    const auto index = static_cast<std::size_t>(result);
    return index < std::size(Texts) ? Texts[index] : "";
}

CNLSSolver::EResult CNLSSolver::run(TVector<double>& params, double& rmse, int maxIter, double tau)
{
    rmse = std::numeric_limits<double>::infinity();
    int iterations = 0;
    const auto finish = [&](EResult result) {
        log("(NLS) stopped after %i iterations ('%s', residual RMSE=%g)\n", iterations, ResultText(result), rmse);
        return result;
    };

    Fit fit;
    if (!(tau >= 0) || !start(params, fit)) return finish(LSSolutionFailed);
    if (fit.constrained && !makeFeasible(fit)) return ConstraintsViolated;
    fit.zNew = fit.z;
    if (!evaluate(fit)) return finish(LSSolutionFailed);
    std::swap(fit.r, fit.rNew);
    std::swap(fit.J, fit.JNew);
    const auto stopAt = [&](EResult result) {
        rmse = residualRMSE(fit.r);
        params = problem_.BuildParamsFromFree(fit.z);
        return finish(result);
    };
    if (fit.r.Empty()) return stopAt(SmallGradient);
    if (!linearise(fit)) return finish(LSSolutionFailed);
    setDamping(fit, tau);
    log("(NLS) iter. 0: residual RMSE=%g\n", residualRMSE(fit.r));

    while (iterations < maxIter) {
        ++iterations;
        const auto result = iterate(fit, iterations);
        if (refinement_ && result == SmallStep && nextStage(fit, tau)) continue;
        if (result) return stopAt(*result);
    }
    return stopAt(MaxIterExceeded);
}

/// Initial damping.
void CNLSSolver::setDamping(Fit& fit, double tau)
{
    double largest = 0;
    for (std::size_t i = 0; i < fit.N.Cols(); ++i) largest = std::max(largest, fit.N(i, i) / (fit.D[i] * fit.D[i]));
    fit.mu = tau * largest;
    fit.nu = 1; // deliberate: so the first rejection repeats the step, and only the second one raises mu
}

/// Moves a refined fit on to its next stage after a small step; false after the last one. The last stage sees
/// directions that the normal equations have lost, as long as the damping is small: so it begins with a µ of √ε, in the
/// units of the unknowns, and raises it until a step succeeds.
bool CNLSSolver::nextStage(Fit& fit, double tau)
{
    if (fit.stage == Fit::Stage::Rows) return false;
    const bool weighted = std::any_of(fit.w.begin(), fit.w.end(), [](double e) { return e != 1; });
    if (fit.stage == Fit::Stage::Plain && weighted) {
        fit.stage = Fit::Stage::Weighted;
        setDamping(fit, tau);
        return true;
    }
    fit.stage = Fit::Stage::Rows;
    for (std::size_t i = 0; i < fit.D.Size(); ++i) fit.D[i] = detail::RootUnit(fit.N(i, i));
    setDamping(fit, RootEpsilon);
    return true;
}

/// Sets the free variables. False when a fit cannot start from params.
bool CNLSSolver::start(const TVector<double>& params, Fit& fit)
{
    const TVector<int>& freeIndices = problem_.GetFreeVariablesIndices();
    const auto n = static_cast<std::size_t>(std::max(problem_.GetNumParams(), 0));
    if (params.Size() != n || problem_.GetEqualityConstraintsKernel().Rows() != n) return false;
    fit.z.Resize(freeIndices.Size());
    for (std::size_t j = 0; j < fit.z.Size(); ++j) fit.z[j] = params[freeIndices[j]];
    fit.D = TVector<double>(fit.z.Size(), 1.0);
    fit.constrained = problem_.HasInequalities();
    return AllFinite(fit.z.Data(), fit.z.Size());
}

/// Residuals and derivatives at zNew. False when their shapes are wrong.
bool CNLSSolver::evaluate(Fit& fit)
{
    const auto m = static_cast<std::size_t>(std::max(problem_.GetNumMeasurements(), 0));
    fit.rNew = problem_.Error(problem_.BuildParamsFromFree(fit.zNew));
    if (fit.rNew.Size() != m) return false;
    if (m == 0) return true;
    fit.JNew = problem_.Jacobian(fit.zNew);
    return fit.JNew.Rows() == m && fit.JNew.Cols() == fit.z.Size();
}

/// Weights, N = JᵀWJ and g = JᵀWr at z. False when there are not m standard deviations.
bool CNLSSolver::linearise(Fit& fit)
{
    if (!computeWeight(fit.r, fit.w)) return false;
    const std::size_t m = fit.J.Rows();
    const std::size_t k = fit.J.Cols();
    if (fit.JtW.Rows() != k || fit.JtW.Cols() != m) fit.JtW.Reset(k, m);
    double* scaled = fit.JtW.Data();
    for (std::size_t i = 0; i < m; ++i)
        for (std::size_t j = 0; j < k; ++j) *scaled++ = fit.J.Data()[j * m + i] * fit.w.Data()[i];
    Multiply(fit.JtW, fit.J, fit.N);
    Multiply(fit.JtW, fit.r, fit.g);
    return true;
}

/// One iteration; the result when the fit stops here.
std::optional<CNLSSolver::EResult> CNLSSolver::iterate(Fit& fit, int iteration)
{
    if (fit.g.MaxAbs() <= detail::SmallChange || fit.r.MaxAbs() <= detail::SmallChange) return SmallGradient;
    TVector<double> full;
    const bool solved = fit.stage == Fit::Stage::Rows ? fit.system.SolveRows(fit.J, fit.w, fit.r, fit.mu, fit.D, full)
                                                      : fit.system.SolveNormal(fit.N, fit.mu, fit.D, -fit.g, full);
    if (!solved) return LSSolutionFailed;
    const TVector<double> h = fit.constrained ? cutBack(fit.polytope, fit.z, full, false) : full;
    ETrial trial = tryStep(fit, h, h != full);
    if (refinement_ && fit.constrained && (trial == Rejected || trial == Small))
        if (const auto step = faceStep(fit, full)) trial = tryStep(fit, *step, true);
    switch (trial) {
    case Small:
        return SmallStep;
    case Absurd:
        return AlmostSingular;
    case Failed:
        return LSSolutionFailed;
    case Rejected:
        fit.mu *= fit.nu;
        fit.nu *= 2;
        break;
    case Accepted:
        fit.nu = 2;
        if (iteration % LogInterval == 0) log("(NLS) iter. %i: residual RMSE=%g\n", iteration, residualRMSE(fit.r));
        break;
    }
    return std::nullopt;
}

/// The quantity that a step must lower.
double CNLSSolver::sumOfSquares(const Fit& fit, const TVector<double>& r)
{
    if (fit.stage == Fit::Stage::Plain) return r.Dot(r);
    double sum = 0;
    for (std::size_t i = 0; i < r.Size(); ++i) sum += fit.w.Data()[i] * r.Data()[i] * r.Data()[i];
    return sum;
}

/// Evaluates the objective at z + h and moves there when that is better. A cut step ends on rows.
CNLSSolver::ETrial CNLSSolver::tryStep(Fit& fit, const TVector<double>& h, bool cut)
{
    fit.zNew = fit.z;
    fit.zNew += h;
    if (fit.constrained) {
        if (cut || !checkConstraints(fit.polytope, fit.zNew)) settle(fit.polytope, fit.zNew);
        if (!checkConstraints(fit.polytope, fit.zNew))
            log("(NLS) warning: intermediate solution violates constraints\n");
    }
    const double length = h.Norm();
    if (length <= detail::SmallLength(fit.z)) return Small;
    if (!(length < AbsurdLength * (fit.z.Norm() + detail::SmallChange))) return Absurd;

    if (!evaluate(fit)) return Failed;
    const double decrease = (sumOfSquares(fit, fit.r) - sumOfSquares(fit, fit.rNew)) / 2;
    TVector<double> scaled = h;
    for (std::size_t i = 0; i < h.Size(); ++i) scaled[i] *= fit.D[i];
    const double predicted = (fit.mu * scaled.Dot(scaled) - h.Dot(fit.g)) / 2;
    if (!(predicted > 0 && decrease > 0)) {
        // The normal equations have had their turn: a short step that does not help has met the rounding of r.
        const bool isRounding = fit.stage == Fit::Stage::Rows && length <= RootEpsilon * fit.z.Norm();
        return isRounding ? Small : Rejected;
    }
    std::swap(fit.z, fit.zNew);
    std::swap(fit.r, fit.rNew);
    std::swap(fit.J, fit.JNew);
    if (!linearise(fit)) return Failed;
    const double gain = 2 * (decrease / predicted) - 1;
    fit.mu *= std::max(1.0 / 3.0, 1 - gain * gain * gain);
    return Accepted;
}

double CNLSSolver::residualRMSE(const TVector<double>& r) const
{
    return r.Empty() ? 0 : r.Norm() / std::sqrt(problem_.GetNumMeasurements());
}

void CNLSSolver::log(const char* format, ...) const
{
    if (!logging_) return;
    char text[256];
    std::va_list arguments;
    va_start(arguments, format);
    {
        const CNumbers numbers;
        std::vsnprintf(text, sizeof text, format, arguments);
    }
    va_end(arguments);
    detail::WriteLog(text);
}

} // namespace VoAlgo
