#include "VoAlgorithms/prereg/cdirtymap.h"

#include <bit>
#include <cmath>

namespace prereg {
namespace {

using Vec3 = kdtree::Vector<3>;

constexpr float CoarseEdge = 5.0F;
constexpr float FineEdge = 0.5F;

/// The fourth lane is 1, so that it has a reciprocal.
Vec3 Edges(float edge)
{
    Vec3 edges(edge, edge, edge);
    edges.w = 1.0F;
    return edges;
}

/// Exact, not the processor's approximation: that would move the cells of far positions away from the reported boxes.
Vec3 Inverse(const Vec3& edge)
{
    Vec3 inverse(1.0F / edge.x, 1.0F / edge.y, 1.0F / edge.z);
    inverse.w = 1.0F / edge.w;
    return inverse;
}

/// The centre of the cell that contains p. Rounds half to even.
inline Vec3 CellKey(const Vec3& p, const Vec3& inverseEdge, const Vec3& edge)
{
    return {std::nearbyint(p.x * inverseEdge.x) * edge.x, std::nearbyint(p.y * inverseEdge.y) * edge.y,
            std::nearbyint(p.z * inverseEdge.z) * edge.z};
}

std::uint64_t Bits(float x)
{
    return std::bit_cast<std::uint32_t>(x + 0.0F); // −0 becomes 0: they are the same key
}

} // namespace

std::uint32_t CDirtyMap::CellHash::operator()(const Vec3& key) const
{
    std::uint64_t h = (Bits(key.x) | Bits(key.y) << 32) * 0x9E3779B97F4A7C15ULL;
    h = (h ^ h >> 32 ^ Bits(key.z)) * 0xD6E8FEB86659FD93ULL;
    return static_cast<std::uint32_t>(h >> 32);
}

CDirtyMap::FineGrid::FineGrid() : edge_(Edges(FineEdge)), inverseEdge_(Inverse(edge_)) {}

void CDirtyMap::FineGrid::insert(std::uint32_t generation, const Vec3& p)
{
    std::uint32_t& stamp = cells_[CellKey(p, inverseEdge_, edge_)];
    if (stamp == 0)
        ++new_;
    else if (stamp + 1 == generation)
        ++confirmed_;
    else
        return;
    stamp = generation;
}

bool CDirtyMap::FineGrid::fix(std::uint32_t generation)
{
    const std::size_t total = cells_.Size();
    if (confirmed_ == total) {
        confirmed_ = 0;
        return false;
    }
    const bool isComplete = std::size_t{confirmed_} + new_ == total;
    confirmed_ = new_ = 0;
    if (!isComplete) cells_.EraseIf([generation](const Vec3&, std::uint32_t stamp) { return stamp < generation; });
    return true;
}

CDirtyMap::CDirtyMap() : edge_(Edges(CoarseEdge)), inverseEdge_(Inverse(edge_)) {}

void CDirtyMap::insert(const Vec3& p)
{
    if (p.IsValid()) cells_[CellKey(p, inverseEdge_, edge_)].insert(generation_, p);
}

std::vector<kdtree::Range<3>> CDirtyMap::dirty()
{
    std::vector<kdtree::Range<3>> boxes;
    std::vector<Vec3> emptied;
    const Vec3 half = edge_ * 0.5F;
    cells_.ForEach([&](const Vec3& key, FineGrid& grid) {
        if (grid.fix(generation_)) boxes.push_back({key - half, key + half});
        if (grid.empty()) emptied.push_back(key);
    });
    ++generation_;
    for (const Vec3& key : emptied) cells_.Erase(key);
    return boxes;
}

void CDirtyMap::reset()
{
    cells_.Clear();
    generation_ = 1;
}

} // namespace prereg
