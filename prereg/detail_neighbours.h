#pragma once

#include "VoAlgorithms/clustering/csearchgrid.h"
#include "platform/simd.h"

#include <bit>
#include <cstdint>
#include <limits>
#include <vector>

namespace prereg::detail {

inline std::size_t NumCandidates(const VoAlgo::CSearchGrid::Run* runs)
{
    std::size_t candidates = 0;
    for (std::size_t row = 0; row < VoAlgo::CSearchGrid::NumRuns; ++row) candidates += runs[row].end - runs[row].begin;
    return candidates;
}

/// Calls visit(first, mask, dx, dy, dz, distanceSq) for groups of eight sorted positions from `first` on: offsets from
/// `place` and a bit for every position within the radius, border included. Ascending; the mask may be empty: for most
/// visitors a branch on it costs more, mispredicted, than it saves.
template <class Pack, class Visit>
void ForGroups(const VoAlgo::CSearchGrid& grid, const kdtree::Vector<3>& place, const VoAlgo::CSearchGrid::Run* runs,
               float radiusSq, Visit visit)
{
    const Pack px = Pack::Set(place.x);
    const Pack py = Pack::Set(place.y);
    const Pack pz = Pack::Set(place.z);
    const Pack bound = Pack::Set(radiusSq);
    for (std::size_t row = 0; row < VoAlgo::CSearchGrid::NumRuns; ++row) {
        const std::uint32_t end = runs[row].end;
        for (std::uint32_t i = runs[row].begin; i < end; i += VoAlgo::simd::Lanes) {
            const Pack dx = Pack::Load(grid.X() + i) - px;
            const Pack dy = Pack::Load(grid.Y() + i) - py;
            const Pack dz = Pack::Load(grid.Z() + i) - pz;
            const Pack distanceSq = (dx * dx + dy * dy) + dz * dz;
            unsigned mask = Pack::MaskLessEqual(distanceSq, bound);
            if (end - i < VoAlgo::simd::Lanes) mask &= (1U << (end - i)) - 1U;
            visit(i, mask, dx, dy, dz, distanceSq);
        }
    }
}

/// Sets the bytes of all points within the radius of `place`. `marks`: one byte a position, eight more behind the last.
template <class Pack>
void MarkNeighbours(const VoAlgo::CSearchGrid& grid, const kdtree::Vector<3>& place,
                    const VoAlgo::CSearchGrid::Run* runs, float radiusSq, std::uint8_t* marks)
{
    ForGroups<Pack>(grid, place, runs, radiusSq, [marks](std::uint32_t first, unsigned mask, Pack, Pack, Pack, Pack) {
        VoAlgo::simd::SetBytes(mask, marks + first);
    });
}

/// Sorted positions and squared distances of the points around one, itself included.
struct NeighbourList {
    std::size_t count = 0;
    std::vector<std::uint32_t> positions; ///< at least eight entries longer than `count`
    std::vector<float> distancesSq;

    void Reserve(std::size_t neighbours)
    {
        if (positions.size() >= neighbours + VoAlgo::simd::Lanes) return;
        positions.resize(2 * neighbours + VoAlgo::simd::Lanes);
        distancesSq.resize(positions.size());
    }
};

/// Lists the points within the radius of the one at a sorted position, in sorted order.
template <class Pack>
void ListNeighbours(const VoAlgo::CSearchGrid& grid, std::uint32_t self, float radiusSq, NeighbourList& out)
{
    const VoAlgo::CSearchGrid::Run* runs = grid.Neighbourhood(grid.CellOf(self));
    out.Reserve(NumCandidates(runs));
    std::uint32_t* const positions = out.positions.data();
    float* const distancesSq = out.distancesSq.data();
    std::size_t n = 0;
    ForGroups<Pack>(grid, grid.Point(self), runs, radiusSq,
                    [=, &n](std::uint32_t first, unsigned mask, Pack, Pack, Pack, Pack distanceSq) {
                        Pack::CompressNumbers(first, mask, positions + n);
                        Pack::Compress(distanceSq, mask, distancesSq + n);
                        n += static_cast<std::size_t>(std::popcount(mask));
                    });
    out.count = n;
}

/// The neighbours of one point, back to back, so that the kernels take eight at a time.
class NeighbourPlanes {
public:
    enum Plane : std::size_t {
        DX, ///< neighbour minus point
        DY,
        DZ,
        DistanceSq,
        NX, ///< its normal
        NY,
        NZ,
        NumPlanes
    };

    std::size_t count = 0;

    [[nodiscard]] float* operator[](Plane plane) { return values_.data() + plane * stride_; }
    [[nodiscard]] const float* operator[](Plane plane) const { return values_.data() + plane * stride_; }
    /// Entries of a plane.
    [[nodiscard]] std::size_t Capacity() const { return stride_; }
    /// Room for that many neighbours and eight entries behind them. Forgets what was there.
    void Reserve(std::size_t neighbours)
    {
        if (stride_ >= neighbours + VoAlgo::simd::Lanes) return;
        stride_ = 2 * neighbours + VoAlgo::simd::Lanes;
        values_.resize(NumPlanes * stride_);
    }

private:
    std::vector<float> values_; // plane by plane
    std::size_t stride_ = 0;
};

/// Normals in the sorted order of a grid, as planes readable up to eight entries past the end.
struct NormalPlanes {
    std::vector<float> x, y, z;
};

/// Collects the neighbours of the point at a sorted position, itself left out. What follows the last neighbour up to
/// the next multiple of eight adds nothing to the sums over neighbours: no offset, infinite distance, the point's own
/// normal.
template <class Pack>
void CollectNeighbours(const VoAlgo::CSearchGrid& grid, const NormalPlanes& normals, std::uint32_t self, float radiusSq,
                       NeighbourPlanes& out)
{
    using enum NeighbourPlanes::Plane;
    const VoAlgo::CSearchGrid::Run* runs = grid.Neighbourhood(grid.CellOf(self));
    out.Reserve(NumCandidates(runs));
    float* const planes = out[DX];
    const std::size_t stride = out.Capacity();
    std::size_t n = 0;
    ForGroups<Pack>(
        grid, grid.Point(self), runs, radiusSq,
        [&, planes, stride](std::uint32_t first, unsigned mask, Pack dx, Pack dy, Pack dz, Pack distanceSq) {
            if (self - first < VoAlgo::simd::Lanes) mask &= ~(1U << (self - first));
            float* const to = planes + n;
            Pack::Compress(dx, mask, to + DX * stride);
            Pack::Compress(dy, mask, to + DY * stride);
            Pack::Compress(dz, mask, to + DZ * stride);
            Pack::Compress(distanceSq, mask, to + DistanceSq * stride);
            Pack::Compress(Pack::Load(&normals.x[first]), mask, to + NX * stride);
            Pack::Compress(Pack::Load(&normals.y[first]), mask, to + NY * stride);
            Pack::Compress(Pack::Load(&normals.z[first]), mask, to + NZ * stride);
            n += static_cast<std::size_t>(std::popcount(mask));
        });
    out.count = n;
    for (; n % VoAlgo::simd::Lanes != 0; ++n) {
        out[DX][n] = out[DY][n] = out[DZ][n] = 0.0F;
        out[DistanceSq][n] = std::numeric_limits<float>::infinity();
        out[NX][n] = normals.x[self];
        out[NY][n] = normals.y[self];
        out[NZ][n] = normals.z[self];
    }
}

} // namespace prereg::detail
