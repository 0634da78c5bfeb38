// Any bytes as a PLY file: points and surface are read or refused with the file's name, and agree with each other.
// Memory stays in proportion to the file.
#include "exchange/files/input_error.h"
#include "exchange/files/read_ply.h"
#include "tests/fuzz/detail_require.h"

#include <optional>
#include <sstream>
#include <string_view>

namespace {

template <class Read>
auto Tried(const std::string& bytes, Read&& read) -> std::optional<decltype(read(std::declval<voalgo::PlyReader&>()))>
{
    std::istringstream stream(bytes);
    try {
        voalgo::PlyReader reader(stream, "f.ply");
        return read(reader);
    } catch (const voalgo::InputError& error) {
        Require(std::string_view(error.what()).substr(0, 5) == "f.ply");
    }
    return std::nullopt;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const auto points = Tried(bytes, [](voalgo::PlyReader& r) { return r.Points(1.0); });
    const auto surface = Tried(bytes, [](voalgo::PlyReader& r) { return r.Surface(); });
    if (points) Require(points->points.size() <= size && points->normals.size() <= size);
    if (!surface) return 0;
    Require(points &&
            points->points.size() == surface->mesh.vertices.size()); // faces can be wrong where points are right
    Require(points->normals.size() == surface->normals.size() && surface->mesh.triangles.size() <= size);
    for (const auto& triangle : surface->mesh.triangles)
        for (const std::uint32_t corner : triangle) Require(corner < surface->mesh.vertices.size());
    return 0;
}
