#include "VoAlgorithms/verdict/voxeldown.h"

#include "VoAlgorithms/clustering/csearchgrid.h"

namespace prereg {

Scan VoxelDown(const Scan& scan, double edge)
{
    Scan thinned;
    thinned.origin = scan.origin;
    const bool withNormals = !scan.normals.empty();
    const VoAlgo::CSearchGrid grid(scan.points, static_cast<float>(edge));
    for (std::size_t c = 0; c < grid.NumCells(); ++c) {
        const std::uint32_t begin = grid.Cells()[c].begin;
        const std::uint32_t end = grid.Cells()[c + 1].begin;
        kdtree::Vector<3> point;
        kdtree::Vector<3> normal;
        const kdtree::Vector<3> first = grid.Point(begin);
        for (std::uint32_t i = begin; i < end; ++i) {
            point += grid.Point(i) - first; // small numbers keep their digits
            if (withNormals) normal += scan.normals[grid.Order()[i]];
        }
        thinned.points.push_back(first + point / static_cast<float>(end - begin));
        if (!withNormals) continue;
        const float length = normal.Norm();
        thinned.normals.push_back(length > 0.0F ? normal / length : kdtree::Vector<3>());
    }
    return thinned;
}

} // namespace prereg
