#include "exchange/files/ply_header.h"

#include "exchange/files/words.h"
#include "platform/format.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <optional>
#include <utility>

namespace voalgo {

namespace {

std::optional<PlyType> TypeOf(std::string_view name)
{
    constexpr struct {
        std::string_view name, synonym;
        PlyType type;
    } Types[] = {{"char", "int8", {'i', 1}},     {"uchar", "uint8", {'u', 1}},   {"short", "int16", {'i', 2}},
                 {"ushort", "uint16", {'u', 2}}, {"int", "int32", {'i', 4}},     {"uint", "uint32", {'u', 4}},
                 {"float", "float32", {'f', 4}}, {"double", "float64", {'f', 8}}};
    for (const auto& known : Types)
        if (name == known.name || name == known.synonym) return known.type;
    return std::nullopt;
}

std::vector<std::string_view> WordsOf(std::string_view line)
{
    std::vector<std::string_view> words;
    for (std::string_view word = NextWord(line); !word.empty(); word = NextWord(line)) words.push_back(word);
    return words;
}

bool TakeFormat(PlyHeader& header, const std::vector<std::string_view>& words)
{
    using Form = PlyHeader::Form;
    constexpr std::array<std::pair<std::string_view, Form>, 3> Forms = {
        {{"ascii", Form::Text}, {"binary_little_endian", Form::LittleEndian}, {"binary_big_endian", Form::BigEndian}}};
    if (words.size() != 3) return false;
    const auto* const form =
        std::find_if(Forms.begin(), Forms.end(), [&](const auto& f) { return f.first == words[1]; });
    if (form == Forms.end()) return false;
    header.form = form->second;
    return true;
}

bool TakeElement(PlyHeader& header, const std::vector<std::string_view>& words)
{
    if (words.size() != 3) return false;
    const std::string_view digits = words[2];
    std::uint64_t rows = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), rows);
    if (end != digits.data() + digits.size()) return false;
    if (error != std::errc{}) rows = std::numeric_limits<std::uint64_t>::max(); // more than any file holds
    header.elements.push_back({std::string(words[1]), rows});
    return true;
}

bool TakeProperty(PlyHeader& header, const std::vector<std::string_view>& words)
{
    const bool isList = words.size() == 5 && words[1] == "list";
    if (header.elements.empty() || (!isList && words.size() != 3)) return false;
    const auto type = TypeOf(words[words.size() - 2]);
    const auto countType = isList ? TypeOf(words[2]) : PlyType{};
    if (!type || !countType || (isList && countType->kind == 'f')) return false;
    header.elements.back().properties.push_back({std::string(words.back()), *type, isList, *countType});
    return true;
}

bool TakeLine(PlyHeader& header, bool& hasFormat, const std::vector<std::string_view>& words)
{
    if (words.empty()) return false;
    if (words[0] == "comment" || words[0] == "obj_info") return true;
    if (words[0] == "format") return !std::exchange(hasFormat, true) && TakeFormat(header, words);
    if (words[0] == "element") return hasFormat && TakeElement(header, words);
    return words[0] == "property" && TakeProperty(header, words);
}

/// The fewest bytes that all rows can occupy.
std::uint64_t LeastBytes(const PlyHeader& header)
{
    constexpr std::uint64_t Most = std::numeric_limits<std::uint64_t>::max();
    const bool isText = header.form == PlyHeader::Form::Text;
    std::uint64_t sum = 0;
    for (const PlyElement& element : header.elements) {
        // In text, each value is at least a digit and a separator.
        const std::uint64_t row = isText ? 2 * element.properties.size() : element.LeastRowSize();
        if (row != 0 && element.rows > (Most - sum) / row) return Most;
        sum += element.rows * row;
    }
    return isText && sum > 0 ? sum - 1 : sum; // the last separator may be missing
}

} // namespace

bool PlyElement::HasList() const
{
    return std::any_of(properties.begin(), properties.end(), [](const PlyProperty& p) { return p.isList; });
}

std::uint64_t PlyElement::LeastRowSize() const
{
    std::uint64_t size = 0;
    for (const PlyProperty& p : properties) size += p.isList ? p.countType.size : p.type.size;
    return size;
}

PlyHeader ReadPlyHeader(ByteInput& input)
{
    if (input.Line() != "ply") input.Fail("not a PLY file: its first line is not \"ply\"");
    PlyHeader header;
    bool hasFormat = false;
    while (true) {
        const auto line = input.Line();
        if (!line) input.Fail("the PLY header has no end_header line");
        if (*line == "end_header") break;
        if (!TakeLine(header, hasFormat, WordsOf(*line)))
            input.FailInLine("invalid line in the PLY header: " + Quoted(*line));
    }
    if (!hasFormat || header.elements.empty()) input.Fail("the PLY header lacks a format or an element");
    const std::uint64_t least = LeastBytes(header);
    if (input.Remaining() < least)
        input.Fail(VoAlgo::Format("truncated: %llu bytes of data, but the header announces at least %llu",
                                  static_cast<unsigned long long>(input.Remaining()),
                                  static_cast<unsigned long long>(least)));
    return header;
}

} // namespace voalgo
