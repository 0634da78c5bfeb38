#include "values.h"

#include "VoAlgorithms/verdict/localframes.h"
#include "arrays.h"
#include "configuration.h"
#include "exchange/report/outcome.h"

#include <pybind11/stl.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace voalgo::python {

using namespace pybind11::literals;
using Json = nlohmann::ordered_json;
using prereg::JudgedTrafo;

namespace {

/// Names of files need not be UTF-8.
py::object TextOf(const std::string& text)
{
    return py::reinterpret_steal<py::object>(
        PyUnicode_DecodeUTF8(text.data(), static_cast<py::ssize_t>(text.size()), "surrogateescape"));
}

py::array_t<float> ArrayOf(const prereg::Ellipsoid& e)
{
    return CopyVectors({e[0], e[1], e[2], e[3]});
}

py::tuple RefusalState(const prereg::Refusal& refusal)
{
    return py::make_tuple(static_cast<std::int32_t>(refusal.code), refusal.text);
}

prereg::Refusal RefusalOf(const py::tuple& state)
{
    return {static_cast<prereg::ERefusal>(state[0].cast<std::int32_t>()), state[1].cast<std::string>()};
}

py::tuple TestState(const prereg::AcceptanceTest& t)
{
    return py::make_tuple(static_cast<int>(t.test), static_cast<int>(t.stage), t.value, t.limit,
                          static_cast<int>(t.outcome));
}

prereg::AcceptanceTest TestOf(const py::tuple& state)
{
    prereg::AcceptanceTest t;
    t.test = static_cast<prereg::ETest>(state[0].cast<int>());
    t.stage = static_cast<prereg::EStage>(state[1].cast<int>());
    t.value = state[2].cast<double>();
    t.limit = state[3].cast<double>();
    t.outcome = static_cast<prereg::EOutcome>(state[4].cast<int>());
    return t;
}

template <class T>
py::list StatesOf(const std::vector<T>& items, py::tuple (*stateOf)(const T&))
{
    py::list states;
    for (const T& item : items) states.append(stateOf(item));
    return states;
}

std::vector<JudgedTrafo> ResultsOf(const py::handle& states)
{
    std::vector<JudgedTrafo> results;
    for (const py::handle state : states) results.push_back(JudgedOf(state.cast<py::tuple>()));
    return results;
}

py::tuple SettingsState(const prereg::RegistrationSettings& s)
{
    return py::make_tuple(FieldsOf(s.config), FieldsOf(s.config.icpConfig), FieldsOf(s.verification),
                          FieldsOf(s.verification.icp), s.workingSpacing, s.resolution);
}

prereg::RegistrationSettings SettingsOf(const py::tuple& state)
{
    prereg::RegistrationSettings s;
    TakeFields(state[0], s.config);
    TakeFields(state[1], s.config.icpConfig);
    TakeFields(state[2], s.verification);
    TakeFields(state[3], s.verification.icp);
    s.workingSpacing = state[4].cast<double>();
    s.resolution = state[5].cast<double>();
    return s;
}

} // namespace

py::object ValueOf(const Json& json)
{
    switch (json.type()) {
    case Json::value_t::boolean:
        return py::bool_(json.get<bool>());
    case Json::value_t::number_integer:
        return py::int_(json.get<std::int64_t>());
    case Json::value_t::number_unsigned:
        return py::int_(json.get<std::uint64_t>());
    case Json::value_t::number_float:
        if (std::isnan(json.get<double>())) return py::none();
        return py::float_(json.get<double>());
    case Json::value_t::string:
        return TextOf(json.get_ref<const std::string&>());
    case Json::value_t::array: {
        py::list list;
        for (const Json& item : json) list.append(ValueOf(item));
        return list;
    }
    case Json::value_t::object: {
        py::dict dict;
        for (const auto& [key, value] : json.items()) dict[key.c_str()] = ValueOf(value);
        return dict;
    }
    default:
        return py::none();
    }
}

Result::Result(const JudgedTrafo& judged, const std::array<double, 3>& fixOrigin_,
               const std::array<double, 3>& fltOrigin)
    : JudgedTrafo(judged), pose(prereg::PoseOfCoordinates(judged.trafo, fixOrigin_, fltOrigin)), fixOrigin(fixOrigin_)
{
    trafo = pose;
}

