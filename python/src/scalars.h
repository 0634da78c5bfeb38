#pragma once

#include <pybind11/pybind11.h>

#include <cstdint>
#include <limits>
#include <string>

/// Numbers and texts in. A wrong one raises a TypeError or ValueError that begins with its name.
namespace voalgo::python {

namespace py = pybind11;

inline bool IsAny(PyObject* /*object*/)
{
    return true;
}

// Argument types that accept any object, so that the readers below can refuse it by its name; signatures show the
// type that is wanted.
class Whole : public py::object {
    PYBIND11_OBJECT(Whole, object, IsAny)
};
class Real : public py::object {
    PYBIND11_OBJECT(Real, object, IsAny)
};
class Text : public py::object {
    PYBIND11_OBJECT(Text, object, IsAny)
};

/// The name of an object's type.
std::string TypeOf(const py::handle& object);

/// A whole number, of Python or numpy; no bool.
std::int64_t ReadWhole(const py::handle& argument, const std::string& name, std::int64_t smallest,
                       std::int64_t largest);
/// The same within 32 bits without sign.
inline std::uint32_t ReadCount(const py::handle& argument, const std::string& name, std::uint32_t smallest = 0)
{
    return static_cast<std::uint32_t>(ReadWhole(argument, name, smallest, std::numeric_limits<std::uint32_t>::max()));
}
/// A number, no bool; may be infinite or NaN.
double ReadReal(const py::handle& argument, const std::string& name);
/// A number greater than 0, also when rounded to single precision, and finite.
double ReadPositive(const py::handle& argument, const std::string& name);
std::string ReadText(const py::handle& argument, const std::string& name);

} // namespace voalgo::python

namespace pybind11::detail {

template <>
struct handle_type_name<voalgo::python::Whole> {
    static constexpr auto name = const_name("int");
};
template <>
struct handle_type_name<voalgo::python::Real> {
    static constexpr auto name = const_name("float");
};
template <>
struct handle_type_name<voalgo::python::Text> {
    static constexpr auto name = const_name("str");
};

} // namespace pybind11::detail
