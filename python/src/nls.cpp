#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"
#include "VoAlgorithms/solvers/cnlssolver.h"
#include "arrays.h"
#include "module.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

namespace voalgo::python {

using VoAlgo::CNLSObjectiveFunction;
using VoAlgo::CNLSSolver;
using Vector = VoAlgo::TVector<double>;
using Matrix = VoAlgo::TMatrix<double>;

namespace {

py::array_t<double> ToArray(const Vector& v)
{
    return py::array_t<double>(static_cast<py::ssize_t>(v.Size()), v.Data());
}

py::array_t<double> ToArray(const Matrix& m)
{
    py::array_t<double> array({static_cast<py::ssize_t>(m.Rows()), static_cast<py::ssize_t>(m.Cols())});
    auto a = array.mutable_unchecked<2>();
    for (py::ssize_t r = 0; r < a.shape(0); ++r)
        for (py::ssize_t c = 0; c < a.shape(1); ++c) a(r, c) = m(static_cast<int>(r), static_cast<int>(c));
    return array;
}

Vector ReadVector(const py::object& argument, const char* name, py::ssize_t size = -1)
{
    const Doubles values = ReadDoubles(argument, name, 0);
    if (size >= 0 && values.shape(0) != size)
        throw py::value_error(std::string(name) + ": needs " + std::to_string(size) + " values, has " +
                              std::to_string(values.shape(0)));
    Vector v(static_cast<int>(values.shape(0)));
    std::copy_n(values.data(), values.shape(0), v.Data());
    return v;
}

Matrix ReadMatrix(const py::object& argument, const char* name, py::ssize_t rows, py::ssize_t cols)
{
    const Doubles values = ReadDoubles(argument, name, cols);
    if (rows >= 0 && values.shape(0) != rows)
        throw py::value_error(std::string(name) + ": needs " + std::to_string(rows) + " rows, has " +
                              std::to_string(values.shape(0)));
    const auto v = values.unchecked<2>();
    Matrix m(static_cast<int>(v.shape(0)), static_cast<int>(cols));
    for (py::ssize_t r = 0; r < v.shape(0); ++r)
        for (py::ssize_t c = 0; c < cols; ++c) m(static_cast<int>(r), static_cast<int>(c)) = v(r, c);
    return m;
}

/// A problem whose residuals, and perhaps their derivatives, a Python function computes.
class Problem : public CNLSObjectiveFunction {
public:
    Problem(py::object residual, py::object jacobian, const Vector& start)
        : CNLSObjectiveFunction(static_cast<int>(start.Size()), 0), residual_(std::move(residual)),
          jacobian_(std::move(jacobian))
    {
        const Vector first = ReadVector(residual_(ToArray(start)), "residual");
        SetNumMeasurements(static_cast<int>(first.Size()));
        sigma_ = Vector(static_cast<int>(first.Size()));
        std::fill_n(sigma_.Data(), first.Size(), 1.0);
    }

    void SetStdDev(const py::object& sigma) { sigma_ = ReadVector(sigma, "sigma", GetNumMeasurements()); }

