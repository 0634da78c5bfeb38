#include "exchange/files/write_ply.h"

#include "exchange/files/input_error.h"

#include <bit>
#include <cstring>
#include <fstream>

namespace voalgo {

namespace {

void AppendFloat(std::string& bytes, float value)
{
    const auto bits = std::bit_cast<std::uint32_t>(value);
    for (unsigned shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<char>((bits >> shift) & 0xFFU));
}

void Write(const std::string& path, const std::vector<ColouredCloud>& clouds, bool withColour)
{
    std::size_t count = 0;
    bool withNormals = true;
    for (const ColouredCloud& c : clouds) {
        count += c.cloud->points.size();
        withNormals = withNormals && c.cloud->normals.size() == c.cloud->points.size();
    }
    std::string bytes = "ply\nformat binary_little_endian 1.0\nelement vertex " + std::to_string(count) + "\n";
    for (const char* name : {"x", "y", "z"}) bytes += std::string("property float ") + name + "\n";
    if (withNormals)
        for (const char* name : {"nx", "ny", "nz"}) bytes += std::string("property float ") + name + "\n";
    if (withColour)
        for (const char* name : {"red", "green", "blue"}) bytes += std::string("property uchar ") + name + "\n";
    bytes += "end_header\n";
    for (const ColouredCloud& c : clouds)
        for (std::size_t i = 0; i < c.cloud->points.size(); ++i) {
            for (unsigned k = 0; k < 3; ++k) AppendFloat(bytes, c.cloud->points[i][k]);
            for (unsigned k = 0; withNormals && k < 3; ++k) AppendFloat(bytes, c.cloud->normals[i][k]);
            if (withColour) bytes.append(reinterpret_cast<const char*>(c.colour.data()), c.colour.size());
        }
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) throw InputError("cannot write " + path);
}

} // namespace

void WritePly(const std::string& path, const prereg::Scan& cloud)
{
    Write(path, {{&cloud, {}}}, false);
}

void WritePly(const std::string& path, const std::vector<ColouredCloud>& clouds)
{
    Write(path, clouds, true);
}

} // namespace voalgo
