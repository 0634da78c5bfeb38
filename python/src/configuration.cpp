#include "configuration.h"

#include "platform/format.h"
#include "scalars.h"
#include "values.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

namespace voalgo::python {

namespace py = pybind11;

namespace {

/// Reads the values of one dict.
class Reader {
public:
    /// `inside`: where the dict lies: empty, or a name and a dot.
    Reader(const py::dict& stated, std::string inside) : stated_(stated), inside_(std::move(inside)) {}

    void operator()(const prereg::FieldInfo& info, std::uint32_t& field)
    {
        if (const py::object value = Find(info.key)) field = ReadCount(value, inside_ + info.key);
    }
    void operator()(const prereg::FieldInfo& info, double& field)
    {
        const py::object value = Find(info.key);
        if (!value) return;
        field = ReadReal(value, inside_ + info.key);
        if (std::isnan(field)) throw py::value_error(inside_ + info.key + ": must not be NaN");
    }

    /// The value of a key, null when it is not stated.
    py::object Find(const char* key)
    {
        known_.emplace_back(key);
        return stated_.contains(key) ? py::object(stated_[key]) : py::object();
    }

    /// Refuses every key that was not asked for.
    void RequireKnownKeys() const
    {
        for (const auto& [key, value] : stated_) {
            const std::string name = py::str(key).cast<std::string>();
            if (std::find(known_.begin(), known_.end(), name) == known_.end())
                throw py::type_error(inside_ + name + ": no such setting; the nearest known one is " + inside_ +
                                     prereg::NearestKey(name, known_));
        }
    }

private:
    const py::dict& stated_;
    std::string inside_;
    std::vector<std::string> known_;
};

void ApplyDict(const py::dict& stated, const std::string& inside, prereg::ConfigurationICP& target)
{
    Reader reader(stated, inside);
    prereg::VisitFields(target, std::ref(reader));
    reader.RequireKnownKeys();
}

void ApplyDict(const py::dict& stated, const std::string& inside, prereg::ConfigurationFPFH& target)
{
    Reader reader(stated, inside);
    prereg::VisitFields(target, std::ref(reader));
    if (const py::object icp = reader.Find(prereg::IcpKey)) {
        if (!py::isinstance<py::dict>(icp))
            throw py::type_error(inside + prereg::IcpKey + ": must be a dict, is " + TypeOf(icp));
        ApplyDict(icp.cast<py::dict>(), inside + prereg::IcpKey + ".", target.icpConfig);
    }
    // A refinement's key at the outer level would get a misleading "nearest" answer.
    prereg::VisitFields(target.icpConfig, [&](const prereg::FieldInfo& info, const auto&) {
        if (stated.contains(info.key)) throw py::type_error(inside + info.key + ": belongs inside " + prereg::IcpKey);
    });
    reader.RequireKnownKeys();
}

template <class Config>
void ApplyBoth(const py::object& config, const py::dict& keywords, Config& target)
{
    if (!config.is_none()) {
        if (!py::isinstance<py::dict>(config)) throw py::type_error("config: must be a dict, is " + TypeOf(config));
        ApplyDict(config.cast<py::dict>(), "config.", target);
    }
    ApplyDict(keywords, "", target);
}

/// A line for each field with its type, and one with its meaning.
template <class Record>
std::string Describe(const Record& record, bool withDefaults)
{
    std::string text;
    prereg::VisitFields(record, [&](const prereg::FieldInfo& info, const auto& field) {
        const bool isWhole = std::is_integral_v<std::remove_cvref_t<decltype(field)>>;
        const std::string unit = UnitInWords(info), off = info.off;
        std::string meaning = info.meaning;
        meaning[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(meaning[0])));
        text += std::string(info.key) + (isWhole ? " : int" : " : float") + (unit.empty() ? "" : ", " + unit);
        if (withDefaults) text += VoAlgo::Format(", default %.4g", static_cast<double>(field));
        text += "\n    " + meaning + (off.empty() ? "" : std::string(isWhole ? "; 0: " : "; <= 0: ") + off) + ".\n";
    });
    return text;
}

} // namespace

py::dict ToDict(const prereg::ConfigurationICP& config)
{
    return FieldsOf(config);
}

py::dict ToDict(const prereg::ConfigurationFPFH& config)
{
    py::dict dict = FieldsOf(config);
    dict[prereg::IcpKey] = FieldsOf(config.icpConfig);
    return dict;
}

void Apply(const py::object& config, const py::dict& keywords, prereg::ConfigurationFPFH& target)
{
    ApplyBoth(config, keywords, target);
    prereg::RequireRanges(target);
}

void Apply(const py::object& config, const py::dict& keywords, prereg::ConfigurationICP& target)
{
    ApplyBoth(config, keywords, target);
    if (target.uiNumSamples < 1) throw py::value_error("uiNumSamples: must be at least 1");
}

std::string DescribeFields(const prereg::ConfigurationFPFH& defaults)
{
    return Describe(defaults, true);
}

std::string DescribeFields(const prereg::ConfigurationICP& defaults)
{
    return Describe(defaults, true);
}

std::string DescribeFields(const prereg::Verification& verification)
{
    return Describe(verification, false);
}

std::string UnitInWords(const prereg::FieldInfo& info)
{
    const std::string unit = info.unit;
    return unit == "mm" ? "millimetres" : unit == "mm2" ? "square millimetres" : unit == "rad" ? "radians" : "";
}

} // namespace voalgo::python
