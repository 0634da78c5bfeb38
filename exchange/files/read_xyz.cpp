#include "exchange/files/read_xyz.h"

#include "exchange/files/files.h"
#include "exchange/files/input_error.h"
#include "exchange/files/parse_number.h"
#include "exchange/files/scan_builder.h"
#include "platform/format.h"

#include <fstream>
#include <optional>
#include <string_view>
#include <utility>

namespace voalgo {

namespace {

constexpr std::string_view Separators = " \t,;\r";

[[noreturn]] void Fail(const std::string& path, std::size_t line, const std::string& what)
{
    throw InputError(path + VoAlgo::Format(":%zu: ", line) + what);
}

/// Cuts the first word off `rest`; empty at the end of the line.
std::string_view NextWord(std::string_view& rest)
{
    const std::size_t begin = rest.find_first_not_of(Separators);
    if (begin == std::string_view::npos) return {};
    rest.remove_prefix(begin);
    const std::string_view word = rest.substr(0, rest.find_first_of(Separators));
    rest.remove_prefix(word.size());
    return word;
}

/// The first six columns of a line.
struct Row {
    double value[6];
    unsigned columns; // of the whole line
};

Row ReadRow(std::string_view text, const std::string& path, std::size_t line)
{
    Row row{};
    for (std::string_view word = NextWord(text); !word.empty(); word = NextWord(text)) {
        if (row.columns < 6) {
            const std::optional<double> value = ParseNumber(word);
            if (!value) Fail(path, line, "not a number: \"" + std::string(word.substr(0, 40)) + "\"");
            row.value[row.columns] = *value;
        }
        ++row.columns;
    }
    if (row.columns == 1 || row.columns == 2) Fail(path, line, "fewer than three columns");
    return row;
}

} // namespace

prereg::Scan ReadXyz(const std::string& path, double mmPerUnit)
{
    RequireFile(path);
    std::ifstream file(path, std::ios::binary);
    ScanBuilder cloud(mmPerUnit);
    std::string whole;
    bool withNormals = false;
    for (std::size_t line = 1; std::getline(file, whole); ++line) {
        const Row row = ReadRow(std::string_view(whole).substr(0, whole.find('#')), path, line);
        if (row.columns == 0) continue;
        const auto& v = row.value;
        if (cloud.Size() == 0) withNormals = row.columns >= 6;
        if (withNormals != (row.columns >= 6))
            Fail(path, line,
                 withNormals ? "has no normal, but earlier lines have one"
                             : "has a normal, but earlier lines have none");
        cloud.AddPoint({v[0], v[1], v[2]});
        if (withNormals) cloud.AddNormal({v[3], v[4], v[5]});
    }
    if (file.bad()) throw InputError(path + ": cannot be read");
    return std::move(cloud).Take();
}

} // namespace voalgo
