#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace voalgo {

/// Which columns of a table hold what.
struct XyzColumns {
    std::array<std::size_t, 3> point = {0, 1, 2};
    std::optional<std::array<std::size_t, 3>> normal = {};
};

/// By the names of all columns, in lower case. Nothing unless x, y and z are among them, each once.
std::optional<XyzColumns> ColumnsByName(const std::vector<std::string>& names);
/// Whether every word is a name that tables of points use, so that a comment of these words names the columns.
bool AreColumnNames(const std::vector<std::string>& names);

/// By what rows of `columns` values each hold. The first three are the point. Three adjacent ones of unit length are
/// the normal; without any, so are the fourth to sixth of six columns if a value is negative, which no colour is.
/// Throws InputError with what is ambiguous.
XyzColumns ColumnsByContent(const std::vector<double>& rows, std::size_t columns);

} // namespace voalgo
