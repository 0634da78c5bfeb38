#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"

#include "VoAlgorithms/numerics/lapack.h"
#include "platform/finite.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

namespace VoAlgo {
namespace {

constexpr double Infinity = std::numeric_limits<double>::infinity();
constexpr double NaN = std::numeric_limits<double>::quiet_NaN();

/// J·D·P = Q·R, with D a diagonal of powers of two that brings the columns to like lengths.
struct ScaledFactor {
    TMatrix<double> R; // upper triangular, k×k
    CPMatrix order;
    TVector<double> scale; // the diagonal of D
    std::size_t rank = 0;
};

/// Divides the columns by powers of two near their largest elements, which rounds nothing.
TVector<double> ScaleColumns(TMatrix<double>& J)
{
    TVector<double> scale(J.Cols(), 1.0);
    for (std::size_t j = 0; j < J.Cols(); ++j) {
        double largest = 0;
        for (const double e : J.Column(j)) largest = std::max(largest, std::abs(e));
        if (largest == 0) continue;
        scale[j] = std::ldexp(1.0, -std::max(std::ilogb(largest), -1000)); // finite for subnormal columns, too
        for (double& e : J.Column(j)) e *= scale[j];
    }
    return scale;
}

/// Factors J block by block, each together with the triangle of those above it: Q of all rows at once would have m²
/// elements. False when J is not finite.
bool Factor(TMatrix<double> J, ScaledFactor& factor)
{
    const std::size_t rows = J.Rows();
    const std::size_t k = J.Cols();
    if (!AllFinite(J.Data(), rows * k)) return false;
    factor.scale = ScaleColumns(J);
    const std::size_t block = 4 * k + 16;
    TMatrix<double> triangle(0, k); // of the rows so far, columns in their own order
    CPMatrix order(k);
    for (std::size_t first = 0; first < rows; first += block) {
        const std::size_t count = std::min(block, rows - first);
        const std::size_t above = triangle.Rows();
        TMatrix<double> stack(above + count, k);
        for (std::size_t j = 0; j < k; ++j) {
            std::copy_n(triangle.Column(j).begin(), above, stack.Column(j).begin());
            std::copy_n(J.Column(j).data() + first, count, stack.Column(j).data() + above);
        }
        TMatrix<double> Q(stack.Rows(), stack.Rows());
        TMatrix<double> R(stack.Rows(), k);
        if (!lapack::qrp(stack, Q, R, order)) return false;
        triangle.Reset(k, k);
        for (std::size_t j = 0; j < k; ++j)
            std::copy_n(R.Column(j).begin(), std::min<std::size_t>(j + 1, R.Rows()), triangle.Column(order[j]).begin());
    }
    factor.R.Reset(k, k);
    for (std::size_t j = 0; j < k && rows > 0; ++j)
        std::copy_n(triangle.Column(order[j]).begin(), k, factor.R.Column(j).begin());
    factor.order = std::move(order);

    // Of JᵀWJ, by which a fit steps, less than this is lost to rounding; differences leave less noise in J.
    const double smallest = std::sqrt(std::numeric_limits<double>::epsilon());
    while (factor.rank < k &&
           std::abs(factor.R(factor.rank, factor.rank)) > smallest * std::abs(factor.R(std::size_t{0}, std::size_t{0})))
        ++factor.rank;
    return true;
}

} // namespace

/// J with its rows divided by σ, at the free variables of params; 0×0 when the sizes do not fit.
TMatrix<double> CNLSObjectiveFunction::weightedJacobian(const TVector<double>& params)
{
    if (params.Size() != kernel_.Rows()) return {};
    TMatrix<double> J = Jacobian(freeFromParams(params));
    const TVector<double> sigma = StdDev();
    const auto m = static_cast<std::size_t>(GetNumMeasurements());
    if (J.Rows() != m || J.Cols() != freeIndices_.Size() || sigma.Size() != m) return {};
    for (std::size_t j = 0; j < J.Cols(); ++j) {
        const auto column = J.Column(j);
        for (std::size_t i = 0; i < m; ++i) column[i] /= sigma.Data()[i];
    }
    return J;
}

TMatrix<double> CNLSObjectiveFunction::getCovariance(TMatrix<double> J, TVector<int>& rankIndices, double sigma)
{
    const std::size_t k = J.Cols();
    ScaledFactor factor;
    rankIndices.Resize(0);
    if (!Factor(std::move(J), factor)) return {k, k, NaN};

    TMatrix<double> R(factor.rank, factor.rank);
    for (std::size_t j = 0; j < factor.rank; ++j)
        std::copy_n(factor.R.Column(j).begin(), factor.rank, R.Column(j).begin());
    TMatrix<double> inverse;
    if (!choleskyInverse(R, inverse)) return {k, k, NaN};

    TMatrix<double> covariance(k, k);
    for (std::size_t j = 0; j < factor.rank; ++j) {
        const int column = factor.order[j];
        rankIndices.Append(column);
        for (std::size_t i = 0; i < factor.rank; ++i) {
            const int row = factor.order[i];
            covariance(row, column) = (sigma * factor.scale[row]) * inverse(i, j) * (sigma * factor.scale[column]);
        }
    }
    std::sort(rankIndices.begin(), rankIndices.end());
    return covariance;
}

TMatrix<double> CNLSObjectiveFunction::GetCovariance(const TVector<double>& params, double sigma)
{
    const std::size_t n = kernel_.Rows();
    const std::size_t k = freeIndices_.Size();
    if (GetNumMeasurements() == 0) return {n, n, Infinity};
    TMatrix<double> J = weightedJacobian(params);
    if (J.Rows() == 0) return {n, n, NaN};
    TVector<int> rankIndices;
    const TMatrix<double> ofFree = getCovariance(std::move(J), rankIndices, sigma);

    // K₁·C·K₁ᵀ: parameter by parameter where the rows of K₁ are rows of the identity.
    TMatrix<double> basis(n, k);
    std::copy_n(kernel_.Data() + n, n * k, basis.Data());
    for (std::size_t i = 0; i < n; ++i)
        if (IsConstant(static_cast<int>(i)))
            for (std::size_t j = 0; j < k; ++j) basis(i, j) = 0;
    return basis * ofFree * basis.Transposed();
}

TMatrix<double> CNLSObjectiveFunction::GetCorrelation(const TVector<double>& params, double sigma)
{
    TMatrix<double> correlation = GetCovariance(params, sigma);
    const std::size_t n = correlation.Rows();
    TVector<double> deviation(n);
    for (std::size_t i = 0; i < n; ++i) deviation[i] = std::sqrt(correlation(i, i));
    for (std::size_t j = 0; j < n; ++j)
        for (std::size_t i = 0; i < n; ++i)
            if (correlation(i, j) != 0) correlation(i, j) /= deviation[i] * deviation[j];
    for (std::size_t i = 0; i < n; ++i)
        if (deviation[i] > 0 && std::isfinite(deviation[i])) correlation(i, i) = 1;
    return correlation;
}

double CNLSObjectiveFunction::GetDCriterionValue(const TVector<double>& params)
{
    const std::size_t k = freeIndices_.Size();
    if (k == 0) return 1;
    if (GetNumMeasurements() == 0) return 0;
    TMatrix<double> J = weightedJacobian(params);
    ScaledFactor factor;
    if (J.Rows() == 0 || !Factor(std::move(J), factor)) return NaN;
    if (factor.rank < k) return 0;
    double root = 1;
    for (std::size_t j = 0; j < k; ++j) root *= factor.R(j, j) / factor.scale[factor.order[j]];
    return root * root;
}

} // namespace VoAlgo
