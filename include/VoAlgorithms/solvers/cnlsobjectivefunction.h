#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/numerics/tmatrix.h"
#include "VoAlgorithms/numerics/tvector.h"

namespace VoAlgo {

/// The problem that a CNLSSolver minimises: Σ rᵢ(p)²/σᵢ² over n parameters p, for m residuals r (in the unit of the
/// measurements) with standard deviations σ, under linear equalities E·p = e and linear inequalities A·p ≤ b. Derive
/// from it, override `Error`, and `Jacobian` and `StdDev` where the defaults do not suit; add the constraints; pass it
/// to a solver.
///
/// The default `Jacobian` takes differences with a fixed step of 1.23e-4, whatever the size of the parameters. With a
/// parameter of 1e-2 or less, a fit may stop far from the minimum and still report "small step size (++)". Scale such
/// parameters, so that all of them are about 1 in `Error`, or override `Jacobian`.
///
/// The equalities leave k ≤ n free variables z, p = K₀ + K₁·z. Each of them is one of the parameters: z(j) is parameter
/// GetFreeVariablesIndices()[j], and the others follow from them (with equalities on single parameters, they are
/// constants). Bounds are inequalities with one coefficient.
///
/// Wrong use throws std::invalid_argument: indices out of range, inequalities whose length is not n. Values that are
/// not numbers are bad data: equalities with one are refused with the result false; inequalities accept them, and every
/// fit then ends with "constraints violated".
class VOALGO_API CNLSObjectiveFunction {
public:
    /// A problem of numParams parameters and numMeasurements residuals without constraints. Throws
    /// std::invalid_argument when a number is negative.
    CNLSObjectiveFunction(int numParams, int numMeasurements);
    virtual ~CNLSObjectiveFunction();
    CNLSObjectiveFunction(const CNLSObjectiveFunction&) = default;
    CNLSObjectiveFunction(CNLSObjectiveFunction&&) = default;
    CNLSObjectiveFunction& operator=(const CNLSObjectiveFunction&) = default;
    CNLSObjectiveFunction& operator=(CNLSObjectiveFunction&&) = default;

    /// The m residuals at n parameters: model minus measurement, or the reverse. A not-a-number means that the model is
    /// undefined here: a fit never steps to such parameters.
    virtual TVector<double> Error(const TVector<double>& params) = 0;
    /// The standard deviations σ of the m measurements, in their unit; residuals weigh 1/σ², so the sign does not
    /// matter, and a 0 makes a fit fail. Default: all 1.
    virtual TVector<double> StdDev();
    /// The m×k derivatives of `Error` by the free variables z, at z. Default: numerical, four calls of `Error` for each
    /// free variable, in steps of ±1.23e-4 and ±2.46e-4 along its column of K₁ (without equalities: along the
    /// parameter's axis), which may lead outside the inequalities. The error is of order step⁴: negligible for a
    /// parameter of about 1, but for one of 1e-4 the step is as large as the parameter, the derivatives are wrong, and
    /// so is the fit, without a warning (see above). Empty when m = 0 or the length of `Error` is not m.
    virtual TMatrix<double> Jacobian(const TVector<double>& freeParams);
    /// A different number removes all constraints.
    virtual void SetNumParams(unsigned int numParams);
    ///@{
    /// n and m.
    [[nodiscard]] virtual int GetNumParams() const;
    [[nodiscard]] virtual int GetNumMeasurements() const;
    ///@}
    /// m, the length that `Error` answers with. Throws std::invalid_argument when negative.
    virtual void SetNumMeasurements(int numMeasurements);

    /// Fixes a parameter. As the next.
    [[nodiscard]] bool AddEquality(int index, double value);
    /// Adds row·p = value. False, with everything as it was, when the length is not n, a value is not finite, or the
    /// equality contradicts the others (by more than rounding). One that follows from the others changes nothing else.
    [[nodiscard]] bool AddEquality(const TVector<double>& row, double value);
    /// Replaces all equalities, one for each row; none for a matrix without rows. False as for AddEquality.
    bool SetEqualities(const TMatrix<double>& lhs, const TVector<double>& rhs);

    /// Adds row·p ≤ rhs. An infinite rhs is no constraint; a row of zeros is none either, or can never be met.
    void AddInequality(const TVector<double>& row, double rhs);
    /// p(index) ≥ l, as the row −p(index) ≤ −l.
    void AddLowerBound(int index, double l) { addBound(index, l, true); }
    /// p(index) ≤ u.
    void AddUpperBound(int index, double u) { addBound(index, u, false); }
    /// Both, the lower one first.
    void AddBounds(int index, double l, double u);
    /// Replaces all inequalities and bounds; none for a matrix without rows.
    void SetInequalities(const TMatrix<double>& lhs, const TVector<double>& rhs);

