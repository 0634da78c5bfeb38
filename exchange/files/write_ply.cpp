#include "exchange/files/write_ply.h"

#include "exchange/files/staged_file.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace voalgo {

namespace {

template <class T, class Bits>
void Append(std::string& bytes, T value)
{
    const auto bits = std::bit_cast<Bits>(value);
    for (unsigned shift = 0; shift < 8 * sizeof(Bits); shift += 8)
        bytes.push_back(static_cast<char>((bits >> shift) & 0xFFU));
}

void AppendFloat(std::string& bytes, float value)
{
    Append<float, std::uint32_t>(bytes, value);
}

class PlyFile {
public:
    PlyFile(const std::vector<ColouredCloud>& clouds, const PlyForm& form, bool withColour)
        : clouds_(clouds), form_(form), withColour_(withColour)
    {
        for (const ColouredCloud& c : clouds) {
            count_ += c.cloud->points.size();
            withNormals_ = withNormals_ && c.cloud->normals.size() == c.cloud->points.size();
        }
        inDouble_ = std::any_of(clouds.begin(), clouds.end(), [&](const auto& c) { return needsDoubles(*c.cloud); });
    }

    void Write(StagedFile& file) const
    {
        constexpr std::size_t Block = std::size_t{1} << 20U; // bytes
        std::string bytes = header();
        for (const ColouredCloud& c : clouds_)
            for (std::size_t i = 0; i < c.cloud->points.size(); ++i) {
                append(bytes, c, i);
                if (bytes.size() < Block) continue;
                file.Write(bytes);
                bytes.clear();
            }
        file.Write(bytes);
    }

private:
    [[nodiscard]] bool needsDoubles(const prereg::Scan& cloud) const
    {
        for (std::size_t i = 0; i < cloud.points.size(); ++i)
            for (const double mm : cloud.At(i)) {
                const double value = mm / form_.mmPerUnit;
                const double error = std::abs(value - double{static_cast<float>(value)});
                if (error * form_.mmPerUnit > form_.tolerance) return true;
            }
        return false;
    }

    [[nodiscard]] std::string header() const
    {
        std::string text = "ply\nformat binary_little_endian 1.0\nelement vertex " + std::to_string(count_) + "\n";
        for (const char* name : {"x", "y", "z"})
            text += std::string("property ") + (inDouble_ ? "double " : "float ") + name + "\n";
        if (withNormals_)
            for (const char* name : {"nx", "ny", "nz"}) text += std::string("property float ") + name + "\n";
        if (withColour_)
            for (const char* name : {"red", "green", "blue"}) text += std::string("property uchar ") + name + "\n";
        return text + "end_header\n";
    }

    void append(std::string& bytes, const ColouredCloud& c, std::size_t i) const
    {
        for (const double mm : c.cloud->At(i)) {
            const double value = mm / form_.mmPerUnit;
            if (inDouble_)
                Append<double, std::uint64_t>(bytes, value);
            else
                AppendFloat(bytes, static_cast<float>(value));
        }
        for (unsigned k = 0; withNormals_ && k < 3; ++k) AppendFloat(bytes, c.cloud->normals[i][k]);
        if (withColour_) bytes.append(reinterpret_cast<const char*>(c.colour.data()), c.colour.size());
    }

    const std::vector<ColouredCloud>& clouds_;
    const PlyForm& form_;
    bool withColour_;
    std::size_t count_ = 0;
    bool withNormals_ = true;
    bool inDouble_ = false;
};

void Write(const std::string& path, const std::vector<ColouredCloud>& clouds, const PlyForm& form, bool withColour)
{
    StagedFile file(path);
    PlyFile(clouds, form, withColour).Write(file);
    file.Keep();
}

} // namespace

void WritePly(const std::string& path, const prereg::Scan& cloud, const PlyForm& form)
{
    Write(path, {{&cloud, {}}}, form, false);
}

void WritePly(const std::string& path, const std::vector<ColouredCloud>& clouds, const PlyForm& form)
{
    Write(path, clouds, form, true);
}

} // namespace voalgo