    Vector Error(const Vector& params) override
    {
        return ReadVector(residual_(ToArray(params)), "residual", GetNumMeasurements());
    }
    Vector StdDev() override { return sigma_; }
    Matrix Jacobian(const Vector& freeParams) override
    {
        if (jacobian_.is_none()) return CNLSObjectiveFunction::Jacobian(freeParams);
        const Matrix all = ReadMatrix(jacobian_(ToArray(BuildParamsFromFree(freeParams))), "jacobian",
                                      GetNumMeasurements(), GetNumParams());
        const Matrix& K = GetEqualityConstraintsKernel();
        Matrix free(GetNumMeasurements(), static_cast<int>(K.Cols()) - 1);
        for (int r = 0; r < GetNumMeasurements(); ++r)
            for (int c = 0; c + 1 < static_cast<int>(K.Cols()); ++c)
                for (int k = 0; k < GetNumParams(); ++k) free(r, c) += all(r, k) * K(k, c + 1);
        return free;
    }

private:
    py::object residual_;
    py::object jacobian_;
    Vector sigma_;
};

void AddBounds(Problem& problem, const py::object& bounds)
{
    if (bounds.is_none()) return;
    const int n = problem.GetNumParams();
    const Matrix limits = ReadMatrix(bounds, "bounds", n, 2);
    for (int i = 0; i < n; ++i) {
        if (std::isnan(limits(i, 0)) || std::isnan(limits(i, 1))) throw py::value_error("bounds: must be numbers");
        if (!std::isinf(limits(i, 0))) problem.AddLowerBound(i, limits(i, 0));
        if (!std::isinf(limits(i, 1))) problem.AddUpperBound(i, limits(i, 1));
    }
}

/// The two members of a constraint: a matrix and the right-hand side.
std::pair<Matrix, Vector> ReadSystem(const py::object& argument, const char* name, int n)
{
    const std::string argumentName = name;
    if (!py::isinstance<py::tuple>(argument) || py::len(argument) != 2)
        throw py::type_error(argumentName + ": must be a tuple (matrix, right-hand side)");
    const auto pair = argument.cast<py::tuple>();
    Matrix lhs = ReadMatrix(pair[0], (argumentName + "[0]").c_str(), -1, n);
    Vector rhs = ReadVector(pair[1], (argumentName + "[1]").c_str(), static_cast<py::ssize_t>(lhs.Rows()));
    return {std::move(lhs), std::move(rhs)};
}

void AddSystems(Problem& problem, const py::object& equalities, const py::object& inequalities)
{
    const int n = problem.GetNumParams();
    if (!equalities.is_none()) {
        const auto [lhs, rhs] = ReadSystem(equalities, "equalities", n);
        if (!problem.SetEqualities(lhs, rhs))
            throw py::value_error("equalities: contradict each other or are not finite");
    }
    if (inequalities.is_none()) return;
    const auto [lhs, rhs] = ReadSystem(inequalities, "inequalities", n);
    for (int r = 0; r < static_cast<int>(lhs.Rows()); ++r) {
        Vector row(n);
        for (int c = 0; c < n; ++c) row[c] = lhs(r, c);
        problem.AddInequality(row, rhs[r]);
    }
}

struct Fit {
    py::array_t<double> parameters;
    double rmse;
    CNLSSolver::EResult result;
    py::array_t<double> covariance;
};

Fit Solve(const py::object& residual, const py::object& start, const py::object& sigma, const py::object& jacobian,
          const py::object& bounds, const py::object& equalities, const py::object& inequalities, bool robust,
          bool refinement, int maxIterations, double tau, int multistarts, const std::string& sampler)
{
    if (sampler != "gibbs" && sampler != "hit-and-run")
        throw py::value_error("sampler: must be gibbs or hit-and-run, is " + sampler);
    Vector params = ReadVector(start, "start");
    Problem problem(residual, jacobian, params);
    if (!sigma.is_none()) problem.SetStdDev(sigma);
    AddBounds(problem, bounds);
    AddSystems(problem, equalities, inequalities);
    CNLSSolver solver(problem, robust, 0);
    solver.SetLogging(false);
    solver.SetRefinement(refinement);
    double rmse = 0.0;
    const CNLSSolver::EResult result = solver.Run(params, rmse, maxIterations, tau, multistarts,
                                                  sampler == "gibbs" ? CNLSSolver::Gibbs : CNLSSolver::HitAndRun);
    // Stated deviations are absolute; without them the residuals determine the scale.
    double scale = 1.0;
    if (sigma.is_none()) {
        const double m = problem.GetNumMeasurements(),
                     k = static_cast<double>(problem.GetFreeVariablesIndices().Size());
        scale = m > k ? rmse * std::sqrt(m / (m - k)) : std::numeric_limits<double>::quiet_NaN();
    }
    return {ToArray(params), rmse, result, ToArray(problem.GetCovariance(params, scale))};
}

} // namespace

void DefineNls(py::module_& m)
{
    py::class_<Fit>(m, "Fit", "The outcome of `nls_solve`. True when the fit converged.")
        .def_readonly("parameters", &Fit::parameters, "(n,) array of float64: the best fit.")
        .def_readonly("rmse", &Fit::rmse,
                      "float: root mean square of the unweighted residuals, in their unit; infinite when the fit could "
                      "not start.")
        .def_property_readonly(
            "result", [](const Fit& f) { return CNLSSolver::ResultText(f.result); },
            R"(str: why the fit stopped; (++) converged, (-) usable but doubtful, (--) failed.)")
        .def_readonly("covariance", &Fit::covariance, R"((n, n) array of float64, linearised at the fit.

`sigma` counts as absolute; without it the residuals determine the scale. Inequalities and robust weights are ignored;
rows and columns of parameters that are constant or undetermined are 0.)")
        .def(py::pickle(
            [](const Fit& f) { return py::make_tuple(f.parameters, f.rmse, static_cast<int>(f.result), f.covariance); },
            [](const py::tuple& s) {
                return Fit{s[0].cast<py::array_t<double>>(), s[1].cast<double>(),
                           static_cast<CNLSSolver::EResult>(s[2].cast<int>()), s[3].cast<py::array_t<double>>()};
            }))
        .def("__bool__", [](const Fit& f) { return f.result <= CNLSSolver::SmallStep; })
        .def("__repr__", [](const Fit& f) {
            return std::string("<Fit: ") + CNLSSolver::ResultText(f.result) + ", rmse " +
                   py::repr(py::float_(f.rmse)).cast<std::string>() + ">";
        });
    m.def("nls_solve", &Solve, py::arg("residual"), py::arg("start"), py::kw_only(), py::arg("sigma") = py::none(),
          py::arg("jacobian") = py::none(), py::arg("bounds") = py::none(), py::arg("equalities") = py::none(),
          py::arg("inequalities") = py::none(), py::arg("robust") = false, py::arg("refinement") = true,
          py::arg("max_iterations") = 100, py::arg("tau") = 1e-3, py::arg("multistarts") = 0,
          py::arg("sampler") = "gibbs",
          R"(Nonlinear least squares under linear constraints (damped Gauss-Newton).

Minimises the sum of (residual / sigma)^2. An exception in `residual` or `jacobian` ends the fit and reaches the caller.

Parameters
----------
residual : callable
    Takes an (n,) array of float64 and returns m residuals as an array of float64 or float32.
start : (n,) array
    Parameters that the fit starts from.
sigma : (m,) array, optional
    Standard deviations of the measurements, in their unit. Default: all 1.
jacobian : callable, optional
    Takes what `residual` takes and returns the (m, n) derivatives. Default: finite differences, with four calls of
    `residual` per free parameter.
bounds : (n, 2) array, optional
    Smallest and largest value of each parameter; infinite: none.
equalities : (E, e), optional
    E p = e, E of shape (k, n).
inequalities : (A, b), optional
    A p <= b, A of shape (k, n).
robust : bool, default False
    Weight the residuals by Tukey's biweight, so that outliers count little. Start from the result of a plain fit.
refinement : bool, default True
    Continue to the minimum where the plain iteration stops short of it: at bounds and other inequalities, and with
    robust weights. False: the plain iteration alone.
max_iterations : int, default 100
    Largest number of iterations of one fit.
tau : float, default 1e-3
    Initial damping, relative; 1e-6 suits a start near the minimum.
multistarts : int, default 0
    Additional fits from random starts within the bounds and inequalities; the best fit is returned.
sampler : {"gibbs", "hit-and-run"}, default "gibbs"
    How these starts are drawn.

Returns
-------
Fit)");
}

} // namespace voalgo::python
