#include "solvers/detail_dampedsystem.h"

#include "VoAlgorithms/numerics/lapack.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace VoAlgo::detail {

bool DampedSystem::Solve(const TMatrix<double>& N, double mu, const TVector<double>& b, TVector<double>& x)
{
    const std::size_t k = b.Size();
    scale_.Resize(k);
    rhs_.Resize(k);
    x.Resize(k);
    scaled_ = N;
    for (std::size_t i = 0; i < k; ++i) {
        scaled_(i, i) += mu;
        const double diagonal = scaled_(i, i);
        const bool usable = diagonal > 0 && std::isfinite(diagonal);
        scale_[i] = usable ? std::ldexp(1.0, -(std::ilogb(diagonal) / 2)) : 1.0;
        rhs_[i] = b[i] * scale_[i];
    }
    for (std::size_t j = 0; j < k; ++j)
        for (std::size_t i = 0; i < k; ++i) scaled_(i, j) *= scale_[i] * scale_[j];
    if (!lapack::lssolve(scaled_, rhs_, x)) return false;
    for (std::size_t i = 0; i < k; ++i) x[i] *= scale_[i];
    return std::all_of(x.begin(), x.end(), [](double e) { return std::isfinite(e); });
}

} // namespace VoAlgo::detail
