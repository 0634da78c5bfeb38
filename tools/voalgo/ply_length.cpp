#include "ply_length.h"

#include "console.h"
#include "errors.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

namespace voalgo {

namespace {

const std::map<std::string, std::uint64_t> SizeOfType = {{"char", 1},  {"uchar", 1},   {"int8", 1},   {"uint8", 1},
                                                         {"short", 2}, {"ushort", 2},  {"int16", 2},  {"uint16", 2},
                                                         {"int", 4},   {"uint", 4},    {"int32", 4},  {"uint32", 4},
                                                         {"float", 4}, {"float32", 4}, {"double", 8}, {"float64", 8}};

std::uint64_t SizeOf(const std::string& type)
{
    const auto found = SizeOfType.find(type);
    return found == SizeOfType.end() ? 0 : found->second;
}

/// The fewest bytes that header and rows take up, lists counted as empty; 0 when this is no binary PLY file.
std::uint64_t LeastLength(std::istream& file)
{
    std::string line, word;
    if (!std::getline(file, line) || line.rfind("ply", 0) != 0) return 0;
    std::uint64_t rows = 0, total = 0;
    bool binary = false;
    while (std::getline(file, line)) {
        std::istringstream words(line);
        words >> word;
        if (word == "format") {
            words >> word;
            binary = word.rfind("binary", 0) == 0;
        } else if (word == "element") {
            rows = 0;
            words >> word >> rows;
        } else if (word == "property") {
            words >> word;
            if (word == "list") words >> word; // the type of the count
            const std::uint64_t size = SizeOf(word);
            if (size != 0 && rows > (UINT64_MAX - total) / size) return UINT64_MAX;
            total += rows * size;
        } else if (word == "end_header") {
            return binary ? total + static_cast<std::uint64_t>(file.tellg()) : 0;
        }
    }
    return 0;
}

} // namespace

void RequirePlyLength(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    const std::uint64_t needed = LeastLength(file), present = std::filesystem::file_size(path);
    if (present < needed)
        throw InputError(path + Format(": cut off: %llu bytes, but its header announces %llu",
                                       static_cast<unsigned long long>(present),
                                       static_cast<unsigned long long>(needed)));
}

} // namespace voalgo
