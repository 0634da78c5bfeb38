#include "VoAlgorithms/runtime/base64.h"
#include "bson/view.h"
#include "platform/utf8.h"

#include <charconv>
#include <cmath>

namespace VoAlgo::bson {
namespace {

using namespace detail;

constexpr const char* HexDigits = "0123456789abcdef";

void AppendQuoted(std::string& json, std::string_view text)
{
    json += '"';
    while (!text.empty()) {
        const char32_t c = TakeCodePoint(text);
        if (c == '"' || c == '\\') {
            json += '\\';
            json += static_cast<char>(c);
        } else if (c == '\n') {
            json += "\\n";
        } else if (c == '\t') {
            json += "\\t";
        } else if (c == '\r') {
            json += "\\r";
        } else if (c < 0x20) {
            json += "\\u00";
            json += HexDigits[c >> 4];
            json += HexDigits[c & 0xF];
        } else {
            AppendUtf8(json, c);
        }
    }
    json += '"';
}

/// The shortest text that reads back exactly.
template <class T>
void AppendNumber(std::string& json, T value)
{
    if constexpr (std::is_floating_point_v<T>) {
        if (std::isnan(value)) return AppendQuoted(json, "NaN");
        if (std::isinf(value)) return AppendQuoted(json, value > 0 ? "Infinity" : "-Infinity");
    }
    char digits[32];
    json.append(digits, std::to_chars(digits, digits + sizeof(digits), value).ptr);
}

void AppendBinary(std::string& json, const View& view, std::size_t longestBinary)
{
    const auto [bytes, size, type] = view.Binary();
    if (size > longestBinary) {
        json += "{\"$binary\":{\"size\":";
        AppendNumber(json, size);
    } else {
        json += "{\"$binary\":{\"base64\":\"";
        json += Base64::Encode({bytes, size});
        json += '"';
    }
    const auto subtype = static_cast<unsigned char>(type);
    json += ",\"subType\":\"";
    json += HexDigits[subtype >> 4];
    json += HexDigits[subtype & 0xF];
    json += "\"}}";
}

void AppendDateTime(std::string& json, std::int64_t milliseconds)
{
    json += R"({"$date":{"$numberLong":")";
    AppendNumber(json, milliseconds);
    json += "\"}}";
}

void AppendRegex(std::string& json, const char* pattern)
{
    const char* const options = pattern + std::strlen(pattern) + 1;
    json += R"({"$regularExpression":{"pattern":)";
    AppendQuoted(json, pattern);
    json += ",\"options\":";
    AppendQuoted(json, options);
    json += "}}";
}

/// Any value that is not an object.
void AppendPlain(std::string& json, const View& view, std::size_t longestBinary)
{
    const char* const text = reinterpret_cast<const char*>(view.Value());
    switch (view.Type()) {
    case element::Double:
        return AppendNumber(json, view.Read<double>());
    case element::Float:
        return AppendNumber(json, view.Read<float>());
    case element::Int8:
        return AppendNumber(json, view.Read<std::int8_t>());
    case element::UInt8:
        return AppendNumber(json, view.Read<std::uint8_t>());
    case element::Int16:
        return AppendNumber(json, view.Read<std::int16_t>());
    case element::UInt16:
        return AppendNumber(json, view.Read<std::uint16_t>());
    case element::Int32:
        return AppendNumber(json, view.Read<std::int32_t>());
    case element::UInt32:
        return AppendNumber(json, view.Read<std::uint32_t>());
    case element::Int64:
        return AppendNumber(json, view.Read<std::int64_t>());
    case element::UInt64:
        return AppendNumber(json, view.Read<std::uint64_t>());
    case element::Boolean:
        json += *view.Value() != 0 ? "true" : "false";
        return;
    case element::String:
        return AppendQuoted(json, {text + sizeof(std::int32_t), view.valueSize - sizeof(std::int32_t) - 1});
    case element::Binary:
        return AppendBinary(json, view, longestBinary);
    case element::DateTime:
        return AppendDateTime(json, Load<std::int64_t>(view.Value()));
    case element::Regex:
        return AppendRegex(json, text);
    case element::Null:
    case element::Empty:
    case element::Object:
        json += "null";
        return;
    }
}

void AppendJson(std::string& json, const View& view, std::size_t longestBinary)
{
    if (view.Type() != element::Object) return AppendPlain(json, view, longestBinary);
    // The bytes mark where objects end, so it is enough to count the open ones.
    constexpr std::size_t CountSize = sizeof(std::uint32_t);
    const unsigned char* next = view.Value() + CountSize;
    json += '{';
    for (std::size_t depth = 1; depth > 0;) {
        if (*next == 0) {
            json += '}';
            --depth;
            ++next;
            continue;
        }
        if (json.back() != '{') json += ',';
        const View child = View::At(next);
        AppendQuoted(json, child.Name());
        json += ':';
        if (child.Type() == element::Object) {
            json += '{';
            ++depth;
            next = child.Value() + CountSize;
        } else {
            AppendPlain(json, child, longestBinary);
            next += child.total;
        }
    }
}

} // namespace

std::string element::to_json(std::size_t longestBinary) const
{
    std::string json;
    AppendJson(json, view(), longestBinary);
    return json;
}

std::string element::object::to_json(std::size_t longestBinary) const
{
    std::string json = "{";
    for (const element& e : elements_) {
        if (e.type() == Empty) continue;
        if (json.size() > 1) json += ',';
        AppendQuoted(json, e.name());
        json += ':';
        AppendJson(json, e.view(), longestBinary);
    }
    json += '}';
    return json;
}

} // namespace VoAlgo::bson
