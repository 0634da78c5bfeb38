#include "scalars.h"

#include <cmath>

namespace voalgo::python {

std::string TypeOf(const py::handle& object)
{
    return py::str(py::type::handle_of(object).attr("__name__")).cast<std::string>();
}

std::int64_t ReadWhole(const py::handle& argument, const std::string& name, std::int64_t smallest, std::int64_t largest)
{
    if (!PyIndex_Check(argument.ptr()) || PyBool_Check(argument.ptr()))
        throw py::type_error(name + ": must be a whole number, is " + TypeOf(argument));
    const auto number = py::reinterpret_steal<py::int_>(PyNumber_Index(argument.ptr()));
    if (!number) throw py::error_already_set();
    if (number < py::int_(smallest) || number > py::int_(largest))
        throw py::value_error(name + ": must lie between " + std::to_string(smallest) + " and " +
                              std::to_string(largest) + ", is " + py::repr(number).cast<std::string>());
    return number.cast<std::int64_t>();
}

double ReadReal(const py::handle& argument, const std::string& name)
{
    const double number = PyBool_Check(argument.ptr()) ? -1.0 : PyFloat_AsDouble(argument.ptr());
    if (PyErr_Occurred() == nullptr && !PyBool_Check(argument.ptr())) return number;
    PyErr_Clear();
    throw py::type_error(name + ": must be a number, is " + TypeOf(argument));
}

double ReadPositive(const py::handle& argument, const std::string& name)
{
    const double number = ReadReal(argument, name);
    const auto single = static_cast<float>(number);
    if (!(single > 0.0F) || !std::isfinite(single))
        throw py::value_error(name + ": must be greater than 0 and finite, is " +
                              py::repr(py::float_(number)).cast<std::string>());
    return number;
}

std::string ReadText(const py::handle& argument, const std::string& name)
{
    if (!py::isinstance<py::str>(argument)) throw py::type_error(name + ": must be a str, is " + TypeOf(argument));
    return argument.cast<std::string>();
}

} // namespace voalgo::python
