#include "VoAlgorithms/raster/ctriangle2d.h"

#include "raster/detail_exactsum.h"

#include <algorithm>
#include <bit>
#include <cfloat>
#include <climits>
#include <span>
#include <utility>

namespace VoAlgo {
namespace {

using Point = CTriangle2D::Point;

bool IsFinite(const Point& p)
{
    return std::isfinite(p[0]) && std::isfinite(p[1]);
}

/// Whether the rounded difference of a and b is their difference.
bool IsExact(double difference, double a, double b)
{
    return a - difference == b && b + difference == a;
}

bool IsExact(const Point& difference, const Point& a, const Point& b)
{
    return IsExact(difference[0], a[0], b[0]) && IsExact(difference[1], a[1], b[1]);
}

/// Whether a·b, rounded to `product`, is that plus a remainder which is a double: neither under- nor overflows.
bool HasRemainder(double product, double a, double b)
{
    return a == 0 || b == 0 || (std::abs(product) > 0x1p-900 && std::abs(product) < 0x1p1000);
}

int Sign(double v)
{
    return (v > 0) - (v < 0);
}

double Cross(const Point& a, const Point& b)
{
    return a[0] * b[1] - a[1] * b[0];
}

Point operator-(const Point& a, const Point& b)
{
    return {a[0] - b[0], a[1] - b[1]};
}

double Length(const Point& a)
{
    return std::hypot(a[0], a[1]);
}

bool Between(double a, double b, double c, double d) // whether [a, b] and [c, d] meet, whatever the order of their ends
{
    return std::max(a, b) >= std::min(c, d) && std::max(c, d) >= std::min(a, b);
}

bool SegmentsMeet(const Point& p, const Point& q, const Point& r, const Point& s)
{
    if (!Between(p[0], q[0], r[0], s[0]) || !Between(p[1], q[1], r[1], s[1])) return false;
    const auto areOnOneSide = [](const Point& a, const Point& b, const Point& c, const Point& d) {
        return CTriangle2D::Orientation(a, b, c) * CTriangle2D::Orientation(a, b, d) > 0;
    };
    return !areOnOneSide(p, q, r, s) && !areOnOneSide(r, s, p, q); // on one line their boxes meet only if they do
}

bool IsInside(const Point& p, std::span<const Point> ring)
{
    int sum = 0;
    for (std::size_t i = 0; i < ring.size(); ++i)
        sum += CTriangle2D::Orientation(ring[i], ring[(i + 1) % ring.size()], p);
    return std::abs(sum) == static_cast<int>(ring.size());
}

/// Whether two convex rings, their insides included, have a point in common.
bool RingsMeet(std::span<const Point> a, std::span<const Point> b)
{
    for (std::size_t i = 0; i < a.size(); ++i)
        for (std::size_t j = 0; j < b.size(); ++j)
            if (SegmentsMeet(a[i], a[(i + 1) % a.size()], b[j], b[(j + 1) % b.size()])) return true;
    return IsInside(a[0], b) || IsInside(b[0], a);
}

/// The first row or column whose centre is not before v, in [begin, end]. v − 0.5 is exact wherever it matters.
std::int64_t FirstCentre(double v, std::int64_t begin, std::int64_t end)
{
    const double first = std::ceil(v - 0.5);
    if (first <= static_cast<double>(begin)) return begin;
    return first < static_cast<double>(end) ? static_cast<std::int64_t>(first) : end;
}

std::array<Point, 3> Downwards(std::array<Point, 3> corners)
{
    std::ranges::sort(corners, {}, [](const Point& p) { return p[1]; });
    return corners;
}

/// v = k·2^exponent with an odd k; not for 0.
int ExponentOfLastBit(double v)
{
    int exponent = 0;
    const auto mantissa = static_cast<std::int64_t>(std::ldexp(std::frexp(v, &exponent), 53));
    return exponent - 53 + std::countr_zero(static_cast<std::uint64_t>(mantissa));
}

/// For exact differences that are multiples of a power of two, by less than 2¹⁴, as those of neighbours on a lattice.
std::optional<int> LatticeInCircle(const std::array<Point, 3>& differences)
{
    double largest = 0;
    int unit = INT_MAX;
    for (const Point& p : differences)
        for (const double v : p) {
            largest = std::max(largest, std::abs(v));
            if (v != 0) unit = std::min(unit, ExponentOfLastBit(v));
        }
    if (largest == 0) return 0;
    if (!(std::ldexp(largest, -unit) < 0x1p14)) return std::nullopt;
    std::array<std::array<std::int64_t, 2>, 3> k;
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 2; ++j) k[i][j] = static_cast<std::int64_t>(std::ldexp(differences[i][j], -unit));
    std::int64_t sum = 0;
    for (std::size_t i = 0; i < 3; ++i) {
        const auto &p = k[i], &q = k[(i + 1) % 3], &r = k[(i + 2) % 3];
        sum += (p[0] * p[0] + p[1] * p[1]) * (q[0] * r[1] - q[1] * r[0]); // less than 2²⁹·2²⁹
    }
    return (sum > 0) - (sum < 0);
}

int ExactInCircle(const std::array<Point, 4>& points)
{
    if (!std::ranges::all_of(points, IsFinite)) return 0;
    // Σ ± xᵢ·yⱼ·(xₖ² + yₖ²) over all orders of i, j, k and the one left out: the determinant with rows (x, y, x² + y²,
    // 1)
    ExactSum<4> sum;
    std::array<std::size_t, 4> order = {0, 1, 2, 3};
    do {
        int sign = 1;
        for (std::size_t i = 0; i < 4; ++i)
            for (std::size_t j = i + 1; j < 4; ++j)
                if (order[i] > order[j]) sign = -sign;
        const double x = points[order[0]][0], y = points[order[1]][1];
        const Point& lifted = points[order[2]];
        sum.Add(sign, {x, y, lifted[0], lifted[0]});
        sum.Add(sign, {x, y, lifted[1], lifted[1]});
    } while (std::ranges::next_permutation(order).found);
    return sum.Sign();
}

} // namespace

