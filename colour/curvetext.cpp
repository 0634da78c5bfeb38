#include "VoAlgorithms/colour/curvetext.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

namespace VoAlgo::cs {
namespace {

using Point = CChannelTransferCurve::Point;

constexpr std::string_view Signature = "transfercurve";
constexpr std::string_view Version = "1";
constexpr std::string_view ByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view Blanks = " \t";
constexpr std::string_view LineEnds = "\r\n";

bool IsAscending(const std::vector<Point>& points)
{
    return std::is_sorted(points.begin(), points.end(), [](const Point& a, const Point& b) { return a.y < b.y; });
}

bool IsDescending(const std::vector<Point>& points)
{
    return std::is_sorted(points.begin(), points.end(), [](const Point& a, const Point& b) { return a.y > b.y; });
}

/// Line and column count from 1.
[[noreturn]] void RefuseAt(std::size_t line, std::size_t column, const std::string& reason)
{
    throw std::invalid_argument("line " + std::to_string(line) + ", column " + std::to_string(column) + ": " + reason);
}

/// A line without comment and surrounding blanks, with its place.
struct Line {
    std::string_view text;
    std::size_t number; // from 1
    std::size_t column; // of the first character, from 1

    /// For a part of the line.
    [[noreturn]] void Refuse(std::string_view at, const std::string& reason) const
    {
        RefuseAt(number, column + static_cast<std::size_t>(at.data() - text.data()), reason);
    }
};

/// Removes the first word and the blanks around it; empty at the end, where it still tells the place.
std::string_view TakeWord(std::string_view& rest)
{
    rest.remove_prefix(std::min(rest.find_first_not_of(Blanks), rest.size()));
    const std::string_view word = rest.substr(0, rest.find_first_of(Blanks));
    rest.remove_prefix(word.size());
    return word;
}

template <class Number>
Number TakeNumber(const Line& line, std::string_view& rest)
{
    const std::string_view word = TakeWord(rest);
    Number value{};
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc() || end != word.data() + word.size()) line.Refuse(word, "not a number");
    return value;
}

void RequireEnd(const Line& line, std::string_view rest)
{
    if (const std::string_view word = TakeWord(rest); !word.empty()) line.Refuse(word, "more than expected");
}

class CLines {
public:
    explicit CLines(std::string_view text) : rest_(text)
    {
        if (rest_.starts_with(ByteOrderMark)) rest_.remove_prefix(ByteOrderMark.size());
    }

    /// The next line that says something.
    std::optional<Line> Next()
    {
        while (!rest_.empty()) {
            const std::size_t end = std::min(rest_.find_first_of(LineEnds), rest_.size());
            const std::string_view whole = rest_.substr(0, end);
            rest_.remove_prefix(end + (rest_.substr(end).starts_with("\r\n") ? 2 : end < rest_.size() ? 1 : 0));
            ++number_;
            std::string_view text = whole.substr(0, whole.find('#'));
            const std::size_t begin = std::min(text.find_first_not_of(Blanks), text.size());
            text.remove_prefix(begin);
            text = text.substr(0, text.find_last_not_of(Blanks) + 1);
            if (!text.empty()) return Line{text, number_, begin + 1};
        }
        return std::nullopt;
    }

    /// A line that must be there.
    Line Require(const char* what)
    {
        if (const std::optional<Line> line = Next()) return *line;
        RefuseAt(number_ + 1, 1, std::string("text ends before ") + what);
    }

private:
    std::string_view rest_;
    std::size_t number_ = 0;
};

std::vector<Point> ReadPoints(CLines& lines, const Line& header, std::string_view rest, const ChannelRange& range)
{
    const auto count = TakeNumber<std::size_t>(header, rest);
    RequireEnd(header, rest);
    if (count < 2) header.Refuse(header.text, "fewer than 2 points");
    std::vector<Point> points;
    while (points.size() < count) {
        const Line line = lines.Require("the last point");
        std::string_view row = line.text;
        Point point;
        point.x = TakeNumber<double>(line, row);
        point.y = TakeNumber<double>(line, row);
        RequireEnd(line, row);
        points.push_back(point);
        if (points.size() < 2) continue;
        try { // the newest point is the last one that can be wrong
            (void)CChannelTransferCurve(range, {points.end() - 2, points.end()});
        } catch (const std::invalid_argument&) {
            line.Refuse(line.text, "not a point of the range to the right of the one before");
        }
    }
    return points;
}

} // namespace

