#include "VoAlgorithms/raster/tplanepartition.h"

#include <algorithm>
#include <array>
#include <bit>
#include <tuple>

namespace VoAlgo {
namespace {

template <class Rectangle>
bool Covers(const Rectangle& a, const Rectangle& b)
{
    return a.xBegin <= b.xBegin && a.yBegin <= b.yBegin && a.xEnd >= b.xEnd && a.yEnd >= b.yEnd;
}

} // namespace

template <class Rectangle>
TPlanePartition<Rectangle>::TPlanePartition(const Rectangle& domain, Value value)
    : domain_(domain.IsEmpty() ? Rectangle{} : domain), nodes_(1)
{
    nodes_[0].value = value;
    nodes_[0].size = domain_.IsEmpty() ? 0 : 1;
}

template <class Rectangle>
void TPlanePartition<Rectangle>::Set(const Rectangle& rectangle, Value value)
{
    const Rectangle inside = domain_.Intersection(rectangle);
    if (rectangle.IsEmpty() || inside.IsEmpty()) return;
    const unsigned depth = set(0, domain_, inside, value, 0);
    if (depth > 10 + 3 * static_cast<unsigned>(std::bit_width(NumRectangles()))) rebuildUnbalanced(0, domain_, inside);
}

template <class Rectangle>
std::pair<Rectangle, typename TPlanePartition<Rectangle>::Value> TPlanePartition<Rectangle>::Locate(Bound x,
                                                                                                    Bound y) const
{
    if (!(x >= domain_.xBegin && x < domain_.xEnd && y >= domain_.yBegin && y < domain_.yEnd)) return {{}, 0};
    Rectangle region = domain_;
    std::uint32_t index = 0;
    while (nodes_[index].children != 0) {
        const Node& node = nodes_[index];
        const auto [first, second] = halves(region, node);
        const bool isSecond = (node.isCutAlongY ? y : x) >= node.cut;
        region = isSecond ? second : first;
        index = node.children + (isSecond ? 1 : 0);
    }
    return {region, nodes_[index].value};
}

/// A side of the rectangle within a region that it meets in part: across the longer direction if there is one.
template <class Rectangle>
std::pair<typename TPlanePartition<Rectangle>::Bound, bool>
TPlanePartition<Rectangle>::firstCut(const Rectangle& region, const Rectangle& rectangle)
{
    const bool isAcrossX = rectangle.xBegin > region.xBegin || rectangle.xEnd < region.xEnd;
    const bool isAcrossY = rectangle.yBegin > region.yBegin || rectangle.yEnd < region.yEnd;
    const bool isTall = region.yEnd - region.yBegin > region.xEnd - region.xBegin;
    if (isAcrossY && (isTall || !isAcrossX))
        return {rectangle.yBegin > region.yBegin ? rectangle.yBegin : rectangle.yEnd, true};
    return {rectangle.xBegin > region.xBegin ? rectangle.xBegin : rectangle.xEnd, false};
}

/// A piece that is met in part is cut along a side of the rectangle, and so on in the parts. Returns the largest depth
/// of the pieces set.
template <class Rectangle>
unsigned TPlanePartition<Rectangle>::set(std::uint32_t index, const Rectangle& region, const Rectangle& rectangle,
                                         Value value, unsigned depth)
{
    if (region.Intersection(rectangle).IsEmpty()) return 0;
    if (Covers(rectangle, region)) {
        makeLeaf(index, value);
        return depth;
    }
    if (nodes_[index].children == 0) {
        if (nodes_[index].value == value) return depth;
        const auto [cut, isCutAlongY] = firstCut(region, rectangle);
        split(index, cut, isCutAlongY);
    }
    const std::uint32_t children = nodes_[index].children;
    const auto [first, second] = halves(region, nodes_[index]);
    const unsigned deepest = std::max(set(children, first, rectangle, value, depth + 1),
                                      set(children + 1, second, rectangle, value, depth + 1));
    const Node &a = nodes_[children], &b = nodes_[children + 1];
    if (a.children == 0 && b.children == 0 && a.value == b.value)
        makeLeaf(index, value);
    else
        nodes_[index].size = a.size + b.size;
    return deepest;
}

/// Builds the largest parts again that grew by half to one side, along the paths to a rectangle.
template <class Rectangle>
void TPlanePartition<Rectangle>::rebuildUnbalanced(std::uint32_t index, const Rectangle& region,
                                                   const Rectangle& rectangle)
{
    const Node node = nodes_[index];
    if (node.children == 0 || region.Intersection(rectangle).IsEmpty()) return;
    const std::uint32_t larger = std::max(nodes_[node.children].size, nodes_[node.children + 1].size);
    const bool isGrown = node.size > node.sizeAtBuild + node.sizeAtBuild / 2 + 4;
    if (isGrown && larger > node.size - node.size / 4) return rebuild(index, region);
    const auto [first, second] = halves(region, node);
    rebuildUnbalanced(node.children, first, rectangle);
    rebuildUnbalanced(node.children + 1, second, rectangle);
    nodes_[index].size = nodes_[node.children].size + nodes_[node.children + 1].size;
}

template <class Rectangle>
void TPlanePartition<Rectangle>::rebuild(std::uint32_t index, const Rectangle& region)
{
    std::vector<Piece> pieces = getPieces(index, region);
    makeLeaf(index, 0);
    merge(pieces);
    build(index, region, std::move(pieces));
}

template <class Rectangle>
void TPlanePartition<Rectangle>::build(std::uint32_t index, const Rectangle& region, std::vector<Piece> pieces)
{
    nodes_[index].value = pieces[0].value;
    if (pieces.size() == 1) return;
    const auto [cut, isCutAlongY] = bestCut(region, pieces);
    split(index, cut, isCutAlongY);
    const std::uint32_t children = nodes_[index].children;
    const auto [first, second] = halves(region, nodes_[index]);
    std::array<std::vector<Piece>, 2> parts;
    for (const Piece& piece : pieces)
        for (const bool isSecond : {false, true}) {
            const Rectangle part = piece.rectangle.Intersection(isSecond ? second : first);
            if (!part.IsEmpty()) parts[isSecond].push_back({part, piece.value});
        }
    pieces = {};
    build(children, first, std::move(parts[0]));
    build(children + 1, second, std::move(parts[1]));
    nodes_[index].size = nodes_[index].sizeAtBuild = nodes_[children].size + nodes_[children + 1].size;
}

/// The side of a piece that leaves fewest on the larger side of the cut and cuts fewest.
template <class Rectangle>
std::pair<typename TPlanePartition<Rectangle>::Bound, bool>
TPlanePartition<Rectangle>::bestCut(const Rectangle& region, const std::vector<Piece>& pieces)
{
    std::pair<Bound, bool> best{};
    std::size_t least = SIZE_MAX;
    for (const bool isAlongY : {false, true}) {
        std::vector<Bound> begins, ends;
        for (const Piece& piece : pieces) {
            begins.push_back(isAlongY ? piece.rectangle.yBegin : piece.rectangle.xBegin);
            ends.push_back(isAlongY ? piece.rectangle.yEnd : piece.rectangle.xEnd);
        }
        std::ranges::sort(begins);
        std::ranges::sort(ends);
        const Bound low = isAlongY ? region.yBegin : region.xBegin;
        // Every side within is the begin of a piece: pieces leave no gaps.
        std::size_t numEnded = 0;
        for (std::size_t numBegun = 0; numBegun < begins.size(); ++numBegun) {
            const Bound cut = begins[numBegun];
            if (cut == low || (numBegun > 0 && cut == begins[numBegun - 1])) continue;
            while (ends[numEnded] <= cut) ++numEnded;
            const std::size_t after = pieces.size() - numEnded, numCut = numBegun - numEnded;
            const std::size_t cost = std::max(numBegun, after) + 2 * numCut;
            if (cost >= least) continue;
            least = cost;
            best = {cut, isAlongY};
        }
    }
    return best;
}

template <class Rectangle>
void TPlanePartition<Rectangle>::split(std::uint32_t index, Bound cut, bool isCutAlongY)
{
    std::uint32_t children = 0;
    if (free_.empty()) {
        children = static_cast<std::uint32_t>(nodes_.size());
        nodes_.resize(nodes_.size() + 2);
    } else {
        children = free_.back();
        free_.pop_back();
    }
    Node& node = nodes_[index];
    node.cut = cut;
    node.isCutAlongY = isCutAlongY;
    node.children = children;
    node.size = 2;
    nodes_[children] = nodes_[children + 1] = Node{.value = node.value};
}

template <class Rectangle>
void TPlanePartition<Rectangle>::makeLeaf(std::uint32_t index, Value value)
{
    if (const std::uint32_t children = nodes_[index].children; children != 0) {
        makeLeaf(children, 0);
        makeLeaf(children + 1, 0);
        free_.push_back(children);
    }
    nodes_[index] = Node{.value = value};
}

/// Along x, then along y, until nothing changes.
template <class Rectangle>
void TPlanePartition<Rectangle>::merge(std::vector<Piece>& pieces)
{
    for (std::size_t before = 0; before != pieces.size();) { // none in an empty domain
        before = pieces.size();
        for (const bool isAlongY : {false, true}) {
            const auto key = [isAlongY](const Piece& p) {
                const Rectangle& r = p.rectangle;
                return isAlongY ? std::tuple(p.value, r.xBegin, r.xEnd, r.yBegin)
                                : std::tuple(p.value, r.yBegin, r.yEnd, r.xBegin);
            };
            std::ranges::sort(pieces, {}, key);
            std::size_t kept = 0;
            for (std::size_t i = 1; i < pieces.size(); ++i) {
                Rectangle &last = pieces[kept].rectangle, &next = pieces[i].rectangle;
                const bool isSame = pieces[kept].value == pieces[i].value;
                if (isSame && isAlongY && last.xBegin == next.xBegin && last.xEnd == next.xEnd &&
                    last.yEnd == next.yBegin)
                    last.yEnd = next.yEnd;
                else if (isSame && !isAlongY && last.yBegin == next.yBegin && last.yEnd == next.yEnd &&
                         last.xEnd == next.xBegin)
                    last.xEnd = next.xEnd;
                else
                    pieces[++kept] = pieces[i];
            }
            pieces.resize(kept + 1);
        }
    }
}

template <class Rectangle>
auto TPlanePartition<Rectangle>::GetMerged() const -> std::vector<Piece>
{
    std::vector<Piece> pieces = getPieces(0, domain_);
    merge(pieces);
    return pieces;
}

template <class Rectangle>
auto TPlanePartition<Rectangle>::getPieces(std::uint32_t index, const Rectangle& region) const -> std::vector<Piece>
{
    std::vector<Piece> pieces;
    if (region.IsEmpty()) return pieces;
    pieces.reserve(nodes_[index].size);
    visit(index, region, region, [&](const Rectangle& r, Value value) { pieces.push_back({r, value}); });
    return pieces;
}

template <class Rectangle>
std::map<typename TPlanePartition<Rectangle>::Value, typename TPlanePartition<Rectangle>::Area>
TPlanePartition<Rectangle>::GetAreas() const
{
    std::map<Value, Area> areas;
    Visit([&](const Rectangle& r, Value value) {
        areas[value] += static_cast<Area>(r.xEnd - r.xBegin) * static_cast<Area>(r.yEnd - r.yBegin);
    });
    return areas;
}

template class TPlanePartition<PixelRect>;
template class TPlanePartition<RealRect>;

} // namespace VoAlgo
