#include "solvers/detail_dampedsystem.h"

#include "VoAlgorithms/numerics/lapack.h"
#include "platform/finite.h"

#include <cmath>
#include <cstddef>

namespace VoAlgo::detail {

double RootUnit(double x)
{
    return x > 0 && std::isfinite(x) ? std::ldexp(1.0, std::ilogb(x) / 2) : 1.0;
}

bool DampedSystem::SolveNormal(const TMatrix<double>& N, double mu, const TVector<double>& D, const TVector<double>& b,
                               TVector<double>& x)
{
    const std::size_t k = b.Size();
    scale_.Resize(k);
    rhs_.Resize(k);
    x.Resize(k);
    scaled_ = N;
    for (std::size_t i = 0; i < k; ++i) {
        scaled_(i, i) += mu * (D[i] * D[i]);
        scale_[i] = 1 / RootUnit(scaled_(i, i));
        rhs_[i] = b[i] * scale_[i];
    }
    for (std::size_t j = 0; j < k; ++j)
        for (std::size_t i = 0; i < k; ++i) scaled_(i, j) *= scale_[i] * scale_[j];
    if (!lapack::lssolve(scaled_, rhs_, x)) return false;
    for (std::size_t i = 0; i < k; ++i) x[i] *= scale_[i];
    return AllFinite(x.Data(), k);
}

// [√W·J; √µ·D]·h ≈ [−√W·r; 0]
bool DampedSystem::SolveRows(const TMatrix<double>& J, const TVector<double>& w, const TVector<double>& r, double mu,
                             const TVector<double>& D, TVector<double>& h)
{
    const std::size_t m = J.Rows();
    const std::size_t k = J.Cols();
    scaled_.Reset(m + k, k);
    scale_.Resize(k);
    rhs_.Resize(m + k);
    rhs_.Fill(0);
    rootOfWeights_ = w;
    h.Resize(k);
    for (std::size_t i = 0; i < m; ++i) {
        double& root = rootOfWeights_.Data()[i];
        root = std::sqrt(root);
        rhs_.Data()[i] = -root * r.Data()[i];
    }
    for (std::size_t j = 0; j < k; ++j) {
        const auto column = scaled_.Column(j);
        const auto derivatives = J.Column(j);
        for (std::size_t i = 0; i < m; ++i) column[i] = rootOfWeights_.Data()[i] * derivatives[i];
        column[m + j] = std::sqrt(mu) * D[j];
        double normSq = 0;
        for (const double e : column) normSq += e * e;
        scale_[j] = 1 / RootUnit(normSq);
        for (double& e : column) e *= scale_[j];
    }
    if (!lapack::lssolve(scaled_, rhs_, h)) return false;
    for (std::size_t j = 0; j < k; ++j) h[j] *= scale_[j];
    return AllFinite(h.Data(), k);
}

} // namespace VoAlgo::detail
