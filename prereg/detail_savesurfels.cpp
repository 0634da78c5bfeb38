#include "prereg/detail_savesurfels.h"

#include <fstream>
#include <stdexcept>

namespace prereg::detail {

void SaveSurfels(const std::string& fileName, const std::vector<kdtree::Vector<3>>& points,
                 const std::vector<kdtree::Vector<3>>& normals, unsigned colour)
{
    constexpr unsigned NoColour = 0xFFFFFFFFU;
    if (fileName.empty()) throw std::invalid_argument("empty file name");
    std::ofstream out;
    out.exceptions(std::ios::failbit | std::ios::badbit);
    out.open(fileName, std::ios::out | std::ios::trunc);
    for (std::size_t i = 0; i < points.size(); ++i) {
        const kdtree::Vector<3>& p = points[i];
        const kdtree::Vector<3>& n = normals[i];
        out << p.x << ' ' << p.y << ' ' << p.z << ' ' << n.x << ' ' << n.y << ' ' << n.z;
        if (colour != NoColour)
            out << ' ' << (colour >> 16 & 0xFFU) << ' ' << (colour >> 8 & 0xFFU) << ' ' << (colour & 0xFFU);
        out << std::endl; // deliberate flush: a log of a crashing run stays readable
    }
    out.close();
}

} // namespace prereg::detail