int CTriangle2D::exactOrientation(const Point& a, const Point& b, const Point& c)
{
    if (!IsFinite(a) || !IsFinite(b) || !IsFinite(c)) return 0;
    const Point ac = a - c, bc = b - c;
    const double left = ac[0] * bc[1], right = ac[1] * bc[0];
    if (IsExact(ac, a, c) && IsExact(bc, b, c) && HasRemainder(left, ac[0], bc[1]) &&
        HasRemainder(right, ac[1], bc[0])) { // as on every lattice
        if (left != right) return left > right ? 1 : -1;
        return Sign(std::fma(ac[0], bc[1], -left) - std::fma(ac[1], bc[0], -right));
    }
    ExactSum<2> sum;
    const std::array<const Point*, 4> cycle = {&a, &b, &c, &a};
    for (std::size_t i = 0; i < 3; ++i) {
        const Point &p = *cycle[i], &q = *cycle[i + 1];
        sum.Add(1, {p[0], q[1]});
        sum.Add(-1, {p[1], q[0]});
    }
    return sum.Sign();
}

int CTriangle2D::InCircle(const Point& a, const Point& b, const Point& c, const Point& d)
{
    // Rounding errors in units of the sum of the products' amounts (Shewchuk, section 4.4). While the sum of the
    // squares is within bounds, products that fall below the smallest normal number add less than the second.
    constexpr double Bound = 1.1102230246251577e-15, LargestSum = 0x1p400, Lost = 0x1p-600;
    const Point ad = a - d, bd = b - d, cd = c - d;
    const auto lift = [](const Point& p) { return p[0] * p[0] + p[1] * p[1]; };
    const auto sizeOfCross = [](const Point& p, const Point& q) {
        return std::abs(p[0] * q[1]) + std::abs(p[1] * q[0]);
    };
    const double liftA = lift(ad), liftB = lift(bd), liftC = lift(cd);
    const double determinant = liftA * Cross(bd, cd) + liftB * Cross(cd, ad) + liftC * Cross(ad, bd);
    const double size = sizeOfCross(bd, cd) * liftA + sizeOfCross(cd, ad) * liftB + sizeOfCross(ad, bd) * liftC;
    if (liftA + liftB + liftC < LargestSum && std::abs(determinant) > Bound * size + Lost) return Sign(determinant);
    if (IsExact(ad, a, d) && IsExact(bd, b, d) && IsExact(cd, c, d))
        if (const auto sign = LatticeInCircle({ad, bd, cd})) return *sign;
    return ExactInCircle({a, b, c, d});
}

CTriangle2D::CTriangle2D(const Point& a, const Point& b, const Point& c)
    : corners_{a, b, c}, isValid_(std::ranges::all_of(corners_, IsFinite)), orientation_(Orientation(a, b, c))
{
}

double CTriangle2D::SignedArea() const
{
    return orientation_ == 0 ? 0 : Cross(corners_[1] - corners_[0], corners_[2] - corners_[0]) / 2;
}

std::optional<std::array<double, 3>> CTriangle2D::Barycentric(const Point& p) const
{
    if (orientation_ == 0) return std::nullopt;
    const auto& [a, b, c] = corners_;
    const Point ap = a - p, bp = b - p, cp = c - p;
    const double area = Cross(b - a, c - a);
    return std::array{Cross(bp, cp) / area, Cross(cp, ap) / area, Cross(ap, bp) / area};
}

std::optional<CTriangle2D::Circle> CTriangle2D::Circumcircle() const
{
    if (orientation_ == 0) return std::nullopt;
    const auto& a = corners_[0];
    const Point b = corners_[1] - a, c = corners_[2] - a;
    const double bSq = b[0] * b[0] + b[1] * b[1], cSq = c[0] * c[0] + c[1] * c[1], twice = 2 * Cross(b, c);
    const Point fromA = {(c[1] * bSq - b[1] * cSq) / twice, (b[0] * cSq - c[0] * bSq) / twice};
    return Circle{{a[0] + fromA[0], a[1] + fromA[1]}, Length(fromA)};
}

