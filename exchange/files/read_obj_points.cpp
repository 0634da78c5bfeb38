#include "exchange/files/input_error.h"
#include "exchange/files/parse_number.h"
#include "exchange/files/read_points.h"
#include "exchange/files/scan_builder.h"

#include <fstream>
#include <sstream>
#include <string_view>
#include <utility>

namespace voalgo {

namespace {

/// The three numbers after a keyword.
std::optional<std::array<double, 3>> ReadTriple(std::istringstream& words)
{
    std::array<double, 3> triple{};
    std::string word;
    for (double& v : triple) {
        const std::optional<double> value = words >> word ? ParseNumber(word) : std::nullopt;
        if (!value) return std::nullopt;
        v = *value;
    }
    return triple;
}

} // namespace

std::optional<prereg::Scan> ReadObjPoints(const std::string& path, double mmPerUnit)
{
    std::ifstream file(path);
    ScanBuilder cloud(mmPerUnit);
    std::size_t normals = 0;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string keyword;
        words >> keyword;
        if (keyword == "f" || keyword == "l") return std::nullopt;
        if (keyword != "v" && keyword != "vn") continue;
        const auto triple = ReadTriple(words);
        if (!triple) return std::nullopt;
        if (keyword == "v") {
            cloud.AddPoint(*triple);
        } else {
            cloud.AddNormal(*triple);
            ++normals;
        }
    }
    if (cloud.Size() == 0) return std::nullopt;
    const bool withNormals = normals == cloud.Size();
    prereg::Scan scan = std::move(cloud).Take();
    if (!withNormals) scan.normals.clear();
    return scan;
}

} // namespace voalgo
