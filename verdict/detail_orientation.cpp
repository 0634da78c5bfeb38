#include "verdict/detail_orientation.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <tuple>

namespace prereg::detail {
namespace {

using Point = std::array<double, 3>;
using Triangle = std::array<std::uint32_t, 3>;

Point Minus(const Point& a, const Point& b)
{
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}

Point Cross(const Point& a, const Point& b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

double Dot(const Point& a, const Point& b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

/// For each vertex, the first one of those at its place in lexical order.
std::vector<std::uint32_t> Welded(const std::vector<Point>& vertices)
{
    std::vector<std::uint32_t> order(vertices.size());
    std::iota(order.begin(), order.end(), 0U);
    std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
        return vertices[a] != vertices[b] ? vertices[a] < vertices[b] : a < b;
    });
    std::vector<std::uint32_t> first(vertices.size());
    for (std::size_t i = 0; i < order.size(); ++i)
        first[order[i]] = i > 0 && vertices[order[i]] == vertices[order[i - 1]] ? first[order[i - 1]] : order[i];
    return first;
}

struct Edge {
    std::uint32_t low, high; // welded vertices
    std::uint32_t triangle;
    bool upwards; // runs from low to high in its triangle
};

std::vector<Edge> EdgesOf(const std::vector<Triangle>& triangles)
{
    std::vector<Edge> edges;
    edges.reserve(3 * triangles.size());
    for (std::uint32_t t = 0; t < triangles.size(); ++t)
        for (unsigned k = 0; k < 3; ++k) {
            const std::uint32_t from = triangles[t][k], to = triangles[t][(k + 1) % 3];
            if (triangles[t][0] == triangles[t][1] || triangles[t][1] == triangles[t][2] ||
                triangles[t][2] == triangles[t][0])
                continue; // collapsed: its remaining edge joins nothing
            edges.push_back({std::min(from, to), std::max(from, to), t, from < to});
        }
    std::sort(edges.begin(), edges.end(), [](const Edge& a, const Edge& b) {
        return std::tie(a.low, a.high, a.triangle) < std::tie(b.low, b.high, b.triangle);
    });
    return edges;
}

constexpr std::uint32_t None = 0xFFFFFFFF;

/// Triangles that hang together, and the box and volume that they enclose.
struct Piece {
    std::vector<std::uint32_t> triangles;
    Point low = {INFINITY, INFINITY, INFINITY}, high = {-INFINITY, -INFINITY, -INFINITY};
    double volumeTimes6 = 0.0; // positive: faces outwards
    double areaAsRead = 0.0;   // of the triangles that are not reversed, minus that of the others; times 2
    bool closed = true;
};

class Orienter {
public:
    explicit Orienter(const TriangleMesh& mesh) : mesh_(mesh), triangles_(mesh.triangles)
    {
        const std::vector<std::uint32_t> first = Welded(mesh.vertices);
        for (Triangle& triangle : triangles_)
            for (std::uint32_t& corner : triangle) corner = first[corner];
        result_.reversed.assign(triangles_.size(), 0);
        joinNeighbours();
    }

    Orientation Run()
    {
        std::vector<char> seen(triangles_.size(), 0);
        for (std::uint32_t t = 0; t < triangles_.size(); ++t)
            if (seen[t] == 0) pieces_.push_back(grow(t, seen));
        result_.closed = !pieces_.empty();
        std::vector<char> turn;
        for (const Piece& piece : pieces_) {
            const bool inwards = (piece.volumeTimes6 < 0.0) != (piece.closed && isInsideAnother(piece));
            turn.push_back(piece.closed ? inwards : piece.areaAsRead < 0.0);
            result_.closed = result_.closed && piece.closed;
        }
        for (std::size_t i = 0; i < pieces_.size(); ++i)
            if (turn[i] != 0)
                for (const std::uint32_t t : pieces_[i].triangles) result_.reversed[t] ^= 1;
        return std::move(result_);
    }

private:
    void joinNeighbours()
    {
        neighbours_.assign(triangles_.size(), {None, None, None});
        sameWay_.assign(triangles_.size(), 0);
        open_.assign(triangles_.size(), 0);
        const std::vector<Edge> edges = EdgesOf(triangles_);
        std::vector<unsigned char> used(triangles_.size(), 0);
        for (std::size_t i = 0, end = 0; i < edges.size(); i = end) {
            while (end < edges.size() && edges[end].low == edges[i].low && edges[end].high == edges[i].high) ++end;
            if (end - i != 2) {
                for (std::size_t k = i; k < end; ++k) open_[edges[k].triangle] |= (end - i) % 2;
                continue;
            }
            const std::uint32_t a = edges[i].triangle, b = edges[i + 1].triangle;
            const bool same = edges[i].upwards != edges[i + 1].upwards; // consistent triangles run opposite ways
            sameWay_[a] |= static_cast<char>(same ? 1 << used[a] : 0);
            sameWay_[b] |= static_cast<char>(same ? 1 << used[b] : 0);
            neighbours_[a][used[a]++] = b;
            neighbours_[b][used[b]++] = a;
        }
    }

