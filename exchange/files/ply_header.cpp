#include "exchange/files/ply_header.h"

#include "exchange/files/input_error.h"
#include "platform/format.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <string_view>
#include <vector>

namespace voalgo {

namespace {

struct Type {
    std::string_view name;
    std::uint64_t size;
};

constexpr std::array<Type, 16> Types = {{{"char", 1},
                                         {"int8", 1},
                                         {"uchar", 1},
                                         {"uint8", 1},
                                         {"short", 2},
                                         {"int16", 2},
                                         {"ushort", 2},
                                         {"uint16", 2},
                                         {"int", 4},
                                         {"int32", 4},
                                         {"uint", 4},
                                         {"uint32", 4},
                                         {"float", 4},
                                         {"float32", 4},
                                         {"double", 8},
                                         {"float64", 8}}};

/// Size of a value in bytes; 0 for an unknown type.
std::uint64_t SizeOf(std::string_view type)
{
    for (const Type& known : Types)
        if (known.name == type) return known.size;
    return 0;
}

/// Reads a header line by line and adds up the fewest bytes that its rows can occupy.
class Header {
public:
    /// Returns false for a line that does not belong in a header.
    bool Take(const std::string& line)
    {
        std::istringstream stream(line);
        std::vector<std::string> words;
        for (std::string word; stream >> word;) words.push_back(word);
        if (words.empty()) return false;
        if (words[0] == "comment" || words[0] == "obj_info") return true;
        if (words[0] == "format") return takeFormat(words);
        if (words[0] == "element") return takeElement(words);
        return words[0] == "property" && takeProperty(words);
    }
    [[nodiscard]] bool IsComplete() const { return hasFormat_ && elements_ > 0; }
    [[nodiscard]] std::uint64_t LeastBytes() const
    {
        return isAscii_ && leastBytes_ > 0 ? leastBytes_ - 1 : leastBytes_; // the last separator may be missing
    }

    [[nodiscard]] PlyHeader Start() const { return {0, !isAscii_, faces_, beginsWithSingleX_}; }

private:
    bool takeFormat(const std::vector<std::string>& words)
    {
        isAscii_ = words.size() == 3 && words[1] == "ascii";
        hasFormat_ =
            isAscii_ || (words.size() == 3 && (words[1] == "binary_little_endian" || words[1] == "binary_big_endian"));
        isLittleEndian_ = !isAscii_ && hasFormat_ && words[1] == "binary_little_endian";
        return hasFormat_;
    }
    bool takeElement(const std::vector<std::string>& words)
    {
        if (!hasFormat_ || words.size() != 3 || words[2].find_first_not_of("0123456789") != std::string::npos)
            return false;
        ++elements_;
        std::istringstream(words[2]) >> rows_; // the largest number when it overflows
        if (words[1] == "face") faces_ = rows_;
        return true;
    }
    bool takeProperty(const std::vector<std::string>& words)
    {
        const bool list = words.size() == 5 && words[1] == "list" && SizeOf(words[3]) != 0;
        const std::uint64_t size = SizeOf(words.size() > 2 ? words[list ? 2 : 1] : "");
        if (elements_ == 0 || size == 0 || (!list && words.size() != 3)) return false;
        if (!hasProperty_)
            beginsWithSingleX_ = isLittleEndian_ && (words[1] == "float" || words[1] == "float32") && words[2] == "x";
        hasProperty_ = true;
        const std::uint64_t least = isAscii_ ? 2 : size; // a digit and a separator; a list has at least its count
        const std::uint64_t room = std::numeric_limits<std::uint64_t>::max() - leastBytes_;
        leastBytes_ += rows_ > room / least ? room : rows_ * least;
        return true;
    }

    bool hasFormat_ = false; // a known one
    bool isAscii_ = false;
    bool isLittleEndian_ = false;
    bool hasProperty_ = false;
    bool beginsWithSingleX_ = false;
    std::uint64_t elements_ = 0;
    std::uint64_t faces_ = 0;
    std::uint64_t rows_ = 0; // of the current element
    std::uint64_t leastBytes_ = 0;
};

} // namespace

PlyHeader ReadPlyHeader(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    const auto nextLine = [&file] {
        std::string line;
        std::getline(file, line);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        return line;
    };
    std::string line = nextLine();
    if (line != "ply") throw InputError(path + ": not a PLY file: its first line is not \"ply\"");
    Header header;
    for (line = nextLine(); line != "end_header"; line = nextLine()) {
        if (!file) throw InputError(path + ": the PLY header has no end_header line");
        if (!header.Take(line))
            throw InputError(path + ": invalid line in the PLY header: \"" + line.substr(0, 60) + "\"");
    }
    if (!header.IsComplete()) throw InputError(path + ": the PLY header lacks a format or an element");
    PlyHeader result = header.Start();
    result.dataOffset = static_cast<std::uint64_t>(file.tellg());
    const std::uint64_t present = std::filesystem::file_size(path) - result.dataOffset;
    if (present < header.LeastBytes())
        throw InputError(path +
                         VoAlgo::Format(": truncated: %llu bytes of data, but the header announces at least %llu",
                                        static_cast<unsigned long long>(present),
                                        static_cast<unsigned long long>(header.LeastBytes())));
    return result;
}

} // namespace voalgo
