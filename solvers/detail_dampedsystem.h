#pragma once

#include "VoAlgorithms/numerics/tmatrix.h"
#include "VoAlgorithms/numerics/tvector.h"

namespace VoAlgo::detail {

/// 2^⌊½·log₂ x⌋, a power of two near √x; 1 for an x that is not positive and finite.
double RootUnit(double x);

/// Solves damped least-squares problems with a diagonal matrix D in the damping; keeps its memory between calls.
/// Unknowns are scaled by powers of two first, so that the cut of small singular values does not depend on their units.
class DampedSystem {
public:
    /// (N + µD²)·x = b for a symmetric positive semidefinite N, scaled from both sides to a diagonal near 1. False when
    /// something is not finite.
    [[nodiscard]] bool SolveNormal(const TMatrix<double>& N, double mu, const TVector<double>& D,
                                   const TVector<double>& b, TVector<double>& x);
    /// The h that minimises Σ wᵢ·(r + J·h)ᵢ² + µ·‖D·h‖², from J itself. The normal equations cut directions whose
    /// singular value is below √ε of the largest; here the limit is ε. False when something is not finite.
    [[nodiscard]] bool SolveRows(const TMatrix<double>& J, const TVector<double>& w, const TVector<double>& r,
                                 double mu, const TVector<double>& D, TVector<double>& h);

private:
    TMatrix<double> scaled_;
    TVector<double> scale_;
    TVector<double> rhs_;
    TVector<double> rootOfWeights_;
};

} // namespace VoAlgo::detail
