#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"

#include "VoAlgorithms/numerics/lapack.h"
#include "VoAlgorithms/solvers/clpsolver.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <utility>

namespace VoAlgo {
namespace {

int CheckedCount(int count)
{
    if (count < 0) throw std::invalid_argument("negative number of parameters or measurements");
    return count;
}

/// [0 | I]
TMatrix<double> FullKernel(int n)
{
    TMatrix<double> kernel(n, n + 1);
    for (int i = 0; i < n; ++i) kernel(i, i + 1) = 1;
    return kernel;
}

TVector<int> AllIndices(int n)
{
    TVector<int> indices(n);
    for (int i = 0; i < n; ++i) indices[i] = i;
    return indices;
}

TVector<double> UnitRow(int n, int index, double value)
{
    TVector<double> row(n);
    row[index] = value;
    return row;
}

/// A sum that knows how large rounding may have made it.
struct Sum {
    double value = 0;
    double magnitude = 0;
    int terms = 0;

    void Add(double term)
    {
        value += term;
        magnitude += std::abs(term);
        ++terms;
    }
    [[nodiscard]] double WithoutRounding() const
    {
        const double rounding = (terms + 2) * std::numeric_limits<double>::epsilon() * magnitude;
        return std::isfinite(magnitude) && std::abs(value) <= rounding ? 0.0 : value;
    }
};

} // namespace

CNLSObjectiveFunction::CNLSObjectiveFunction(int numParams, int numMeasurements)
    : numParams_(CheckedCount(numParams)), numMeasurements_(CheckedCount(numMeasurements)),
      equalitiesLHS_(0, numParams), inequalitiesLHS_(0, numParams), kernel_(FullKernel(numParams)),
      freeIndices_(AllIndices(numParams))
{
}

CNLSObjectiveFunction::~CNLSObjectiveFunction() = default;

TVector<double> CNLSObjectiveFunction::StdDev()
{
    return TVector<double>(GetNumMeasurements(), 1.0);
}

void CNLSObjectiveFunction::SetNumParams(unsigned int numParams)
{
    const auto n = static_cast<int>(numParams);
    if (n == numParams_) return;
    numParams_ = CheckedCount(n);
    equalitiesLHS_.Reset(0, n);
    equalitiesRHS_.Resize(0);
    inequalitiesLHS_.Reset(0, n);
    inequalitiesRHS_.Resize(0);
    kernel_ = FullKernel(n);
    freeIndices_ = AllIndices(n);
}

int CNLSObjectiveFunction::GetNumParams() const
{
    return numParams_;
}

int CNLSObjectiveFunction::GetNumMeasurements() const
{
    return numMeasurements_;
}

void CNLSObjectiveFunction::SetNumMeasurements(int numMeasurements)
{
    numMeasurements_ = CheckedCount(numMeasurements);
}

// Equalities

bool CNLSObjectiveFunction::AddEquality(int index, double value)
{
    return index >= 0 && index < numParams_ && AddEquality(UnitRow(numParams_, index, 1), value);
}

bool CNLSObjectiveFunction::AddEquality(const TVector<double>& row, double value)
{
    if (row.Size() != kernel_.Rows()) return false;
    TMatrix<double> lhs = equalitiesLHS_;
    TVector<double> rhs = equalitiesRHS_;
    lhs.AppendRow(row);
    rhs.Append(value);
    return SetEqualities(lhs, rhs);
}

bool CNLSObjectiveFunction::SetEqualities(const TMatrix<double>& lhs, const TVector<double>& rhs)
{
    if (lhs.Rows() != rhs.Size()) return false;
    if (lhs.Rows() == 0) {
        equalitiesLHS_.Reset(0, numParams_);
        equalitiesRHS_.Resize(0);
        kernel_ = FullKernel(numParams_);
        freeIndices_ = AllIndices(numParams_);
        return true;
    }
    if (lhs.Cols() != kernel_.Rows()) return false;

    TMatrix<double> factored = lhs;
    TVector<double> solution = rhs;
    CPMatrix order;
    const TMatrix<double> basis = lapack::qrp_kernel(factored, solution, order);
    if (basis.Rows() != lhs.Cols() || solution.Size() != lhs.Cols()) return false; // not finite; contradictory

    const std::size_t n = lhs.Cols();
    const std::size_t k = basis.Cols();
    TMatrix<double> kernel(n, k + 1);
    std::copy_n(solution.Data(), n, kernel.Data());
    std::copy_n(basis.Data(), n * k, kernel.Data() + n);
    TVector<int> freeIndices(k);
    for (std::size_t j = 0; j < k; ++j) freeIndices[j] = order[n - k + j];

    equalitiesLHS_ = lhs;
    equalitiesRHS_ = rhs;
    kernel_ = std::move(kernel);
    freeIndices_ = std::move(freeIndices);
    return true;
}

TVector<double> CNLSObjectiveFunction::BuildParamsFromFree(const TVector<double>& z) const
{
    if (z.Size() != freeIndices_.Size()) throw std::invalid_argument("sizes do not fit");
    TVector<double> params(kernel_.Rows());
    const auto particular = kernel_.Column(0);
    std::copy(particular.begin(), particular.end(), params.begin());
    for (std::size_t j = 0; j < z.Size(); ++j) {
        const auto column = kernel_.Column(j + 1);
        for (std::size_t i = 0; i < column.size(); ++i)
            if (column[i] != 0) params[i] += column[i] * z[j]; // 0·∞ would spoil parameters that do not depend on z
    }
    return params;
}

TVector<double> CNLSObjectiveFunction::freeFromParams(const TVector<double>& params) const
{
    TVector<double> z(freeIndices_.Size());
    for (std::size_t j = 0; j < z.Size(); ++j) z[j] = params[freeIndices_[j]];
    return z;
}

bool CNLSObjectiveFunction::IsVariable(int index) const
{
    constexpr double Smallest = 10 * std::numeric_limits<double>::epsilon();
    for (std::size_t j = 1; j < kernel_.Cols(); ++j)
        if (std::abs(kernel_(index, j)) >= Smallest) return true;
    return false;
}

// Inequalities

void CNLSObjectiveFunction::AddInequality(const TVector<double>& row, double rhs)
{
    if (row.Size() != kernel_.Rows()) throw std::invalid_argument("sizes do not fit");
    inequalitiesLHS_.AppendRow(row);
    inequalitiesRHS_.Append(rhs);
}

void CNLSObjectiveFunction::addBound(int index, double value, bool lower)
{
    const double sign = lower ? -1 : 1;
    AddInequality(UnitRow(numParams_, index, sign), sign * value);
}

void CNLSObjectiveFunction::AddBounds(int index, double l, double u)
{
    AddLowerBound(index, l);
    AddUpperBound(index, u);
}

void CNLSObjectiveFunction::SetInequalities(const TMatrix<double>& lhs, const TVector<double>& rhs)
{
    if (lhs.Rows() != rhs.Size() || (lhs.Rows() > 0 && lhs.Cols() != kernel_.Rows()))
        throw std::invalid_argument("sizes do not fit");
    inequalitiesLHS_ = lhs;
    inequalitiesRHS_ = rhs;
    if (lhs.Rows() == 0) inequalitiesLHS_.Reset(0, numParams_);
}

void CNLSObjectiveFunction::GetFreeVariablesInequalities(TMatrix<double>& A, TVector<double>& b) const
{
    const TMatrix<double>& lhs = inequalitiesLHS_;
    TMatrix<double> freeLHS(lhs.Rows(), freeIndices_.Size());
    TVector<double> freeRHS(lhs.Rows());
    for (std::size_t row = 0; row < lhs.Rows(); ++row) {
        Sum rhs;
        rhs.Add(inequalitiesRHS_[row]);
        for (std::size_t i = 0; i < lhs.Cols(); ++i) rhs.Add(-lhs(row, i) * kernel_(i, 0));
        freeRHS[row] = rhs.WithoutRounding();
        for (std::size_t j = 0; j < freeLHS.Cols(); ++j) {
            Sum coefficient;
            for (std::size_t i = 0; i < lhs.Cols(); ++i) coefficient.Add(lhs(row, i) * kernel_(i, j + 1));
            freeLHS(row, j) = coefficient.WithoutRounding();
        }
    }
    A = std::move(freeLHS);
    b = std::move(freeRHS);
}

bool CNLSObjectiveFunction::IsBounded(int index) const
{
    if (IsConstant(index)) return true;
    if (!HasInequalities()) return false;
    for (const double direction : {1.0, -1.0}) {
        CLPSolver lp(inequalitiesLHS_, inequalitiesRHS_, UnitRow(numParams_, index, direction));
        if (!lp.Run() && lp.GetStatus() == CLPSolver::Unbounded) return false;
    }
    return true;
}

} // namespace VoAlgo
