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

bool CNLSSolver::computeWeight(const TVector<double>& r, TVector<double>& w)
{
    w = problem_.StdDev();
    if (w.Size() != r.Size()) return false;
    for (double& e : w) e = 1 / (e * e);
    if (!robust_) return true;
    double scale = MAD(r, work_) / MADOfNormal;
    const auto kept =
        std::count_if(r.begin(), r.end(), [scale](double e) { return !(std::abs(e / scale) > TukeyConstant); });
    if (kept < static_cast<std::ptrdiff_t>(problem_.GetFreeVariablesIndices().Size())) {
        // The fit is far off: the residuals lie close together, but on one side, and hardly any keeps a weight. With
        // their distance from 0 as the scale, at least half of them do.
        for (std::size_t i = 0; i < r.Size(); ++i) work_.Data()[i] = std::abs(r.Data()[i]);
        scale = detail::Quantile(work_, 0.5) / MADOfNormal;
    }
    for (std::size_t i = 0; i < w.Size(); ++i) {
        const double u = r.Data()[i] / scale;
        w.Data()[i] *= psiTukey(u) / u; // deliberate: not-a-number for a residual of exactly 0
    }
    return true;
}

} // namespace VoAlgo
