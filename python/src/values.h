#pragma once

#include "VoAlgorithms/numerics/cbmatrix4.h"
#include "VoAlgorithms/prereg/fields.h"
#include "VoAlgorithms/verdict/registration.h"

#include <nlohmann/json.hpp>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <array>

#include <type_traits>

/// What the library says of a registration as plain values, with the names and the codes that the tool's JSON has.
namespace voalgo::python {

namespace py = pybind11;

/// JSON as None, bool, int, float, str, list and dict; NaN becomes None, infinities stay.
py::object ValueOf(const nlohmann::ordered_json& json);

/// A result with its pose in the frames of the coordinates; Python's Result. Its trafo, too, is that pose, in single
/// precision.
struct Result : prereg::JudgedTrafo {
    VoAlgo::CbMatrix4Rd pose;
    std::array<double, 3> fixOrigin = {}; ///< of the ellipsoid, mm

    Result() = default;
    Result(const prereg::JudgedTrafo& judged, const std::array<double, 3>& fixOrigin_,
           const std::array<double, 3>& fltOrigin);
    [[nodiscard]] py::array_t<double> Ellipsoid() const;
};

/// The tool's figures of a result, and what speaks against it.
py::dict ToDict(const Result& result);
/// "resolution", "workingSpacing", "config" and "verification".
py::dict ToDict(const prereg::RegistrationSettings& settings);

/// The fields of a record as a dict, and back.
template <class Record>
py::dict FieldsOf(const Record& record)
{
    py::dict dict;
    prereg::VisitFields(record, [&](const prereg::FieldInfo& info, const auto& field) { dict[info.key] = field; });
    return dict;
}
template <class Record>
void TakeFields(const py::dict& dict, Record& record)
{
    prereg::VisitFields(record, [&](const prereg::FieldInfo& info, auto& field) {
        field = dict[info.key].template cast<std::remove_reference_t<decltype(field)>>();
    });
}

/// What pickles keep of a result, and the way back.
py::tuple StateOf(const Result& result);
Result ResultOf(const py::tuple& state);
py::tuple StateOf(const prereg::JudgedTrafo& result);
prereg::JudgedTrafo JudgedOf(const py::tuple& state);
/// The same of a registration without its point sets.
py::tuple StateOf(const prereg::Registration& registration);
prereg::Registration RegistrationOf(const py::tuple& state);

} // namespace voalgo::python