py::array_t<double> Result::Ellipsoid() const
{
    py::array_t<double> array({4, 3});
    auto at = array.mutable_unchecked<2>();
    for (int i = 0; i < 4; ++i)
        for (unsigned k = 0; k < 3; ++k) at(i, k) = double{ellipsoid[i][k]} + (resultType == 0 ? fixOrigin[k] : 0.0);
    return array;
}

py::dict ToDict(const Result& r)
{
    py::dict dict = ValueOf(ToJson(r, InUnit(r.pose, {})));
    dict["objection"] = r.objection.text;
    dict["objectionCode"] = CodeOf(r.objection.code);
    dict["ellipsoid"] = r.Ellipsoid().attr("tolist")();
    return dict;
}

py::dict ToDict(const prereg::RegistrationSettings& s)
{
    py::dict verification = FieldsOf(s.verification);
    verification[prereg::IcpKey] = FieldsOf(s.verification.icp);
    return py::dict("resolution"_a = s.resolution, "workingSpacing"_a = s.workingSpacing, "config"_a = ToDict(s.config),
                    "verification"_a = verification);
}

py::tuple StateOf(const JudgedTrafo& r)
{
    return py::make_tuple(MatrixOf(r.trafo), ArrayOf(r.ellipsoid), r.resultType, r.clusterSize,
                          FieldsOf(static_cast<const prereg::ICPResult&>(r)), RefusalState(r.objection),
                          StatesOf(r.tests, &TestState));
}

py::tuple StateOf(const Result& r)
{
    return py::make_tuple(StateOf(static_cast<const JudgedTrafo&>(r)), MatrixOf(r.pose), r.fixOrigin);
}

Result ResultOf(const py::tuple& state)
{
    Result r;
    static_cast<JudgedTrafo&>(r) = JudgedOf(state[0]);
    r.pose = ReadStoredPose(state[1]);
    r.fixOrigin = state[2].cast<std::array<double, 3>>();
    return r;
}

JudgedTrafo JudgedOf(const py::tuple& state)
{
    JudgedTrafo r;
    r.trafo = ReadStoredPose(state[0]);
    const std::vector<Vec3> e = ReadVectors(state[1], "ellipsoid");
    r.ellipsoid = {e.at(0), e.at(1), e.at(2), e.at(3)};
    r.resultType = state[2].cast<std::int32_t>();
    r.clusterSize = state[3].cast<std::uint32_t>();
    TakeFields(state[4], static_cast<prereg::ICPResult&>(r));
    r.objection = RefusalOf(state[5]);
    for (const py::handle test : state[6]) r.tests.push_back(TestOf(test.cast<py::tuple>()));
    return r;
}

py::tuple StateOf(const prereg::Registration& r)
{
    const auto& s = r.statistics;
    return py::make_tuple(
        StatesOf<JudgedTrafo>(r.results, &StateOf), StatesOf<JudgedTrafo>(r.refused, &StateOf), RefusalState(r.refusal),
        py::make_tuple(s.uiNumPolygons, s.uiNumProposals, s.uiNumSuccessful, s.uiNumFailed, s.failures),
        SettingsState(r.settings), r.isRefinement,
        py::make_tuple(r.seconds.settings, r.seconds.features, r.seconds.search), r.fixOrigin, r.fltOrigin);
}

prereg::Registration RegistrationOf(const py::tuple& state)
{
    prereg::Registration r;
    r.results = ResultsOf(state[0]);
    r.refused = ResultsOf(state[1]);
    r.refusal = RefusalOf(state[2]);
    const py::tuple s = state[3];
    r.statistics = {s[0].cast<std::uint32_t>(), s[1].cast<std::uint32_t>(), s[2].cast<std::uint32_t>(),
                    s[3].cast<std::uint32_t>(), s[4].cast<decltype(r.statistics.failures)>()};
    r.settings = SettingsOf(state[4]);
    r.isRefinement = state[5].cast<bool>();
    const py::tuple seconds = state[6];
    r.seconds = {seconds[0].cast<double>(), seconds[1].cast<double>(), seconds[2].cast<double>()};
    r.fixOrigin = state[7].cast<std::array<double, 3>>();
    r.fltOrigin = state[8].cast<std::array<double, 3>>();
    return r;
}

} // namespace voalgo::python
