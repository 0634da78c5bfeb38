#include "prereg/detail_textfile.h"

#include <charconv>
#include <stdexcept>

namespace prereg::detail {

void AppendNumber(std::string& line, float v, Digits digits, char separator)
{
    char text[32];
    const auto [end, error] = digits == Digits::AsNeeded
                                  ? std::to_chars(text, text + sizeof text, v)
                                  : std::to_chars(text, text + sizeof text, v, std::chars_format::general, 6);
    line.append(text, end);
    line += separator;
}

void AppendNumbers(std::string& line, const kdtree::Vector<3>& v, Digits digits, char separator)
{
    for (unsigned k = 0; k < 3; ++k) AppendNumber(line, v[k], digits, separator);
}

std::ofstream OpenText(const std::string& fileName)
{
    if (fileName.empty()) throw std::invalid_argument("empty file name");
    std::ofstream out;
    out.exceptions(std::ios::failbit | std::ios::badbit);
    out.open(fileName, std::ios::out | std::ios::trunc);
    return out;
}

void SaveSurfels(const std::string& fileName, const std::vector<kdtree::Vector<3>>& points,
                 const std::vector<kdtree::Vector<3>>& normals, unsigned colour, Digits digits)
{
    constexpr unsigned NoColour = 0xFFFFFFFFU;
    std::string end = "\n";
    if (colour != NoColour)
        end = ' ' + std::to_string(colour >> 16 & 0xFFU) + ' ' + std::to_string(colour >> 8 & 0xFFU) + ' ' +
              std::to_string(colour & 0xFFU) + '\n';
    std::ofstream out = OpenText(fileName);
    std::string line;
    for (std::size_t i = 0; i < points.size(); ++i) {
        line.clear();
        AppendNumbers(line, points[i], digits, ' ');
        AppendNumbers(line, normals[i], digits, ' ');
        line.pop_back();
        out << line << end << std::flush; // deliberate: a log of a crashing run stays readable
    }
    out.close();
}

} // namespace prereg::detail
