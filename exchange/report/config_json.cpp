#include "exchange/report/config_json.h"

#include "VoAlgorithms/prereg/fields.h"
#include "exchange/files/files.h"
#include "exchange/files/input_error.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <vector>

namespace voalgo {

namespace {

using Json = nlohmann::ordered_json;

/// Reads the values of one JSON object.
class Reader {
public:
    Reader(const std::string& path, const Json& object, const std::string& key)
        : path_(path), object_(object), inside_(key.empty() ? "" : key + ".")
    {
        if (!object.is_object()) Fail(key, "must be a JSON object, is " + TypeOf(object));
    }

    void operator()(const prereg::FieldInfo& info, std::uint32_t& field)
    {
        const char* key = info.key;
        const Json* value = Find(key);
        if (value == nullptr) return;
        if (!value->is_number_integer()) Fail(inside_ + key, "must be a whole number, is " + TypeOf(*value));
        if (!value->is_number_unsigned() || value->get<std::uint64_t>() > std::numeric_limits<std::uint32_t>::max())
            Fail(inside_ + key, "must lie between 0 and 4294967295, is " + value->dump());
        field = value->get<std::uint32_t>();
    }
    void operator()(const prereg::FieldInfo& info, double& field)
    {
        const char* key = info.key;
        const Json* value = Find(key);
        if (value == nullptr) return;
        if (!value->is_number()) Fail(inside_ + key, "must be a number, is " + TypeOf(*value));
        field = value->get<double>();
    }

    /// The object under a key, null when there is none.
    const Json* Find(const char* key)
    {
        known_.emplace_back(key);
        const auto found = object_.find(key);
        return found == object_.end() ? nullptr : &*found;
    }

    /// Refuses every key that was not asked for.
    void RequireKnownKeys() const
    {
        for (const auto& [key, value] : object_.items()) {
            if (std::find(known_.begin(), known_.end(), key) != known_.end()) continue;
            Fail(inside_ + key,
                 "unknown key; the nearest known one is \"" + inside_ + prereg::NearestKey(key, known_) + "\"");
        }
    }

    [[noreturn]] void Fail(const std::string& key, const std::string& what) const
    {
        throw InputError(path_ + ": " + (key.empty() ? "" : "\"" + key + "\": ") + what);
    }

private:
    static std::string TypeOf(const Json& value)
    {
        const std::string type = value.type_name();
        return type == "number" && value.is_number_float() ? value.dump() : type;
    }

    const std::string& path_;
    const Json& object_;
    std::string inside_; // where the object lies: empty, or a key and a dot
    std::vector<std::string> known_;
};

Json Parse(const std::string& path)
{
    const std::string text = ReadText(path);
    try {
        return Json::parse(text);
    } catch (const Json::exception& error) {
        const std::string what = error.what();
        const std::size_t end = what.find("] "); // of the library's own error number
        throw InputError(path + ": not valid JSON: " + (end == std::string::npos ? what : what.substr(end + 2)));
    }
}

} // namespace

Json ToJson(const prereg::ConfigurationICP& config)
{
    Json json;
    prereg::VisitFields(config, [&](const prereg::FieldInfo& info, const auto& field) { json[info.key] = field; });
    return json;
}

Json ToJson(const prereg::ConfigurationFPFH& config)
{
    Json json;
    prereg::VisitFields(config, [&](const prereg::FieldInfo& info, const auto& field) { json[info.key] = field; });
    json[prereg::IcpKey] = ToJson(config.icpConfig);
    return json;
}

Json ToJson(const prereg::Verification& verification)
{
    Json json;
    prereg::VisitFields(verification,
                        [&](const prereg::FieldInfo& info, const auto& field) { json[info.key] = field; });
    json[prereg::IcpKey] = ToJson(verification.icp);
    return json;
}

void ApplyConfigFile(prereg::ConfigurationFPFH& config, const std::string& path)
{
    const Json json = Parse(path);
    Reader reader(path, json, "");
    prereg::VisitFields(config, std::ref(reader));
    if (const Json* icp = reader.Find(prereg::IcpKey)) {
        Reader icpReader(path, *icp, prereg::IcpKey);
        prereg::VisitFields(config.icpConfig, std::ref(icpReader));
        icpReader.RequireKnownKeys();
    }
    // A refinement's key at the outer level would get a misleading "nearest" answer.
    prereg::VisitFields(config.icpConfig, [&](const prereg::FieldInfo& info, const auto&) {
        if (json.contains(info.key)) reader.Fail(info.key, "belongs inside \"icpConfig\"");
    });
    reader.RequireKnownKeys();
    try {
        prereg::RequireRanges(config);
    } catch (const std::invalid_argument& error) {
        throw InputError(path + ": " + error.what());
    }
}

} // namespace voalgo