    ///@{
    /// Whether there are any.
    [[nodiscard]] bool HasEqualities() const { return equalitiesLHS_.Rows() > 0; }
    [[nodiscard]] bool HasInequalities() const { return inequalitiesLHS_.Rows() > 0; }
    ///@}
    ///@{
    /// The constraints in force: E and e of E·p = e, A and b of A·p ≤ b, rows in the order in which they came.
    [[nodiscard]] const TMatrix<double>& GetEqualitiesLHS() const { return equalitiesLHS_; }
    [[nodiscard]] const TVector<double>& GetEqualitiesRHS() const { return equalitiesRHS_; }
    [[nodiscard]] const TMatrix<double>& GetInequalitiesLHS() const { return inequalitiesLHS_; }
    [[nodiscard]] const TVector<double>& GetInequalitiesRHS() const { return inequalitiesRHS_; }
    ///@}
    /// K = [K₀ | K₁], n×(1 + k): a solution of the equalities and a basis of their null space. Without equalities
    /// [0 | I].
    [[nodiscard]] const TMatrix<double>& GetEqualityConstraintsKernel() const { return kernel_; }
    /// The parameter that each free variable is, ascending. Its row of K₁ is a row of the identity, and its K₀ is 0.
    [[nodiscard]] const TVector<int>& GetFreeVariablesIndices() const { return freeIndices_; }

    /// The inequalities in free variables, A·K₁·z ≤ b − A·K₀. What is nothing but rounding of these sums becomes 0.
    void GetFreeVariablesInequalities(TMatrix<double>& A, TVector<double>& b) const;
    /// p = K₀ + K₁·z. Throws std::invalid_argument when z has not k entries.
    [[nodiscard]] TVector<double> BuildParamsFromFree(const TVector<double>& z) const;

    ///@{
    /// Whether the equalities leave the parameter room: its row of K₁ has an entry of magnitude ≥ 2.22e-15.
    [[nodiscard]] bool IsVariable(int index) const;
    [[nodiscard]] bool IsConstant(int index) const { return !IsVariable(index); }
    ///@}
    ///@{
    /// Whether the parameter is constant, or the inequalities alone bound it from both sides (two linear programmes
    /// over A·p ≤ b). An infeasible system bounds everything.
    [[nodiscard]] bool IsBounded(int index) const;
    [[nodiscard]] bool IsUnbounded(int index) const { return !IsBounded(index); }
    ///@}

    /// Covariance of the parameters at a fit, n×n: sigma²·K₁·(JᵀWJ)⁻¹·K₁ᵀ with W = diag(1/σᵢ²), linearised there.
    /// Inequalities and robust weights do not enter.
    /// @param params  the fit, n parameters.
    /// @param sigma   scale of the σ (its sign does not matter): 1 when they are absolute; when they are relative or
    ///         left at 1, the residual standard deviation √(Σ rᵢ²/σᵢ² / (m − k)).
    ///
    /// Rows and columns of constant parameters are 0. Free variables that the measurements do not determine are left
    /// out: they count as known, rows and columns 0, and the other entries hold for that case. (So a variable parameter
    /// with the variance 0 is undetermined.) That is told from derivatives in which, units apart, a direction counts
    /// less than 1.5e-8 of another; numerical ones may hide it when parameters are beyond some hundreds. All +∞ without
    /// measurements; all not-a-number when params has not n entries or the weighted derivatives are not m×k finite
    /// numbers.
    [[nodiscard]] TMatrix<double> GetCovariance(const TVector<double>& params, double sigma);
    /// The same, divided by the standard deviations of row and column: 1 on the diagonal; 0 where a variance is 0; all
    /// not-a-number without measurements.
    [[nodiscard]] TMatrix<double> GetCorrelation(const TVector<double>& params, double sigma);
    /// det(JᵀWJ) of the free variables: the larger, the smaller the volume of the confidence ellipsoid (D-optimality).
    /// 0 when a free variable is undetermined; not-a-number as above.
    [[nodiscard]] double GetDCriterionValue(const TVector<double>& params);

protected:
    /// One bound as an inequality.
    void addBound(int index, double value, bool lower);
    /// Covariance of the free variables, k×k, from J with its rows divided by σ.
    /// @param J             derivatives divided by σ, m×k.
    /// @param sigma         as in GetCovariance.
    /// @param rankIndices   out: the free variables that the measurements determine, ascending; the rest has rows and
    ///               columns of 0. They are found by a QR factorisation with column pivoting, of columns scaled to like
    ///               lengths so that units do not matter: |r(i, i)| > √ε·|r(0, 0)|, √ε = 1.5e-8.
    ///
    /// Not-a-number, and no indices, when J is not finite.
    static TMatrix<double> getCovariance(TMatrix<double> J, TVector<int>& rankIndices, double sigma);
    /// Derivative of `Error` by one parameter through differences of the given order of accuracy, 1 to 5, in steps of
    /// h. params stays as it is. Empty when `Error` answers with different lengths.
    /// Throws std::invalid_argument for another order.
    TVector<double> errorFDDerivatives(TVector<double>& params, int index, double h, int order);

private:
    friend class CDOptimalDesign; // takes weightedJacobian

    TVector<double> errorDerivative(const TVector<double>& params, const TVector<double>& direction, double h,
                                    int order);
    TVector<double> freeFromParams(const TVector<double>& params) const;
    TMatrix<double> weightedJacobian(const TVector<double>& params);

    int numParams_;
    int numMeasurements_;
    TMatrix<double> equalitiesLHS_;
    TVector<double> equalitiesRHS_;
    TMatrix<double> inequalitiesLHS_;
    TVector<double> inequalitiesRHS_;
    TMatrix<double> kernel_;
    TVector<int> freeIndices_;
};

} // namespace VoAlgo
