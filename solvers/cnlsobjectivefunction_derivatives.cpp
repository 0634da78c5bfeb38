#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <stdexcept>

namespace VoAlgo {
namespace {

/// f′(0) ≈ Σ coefficient·f(offset·h) / (divisor·h)
struct Stencil {
    struct Point {
        int offset;
        double coefficient;
    };
    double divisor;
    int size;
    Point points[6];
};

// One for each order of accuracy: the derivative of the polynomial through the points. Even orders are central.
constexpr Stencil Stencils[] = {
    {1, 2, {{1, 1}, {0, -1}}},
    {2, 2, {{1, 1}, {-1, -1}}},
    {6, 4, {{1, 6}, {-1, -2}, {0, -3}, {2, -1}}},
    {12, 4, {{1, 8}, {-1, -8}, {2, -1}, {-2, 1}}},
    {60, 6, {{1, 60}, {-1, -30}, {0, -20}, {2, -15}, {-2, 3}, {3, 2}}},
};

} // namespace

TVector<double> CNLSObjectiveFunction::errorDerivative(const TVector<double>& params, const TVector<double>& direction,
                                                       double h, int order)
{
    if (order < 1 || order > static_cast<int>(std::size(Stencils)))
        throw std::invalid_argument("order of a numerical derivative must be 1 to 5");
    const Stencil& stencil = Stencils[order - 1];
    TVector<double> derivative;
    for (int s = 0; s < stencil.size; ++s) {
        const auto [offset, coefficient] = stencil.points[s];
        TVector<double> place = params;
        for (std::size_t i = 0; i < place.Size(); ++i)
            if (direction[i] != 0) place[i] += offset * h * direction[i];
        TVector<double> r = Error(place);
        if (s > 0 && r.Size() != derivative.Size()) return {};
        derivative.Resize(r.Size());
        for (std::size_t i = 0; i < r.Size(); ++i) derivative.Data()[i] += coefficient * r.Data()[i];
    }
    for (double& d : derivative) d /= stencil.divisor * h;
    return derivative;
}

TVector<double> CNLSObjectiveFunction::errorFDDerivatives(TVector<double>& params, int index, double h, int order)
{
    TVector<double> axis(params.Size());
    axis[index] = 1;
    return errorDerivative(params, axis, h, order);
}

TMatrix<double> CNLSObjectiveFunction::Jacobian(const TVector<double>& freeParams)
{
    constexpr double Step = 1.23e-4;
    constexpr int Order = 4;
    const int m = GetNumMeasurements();
    if (m <= 0) return {};
    const TVector<double> params = BuildParamsFromFree(freeParams);
    TMatrix<double> J(m, freeParams.Size());
    TVector<double> direction(params.Size());
    for (std::size_t j = 0; j < J.Cols(); ++j) {
        // With equalities on single parameters the axis of parameter GetFreeVariablesIndices()[j].
        std::copy_n(kernel_.Column(j + 1).begin(), direction.Size(), direction.begin());
        const TVector<double> column = errorDerivative(params, direction, Step, Order);
        if (column.Size() != J.Rows()) return {};
        std::copy(column.begin(), column.end(), J.Column(j).begin());
    }
    return J;
}

} // namespace VoAlgo
