#include "VoAlgorithms/solvers/cdoptimaldesign.h"
#include "VoAlgorithms/solvers/clpsolver.h"
#include "arrays.h"
#include "module.h"
#include "scalars.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>

namespace voalgo::python {

using VoAlgo::CDOptimalDesign;
using VoAlgo::CLPSolver;
using Vector = VoAlgo::TVector<double>;
using Matrix = VoAlgo::TMatrix<double>;

namespace {

constexpr auto Largest = std::numeric_limits<int>::max();

Vector ToVector(const Doubles& values)
{
    Vector v(static_cast<int>(values.shape(0)));
    std::copy_n(values.data(), values.shape(0), v.Data());
    return v;
}

Matrix ToMatrix(const Doubles& values, const char* name)
{
    if (values.shape(0) > Largest || values.shape(1) > Largest)
        throw py::value_error(std::string(name) + ": too large");
    const auto v = values.unchecked<2>();
    Matrix m(static_cast<int>(v.shape(0)), static_cast<int>(v.shape(1)));
    for (py::ssize_t c = 0; c < v.shape(1); ++c)
        for (py::ssize_t r = 0; r < v.shape(0); ++r) m(static_cast<int>(r), static_cast<int>(c)) = v(r, c);
    return m;
}

template <class T>
py::array_t<T> ToArray(const VoAlgo::TVector<T>& v)
{
    return py::array_t<T>(static_cast<py::ssize_t>(v.Size()), v.Data());
}

py::array_t<double> Programme(const py::object& a, const py::object& b, const py::object& c)
{
    const Doubles rows = ReadDoubles(a, "A", -1), limits = ReadDoubles(b, "b", 0), gain = ReadDoubles(c, "c", 0);
    RequireSameLength(static_cast<std::size_t>(rows.shape(0)), "A", static_cast<std::size_t>(limits.shape(0)), "b");
    if (gain.shape(0) != rows.shape(1))
        throw py::value_error("c: has " + std::to_string(gain.shape(0)) + " values, but A has " +
                              std::to_string(rows.shape(1)) + " columns");
    CLPSolver solver(ToMatrix(rows, "A"), ToVector(limits), ToVector(gain));
    bool isOptimal = false;
    {
        const py::gil_scoped_release release;
        isOptimal = solver.Run();
    }
    if (isOptimal) return ToArray(solver.GetSolution());
    switch (solver.GetStatus()) {
    case CLPSolver::Infeasible:
        throw py::value_error("A, b: no z satisfies all rows");
    case CLPSolver::Unbounded:
        throw py::value_error("A, b, c: c z is unbounded");
    case CLPSolver::BadInput:
        throw py::value_error("A, b, c: must be finite; b may be infinite");
    default:
        throw std::runtime_error("the programme is beyond double precision");
    }
}

py::tuple Design(const py::object& candidates, const Whole& size, const Whole& starts)
{
    const Doubles rows = ReadDoubles(candidates, "candidates", -1);
    const auto count = static_cast<int>(ReadWhole(size, "size", rows.shape(1), rows.shape(0)));
    const auto numStarts = static_cast<int>(ReadWhole(starts, "starts", 1, Largest));
    CDOptimalDesign design(ToMatrix(rows, "candidates"));
    design.SetLogging(false);
    VoAlgo::TVector<int> chosen;
    bool isChosen = false;
    {
        const py::gil_scoped_release release;
        isChosen = design.Run(count, chosen, numStarts);
    }
    if (!isChosen) throw py::value_error("candidates: do not determine the parameters, or are not finite");
    return py::make_tuple(ToArray(chosen), design.GetDeterminant());
}

} // namespace

void DefineSolvers(py::module_& m)
{
    m.def(
        "lp_solve", &Programme, py::arg("A"), py::arg("b"), py::arg("c"),
        R"(Linear programming: finds the z, free in sign, that maximises c z under A z <= b (two-phase simplex method).

Parameters
----------
A : (m, n) array
    One row per inequality; an equation takes two.
b : (m,) array
    Right-hand sides; a row whose right-hand side is infinite is ignored.
c : (n,) array
    Coefficients of the objective; pass -c to minimise.

Returns
-------
(n,) array of float64
    A vertex of the polyhedron, accurate to a few units in the last place.

Raises
------
ValueError
    When no z satisfies all rows, when c z is unbounded, or when A or c is not finite.
RuntimeError
    When double precision cannot separate the vertices.)");
    m.def("d_optimal_design", &Design, py::arg("candidates"), py::arg("size"), py::kw_only(), py::arg("starts") = 10,
          R"(Chooses a given number of measurements so that they determine the parameters best (D-optimal design).

Maximises det(sum of x x^T) over the chosen rows x by exchanges from several starts. No exchange of two rows improves
the result; occasionally a larger rearrangement would.

Parameters
----------
candidates : (m, n) array
    One row per possible measurement: its derivatives with respect to the n parameters, divided by its standard
    deviation.
size : int
    Number of measurements to choose, each at most once; n to m.
starts : int, default 10

Returns
-------
chosen : (size,) array of int32
    Indices of rows, ascending.
determinant : float

Raises
------
ValueError
    When no choice determines the parameters.)");
}

} // namespace voalgo::python
