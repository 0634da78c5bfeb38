#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/numerics/tmatrix.h"
#include "VoAlgorithms/numerics/tvector.h"

namespace VoAlgo {

class CNLSObjectiveFunction;

/// D-optimal design: which of many candidate measurements to take, so that their number is given and the parameters are
/// determined best. Best is the subset S with the largest D-criterion det(Σ_{i∈S} xᵢ·xᵢᵀ), xᵢ being the derivatives of
/// measurement i by the parameters divided by its standard deviation: the volume of the confidence ellipsoid of the
/// parameters is then smallest. Which subset that is does not depend on the units of the parameters.
///
/// An exchange algorithm: from a start, the pair of a chosen and another candidate whose exchange raises the criterion
/// most is exchanged, as long as there is one. The result is the best of several starts: the first takes what adds
/// most, one by one; the others do the same with rows weighted at random (seed 47110815). No exchange of a pair
/// improves it; now and then a larger rearrangement would. Equal inputs give equal results.
///
/// Source: V. V. Fedorov, Theory of Optimal Experiments, Academic Press 1972; A. J. Miller, N.-K. Nguyen, Appl.
/// Statist. 43 (1994) 669–677.
class VOALGO_API CDOptimalDesign {
public:
    /// Over given candidates: one row xᵢ for each measurement, one column for each parameter.
    explicit CDOptimalDesign(TMatrix<double> candidates);
    /// The measurements of a problem as candidates: the rows of its Jacobian by the free variables, at a full parameter
    /// vector, divided by the standard deviations. The criterion of all of them is the problem's GetDCriterionValue.
    /// When these are not m×k finite numbers, or params has not n entries, there are no candidates: Run answers false.
    CDOptimalDesign(CNLSObjectiveFunction& problem, const TVector<double>& params);

    /// Chooses `size` candidates, each at most once. False, with `chosen` left alone and a determinant of 0, when every
    /// choice has the criterion 0 or none is possible: a size below the number of parameters or above that of
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
