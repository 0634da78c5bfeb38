#include "config_json.h"

#include "config_fields.h"
#include "errors.h"
#include "files.h"

#include <algorithm>
#include <limits>
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

    void operator()(const char* key, std::uint32_t& field)
    {
        const Json* value = Find(key);
        if (value == nullptr) return;
        if (!value->is_number_integer()) Fail(inside_ + key, "must be a whole number, is " + TypeOf(*value));
        if (!value->is_number_unsigned() || value->get<std::uint64_t>() > std::numeric_limits<std::uint32_t>::max())
            Fail(inside_ + key, "must lie between 0 and 4294967295, is " + value->dump());
        field = value->get<std::uint32_t>();
    }
    void operator()(const char* key, double& field)
    {
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
            Fail(inside_ + key, "unknown key; the nearest known one is \"" + inside_ + NearestKey(key, known_) + "\"");
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
        throw InputError(path + ": no valid JSON: " + (end == std::string::npos ? what : what.substr(end + 2)));
    }
}

} // namespace

Json ToJson(const prereg::ConfigurationICP& config)
{
    Json json;
    VisitIcp(config, [&](const char* key, const auto& field) { json[key] = field; });
    return json;
}

Json ToJson(const prereg::ConfigurationFPFH& config)
{
    Json json;
    VisitFpfh(config, [&](const char* key, const auto& field) { json[key] = field; });
    json[IcpKey] = ToJson(config.icpConfig);
    return json;
}

void ApplyConfigFile(prereg::ConfigurationFPFH& config, const std::string& path)
{
    const Json json = Parse(path);
    Reader reader(path, json, "");
    VisitFpfh(config, std::ref(reader));
    if (const Json* icp = reader.Find(IcpKey)) {
        Reader icpReader(path, *icp, IcpKey);
        VisitIcp(config.icpConfig, std::ref(icpReader));
        icpReader.RequireKnownKeys();
    }
    // A refinement's key at the outer level would get a misleading "nearest" answer.
    VisitIcp(config.icpConfig, [&](const char* key, const auto&) {
        if (json.contains(key)) reader.Fail(key, "belongs inside \"icpConfig\"");
    });
    reader.RequireKnownKeys();
    RequireRanges(config, path);
}

} // namespace voalgo
