#pragma once

#include "VoAlgorithms/solvers/cnlssolver.h"

#include "solvers/detail_dampedsystem.h"

#include <limits>

namespace VoAlgo {
namespace detail {

inline constexpr double SmallChange = 2 * std::numeric_limits<double>::epsilon(); // ε₁

/// Length of a step from z that ends the fit.
inline double SmallLength(const TVector<double>& z)
{
    return SmallChange * (z.Norm() + SmallChange);
}

} // namespace detail

/// The state of one fit. Work arrays keep their memory from one iteration to the next.
struct CNLSSolver::Fit {
    bool constrained = false;
    TMatrix<double> A; // inequalities in free variables, A·z ≤ b
    TVector<double> b;

    TVector<double> z; // where the fit stands, and what the objective says there
    TVector<double> r;
    TMatrix<double> J;

    TMatrix<double> JtW; // the normal equations there
    TMatrix<double> N;   // JᵀWJ
    TVector<double> g;   // JᵀWr
    double mu = 0;       // damping
    double nu = 1;       // by which a rejection raises it

    bool weighted = false; // whether steps are judged by the weighted residuals

    TVector<double> w; // the weights
    // Work arrays.
    detail::DampedSystem system;
    TVector<double> zNew;
    TVector<double> rNew;
    TMatrix<double> JNew;
};

} // namespace VoAlgo
