#include "configuration.h"

#include "config_fields.h"
#include "scalars.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace voalgo::python {

namespace py = pybind11;

namespace {

/// Reads the values of one dict.
class Reader {
public:
    /// `inside`: where the dict lies: empty, or a name and a dot.
    Reader(const py::dict& stated, std::string inside) : stated_(stated), inside_(std::move(inside)) {}

    void operator()(const char* key, std::uint32_t& field)
    {
        if (const py::object value = Find(key)) field = ReadCount(value, inside_ + key);
    }
    void operator()(const char* key, double& field)
    {
        const py::object value = Find(key);
        if (!value) return;
        field = ReadReal(value, inside_ + key);
        if (std::isnan(field)) throw py::value_error(inside_ + key + ": must not be NaN");
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
                                     NearestKey(name, known_));
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
    VisitIcp(target, std::ref(reader));
    reader.RequireKnownKeys();
}

void ApplyDict(const py::dict& stated, const std::string& inside, prereg::ConfigurationFPFH& target)
{
    Reader reader(stated, inside);
    VisitFpfh(target, std::ref(reader));
    if (const py::object icp = reader.Find(IcpKey)) {
        if (!py::isinstance<py::dict>(icp))
            throw py::type_error(inside + IcpKey + ": must be a dict, is " + TypeOf(icp));
        ApplyDict(icp.cast<py::dict>(), inside + IcpKey + ".", target.icpConfig);
    }
    // A refinement's key at the outer level would get a misleading "nearest" answer.
    VisitIcp(target.icpConfig, [&](const char* key, const auto&) {
        if (stated.contains(key)) throw py::type_error(inside + key + ": belongs inside " + IcpKey);
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

} // namespace

py::dict ToDict(const prereg::ConfigurationICP& config)
{
    py::dict dict;
    VisitIcp(config, [&](const char* key, const auto& field) { dict[key] = field; });
    return dict;
}

py::dict ToDict(const prereg::ConfigurationFPFH& config)
{
    py::dict dict;
    VisitFpfh(config, [&](const char* key, const auto& field) { dict[key] = field; });
    dict[IcpKey] = ToDict(config.icpConfig);
    return dict;
}

void Apply(const py::object& config, const py::dict& keywords, prereg::ConfigurationFPFH& target)
{
    ApplyBoth(config, keywords, target);
    RequireRanges(target, "settings");
}

void Apply(const py::object& config, const py::dict& keywords, prereg::ConfigurationICP& target)
{
    ApplyBoth(config, keywords, target);
    if (target.uiNumSamples < 1) throw py::value_error("uiNumSamples: must be at least 1");
}

} // namespace voalgo::python
