#include "verdict/detail_flatfaces.h"

#include <algorithm>
#include <cstddef>

namespace prereg::detail {
namespace {

using Vec3 = kdtree::Vector<3>;

constexpr std::size_t Faces = 3;
constexpr std::size_t Candidates = 60; // directions that are tried, taken from the normals
constexpr float CosSameFace = 0.9848F; // 10 degrees

/// The candidate that most normals face; the first of equals.
Vec3 MainDirection(const std::vector<Vec3>& normals)
{
    const std::size_t step = std::max<std::size_t>(1, normals.size() / Candidates);
    Vec3 main;
    std::ptrdiff_t most = 0;
    for (std::size_t i = 0; i < normals.size(); i += step) {
        const auto facing = std::count_if(normals.begin(), normals.end(),
                                          [&](const Vec3& n) { return n.Dot(normals[i]) > CosSameFace; });
        if (facing <= most) continue;
        most = facing;
        main = normals[i];
    }
    return main;
}

} // namespace

double ShareBeyondThreeFaces(std::vector<Vec3> normals)
{
    const std::size_t all = normals.size();
    for (std::size_t face = 0; face < Faces; ++face) {
        const Vec3 main = MainDirection(normals);
        std::erase_if(normals, [&](const Vec3& n) { return n.Dot(main) > CosSameFace; });
    }
    return all == 0 ? 0.0 : static_cast<double>(normals.size()) / static_cast<double>(all);
}

} // namespace prereg::detail