std::optional<CTriangle2D::Circle> CTriangle2D::Incircle() const
{
    if (!isValid_) return std::nullopt;
    const auto& [a, b, c] = corners_;
    const double oppositeA = Length(b - c), oppositeB = Length(c - a), oppositeC = Length(a - b);
    const double perimeter = oppositeA + oppositeB + oppositeC;
    if (perimeter == 0) return Circle{a, 0};
    const double wB = oppositeB / perimeter,
                 wC = oppositeC / perimeter; // moved to a, so that a far origin costs no digits
    const Point fromB = b - a, fromC = c - a;
    return Circle{{a[0] + (wB * fromB[0] + wC * fromC[0]), a[1] + (wB * fromB[1] + wC * fromC[1])},
                  2 * Area() / perimeter};
}

bool CTriangle2D::Contains(const Point& p) const
{
    return OverlapsSegment(p, p);
}

bool CTriangle2D::Overlaps(const CTriangle2D& other) const
{
    return isValid_ && other.isValid_ && RingsMeet(corners_, other.corners_);
}

bool CTriangle2D::OverlapsSegment(const Point& p, const Point& q) const
{
    return isValid_ && IsFinite(p) && IsFinite(q) && RingsMeet(corners_, std::array{p, q});
}

bool CTriangle2D::OverlapsRectangle(const Point& p, const Point& q) const
{
    const std::array<Point, 4> rectangle = {p, {q[0], p[1]}, q, {p[0], q[1]}};
    return isValid_ && IsFinite(p) && IsFinite(q) && RingsMeet(corners_, rectangle);
}

CTriangle2D::Edge::Edge(const Point& from, const Point& to)
    : top(from), bottom(to), slope((to[0] - from[0]) / (to[1] - from[1])),
      error(8 * DBL_EPSILON * (std::abs(from[0]) + std::abs(to[0]) + 1))
{
}

/// The first pixel of row y whose centre is not left of the edge, in [begin, end].
std::int64_t CTriangle2D::Edge::firstPixel(std::int64_t y, std::int64_t begin, std::int64_t end) const
{
    const double yCentre = static_cast<double>(y) + 0.5;
    const double x = top[0] + (yCentre - top[1]) * slope;
    if (x - error <= x + error) { // else one of them is no number
        const std::int64_t first = FirstCentre(x - error, begin, end), last = FirstCentre(x + error, begin, end);
        begin = first;
        end = last;
    }
    while (begin < end) { // seldom: a centre next to the edge
        const std::int64_t middle = begin + (end - begin) / 2;
        if (Orientation(top, bottom, {static_cast<double>(middle) + 0.5, yCentre}) <= 0)
            end = middle;
        else
            begin = middle + 1;
    }
    return begin;
}

CTriangle2D::Scan::Scan(const CTriangle2D& triangle, const PixelRect& clip)
    : Scan(Downwards(triangle.corners_), triangle.orientation_ != 0, clip.Intersection(PixelRect::Everything()))
{
}

CTriangle2D::Scan::Scan(const std::array<Point, 3>& corners, bool hasArea, const PixelRect& clip)
    : long_(corners[0], corners[2]), upper_(corners[0], corners[1]), lower_(corners[1], corners[2]), rest_(clip)
{
    // The middle corner lies right of the long edge.
    isLongLeft_ = Orientation(corners[0], corners[2], corners[1]) < 0;
    if (!hasArea || clip.IsEmpty()) {
        rest_.yEnd = rest_.yBegin;
        return;
    }
    rest_.yBegin = FirstCentre(corners[0][1], clip.yBegin, clip.yEnd);
    yLower_ = FirstCentre(corners[1][1], clip.yBegin, clip.yEnd);
    rest_.yEnd = FirstCentre(corners[2][1], clip.yBegin, clip.yEnd);
}

bool CTriangle2D::Scan::Next(Run& run)
{
    while (rest_.yBegin < rest_.yEnd) {
        const std::int64_t y = rest_.yBegin++;
        const Edge& other = y < yLower_ ? upper_ : lower_;
        run = {static_cast<std::int32_t>(y), (isLongLeft_ ? long_ : other).firstPixel(y, rest_.xBegin, rest_.xEnd),
               (isLongLeft_ ? other : long_).firstPixel(y, rest_.xBegin, rest_.xEnd)};
        if (run.xBegin < run.xEnd) return true;
    }
    return false;
}

/// How the weights of the second and the third corner grow along x and y.
std::array<CTriangle2D::Point, 2> CTriangle2D::weightGradients() const
{
    const Point b = corners_[1] - corners_[0], c = corners_[2] - corners_[0];
    const double area = Cross(b, c);
    return {Point{c[1] / area, -c[0] / area}, Point{-b[1] / area, b[0] / area}};
}

} // namespace VoAlgo
