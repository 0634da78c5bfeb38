#include "arrays.h"
#include "configuration.h"
#include "module.h"
#include "values.h"

#include <string>
#include <type_traits>

namespace voalgo::python {

using ResultClass = py::class_<Result>;

namespace {

py::list TestsOf(const Result& result)
{
    return ToDict(result)["tests"];
}

/// The figures that the library lists, under their own names.
void DefineFigures(ResultClass& result)
{
    const prereg::ICPResult any;
    prereg::VisitFields(any, [&](const prereg::FieldInfo& info, const auto& figure) {
        const bool isWhole = std::is_integral_v<std::remove_cvref_t<decltype(figure)>>;
        const std::string unit = UnitInWords(info);
        const std::string help =
            std::string(isWhole ? "int" : "float") + (unit.empty() ? "" : ", " + unit) + ": " + info.meaning + '.';
        result.def_property_readonly(
            info.key,
            [key = info.key](const Result& r) {
                return FieldsOf(static_cast<const prereg::ICPResult&>(r))[key].cast<py::object>();
            },
            help.c_str());
    });
}

std::string Represent(const Result& r)
{
    return "<Result: " + (r.objection ? "refused: " + r.objection.text : r.ToString(true)) + ">";
}

} // namespace

void DefineResult(py::module_& m)
{
    ResultClass result(m, "Result", R"(A pose with the figures of its refinement and the verdict on it.

True when the pose passed every test. `pose`, `overlap` and `rmse` are what most callers need; all other figures have
the names that they have in the library, in documents and in the tool's JSON.)");
    result
        .def_property_readonly(
            "pose", [](const Result& r) { return MatrixOf(r.pose); },
            "(4, 4) array of float64: homogeneous matrix that maps flt into the frame of fix, millimetres.")
        .def_property_readonly(
            "overlap", [](const Result& r) { return r.fStop_OverlapRatio; },
            "float: share of flt that lies on fix, 0 to 1 (fStop_OverlapRatio).")
        .def_property_readonly(
            "rmse", [](const Result& r) { return r.fStop_RMSE; },
            "float: root mean square distance of the matched points, millimetres (fStop_RMSE).")
        .def_readonly(
            "trafo", &Result::trafo,
            "Trafo: the same pose in single precision; moves points by `trafo.apply`. Far from 0, use `pose`.")
        .def_property_readonly(
            "objection", [](const Result& r) { return r.objection.text; },
            "str: why the pose was refused; empty when it was not.")
        .def_property_readonly(
            "objection_code", [](const Result& r) { return CodeOf(r.objection.code); },
            "str: the same as a stable identifier, such as \"rmse_too_large\".")
        .def_property_readonly("tests", &TestsOf, R"(list of dict: the acceptance tests, as far as they were run.

Each has a stable "code", a "name", the "stage" of the registration, "value", "limit" and "unit", whether the limit
"isAtMost", the "setting" that states the limit, and the "outcome": "passed", "failed" or "not run".)")
        .def_readonly("clusterSize", &Result::clusterSize, "int: number of proposals that led to the pose.")
        .def_readonly("resultType", &Result::resultType, R"(int: outcome of the refinement.

-1 nothing was refined, 0 success, 1 too few pairs at the start, 2 pairs disagree at the start, 3 mismatched normals
while iterating, 4 too few pairs while iterating, 5 pairs disagree while iterating, 6 moved too far from the starting
pose, 7 mismatched normals or too small a small/big ratio at the end, 8 overlap too small, 9 RMSE too large.)")
        .def_property_readonly(
            "ellipsoid", [](const Result& r) { return r.Ellipsoid(); },
            "(4, 3) array of float64: flt's ellipsoid moved by the pose, millimetres; zero unless resultType is 0.");
    DefineFigures(result);
    result
        .def(
            "to_dict", [](const Result& r) { return ToDict(r); },
            R"(Everything as plain values, as in the tool's JSON.

Returns
-------
dict
    The pose as four rows of four numbers under "pose"; in millimetres.)")
        .def("__bool__", [](const Result& r) { return !r.objection; })
        .def(
            "__eq__", [](const Result& a, const Result& b) { return ToDict(a).equal(ToDict(b)); }, py::is_operator())
        .def(py::pickle([](const Result& r) { return StateOf(r); }, &ResultOf))
        .def("__str__", [](const Result& r) { return r.ToString(false); })
        .def("__repr__", &Represent);
}

} // namespace voalgo::python
