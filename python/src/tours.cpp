#include "VoAlgorithms/solvers/ctspsolver.h"
#include "arrays.h"
#include "module.h"
#include "scalars.h"

#include <limits>
#include <optional>
#include <stdexcept>
#include <string>

namespace voalgo::python {

using VoAlgo::CTSPSolver;

namespace {

/// The library names its class first; a caller knows the argument.
template <class Make>
CTSPSolver Named(const char* name, Make make)
{
    try {
        return make();
    } catch (const std::invalid_argument& error) {
        const std::string text = error.what();
        throw py::value_error(name + text.substr(text.find(':')));
    }
}

CTSPSolver FromPoints(const py::object& points)
{
    const Doubles rows = ReadDoubles(points, "points", -1);
    const auto v = rows.unchecked<2>();
    if (v.shape(1) != 2 && v.shape(1) != 3)
        throw py::value_error("points: must have 2 or 3 columns, has " + std::to_string(v.shape(1)));
    std::vector<Vec3> places;
    for (py::ssize_t i = 0; i < v.shape(0); ++i)
        places.emplace_back(static_cast<float>(v(i, 0)), static_cast<float>(v(i, 1)),
                            v.shape(1) == 3 ? static_cast<float>(v(i, 2)) : 0.0F);
    return Named("points", [&] { return CTSPSolver(places); });
}

CTSPSolver FromDistances(const py::object& distances)
{
    const Doubles rows = ReadDoubles(distances, "distances", -1);
    const auto v = rows.unchecked<2>();
    VoAlgo::TMatrix<double> matrix(v.shape(0), v.shape(1));
    for (py::ssize_t c = 0; c < v.shape(1); ++c)
        for (py::ssize_t r = 0; r < v.shape(0); ++r) matrix(r, c) = v(r, c);
    return Named("distances", [&] { return CTSPSolver(matrix); });
}

std::uint32_t ReadCity(const py::handle& city, const CTSPSolver& solver, const char* name)
{
    return static_cast<std::uint32_t>(ReadWhole(city, name, 0, std::int64_t{solver.NumCities()} - 1));
}

py::tuple Solve(CTSPSolver solver, const py::bool_& closed, const py::object& first, const py::object& last,
                const py::object& neighbours, const Whole& rounds)
{
    const auto end = [&](const py::object& city, const char* name) {
        return city.is_none() ? std::nullopt : std::make_optional(ReadCity(city, solver, name));
    };
    solver.SetClosed(closed);
    if (closed && !(first.is_none() && last.is_none())) throw py::value_error("first, last: a closed tour has no ends");
    const std::optional<unsigned> begins = end(first, "first"), ends = end(last, "last");
    if (begins && begins == ends && solver.NumCities() > 1) throw py::value_error("last: must differ from first");
    solver.SetEnds(begins, ends);
    for (const py::handle pair : neighbours) {
        const auto cities = py::reinterpret_borrow<py::object>(pair);
        if (!py::isinstance<py::sequence>(cities) || py::len(cities) != 2)
            throw py::type_error("neighbours: must be pairs of cities");
        const unsigned a = ReadCity(py::object(cities[py::int_(0)]), solver, "neighbours"),
                       b = ReadCity(py::object(cities[py::int_(1)]), solver, "neighbours");
        if (a == b) throw py::value_error("neighbours: both cities are " + std::to_string(a));
        solver.RequireNeighbours(a, b);
    }
    solver.SetRounds(ReadCount(rounds, "rounds"));
    solver.SetCallback([](unsigned, double) { // lets the interpreter raise KeyboardInterrupt
        const py::gil_scoped_acquire acquire;
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
        return true;
    });
    std::vector<unsigned> tour;
    double bound = 0.0;
    {
        const py::gil_scoped_release release;
        tour = solver.Solve();
        bound = solver.GetLowerBound();
    }
    return py::make_tuple(py::array_t<unsigned>(static_cast<py::ssize_t>(tour.size()), tour.data()), solver.GetLength(),
                          bound);
}

} // namespace

void DefineTours(py::module_& m)
{
    m.def(
        "tour",
        [](const py::object& points, const py::bool_& closed, const py::object& first, const py::object& last,
           const py::object& neighbours,
           const Whole& rounds) { return Solve(FromPoints(points), closed, first, last, neighbours, rounds); },
        py::arg("points"), py::kw_only(), py::arg("closed") = true, py::arg("first") = py::none(),
        py::arg("last") = py::none(), py::arg("neighbours") = py::tuple(), py::arg("rounds") = 1000,
        R"(A short tour through points (the travelling salesman's problem); the shortest up to 12 points.

Greedy edges, 2-opt, Or-opt and Lin-Kernighan moves, then random local changes. Equal input gives equal tours.

Parameters
----------
points : (n, 2) or (n, 3) array
    Rounded to single precision.
closed : bool, default True
    Whether to return to the first point.
first, last : int, optional
    Where an open path begins and ends. Default: where it pays most.
neighbours : sequence of pairs of int, default ()
    Points that must follow each other, in either order.
rounds : int, default 1000
    Random local changes to try, 0.1 to 0.3 ms each; as many as there are points are a good start.

Returns
-------
order : (n,) array of uint32
length : float
lower_bound : float
    No tour is shorter: length / lower_bound - 1 is the share by which this one may be too long.

Raises
------
ValueError
    When a coordinate is not finite, or no tour has all the neighbours.)");
    m.def(
        "tour_of_distances",
        [](const py::object& distances, const py::bool_& closed, const py::object& first, const py::object& last,
           const py::object& neighbours,
           const Whole& rounds) { return Solve(FromDistances(distances), closed, first, last, neighbours, rounds); },
        py::arg("distances"), py::kw_only(), py::arg("closed") = true, py::arg("first") = py::none(),
        py::arg("last") = py::none(), py::arg("neighbours") = py::tuple(), py::arg("rounds") = 1000,
        R"(As tour, with any distances instead of points.

Parameters
----------
distances : (n, n) array
    Symmetric, finite, not negative. The triangle inequality is not needed.

Raises
------
ValueError
    When the distances are not of that kind, or no tour has all the neighbours.)");
}

} // namespace voalgo::python
