#include "exchange/files/read_obj_points.h"

#include "exchange/files/byte_input.h"
#include "exchange/files/parse_number.h"
#include "exchange/files/scan_builder.h"
#include "exchange/files/words.h"

#include <array>
#include <fstream>
#include <string_view>
#include <utility>

namespace voalgo {

namespace {

/// The three numbers after a keyword.
std::optional<std::array<double, 3>> ReadTriple(std::string_view words)
{
    std::array<double, 3> triple{};
    for (double& v : triple) {
        const std::optional<double> value = ParseNumber(NextWord(words));
        if (!value) return std::nullopt;
        v = *value;
    }
    return triple;
}

} // namespace

std::optional<prereg::Scan> ReadObjPoints(const std::string& path, double mmPerUnit)
{
    std::ifstream file(path, std::ios::binary);
    ByteInput input(file, path);
    ScanBuilder cloud(mmPerUnit);
    std::size_t normals = 0;
    while (const auto line = input.Line()) {
        std::string_view words = *line;
        const std::string_view keyword = NextWord(words);
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
