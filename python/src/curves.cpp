#include "VoAlgorithms/solvers/cnaturalspline.h"
#include "VoAlgorithms/solvers/cpolynomial.h"
#include "arrays.h"
#include "module.h"
#include "scalars.h"

#include <pybind11/complex.h>
#include <pybind11/operators.h>

#include <algorithm>
#include <complex>
#include <limits>
#include <string>
#include <vector>

namespace voalgo::python {

using Curve = VoAlgo::CNaturalSplineCurve;
using Polynomial = VoAlgo::CPolynomial;
using Spline = VoAlgo::CNaturalSpline;

namespace {

std::vector<double> ReadValues(const py::object& argument, const char* name)
{
    const Doubles values = ReadDoubles(argument, name, 0);
    return {values.data(), values.data() + values.shape(0)};
}

template <class T>
py::array_t<T> ToArray(const std::vector<T>& values)
{
    return py::array_t<T>(static_cast<py::ssize_t>(values.size()), values.data());
}

/// Anything but an array with dimensions or a sequence, so that a wrong type is refused as a number.
bool IsNumber(const py::object& argument)
{
    if (py::hasattr(argument, "ndim")) return argument.attr("ndim").cast<int>() == 0;
    return !py::isinstance<py::sequence>(argument) || py::isinstance<py::str>(argument);
}

/// f of a number, as a float; of an array, value by value, as an array.
template <class F>
py::object Map(const py::object& argument, const char* name, const F& f)
{
    if (IsNumber(argument)) {
        const double x = ReadReal(argument, name);
        double y = 0.0;
        f(&x, std::size_t{1}, &y);
        return py::float_(y);
    }
    const Doubles x = ReadDoubles(argument, name, 0);
    py::array_t<double> y(x.shape(0));
    const double* in = x.data();
    double* out = y.mutable_data();
    {
        const py::gil_scoped_release release;
        f(in, static_cast<std::size_t>(x.shape(0)), out);
    }
    return y;
}

Spline MakeSpline(const py::object& x, const py::object& y)
{
    return {ReadValues(x, "x"), ReadValues(y, "y")};
}

Spline MakePeriodic(const py::object& x, const py::object& y)
{
    return Spline::Periodic(ReadValues(x, "x"), ReadValues(y, "y"));
}

Spline MakeSmoothing(const py::object& x, const py::object& y, const Real& lambda, const py::object& weights)
{
    return Spline::Smoothing(ReadValues(x, "x"), ReadValues(y, "y"), ReadReal(lambda, "smoothing"),
                             weights.is_none() ? std::vector<double>() : ReadValues(weights, "weights"));
}

py::object SplineValues(const Spline& spline, const py::object& x)
{
    return Map(x, "x", [&](const double* in, std::size_t n, double* out) { spline.Values(in, n, out); });
}

int ReadOrder(const Whole& order)
{
    return static_cast<int>(ReadWhole(order, "order", 1, 2));
}

py::object SplineDerivative(const Spline& spline, const py::object& x, const Whole& orderArgument)
{
    const int order = ReadOrder(orderArgument);
    return Map(x, "x", [&](const double* in, std::size_t n, double* out) {
        std::transform(in, in + n, out, [&](double at) { return spline.Derivative(at, order); });
    });
}

double SplineIntegral(const Spline& spline, const Real& a, const Real& b)
{
    return spline.Integral(ReadReal(a, "a"), ReadReal(b, "b"));
}

/// None stands for the end of the spline.
double ReadEnd(const py::object& argument, const char* name, double end)
{
    return argument.is_none() ? end : ReadReal(argument, name);
}

py::array_t<double> SplineRoots(const Spline& spline, const py::object& from, const py::object& to)
{
    return ToArray(spline.Roots(ReadEnd(from, "a", spline.Begin()), ReadEnd(to, "b", spline.End())));
}

py::tuple SplineExtrema(const Spline& spline, const py::object& from, const py::object& to)
{
    const auto extrema = spline.Extrema(ReadEnd(from, "a", spline.Begin()), ReadEnd(to, "b", spline.End()));
    const auto n = static_cast<py::ssize_t>(extrema.size());
    py::array_t<double> x(n), y(n);
    py::array_t<bool> isMaximum(n);
    for (std::size_t i = 0; i < extrema.size(); ++i) {
        x.mutable_data()[i] = extrema[i].x;
        y.mutable_data()[i] = extrema[i].y;
        isMaximum.mutable_data()[i] = extrema[i].isMaximum;
    }
    return py::make_tuple(x, y, isMaximum);
}

Curve MakeCurve(const py::object& pointsArgument, const py::object& parameters, bool isClosed)
{
    const Doubles values = ReadDoubles(pointsArgument, "points", -1);
    if (std::max(values.shape(0), values.shape(1)) > std::numeric_limits<int>::max())
        throw py::value_error("points: too large");
    const auto rows = static_cast<int>(values.shape(0)), columns = static_cast<int>(values.shape(1));
    VoAlgo::TMatrix<double> points(rows, columns);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < columns; ++c) points(r, c) = values.at(r, c);
    if (parameters.is_none()) return Curve(points, isClosed);
    return {points, ReadValues(parameters, "parameters"), isClosed};
}

/// The coordinates at a number, as a vector; at every number of an array, as rows. f gives one coordinate of many
/// places.
template <class F>
py::array_t<double> MapToPoints(const Curve& curve, const py::object& argument, const F& f)
{
    const bool isNumber = IsNumber(argument);
    const std::vector<double> t = isNumber ? std::vector<double>{ReadReal(argument, "t")} : ReadValues(argument, "t");
    const std::size_t d = curve.Dimension();
    py::array_t<double> points({static_cast<py::ssize_t>(t.size()), static_cast<py::ssize_t>(d)});
    double* out = points.mutable_data();
    {
        const py::gil_scoped_release release;
        std::vector<double> column(t.size());
        for (std::size_t k = 0; k < d; ++k) {
            f(curve.Coordinate(k), t, column);
            for (std::size_t i = 0; i < t.size(); ++i) out[i * d + k] = column[i];
        }
    }
    return isNumber ? points.reshape({static_cast<py::ssize_t>(d)}) : points;
}

py::array_t<double> CurvePoints(const Curve& curve, const py::object& argument)
{
    return MapToPoints(curve, argument, [](const Spline& s, const std::vector<double>& t, std::vector<double>& out) {
        s.Values(t.data(), t.size(), out.data());
    });
}

py::array_t<double> CurveDerivative(const Curve& curve, const py::object& argument, const Whole& orderArgument)
{
    const int order = ReadOrder(orderArgument);
    return MapToPoints(
        curve, argument, [order](const Spline& s, const std::vector<double>& t, std::vector<double>& out) {
            std::transform(t.begin(), t.end(), out.begin(), [&](double at) { return s.Derivative(at, order); });
        });
}

py::object PolynomialValues(const Polynomial& p, const py::object& x, bool isCompensated)
{
    return Map(x, "x", [&](const double* in, std::size_t n, double* out) {
        std::transform(in, in + n, out, [&](double at) { return isCompensated ? p.CompensatedValue(at) : p(at); });
    });
}

template <class F>
auto OrValueError(const F& f)
{
    try {
        return f();
    } catch (const std::domain_error& wrong) {
        throw py::value_error(wrong.what());
    }
}

void DefineSplines(py::module_& m)
{
    py::class_<Spline>(m, "NaturalSpline", R"(The natural cubic spline through points.

Of all functions through them the one that bends least; straight beyond the ends.

Parameters
----------
x : (n,) array
    Strictly ascending; at least two.
y : (n,) array)")
        .def(py::init(&MakeSpline), py::arg("x"), py::arg("y"))
        .def_static(
            "periodic", &MakePeriodic, py::arg("x"), py::arg("y"),
            "The spline through at least three points that repeats beyond the ends; the last y equals the first.")
        .def_static("smoothing", &MakeSmoothing, py::arg("x"), py::arg("y"), py::arg("smoothing"),
                    py::arg("weights") = py::none(),
                    R"(The natural spline that minimises sum(weights * (y - s(x))**2) + smoothing * integral of s''**2.

Parameters
----------
x, y : (n,) arrays
smoothing : float
    0: through the points; large: nearly the least-squares line.
weights : (n,) array, optional
    Positive, the inverse variances of y; default 1.)")
        .def_property_readonly("begin", &Spline::Begin, "float: the first x.")
        .def_property_readonly("end", &Spline::End, "float: the last x.")
        .def("__call__", &SplineValues, py::arg("x"),
             "The value at a number, or the values at the numbers of a 1-d array; ascending ones are fastest.")
        .def("derivative", &SplineDerivative, py::arg("x"), py::arg("order") = 1,
             "The first or second derivative at a number or at the numbers of a 1-d array.")
        .def("integral", &SplineIntegral, py::arg("a"), py::arg("b"), "The integral from a to b.")
        .def("roots", &SplineRoots, py::arg("a") = py::none(), py::arg("b") = py::none(),
             "Where the spline is 0 from a (default: begin) to b (default: end), ascending: (k,) array of float64.")
        .def("extrema", &SplineExtrema, py::arg("a") = py::none(), py::arg("b") = py::none(),
             R"(Minima and maxima between a (default: begin) and b (default: end), ascending.

Returns
-------
x, y : (k,) arrays of float64
is_maximum : (k,) array of bool)");

    py::class_<Curve>(m, "NaturalSplineCurve", R"(A curve through points whose coordinates are cubic splines.

Parameters
----------
points : (n, d) array
    At least two; neighbours differ.
parameters : (n,) array, optional
    Strictly ascending; one more for a closed curve. Default: the length of the polygon up to each point.
closed : bool, default False
    Whether the curve returns to the first point, which is not repeated.)")
        .def(py::init(&MakeCurve), py::arg("points"), py::arg("parameters") = py::none(), py::arg("closed") = false)
        .def_property_readonly("begin", &Curve::Begin, "float: the first parameter.")
        .def_property_readonly("end", &Curve::End, "float: the last parameter.")
        .def_property_readonly("dimension", &Curve::Dimension, "int: coordinates of a point.")
        .def("__call__", &CurvePoints, py::arg("t"),
             "The point at a parameter, (d,) array; at the parameters of a 1-d array, (n, d) array.")
        .def("derivative", &CurveDerivative, py::arg("t"), py::arg("order") = 1,
             "The first or second derivative by the parameter, shaped as the points are.");
}

} // namespace

