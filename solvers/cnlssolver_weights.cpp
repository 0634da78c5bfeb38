#include "VoAlgorithms/solvers/cnlssolver.h"

#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"
#include "solvers/detail_quantile.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace VoAlgo {
namespace {

constexpr double HuberConstant = 1.345; // both: 95 % efficiency for normal errors
constexpr double TukeyConstant = 4.6851;
constexpr double MADOfNormal = 0.6745; // of standard normal errors

/// Median absolute deviation. `work` is overwritten.
double MAD(const TVector<double>& values, TVector<double>& work)
{
    work = values;
    const double median = detail::Quantile(work, 0.5);
    for (std::size_t i = 0; i < work.Size(); ++i) work.Data()[i] = std::abs(values.Data()[i] - median);
    return detail::Quantile(work, 0.5);
}

/// Median distance from 0: at least half of the residuals have a weight at this scale. `work` is overwritten.
double MedianMagnitude(const TVector<double>& r, TVector<double>& work)
{
    work = r;
    for (double& e : work) e = std::abs(e);
    return detail::Quantile(work, 0.5);
}

/// How many residuals have a weight at a scale.
std::size_t CountWithin(const TVector<double>& r, double scale)
{
    return static_cast<std::size_t>(
        std::count_if(r.begin(), r.end(), [scale](double e) { return !(std::abs(e / scale) > TukeyConstant); }));
}

} // namespace

double CNLSSolver::psiHuber(double u)
{
    return std::clamp(u, -HuberConstant, HuberConstant);
}

double CNLSSolver::psiTukey(double u)
{
    const double share = u / TukeyConstant;
    const double complement = 1 - share * share;
    return std::abs(u) <= TukeyConstant ? u * (complement * complement) : 0;
}

/// 1/σ² for each residual, times the biweight of a robust fit. False when there are not m standard deviations.
bool CNLSSolver::computeWeight(const TVector<double>& r, TVector<double>& w)
{
    w = problem_.StdDev();
    if (w.Size() != r.Size()) return false;
    for (double& e : w) e = 1 / (e * e);
    if (!robust_) return true;
    double scale = MAD(r, work_) / MADOfNormal;
    // Far off, the residuals lie close together on one side of 0: hardly any has a weight, and no step is determined.
    if (refinement_ && CountWithin(r, scale) < problem_.GetFreeVariablesIndices().Size())
        scale = MedianMagnitude(r, work_) / MADOfNormal;
    for (std::size_t i = 0; i < w.Size(); ++i) {
        const double u = r.Data()[i] / scale;
        w.Data()[i] *= psiTukey(u) / u; // deliberate: not-a-number for a residual of exactly 0
    }
    return true;
}

} // namespace VoAlgo
