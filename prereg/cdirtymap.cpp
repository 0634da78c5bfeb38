#include "VoAlgorithms/prereg/cdirtymap.h"

#include <algorithm>
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

/// Positions out of all proportion share a cell, so that indices stay finite.
inline float CellIndex(float position, float edge)
{
    constexpr float Largest = 1e18F;
    return std::clamp(std::nearbyint(position / edge), -Largest, Largest);
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

void CDirtyMap::FineGrid::Block::open(std::uint32_t next)
{
    if (generation == next) return;
    seenBefore = generation + 1 == next ? seenNow : 0;
    seenNow = 0;
    generation = next;
}

void CDirtyMap::FineGrid::insert(std::uint32_t generation, const Vec3& p)
{
    const Vec3 cell(CellIndex(p.x, FineEdge), CellIndex(p.y, FineEdge), CellIndex(p.z, FineEdge));
    const Vec3 at(std::floor(cell.x * 0.25F), std::floor(cell.y * 0.25F), std::floor(cell.z * 0.25F));
    const Vec3 inBlock = cell - 4.0F * at;
    const std::uint64_t bit = std::uint64_t{1} << static_cast<int>(inBlock.x + 4.0F * inBlock.y + 16.0F * inBlock.z);

    Block& block = blocks_[at];
    block.open(generation);
    if ((block.cells & bit) == 0) {
        ++new_;
        ++total_;
        block.cells |= bit;
    } else if ((block.seenBefore & ~block.seenNow & bit) != 0) {
        ++confirmed_;
    } else {
        return;
    }
    block.seenNow |= bit;
}

bool CDirtyMap::FineGrid::fix(std::uint32_t generation)
{
    if (confirmed_ == total_) {
        confirmed_ = 0;
        return false;
    }
    const bool isComplete = confirmed_ + new_ == total_;
    confirmed_ = new_ = 0;
    if (isComplete) return true;
    total_ = 0;
    blocks_.EraseIf([this, generation](const Vec3&, Block& block) {
        block.open(generation);
        block.cells &= block.seenNow;
        total_ += static_cast<std::uint32_t>(std::popcount(block.cells));
        return block.cells == 0;
    });
    return true;
}

CDirtyMap::CDirtyMap() : edge_(Edges(CoarseEdge)), inverseEdge_(Inverse(edge_)) {}

void CDirtyMap::insert(const float* x, const float* y, const float* z, std::size_t n)
{
    Vec3 key;
    FineGrid* grid = nullptr;
    for (std::size_t i = 0; i < n; ++i) {
        const Vec3 p(x[i], y[i], z[i]);
        if (!p.IsValid()) continue;
        const Vec3 next = CellKey(p, inverseEdge_, edge_);
        if (grid == nullptr || !CellCompare()(next, key)) grid = &cells_[key = next];
        grid->insert(generation_, p);
    }
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
