#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/numerics/tmatrix.h"
#include "VoAlgorithms/numerics/tvector.h"

namespace VoAlgo {

class CNLSObjectiveFunction;

/// D-optimal design: selects, from many candidate measurements, a given number that determine the parameters best. That
/// is the subset S with the largest D-criterion det(Σ_{i∈S} xᵢ·xᵢᵀ), xᵢ being the derivatives of measurement i by the
/// parameters divided by its standard deviation: it minimises the volume of the confidence ellipsoid of the parameters.
/// The best subset does not depend on the units of the parameters.
///
/// An exchange algorithm: as long as an exchange of a chosen for another candidate raises the criterion, make the best
/// such exchange. The result is the best of several starts: the first one adds the candidates greedily, one by one; the
/// others do the same with rows weighted at random (seed 47110815). No single exchange improves the result; in rare
/// cases a larger rearrangement would. Equal inputs give equal results.
///
/// Source: V. V. Fedorov, Theory of Optimal Experiments, Academic Press 1972; A. J. Miller, N.-K. Nguyen, Appl.
/// Statist. 43 (1994) 669–677.
class VOALGO_API CDOptimalDesign {
public:
    /// From given candidates: one row xᵢ for each measurement, one column for each parameter.
    explicit CDOptimalDesign(TMatrix<double> candidates);
    /// The measurements of a problem as candidates: the rows of its Jacobian by the free variables, at a full parameter
    /// vector, divided by the standard deviations. The criterion of all of them is the problem's GetDCriterionValue.
    /// When these are not m×k finite numbers, or params has not n entries, there are no candidates: Run returns false.
    CDOptimalDesign(CNLSObjectiveFunction& problem, const TVector<double>& params);

    /// Chooses `size` candidates, each at most once. False, with `chosen` unchanged and a determinant of 0, when every
    /// choice has the criterion 0 or none exists: a size below the number of parameters or above the number of
    /// candidates, candidates that do not determine the parameters, elements that are not finite, no parameters.
    /// Each exchange costs O(size·N·k) for N candidates and k parameters.
    /// @param size     number of measurements to take.
    /// @param chosen   out: the indices of the chosen candidates, ascending.
    /// @param starts   of the exchange; less than 1 counts as 1.
    [[nodiscard]] bool Run(int size, TVector<int>& chosen, int starts = 10);
    /// The D-criterion of the last Run's choice.
    [[nodiscard]] double GetDeterminant() const { return determinant_; }
    /// Whether Run writes a line for each start and one for the result to standard error. Default: true.
    void SetLogging(bool logging) { logging_ = logging; }

private:
    TMatrix<double> candidates_;
    double determinant_ = 0;
    bool logging_ = true;
};

} // namespace VoAlgo
