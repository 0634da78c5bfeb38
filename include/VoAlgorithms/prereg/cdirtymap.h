#pragma once

#include "VoAlgorithms/clustering/thashmap.h"
#include "VoAlgorithms/export.h"
#include "VoAlgorithms/kdtree/range.h"
#include "VoAlgorithms/kdtree/vector.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace prereg {

/// Remembers which regions of space held points in the previous update of a cloud and reports those that gained or lost
/// some: coarse cells of 5 mm, each with a grid of fine cells of 0.5 mm. All inserts up to a call of dirty() make one
/// generation.
class VOALGO_API CDirtyMap {
    struct CellHash {
        std::uint32_t operator()(const kdtree::Vector<3>& key) const;
    };
    struct CellCompare {
        bool operator()(const kdtree::Vector<3>& a, const kdtree::Vector<3>& b) const
        {
            return (static_cast<int>(a.x == b.x) & static_cast<int>(a.y == b.y) & static_cast<int>(a.z == b.z)) != 0;
        }
    };
    template <class Value>
    using CellMap = VoAlgo::THashMap<kdtree::Vector<3>, Value, CellHash, CellCompare>;

public:
    /// The fine cells of one coarse cell.
    class VOALGO_API FineGrid {
    public:
        /// Marks the fine cell of a point, which lies in this coarse cell; generations come in ascending order.
        void insert(std::uint32_t generation, const kdtree::Vector<3>& p);
        /// Ends a generation: drops the fine cells that received no point in it. Returns whether cells were gained
        /// or lost.
        bool fix(std::uint32_t generation);
        /// Whether no fine cell is left.
        [[nodiscard]] bool empty() const { return total_ == 0; }

    private:
        /// Four by four by four cells, a bit each: a whole scan's cells then stay in the cache.
        struct Block {
            std::uint64_t cells = 0;      // that exist
            std::uint64_t seenBefore = 0; // in the generation before that of seenNow
            std::uint64_t seenNow = 0;
            std::uint32_t generation = 0;

            void open(std::uint32_t next);
        };

        std::uint32_t confirmed_ = 0; // cells seen again in the current generation
        std::uint32_t new_ = 0;       // cells created in it
        std::uint32_t total_ = 0;     // cells
        CellMap<Block> blocks_;
    };

    /// The empty map and generation 1.
    CDirtyMap();

    /// Marks the cell of a point, mm. A position that is not finite lies in no cell and is ignored. O(1).
    void insert(const kdtree::Vector<3>& p) { insert(&p.x, &p.y, &p.z, 1); }
    /// The same for n points, given as coordinate planes; fastest when neighbours follow each other.
    void insert(const float* x, const float* y, const float* z, std::size_t n);
    /// Ends the generation: the boxes of the coarse cells that changed since the previous call, in no particular but
    /// always the same order. Linear in the number of fine cells.
    [[nodiscard]] std::vector<kdtree::Range<3>> dirty();
    /// Back to the empty map and generation 1.
    void reset();
    /// Number of coarse cells.
    [[nodiscard]] std::size_t cells() const { return cells_.Size(); }

private:
    CellMap<FineGrid> cells_;
    kdtree::Vector<3> edge_;
    kdtree::Vector<3> inverseEdge_;
    std::uint32_t generation_ = 1;
};

} // namespace prereg
