#pragma once

#include "VoAlgorithms/solvers/cnlssolver.h"

#include "solvers/detail_dampedsystem.h"
#include "solvers/detail_halfspaces.h"

#include <limits>

namespace VoAlgo {
namespace detail {

inline constexpr double SmallChange = 2 * std::numeric_limits<double>::epsilon(); // ε₁

/// A step from z that is not longer than this ends the fit.
inline double SmallLength(const TVector<double>& z)
{
    return SmallChange * (z.Norm() + SmallChange);
}

} // namespace detail

/// The state of one fit. Work arrays keep their memory from one iteration to the next.
struct CNLSSolver::Fit {
    /// A plain fit ends with the first stage; a refined one moves on whenever a stage ends with a small step.
    enum class Stage {
        Plain,    ///< steps by the normal equations, judged by ‖r‖²
        Weighted, ///< steps by the normal equations, judged by rᵀWr; only with weights other than 1
        Rows,     ///< steps by the rows of √W·J, judged by rᵀWr
    };
    Stage stage = Stage::Plain;

    bool constrained = false;
    detail::Halfspaces polytope; // the inequalities in free variables

    // The current free variables, residuals and derivatives.
    TVector<double> z;
    TVector<double> r;
    TMatrix<double> J;

    TVector<double> w; // diagonal of W
    TMatrix<double> JtW;
    TMatrix<double> N; // JᵀWJ
    TVector<double> g; // JᵀWr

    double mu = 0;     // damping: the model of ½rᵀWr is gᵀh + ½hᵀ(N + µD²)h
    TVector<double> D; // 1 until the last stage, then near √N(i, i)
    double nu = 1;     // factor by which a rejection raises mu

    // Work arrays.
    detail::DampedSystem system;
    TVector<double> zNew;
    TVector<double> rNew;
    TMatrix<double> JNew;
};

} // namespace VoAlgo
