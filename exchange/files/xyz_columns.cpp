#include "exchange/files/xyz_columns.h"

#include "exchange/files/input_error.h"
#include "platform/format.h"

#include <algorithm>
#include <cmath>

namespace voalgo {

namespace {

/// The place of a name, or of its other spelling; nothing unless it is there once.
std::optional<std::size_t> PlaceOf(const std::vector<std::string>& names, const std::string& name)
{
    std::optional<std::size_t> place;
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string axis = name.substr(1);
        const bool isIt =
            names[i] == name || (!axis.empty() && (names[i] == "normal" + axis || names[i] == "normal_" + axis));
        if (!isIt) continue;
        if (place) return std::nullopt;
        place = i;
    }
    return place;
}

std::optional<std::array<std::size_t, 3>> PlacesOf(const std::vector<std::string>& names, const std::string& prefix)
{
    const auto x = PlaceOf(names, prefix + "x"), y = PlaceOf(names, prefix + "y"), z = PlaceOf(names, prefix + "z");
    if (!x || !y || !z) return std::nullopt;
    return std::array{*x, *y, *z};
}

/// Whether three adjacent columns hold directions; a few may be zero, not finite or of another length.
bool AreDirections(const std::vector<double>& rows, std::size_t columns, std::size_t first)
{
    std::size_t unit = 0, others = 0;
    for (std::size_t row = 0; row + columns <= rows.size(); row += columns) {
        const double* const v = &rows[row + first];
        const double length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
        if (std::abs(length - 1.0) < 0.02)
            ++unit;
        else if (length > 0.0)
            ++others;
    }
    return unit > 4 * others;
}

bool HasNegative(const std::vector<double>& rows, std::size_t columns, std::size_t first)
{
    for (std::size_t row = 0; row + columns <= rows.size(); row += columns)
        for (std::size_t k = 0; k < 3; ++k)
            if (rows[row + first + k] < 0.0) return true;
    return false;
}

} // namespace

std::optional<XyzColumns> ColumnsByName(const std::vector<std::string>& names)
{
    const auto point = PlacesOf(names, "");
    if (!point) return std::nullopt;
    return XyzColumns{*point, PlacesOf(names, "n")};
}

bool AreColumnNames(const std::vector<std::string>& names)
{
    static const std::vector<std::string> Known = {
        "x",       "y",  "z",  "nx",     "ny",      "nz",  "normal_x", "normal_y",  "normal_z",  "normalx", "normaly",
        "normalz", "r",  "g",  "b",      "a",       "red", "green",    "blue",      "alpha",     "i",       "intensity",
        "rf",      "gf", "bf", "scalar", "quality", "id",  "index",    "curvature", "confidence"};
    return std::all_of(names.begin(), names.end(), [](const std::string& name) {
        return std::find(Known.begin(), Known.end(), name) != Known.end();
    });
}

XyzColumns ColumnsByContent(const std::vector<double>& rows, std::size_t columns)
{
    std::optional<std::size_t> normal;
    for (std::size_t first = 3; first + 3 <= columns; ++first) {
        if (!AreDirections(rows, columns, first)) continue;
        if (normal)
            throw InputError(VoAlgo::Format("columns %zu to %zu and %zu to %zu may both be normals; a row of column "
                                            "names would tell",
                                            *normal + 1, *normal + 3, first + 1, first + 3));
        normal = first;
    }
    if (!normal && columns == 6 && HasNegative(rows, columns, 3)) normal = 3;
    if (!normal) return {};
    return {{0, 1, 2}, std::array{*normal, *normal + 1, *normal + 2}};
}

} // namespace voalgo
