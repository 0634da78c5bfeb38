#include "tools/tool_runner.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <numbers>
#include <sstream>
#include <stdexcept>

#include <sys/wait.h>
#include <unistd.h>

namespace tooltest {

Workplace::Workplace()
{
    std::string name = (std::filesystem::temp_directory_path() / "voalgo_test_XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
    path_ = name;
}

Workplace::~Workplace()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

Outcome Workplace::Run(const std::string& arguments) const
{
    return Shell("\"$VOALGO\" " + arguments);
}

Outcome Workplace::Shell(const std::string& script) const
{
    const std::string command = "cd '" + path_.string() + "' && export VOALGO='" VOALGO_TOOL "' && { " + script +
                                "\n} > stdout.txt 2> stderr.txt";
    const int status = std::system(command.c_str()); // NOLINT(cert-env33-c)
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Read("stdout.txt"), Read("stderr.txt")};
}

void Workplace::Write(const std::string& name, const std::string& content) const
{
    std::ofstream(path_ / name, std::ios::binary) << content;
}

std::string Workplace::Read(const std::string& name) const
{
    return FileBytes(path_ / name);
}

std::map<std::string, std::string> Workplace::Everything() const
{
    std::map<std::string, std::string> everything;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path_))
        everything[entry.path().string()] = entry.is_regular_file() ? FileBytes(entry.path()) : "";
    for (const char* name : {"stdout.txt", "stderr.txt"}) everything.erase(PathOf(name));
    return everything;
}

std::string FileBytes(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("no file " + path.string());
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

Points Blob(unsigned n, float size)
{
    Points points;
    for (unsigned i = 0; i < n; ++i) {
        const double z = 1.0 - (2.0 * i + 1.0) / n, turn = i * std::numbers::pi * (3.0 - std::sqrt(5.0));
        const double x = std::sqrt(1.0 - z * z) * std::cos(turn), y = std::sqrt(1.0 - z * z) * std::sin(turn);
        const double r = 0.4 * size * (1.0 + 0.15 * std::sin(4.0 * x + 1.0) * y + 0.1 * std::cos(5.0 * z + x));
        points.emplace_back(static_cast<float>(r * x), static_cast<float>(r * y), static_cast<float>(r * z));
    }
    return points;
}

std::string XyzText(const Points& points, const Points& normals)
{
    std::ostringstream text;
    text.precision(9);
    for (std::size_t i = 0; i < points.size(); ++i) {
        text << points[i].x << ' ' << points[i].y << ' ' << points[i].z;
        if (!normals.empty()) text << ' ' << normals[i].x << ' ' << normals[i].y << ' ' << normals[i].z;
        text << '\n';
    }
    return text.str();
}

std::string PlyBytes(const Points& points, const Points& normals)
{
    std::string bytes = "ply\nformat binary_little_endian 1.0\nelement vertex " + std::to_string(points.size()) +
                        "\nproperty float x\nproperty float y\nproperty float z\n";
    if (!normals.empty()) bytes += "property float nx\nproperty float ny\nproperty float nz\n";
    bytes += "end_header\n";
    for (std::size_t i = 0; i < points.size(); ++i) {
        bytes.append(reinterpret_cast<const char*>(&points[i].x), 12);
        if (!normals.empty()) bytes.append(reinterpret_cast<const char*>(&normals[i].x), 12);
    }
    return bytes;
}

PlyContent ParsePly(const std::string& bytes, std::size_t extraBytes)
{
    const std::string end = "end_header\n";
    const std::size_t start = bytes.find(end) + end.size(), row = 24 + extraBytes;
    PlyContent content;
    for (std::size_t i = start; i + row <= bytes.size(); i += row) {
        float v[6];
        std::memcpy(v, bytes.data() + i, sizeof(v));
        content.points.emplace_back(v[0], v[1], v[2]);
        content.normals.emplace_back(v[3], v[4], v[5]);
    }
    return content;
}

} // namespace tooltest