    Piece grow(std::uint32_t start, std::vector<char>& seen)
    {
        Piece piece;
        piece.triangles = {start};
        seen[start] = 1;
        for (std::size_t i = 0; i < piece.triangles.size(); ++i) {
            const std::uint32_t t = piece.triangles[i];
            if (open_[t] != 0) piece.closed = false;
            for (unsigned k = 0; k < 3 && neighbours_[t][k] != None; ++k) {
                const std::uint32_t next = neighbours_[t][k];
                const char wanted = static_cast<char>(result_.reversed[t] ^ ((sameWay_[t] >> k & 1) == 0 ? 1 : 0));
                if (seen[next] == 0) {
                    seen[next] = 1;
                    result_.reversed[next] = wanted;
                    piece.triangles.push_back(next);
                } else if (result_.reversed[next] != wanted) {
                    result_.consistent = piece.closed = false;
                }
            }
        }
        measure(piece);
        return piece;
    }

    void measure(Piece& piece) const
    {
        const Point centre = corner(piece.triangles.front(), 0); // nearby, so that a distant mesh keeps its digits
        for (const std::uint32_t t : piece.triangles) {
            const Point a = Minus(corner(t, 0), centre), b = Minus(corner(t, 1), centre);
            const Point c = Minus(corner(t, 2), centre);
            const double sign = result_.reversed[t] != 0 ? -1.0 : 1.0;
            piece.volumeTimes6 += sign * Dot(a, Cross(b, c));
            const Point normal = Cross(Minus(b, a), Minus(c, a));
            piece.areaAsRead += sign * std::sqrt(Dot(normal, normal));
            for (unsigned k = 0; k < 3; ++k)
                for (unsigned i = 0; i < 3; ++i) {
                    piece.low[i] = std::min(piece.low[i], corner(t, k)[i]);
                    piece.high[i] = std::max(piece.high[i], corner(t, k)[i]);
                }
        }
    }

    /// Whether an odd number of closed pieces encloses this one.
    [[nodiscard]] bool isInsideAnother(const Piece& piece) const
    {
        bool inside = false;
        for (const Piece& other : pieces_) {
            bool contained = other.closed && &other != &piece;
            for (unsigned i = 0; i < 3 && contained; ++i)
                contained = other.low[i] < piece.low[i] && piece.high[i] < other.high[i];
            if (contained && crossesOddly(other, corner(piece.triangles.front(), 0))) inside = !inside;
        }
        return inside;
    }

    /// Whether a ray from a point, in a direction that no edge of a model is likely to have, leaves the piece.
    [[nodiscard]] bool crossesOddly(const Piece& piece, const Point& from) const
    {
        constexpr Point Direction = {0.5381, 0.2917, 0.7908};
        bool odd = false;
        for (const std::uint32_t t : piece.triangles) {
            const Point a = Minus(corner(t, 0), from), b = Minus(corner(t, 1), from), c = Minus(corner(t, 2), from);
            const double u = Dot(Direction, Cross(a, b)), v = Dot(Direction, Cross(b, c));
            const double w = Dot(Direction, Cross(c, a));
            const bool hit = (u > 0.0 && v > 0.0 && w > 0.0) || (u < 0.0 && v < 0.0 && w < 0.0);
            if (hit && Dot(a, Cross(b, c)) / (u + v + w) > 0.0) odd = !odd; // the distance along the ray
        }
        return odd;
    }

    [[nodiscard]] const Point& corner(std::uint32_t t, unsigned k) const { return mesh_.vertices[triangles_[t][k]]; }

    const TriangleMesh& mesh_;
    std::vector<Triangle> triangles_;                      // over welded vertices
    std::vector<std::array<std::uint32_t, 3>> neighbours_; // filled from the front
    std::vector<char> sameWay_;                            // bit k: neighbour k has the same winding
    std::vector<char> open_;                               // has an edge that an odd number of triangles shares
    std::vector<Piece> pieces_;
    Orientation result_;
};

} // namespace

Orientation OrientTriangles(const TriangleMesh& mesh)
{
    return Orienter(mesh).Run();
}

} // namespace prereg::detail