void DefineCurves(py::module_& m)
{
    DefineSplines(m);
    py::class_<Polynomial>(m, "Polynomial", R"(A polynomial with real coefficients.

Supports ==, +, -, * (also by a number) and divmod.

Parameters
----------
coefficients : (n,) array
    In ascending order of the powers; finite.)")
        .def(py::init([](const py::object& ascending) { return Polynomial(ReadValues(ascending, "coefficients")); }),
             py::arg("coefficients"))
        .def_property_readonly(
            "coefficients", [](const Polynomial& p) { return ToArray(p.Coefficients()); },
            "(degree + 1,) array of float64, in ascending order of the powers.")
        .def_property_readonly("degree", &Polynomial::Degree, "int: -1 for the zero polynomial.")
        .def("__call__", &PolynomialValues, py::arg("x"), py::kw_only(), py::arg("compensated") = false,
             R"(The value at a number, or the values at the numbers of a 1-d array.

`compensated` computes as if in twice the working precision, at twice the cost.)")
        .def("derivative", &Polynomial::Derivative, "The first derivative.")
        .def("integral", &Polynomial::Integral, "The antiderivative that is 0 at 0.")
        .def("of", &Polynomial::Of, py::arg("inner"), "The polynomial x -> self(inner(x)).")
        .def(
            "roots", [](const Polynomial& p) { return OrValueError([&] { return ToArray(p.Roots()); }); },
            R"(All roots, up to degree 4: (degree,) array of complex128.

Real ones ascending, then conjugate pairs; a multiple root is repeated. Simple roots are accurate to about one unit in
the last place of their modulus.)")
        .def(
            "real_roots", [](const Polynomial& p) { return OrValueError([&] { return ToArray(p.RealRoots()); }); },
            "The real roots, ascending, up to degree 4: array of float64.")
        .def(py::self == py::self)
        .def(py::self + py::self)
        .def(py::self - py::self)
        .def(py::self * py::self)
        .def(py::self * double())
        .def(double() * py::self)
        .def("__divmod__", [](const Polynomial& p,
                              const Polynomial& divisor) { return OrValueError([&] { return p.DividedBy(divisor); }); })
        .def(py::pickle([](const Polynomial& p) { return py::make_tuple(ToArray(p.Coefficients())); },
                        [](const py::tuple& s) { return Polynomial(ReadValues(s[0], "coefficients")); }))
        .def("__repr__", [](const Polynomial& p) {
            return "Polynomial(" + py::repr(py::list(ToArray(p.Coefficients()))).cast<std::string>() + ")";
        });
}

} // namespace voalgo::python
