#include "exchange/report/config_json.h"

#include "VoAlgorithms/prereg/fields.h"
#include "exchange/files/files.h"
#include "exchange/files/input_error.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <type_traits>
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
        if (!object.is_object()) Fail(key, "must be a JSON object, is " + typeOf(object));
    }

    /// Takes over the value of a setting if the object has one.
    template <class T>
    void operator()(const prereg::FieldInfo& info, T& field)
    {
        const Json* value = Find(info.key);
        if (value == nullptr) return;
        const std::string key = inside_ + info.key;
        if constexpr (std::is_same_v<T, std::uint32_t>) {
            if (!value->is_number_integer()) Fail(key, "must be a whole number, is " + typeOf(*value));
            if (!value->is_number_unsigned() || value->get<std::uint64_t>() > std::numeric_limits<std::uint32_t>::max())
                Fail(key, "must be between 0 and 4294967295, is " + value->dump());
        } else if (!value->is_number()) {
            Fail(key, "must be a number, is " + typeOf(*value));
        }
        field = value->get<T>();
    }

    /// The value under a key, null when there is none.
    const Json* Find(const char* key)
    {
        known_.emplace_back(key);
        const auto found = object_.find(key);
        return found == object_.end() ? nullptr : &*found;
    }

    /// Refuses every key that nobody asked for.
    void RequireKnownKeys() const
    {
        for (const auto& [key, value] : object_.items()) {
            if (std::find(known_.begin(), known_.end(), key) != known_.end()) continue;
            Fail(inside_ + key, "unknown key; did you mean \"" + inside_ + prereg::NearestKey(key, known_) + "\"?");
        }
    }

    [[noreturn]] void Fail(const std::string& key, const std::string& what) const
    {
        throw InputError(path_ + ": " + (key.empty() ? "" : "\"" + key + "\": ") + what);
    }

private:
    static std::string typeOf(const Json& value)
    {
        const std::string type = value.type_name();
        return type == "number" && value.is_number_float() ? value.dump() : type;
    }

    const std::string& path_;
    const Json& object_;
    std::string inside_; // key of the object with a dot; empty for the outermost one
    std::vector<std::string> known_;
};

Json Parse(const std::string& path)
{
    const std::string text = ReadText(path);
    try {
        return Json::parse(text);
    } catch (const Json::exception& error) {
        const std::string what = error.what();
        const std::size_t end = what.find("] "); // after the error number of the JSON library
        throw InputError(path + ": not valid JSON: " + (end == std::string::npos ? what : what.substr(end + 2)));
    }
}

Json FieldsOf(const auto& record)
{
    Json json;
    prereg::VisitFields(record, [&](const prereg::FieldInfo& info, const auto& field) { json[info.key] = field; });
    return json;
}

} // namespace

Json ToJson(const prereg::ConfigurationICP& config)
{
    return FieldsOf(config);
}

Json ToJson(const prereg::ConfigurationFPFH& config)
{
    Json json = FieldsOf(config);
    json[prereg::IcpKey] = ToJson(config.icpConfig);
    return json;
}

Json ToJson(const prereg::Verification& verification)
{
    Json json = FieldsOf(verification);
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
    // For a key of the refinement at the outer level the suggestion would mislead.
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
