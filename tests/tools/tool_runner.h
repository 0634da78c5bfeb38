#pragma once

#include "VoAlgorithms/kdtree/vector.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace tooltest {

/// Two real scans that overlap.
inline const std::string Fix = VOALGO_SOURCE_DIR "/examples/data/hippo1.ply";
inline const std::string Flt = VOALGO_SOURCE_DIR "/examples/data/hippo2.ply";

struct Outcome {
    int exitCode;
    std::string output; // standard output
    std::string errors; // standard error
};

/// A temporary directory in which the tool runs; it is removed with the object.
class Workplace {
public:
    Workplace();
    Workplace(const Workplace&) = delete;
    Workplace& operator=(const Workplace&) = delete;
    ~Workplace();

    /// Runs `voalgo arguments`; a shell splits the arguments.
    [[nodiscard]] Outcome Run(const std::string& arguments) const;
    /// Runs a script of the shell, to which the tool is "$VOALGO".
    [[nodiscard]] Outcome Shell(const std::string& script) const;
    void Write(const std::string& name, const std::string& content) const;
    [[nodiscard]] std::string Read(const std::string& name) const;
    [[nodiscard]] std::string PathOf(const std::string& name) const { return (path_ / name).string(); }
    [[nodiscard]] bool Has(const std::string& name) const { return std::filesystem::exists(path_ / name); }
    /// The content of every file, by path, save for the output of the last run.
    [[nodiscard]] std::map<std::string, std::string> Everything() const;

private:
    std::filesystem::path path_;
};

/// The bytes of a file, wherever it is.
std::string FileBytes(const std::filesystem::path& path);

using Points = std::vector<kdtree::Vector<3>>;

/// A closed bumpy surface of about `size` mm around the origin, n points evenly spread over the directions.
Points Blob(unsigned n, float size);
/// The same points as lines of text, with a normal each when `normals` is given.
std::string XyzText(const Points& points, const Points& normals = {});
/// A vertex-only binary PLY file; normals may be left out.
std::string PlyBytes(const Points& points, const Points& normals = {});

/// Points and normals of a binary PLY file with the columns x y z nx ny nz and `extraBytes` more.
struct PlyContent {
    Points points;
    Points normals;
};
PlyContent ParsePly(const std::string& bytes, std::size_t extraBytes = 0);

} // namespace tooltest
