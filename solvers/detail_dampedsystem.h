#pragma once

#include "VoAlgorithms/numerics/tmatrix.h"
#include "VoAlgorithms/numerics/tvector.h"

namespace VoAlgo::detail {

/// Solves (N + µI)·x = b for a symmetric positive semidefinite N; keeps its memory between calls.
class DampedSystem {
public:
    /// False when something is not finite. The system is scaled from both sides by powers of two to a diagonal near 1.
    /// The solution is the same, but the cut of small singular values at machine precision then does not depend on the
    /// units of the unknowns.
    [[nodiscard]] bool Solve(const TMatrix<double>& N, double mu, const TVector<double>& b, TVector<double>& x);

private:
    TMatrix<double> scaled_;
    TVector<double> scale_;
    TVector<double> rhs_;
};

} // namespace VoAlgo::detail
