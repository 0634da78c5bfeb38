#include "VoAlgorithms/solvers/cdoptimaldesign.h"

#include "VoAlgorithms/numerics/lapack.h"
#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"
#include "platform/finite.h"
#include "platform/format.h"
#include "platform/randomseed.h"

#include <algorithm>
#include <cmath>
#include <compare>
#include <cstdio>
#include <limits>
#include <random>
#include <span>
#include <utility>
#include <vector>

namespace VoAlgo {

CDOptimalDesign::CDOptimalDesign(TMatrix<double> candidates) : candidates_(std::move(candidates)) {}

CDOptimalDesign::CDOptimalDesign(CNLSObjectiveFunction& problem, const TVector<double>& params)
    : CDOptimalDesign(problem.weightedJacobian(params))
{
}

namespace {

using Indices = std::vector<std::size_t>;

double Dot(std::span<const double> a, std::span<const double> b)
{
    double sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i) sum += a[i] * b[i];
    return sum;
}

/// Candidates as columns, with parameters scaled by powers of two, which round nothing, to coefficients of about 1.
class Candidates {
public:
    explicit Candidates(const TMatrix<double>& rows) : x_(rows.Transposed())
    {
        for (std::size_t j = 0; j < rows.Cols(); ++j) {
            const double largest = TVector<double>(rows.Column(j)).MaxAbs();
            if (largest == 0) continue;
            int exponent = 0;
            std::frexp(largest, &exponent);
            for (std::size_t i = 0; i < rows.Rows(); ++i) x_(j, i) = std::ldexp(rows(i, j), -exponent);
            exponents_ += exponent;
        }
    }
    [[nodiscard]] std::size_t Count() const { return x_.Cols(); }
    [[nodiscard]] std::size_t Parameters() const { return x_.Rows(); }
    [[nodiscard]] std::span<const double> operator[](std::size_t i) const { return x_.Column(i); }
    [[nodiscard]] const TMatrix<double>& Columns() const { return x_; }
    [[nodiscard]] int Exponents() const { return exponents_; }

    /// The same with each candidate multiplied by a factor.
    template <class Factor>
    [[nodiscard]] Candidates Weighted(const Factor& factor) const
    {
        Candidates weighted = *this;
        for (std::size_t i = 0; i < Count(); ++i) {
            const double f = factor();
            for (double& e : weighted.x_.Column(i)) e *= f;
        }
        return weighted;
    }

private:
    TMatrix<double> x_;
    int exponents_ = 0; // of the parameters' units, summed up
};

/// The square root of a determinant as mantissa·2^exponent: a product of many factors may leave the range of double.
struct Root {
    int exponent = std::numeric_limits<int>::min();
    double mantissa = 0; // from 1/2 to 1, or 0 with the smallest exponent

    auto operator<=>(const Root&) const = default;
    void Multiply(double factor)
    {
        int shift = 0;
        mantissa = std::frexp(mantissa * factor, &shift);
        exponent += shift;
    }
    [[nodiscard]] double Squared(const Candidates& units) const
    {
        return std::ldexp(mantissa * mantissa, 2 * (exponent + units.Exponents()));
    }
};

/// A choice of candidates, ascending, with M = Σ x·xᵀ over them.
class Choice {
public:
    Choice(const Candidates& candidates, Indices chosen) : candidates_(&candidates), chosen_(std::move(chosen))
    {
        std::sort(chosen_.begin(), chosen_.end());
        const std::size_t k = candidates.Parameters();
        TMatrix<double> x(k, chosen_.size());
        for (std::size_t i = 0; i < chosen_.size(); ++i)
            std::copy_n(candidates[chosen_[i]].begin(), k, x.Column(i).begin());
        TMatrix<double> u = x * x.Transposed();
        TMatrix<double> inverse;
        if (!cholesky(u) || !choleskyInverse(u, inverse)) return;
        root_ = {1, 0.5};
        for (std::size_t j = 0; j < k; ++j) root_.Multiply(u(j, j));
        inverseTimesX_ = inverse * candidates.Columns();
    }
    [[nodiscard]] const Indices& Chosen() const { return chosen_; }
    /// Whether M is positive definite; otherwise the functions below must not be called.
    [[nodiscard]] bool IsRegular() const { return root_.mantissa > 0; }
    /// √det M
    [[nodiscard]] const Root& RootOfDeterminant() const { return root_; }

    /// The choice plus the candidate that raises the determinant most.
    [[nodiscard]] Choice WithBest() const
    {
        const Indices outside = others();
        std::size_t best = outside.front();
        for (const std::size_t i : outside)
            if (product(i, i) > product(best, best)) best = i;
        Indices more = chosen_;
        more.push_back(best);
        return {*candidates_, std::move(more)};
    }

