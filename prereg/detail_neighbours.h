#pragma once

#include "VoAlgorithms/clustering/csearchgrid.h"
#include "platform/simd.h"

#include <bit>
#include <cstdint>
#include <limits>
#include <vector>

namespace prereg::detail {

/// Calls visit(position, distanceSq) for every grid point within the radius of `place`, border included, in sorted order.
template <class Pack, class Visit>
void ForNeighbours(const VoAlgo::CSearchGrid& grid, const kdtree::Vector<3>& place,
                   const VoAlgo::CSearchGrid::Run* runs, float radiusSq, Visit visit)
{
    const Pack px = Pack::Set(place.x);
    const Pack py = Pack::Set(place.y);
    const Pack pz = Pack::Set(place.z);
    const Pack bound = Pack::Set(radiusSq);
    for (std::size_t row = 0; row < VoAlgo::CSearchGrid::NumRuns; ++row) {
        for (std::uint32_t i = runs[row].begin; i < runs[row].end; i += VoAlgo::simd::Lanes) {
            const Pack dx = Pack::Load(grid.X() + i) - px;
            const Pack dy = Pack::Load(grid.Y() + i) - py;
            const Pack dz = Pack::Load(grid.Z() + i) - pz;
            const Pack distanceSq = (dx * dx + dy * dy) + dz * dz;
            unsigned mask = Pack::MaskLessEqual(distanceSq, bound);
            if (runs[row].end - i < VoAlgo::simd::Lanes) mask &= (1U << (runs[row].end - i)) - 1U;
            if (mask == 0) continue;
            float lanes[VoAlgo::simd::Lanes];
            distanceSq.Store(lanes);
            for (; mask != 0; mask &= mask - 1) {
                const auto lane = static_cast<std::uint32_t>(std::countr_zero(mask));
                visit(i + lane, lanes[lane]);
            }
        }
    }
}

/// The neighbours of one point, back to back, so that the kernels take eight at a time.
struct NeighbourPlanes {
    std::size_t count = 0;
    std::vector<float> dx, dy, dz; ///< neighbour minus point
    std::vector<float> distanceSq;
    std::vector<float> nx, ny, nz; ///< its normal

    void Reserve(std::size_t candidates)
    {
        if (dx.size() >= candidates + VoAlgo::simd::Lanes) return;
        for (auto* plane : {&dx, &dy, &dz, &distanceSq, &nx, &ny, &nz}) plane->resize(2 * candidates + VoAlgo::simd::Lanes);
    }
};

/// Normals in the sorted order of a grid, as planes readable up to eight entries past the end.
struct NormalPlanes {
    std::vector<float> x, y, z;
};

/// Collects the neighbours of the point at a sorted position, itself left out. What follows the last neighbour up to the
/// next multiple of eight adds nothing to the sums over neighbours: no offset, infinite distance, the point's own normal.
template <class Pack>
void CollectNeighbours(const VoAlgo::CSearchGrid& grid, const NormalPlanes& normals, std::uint32_t self, float radiusSq,
                       NeighbourPlanes& out)
{
    const VoAlgo::CSearchGrid::Run* runs = grid.Neighbourhood(grid.CellOf(self));
    std::size_t candidates = 0;
    for (std::size_t row = 0; row < VoAlgo::CSearchGrid::NumRuns; ++row) candidates += runs[row].end - runs[row].begin;
    out.Reserve(candidates);

    const Pack px = Pack::Set(grid.X()[self]);
    const Pack py = Pack::Set(grid.Y()[self]);
    const Pack pz = Pack::Set(grid.Z()[self]);
    const Pack bound = Pack::Set(radiusSq);
    std::size_t n = 0;
    for (std::size_t row = 0; row < VoAlgo::CSearchGrid::NumRuns; ++row) {
        for (std::uint32_t i = runs[row].begin; i < runs[row].end; i += VoAlgo::simd::Lanes) {
            const Pack dx = Pack::Load(grid.X() + i) - px;
            const Pack dy = Pack::Load(grid.Y() + i) - py;
            const Pack dz = Pack::Load(grid.Z() + i) - pz;
            const Pack distanceSq = (dx * dx + dy * dy) + dz * dz;
            unsigned mask = Pack::MaskLessEqual(distanceSq, bound);
            if (runs[row].end - i < VoAlgo::simd::Lanes) mask &= (1U << (runs[row].end - i)) - 1U;
            if (self - i < VoAlgo::simd::Lanes) mask &= ~(1U << (self - i));
            if (mask == 0) continue;
            Pack::Compress(dx, mask, &out.dx[n]);
            Pack::Compress(dy, mask, &out.dy[n]);
            Pack::Compress(dz, mask, &out.dz[n]);
            Pack::Compress(distanceSq, mask, &out.distanceSq[n]);
            Pack::Compress(Pack::Load(&normals.x[i]), mask, &out.nx[n]);
            Pack::Compress(Pack::Load(&normals.y[i]), mask, &out.ny[n]);
            Pack::Compress(Pack::Load(&normals.z[i]), mask, &out.nz[n]);
            n += static_cast<std::size_t>(std::popcount(mask));
        }
    }
    out.count = n;
    for (; n % VoAlgo::simd::Lanes != 0; ++n) {
        out.dx[n] = out.dy[n] = out.dz[n] = 0.0F;
        out.distanceSq[n] = std::numeric_limits<float>::infinity();
        out.nx[n] = normals.x[self];
        out.ny[n] = normals.y[self];
        out.nz[n] = normals.z[self];
    }
}

} // namespace prereg::detail