CurveText ReadCurve(std::string_view text)
{
    CLines lines(text);
    const Line first = lines.Require("the signature");
    std::string_view rest = first.text;
    if (TakeWord(rest) != Signature) first.Refuse(first.text, "not a transfer curve");
    if (const std::string_view version = TakeWord(rest); version != Version) first.Refuse(version, "unknown version");
    RequireEnd(first, rest);

    std::string channel, unit, direction;
    std::optional<ChannelRange> range;
    std::optional<std::vector<Point>> points;
    while (!points) {
        const Line line = lines.Require("the points");
        rest = line.text;
        const std::string_view key = TakeWord(rest);
        const std::string_view value = rest.substr(std::min(rest.find_first_not_of(Blanks), rest.size()));
        if (key == "channel") {
            channel = value;
        } else if (key == "unit") {
            unit = value;
        } else if (key == "monotone") {
            if (value != "ascending" && value != "descending" && value != "no")
                line.Refuse(value, "expected ascending, descending or no");
            direction = value;
        } else if (key == "range") {
            range.emplace();
            range->min = TakeNumber<double>(line, rest);
            range->max = TakeNumber<double>(line, rest);
            RequireEnd(line, rest);
            if (!std::isfinite(range->min) || !std::isfinite(range->max) || !(range->min < range->max))
                line.Refuse(value, "not a range");
        } else if (key == "points") {
            if (!range) line.Refuse(key, "points before their range");
            points = ReadPoints(lines, line, rest, *range);
        } else {
            line.Refuse(key, "unknown key \"" + std::string(key) + "\"");
        }
    }
    if (const std::optional<Line> more = lines.Next()) more->Refuse(more->text, "more than expected");
    if ((direction == "ascending" && !IsAscending(*points)) || (direction == "descending" && !IsDescending(*points)))
        throw std::invalid_argument("the points are not " + direction + ", although the text says so");
    return {CChannelTransferCurve(*range, *points), std::move(channel), std::move(unit)};
}

std::string WriteCurve(const CurveText& curve)
{
    std::string text = std::string(Signature) + ' ' + std::string(Version) + '\n';
    const auto put = [&text](double number) {
        std::array<char, 32> digits{};
        char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
        text.append(1, ' ').append(digits.data(), static_cast<std::size_t>(end - digits.data()));
    };
    for (const auto& [key, value] : {std::pair("channel", &curve.channel), std::pair("unit", &curve.unit)}) {
        if (value->empty()) continue;
        if (value->find_first_of("\r\n#") != std::string::npos ||
            Blanks.find(value->front()) != std::string_view::npos ||
            Blanks.find(value->back()) != std::string_view::npos)
            throw std::invalid_argument(std::string(key) + ": cannot be written on a line");
        text.append(key).append(1, ' ').append(*value).append(1, '\n');
    }
    std::vector<Point> points;
    for (std::size_t i = 0; i < curve.curve.NumPoints(); ++i) points.push_back(curve.curve.GetPoint(i));
    text += "range";
    put(curve.curve.Range().min);
    put(curve.curve.Range().max);
    const char* direction = IsAscending(points) ? "ascending" : IsDescending(points) ? "descending" : "no";
    text.append("\nmonotone ").append(direction).append("\npoints");
    text += ' ' + std::to_string(points.size()) + '\n';
    for (const Point& point : points) {
        put(point.x);
        put(point.y);
        text += '\n';
    }
    return text;
}

} // namespace VoAlgo::cs
