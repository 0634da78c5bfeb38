#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/raster/pixelrect.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <type_traits>
#include <utility>
#include <vector>

namespace VoAlgo {

/// The places [xBegin, xEnd) × [yBegin, yEnd) of the plane; none if an end does not lie behind its begin.
struct RealRect {
    ///@{
    /// A bound.
    double xBegin = 0, yBegin = 0, xEnd = 0, yEnd = 0;
    ///@}

    /// Whether there are no places; so it is for bounds that are no numbers.
    [[nodiscard]] bool IsEmpty() const { return !(xBegin < xEnd && yBegin < yEnd); }
    /// The places of both.
    [[nodiscard]] RealRect Intersection(const RealRect& other) const
    {
        return {xBegin < other.xBegin ? other.xBegin : xBegin, yBegin < other.yBegin ? other.yBegin : yBegin,
                other.xEnd < xEnd ? other.xEnd : xEnd, other.yEnd < yEnd ? other.yEnd : yEnd};
    }
    /// Whether all bounds are the same.
    bool operator==(const RealRect&) const = default;
};

/// A rectangle of the plane divided into disjoint rectangles with a value each. Setting a rectangle cuts those that it
/// meets; later values win. GetMerged joins pieces again.
///
/// A binary tree of cuts. When a path is longer than a few logarithms, parts that have grown to one side are built
/// again around the middle of their rectangles: setting and locating take logarithmic time (amortised, and for each
/// piece that is replaced) as long as there are lines that part the rectangles without cutting many. Source: M. H.
/// Overmars, The Design of Dynamic Data Structures (1983), on partial rebuilding.
template <class Rectangle>
class TPlanePartition {
public:
    /// Of coordinates.
    using Bound = decltype(Rectangle::xBegin);
    /// Of areas; exact for integers of less than 2⁶⁴.
    using Area = std::conditional_t<std::is_integral_v<Bound>, std::uint64_t, double>;
    /// What a rectangle carries.
    using Value = std::int32_t;

    /// A rectangle and its value.
    struct Piece {
        Rectangle rectangle; ///< the rectangle
        Value value;         ///< its value
    };

    /// A domain with one value; an empty one stays empty.
    explicit TPlanePartition(const Rectangle& domain, Value value = 0);

    /// The rectangle that is divided.
    [[nodiscard]] const Rectangle& GetDomain() const { return domain_; }
    /// Number of pieces.
    [[nodiscard]] std::size_t NumRectangles() const { return nodes_[0].size; }
    /// Gives a rectangle, as far as it lies in the domain, a value.
    void Set(const Rectangle& rectangle, Value value);
    /// The value at (x, y) and the piece that has it; an empty piece and 0 outside the domain.
    [[nodiscard]] std::pair<Rectangle, Value> Locate(Bound x, Bound y) const;
    /// Calls f(piece, value) for each piece that has a place in common with a rectangle, in a fixed order.
    template <class F>
    void Visit(const Rectangle& rectangle, F&& f) const
    {
        if (!domain_.Intersection(rectangle).IsEmpty()) visit(0, domain_, rectangle, f);
    }
    /// The same for all pieces.
    template <class F>
    void Visit(F&& f) const
    {
        Visit(domain_, std::forward<F>(f));
    }
    /// The pieces, those of the same value that have a whole side in common joined, along x and then along y, until
    /// there are none.
    [[nodiscard]] std::vector<Piece> GetMerged() const;
    /// The total area of each value. Values of all of 2⁶⁴ pixels have the area 0.
    [[nodiscard]] std::map<Value, Area> GetAreas() const;

private:
    struct Node {
        Bound cut = 0;
        std::uint32_t children = 0; // two adjacent nodes; none for 0
        std::uint32_t size = 1;     // pieces below
        std::uint32_t sizeAtBuild = 1;
        Value value = 0;
        bool isCutAlongY = false; // parts above and below, not left and right
    };

    static std::pair<Rectangle, Rectangle> halves(const Rectangle& region, const Node& node)
    {
        std::pair<Rectangle, Rectangle> both{region, region};
        if (node.isCutAlongY)
            both.first.yEnd = both.second.yBegin = node.cut;
        else
            both.first.xEnd = both.second.xBegin = node.cut;
        return both;
    }
    template <class F>
    void visit(std::uint32_t index, const Rectangle& region, const Rectangle& rectangle, F&& f) const
    {
        const Node& node = nodes_[index];
        if (node.children == 0) return f(region, node.value);
        const auto [first, second] = halves(region, node);
        if (!first.Intersection(rectangle).IsEmpty()) visit(node.children, first, rectangle, f);
        if (!second.Intersection(rectangle).IsEmpty()) visit(node.children + 1, second, rectangle, f);
    }
    unsigned set(std::uint32_t index, const Rectangle& region, const Rectangle& rectangle, Value value, unsigned depth);
    void rebuildUnbalanced(std::uint32_t index, const Rectangle& region, const Rectangle& rectangle);
    [[nodiscard]] std::vector<Piece> getPieces(std::uint32_t index, const Rectangle& region) const;
    void rebuild(std::uint32_t index, const Rectangle& region);
    void build(std::uint32_t index, const Rectangle& region, std::vector<Piece> pieces);
    void split(std::uint32_t index, Bound cut, bool isCutAlongY);
    void makeLeaf(std::uint32_t index, Value value);
    static std::pair<Bound, bool> firstCut(const Rectangle& region, const Rectangle& rectangle);
    static std::pair<Bound, bool> bestCut(const Rectangle& region, const std::vector<Piece>& pieces);
    static void merge(std::vector<Piece>& pieces);

    Rectangle domain_;
    std::vector<Node> nodes_;
    std::vector<std::uint32_t> free_; // pairs of nodes to use again
};

extern template class VOALGO_API TPlanePartition<PixelRect>;
extern template class VOALGO_API TPlanePartition<RealRect>;

} // namespace VoAlgo