    /// Makes the exchange of a chosen candidate for another that raises the determinant most; false when none does. It
    /// grows by the factor (1 + product(in, in))·(1 − product(out, out)) + product(in, out)² (Fedorov).
    bool Exchange()
    {
        constexpr double Rounding = 1e-10;
        double largest = 1 + Rounding;
        std::pair<std::size_t, std::size_t> best; // position in chosen_, candidate
        std::vector<double> loss;
        for (const std::size_t out : chosen_) loss.push_back(1 - product(out, out));
        for (const std::size_t in : others()) {
            const double gain = 1 + product(in, in);
            for (std::size_t k = 0; k < chosen_.size(); ++k) {
                const double cross = product(in, chosen_[k]);
                const double factor = gain * loss[k] + cross * cross;
                if (factor > largest) {
                    largest = factor;
                    best = {k, in};
                }
            }
        }
        if (largest == 1 + Rounding) return false;
        Indices exchanged = chosen_;
        exchanged[best.first] = best.second;
        Choice next(*candidates_, std::move(exchanged));
        if (!(next.root_ > root_)) return false; // otherwise rounding could lead in circles
        *this = std::move(next);
        return true;
    }

private:
    /// aᵀ·M⁻¹·b of two candidates
    [[nodiscard]] double product(std::size_t a, std::size_t b) const
    {
        return Dot(inverseTimesX_.Column(a), (*candidates_)[b]);
    }
    [[nodiscard]] Indices others() const
    {
        Indices outside;
        for (std::size_t i = 0; i < candidates_->Count(); ++i)
            if (!std::binary_search(chosen_.begin(), chosen_.end(), i)) outside.push_back(i);
        return outside;
    }

    const Candidates* candidates_;
    Indices chosen_;
    TMatrix<double> inverseTimesX_;
    Root root_;
};

/// Independent candidates, one for each parameter or fewer if there are no more: each is the one farthest from the span
/// of those before it (Gram–Schmidt with pivoting).
Indices Independent(const Candidates& candidates)
{
    constexpr double Dependent = 1e-7; // its square must exceed rounding errors
    TMatrix<double> rest = candidates.Columns();
    Indices chosen;
    while (chosen.size() < candidates.Parameters()) {
        std::size_t farthest = candidates.Count();
        double largestSq = 0;
        for (std::size_t i = 0; i < candidates.Count(); ++i) {
            const double lengthSq = Dot(rest.Column(i), rest.Column(i));
            if (lengthSq > largestSq && lengthSq > Dependent * Dependent * Dot(candidates[i], candidates[i])) {
                farthest = i;
                largestSq = lengthSq;
            }
        }
        if (farthest == candidates.Count()) break;
        chosen.push_back(farthest);
        const TVector<double> direction(rest.Column(farthest));
        for (std::size_t i = 0; i < candidates.Count(); ++i) {
            const double share = Dot(rest.Column(i), {direction.Data(), direction.Size()}) / largestSq;
            for (std::size_t j = 0; j < direction.Size(); ++j) rest(j, i) -= share * direction[j];
        }
    }
    return chosen;
}

/// A good choice of the given size, built one by one; empty when the candidates do not determine the parameters.
Indices Start(const Candidates& candidates, std::size_t size)
{
    Indices independent = Independent(candidates);
    if (independent.size() < candidates.Parameters()) return {};
    Choice choice(candidates, std::move(independent));
    while (choice.IsRegular() && choice.Chosen().size() < size) choice = choice.WithBest();
    return choice.IsRegular() ? choice.Chosen() : Indices();
}

bool IsPossible(const TMatrix<double>& candidates, int size)
{
    return size > 0 && candidates.Cols() > 0 && static_cast<std::uint32_t>(size) >= candidates.Cols() &&
           static_cast<std::uint32_t>(size) <= candidates.Rows() &&
           AllFinite(candidates.Data(), std::size_t{candidates.Rows()} * candidates.Cols());
}

} // namespace

bool CDOptimalDesign::Run(int size, TVector<int>& chosen, int starts)
{
    determinant_ = 0;
    if (!IsPossible(candidates_, size)) return false;
    const Candidates candidates(candidates_);
    std::mt19937_64 twister(RandomSeed);
    std::uniform_real_distribution<double> weight(0, 1);
    Root best;
    for (int start = 0; start < std::max(1, starts); ++start) {
        const auto factor = [&] { return start == 0 ? 1 : weight(twister); };
        Indices indices = Start(candidates.Weighted(factor), static_cast<std::size_t>(size));
        Choice choice(candidates, std::move(indices));
        if (!choice.IsRegular()) continue;
        const Root first = choice.RootOfDeterminant();
        int exchanges = 0;
        while (choice.Exchange()) ++exchanges;
        const Root last = choice.RootOfDeterminant();
        if (logging_)
            std::fputs(Format("(NLS OED) #iters=%i: det start=%g, det stop=%g\n", exchanges, first.Squared(candidates),
                              last.Squared(candidates))
                           .c_str(),
                       stderr);
        if (!(last > best)) continue;
        best = last;
        chosen.Resize(size);
        std::copy(choice.Chosen().begin(), choice.Chosen().end(), chosen.begin());
    }
    if (best.mantissa == 0) return false;
    determinant_ = best.Squared(candidates);
    if (logging_) std::fputs(Format("(NLS OED) det best=%g\n", determinant_).c_str(), stderr);
    return true;
}

} // namespace VoAlgo
