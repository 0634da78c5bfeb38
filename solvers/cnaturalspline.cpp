#include "VoAlgorithms/solvers/cnaturalspline.h"

#include "platform/finite.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace VoAlgo {
namespace {

using Numbers = std::vector<double>;

constexpr double Infinity = std::numeric_limits<double>::infinity();
constexpr double Epsilon = std::numeric_limits<double>::epsilon();

[[noreturn]] void Refuse(const std::string& why)
{
    throw std::invalid_argument("CNaturalSpline: " + why);
}

void CheckFinite(const Numbers& numbers, const char* name)
{
    if (AllFinite(numbers.data(), numbers.size())) return;
    const auto fault = std::ranges::find_if_not(numbers, [](double e) { return std::isfinite(e); });
    Refuse(std::string(name) + "[" + std::to_string(fault - numbers.begin()) + "] is not finite");
}

void CheckData(const Numbers& x, const Numbers& y, std::size_t least)
{
    if (x.size() != y.size()) Refuse(std::to_string(x.size()) + " x, but " + std::to_string(y.size()) + " y are given");
    if (x.size() < least)
        Refuse(std::to_string(x.size()) + " points; at least " + std::to_string(least) + " are needed");
    CheckFinite(x, "x");
    CheckFinite(y, "y");
    for (std::size_t i = 1; i < x.size(); ++i) {
        const double gap = x[i] - x[i - 1];
        if (gap > 1e-300 && gap < 1e300) continue; // one test; the rare rest is told apart here
        const std::string places = "x[" + std::to_string(i - 1) + "] and x[" + std::to_string(i) + "]";
        if (!(gap > 0)) Refuse(places + " are not strictly ascending");
        if (!std::isfinite(gap) || !std::isfinite(1 / gap)) Refuse(places + " are too far apart or too close together");
    }
}

void CheckStretch(double from, double to)
{
    if (!std::isfinite(from) || !std::isfinite(to)) Refuse("the ends of a stretch must be finite");
}

/// hᵢ = xᵢ₊₁ − xᵢ.
struct Gaps {
    const Numbers& x;

    double operator[](std::size_t i) const { return x[i + 1] - x[i]; }
};

/// r, with rᵢ = 6·(yᵢ₊₁ − yᵢ)/hᵢ − 6·(yᵢ − yᵢ₋₁)/hᵢ₋₁ at the inner points and 0 at the ends.
Numbers Bends(const Gaps& h, const Numbers& y)
{
    Numbers r(y.size());
    double before = (y[1] - y[0]) / h[0];
    for (std::size_t i = 1; i + 1 < y.size(); ++i) {
        const double after = (y[i + 1] - y[i]) / h[i];
        r[i] = 6 * (after - before);
        before = after;
    }
    return r;
}

/// Solves hᵢ₋₁·mᵢ₋₁ + 2·(hᵢ₋₁ + hᵢ)·mᵢ + hᵢ·mᵢ₊₁ = rᵢ at the inner points, m being 0 at the ends; m replaces r.
/// Eliminates from both ends towards the middle and substitutes back from there: two chains of divisions side by side.
void SolveCurvatures(const Gaps& h, Numbers& r)
{
    if (r.size() < 3) return;
    const auto inverse = std::make_unique_for_overwrite<double[]>(r.size()); // of the diagonal after elimination
    std::size_t low = 1;
    std::size_t high = r.size() - 2;
    double lowInverse = 0;
    double highInverse = 0;
    for (; low < high; ++low, --high) {
        const double a = h[low - 1];
        const double b = h[high];
        r[low] -= a * lowInverse * r[low - 1];
        r[high] -= b * highInverse * r[high + 1];
        inverse[low] = lowInverse = 1 / (2 * (a + h[low]) - a * a * lowInverse);
        inverse[high] = highInverse = 1 / (2 * (h[high - 1] + b) - b * b * highInverse);
    }
    if (low == high) { // one in the middle
        const double a = h[low - 1];
        const double b = h[low];
        r[low] -= a * lowInverse * r[low - 1] + b * highInverse * r[low + 1];
        r[low] /= 2 * (a + b) - a * a * lowInverse - b * b * highInverse;
    } else { // the two in the middle are high and low = high + 1, eliminated against their outer neighbours
        const double c = h[high];
        const double m = (r[low] - c * inverse[high] * r[high]) / (1 / inverse[low] - c * c * inverse[high]);
        r[high] = (r[high] - c * m) * inverse[high];
        r[low] = m;
    }
    for (--high, ++low; high > 0; --high, ++low) {
        r[high] = (r[high] - h[high] * r[high + 1]) * inverse[high];
        r[low] = (r[low] - h[low - 1] * r[low - 1]) * inverse[low];
    }
}

Numbers NaturalCurvatures(const Numbers& x, const Numbers& y)
{
    const Gaps h{x};
    Numbers m = Bends(h, y);
    SolveCurvatures(h, m);
    return m;
}

/// The curvatures are u + m₀·v: u with 0 at both ends, v with 1 there and no bends; the equation at the seam gives m₀.
Numbers PeriodicCurvatures(const Numbers& x, const Numbers& y)
{
    const Gaps h{x};
    const std::size_t last = x.size() - 2;
    Numbers u = Bends(h, y);
    Numbers v(y.size());
    v[1] -= h[0];
    v[last] -= h[last]; // the same element when there are three points
    SolveCurvatures(h, u);
    SolveCurvatures(h, v);
    v.front() = v.back() = 1;
    const double bend = 6 * ((y[1] - y[0]) / h[0] - (y[last + 1] - y[last]) / h[last]);
    const double m =
        (bend - h[last] * u[last] - h[0] * u[1]) / (h[last] * v[last] + 2 * (h[last] + h[0]) + h[0] * v[1]);
    for (std::size_t i = 0; i < u.size(); ++i) u[i] += m * v[i];
    return u;
}

/// Solves A·z = b for a symmetric positive definite matrix with two bands beside the diagonal, by LDLᵀ; z replaces b.
/// d holds the diagonal, e(i) = A(i, i + 1), f(i) = A(i, i + 2); all three are destroyed.
void SolvePentadiagonal(Numbers& d, Numbers& e, Numbers& f, Numbers& b)
{
    const std::size_t n = d.size();
    for (std::size_t i = 0; i < n; ++i) {
        const double eOverD = e[i] / d[i];
        const double fOverD = f[i] / d[i];
        if (i + 1 < n) {
            d[i + 1] -= eOverD * e[i];
            e[i + 1] -= eOverD * f[i];
            b[i + 1] -= eOverD * b[i];
        }
        if (i + 2 < n) {
            d[i + 2] -= fOverD * f[i];
            b[i + 2] -= fOverD * b[i];
        }
        e[i] = eOverD;
        f[i] = fOverD;
        b[i] /= d[i];
    }
    for (std::size_t i = n; i-- > 0;) {
        if (i + 1 < n) b[i] -= e[i] * b[i + 1];
        if (i + 2 < n) b[i] -= f[i] * b[i + 2];
    }
}

/// Reinsch: (R + λ·QᵀW⁻¹Q)·m = Qᵀy, then y − λ·W⁻¹Q·m replaces y. Returns m, 0 at the ends.
Numbers Smooth(const Numbers& x, Numbers& y, double lambda, const Numbers& weights)
{
    const std::size_t n = x.size();
    if (n < 3) return Numbers(n); // no smoother than a line
    const Gaps h{x};
    const auto variance = [&weights](std::size_t i) { return weights.empty() ? 1.0 : 1 / weights[i]; };
    // Column i of Q, 1 ≤ i ≤ n − 2, has these entries in rows i − 1, i and i + 1.
    const auto before = [&h](std::size_t i) { return 1 / h[i - 1]; };
    const auto at = [&h](std::size_t i) { return -1 / h[i - 1] - 1 / h[i]; };
    const auto after = [&h](std::size_t i) { return 1 / h[i]; };

    Numbers d(n - 2), e(n - 2), f(n - 2), b(n - 2);
    for (std::size_t i = 1; i + 1 < n; ++i) {
        const double p = before(i), q = at(i), s = after(i);
        d[i - 1] =
            (h[i - 1] + h[i]) / 3 + lambda * (p * p * variance(i - 1) + q * q * variance(i) + s * s * variance(i + 1));
        if (i + 2 < n)
            e[i - 1] = h[i] / 6 + lambda * (q * before(i + 1) * variance(i) + s * at(i + 1) * variance(i + 1));
        if (i + 3 < n) f[i - 1] = lambda * s * before(i + 2) * variance(i + 1);
        b[i - 1] = (y[i + 1] - y[i]) / h[i] - (y[i] - y[i - 1]) / h[i - 1];
    }
    SolvePentadiagonal(d, e, f, b);
    Numbers m(n);
    std::ranges::copy(b, m.begin() + 1);
    double slope = 0; // of m
    for (std::size_t i = 0; i < n; ++i) {
        const double next = i + 1 < n ? (m[i + 1] - m[i]) / h[i] : 0;
        y[i] -= lambda * variance(i) * (next - slope);
        slope = next;
    }
    return m;
}

/// A polynomial of degree 3 in x − start.
struct Cubic {
    double start, c0, c1, c2, c3;

    double operator()(double x) const
    {
        const double t = x - start;
        return c0 + t * (c1 + t * (c2 + t * c3));
    }
    /// How much rounding may have changed the value at x in a piece of length h: c1 is a difference of terms as large
    /// as those of the whole piece.
    double Rounding(double x, double h) const
    {
        const double slope = std::abs(c1) + h * (std::abs(c2) + h * std::abs(c3));
        return 4 * Epsilon * (std::abs(c0) + std::abs(x - start) * slope);
    }
    /// Where the first derivative is 0: up to two places, ascending, NaN for none.
    std::pair<double, double> Turns() const
    {
        // c + 2·b·t + 3·a·t² = 0, scaled against overflow, the sum without cancellation.
        const double scale = std::max({std::abs(c1), std::abs(c2), std::abs(c3)});
        const double a = c3 / scale, b = c2 / scale, c = c1 / scale;
        const double q = -(b + std::copysign(std::sqrt(b * b - 3 * a * c), b));
        const double one = start + q / (3 * a), other = start + c / q;
        return {std::min(one, other), std::max(one, other)};
    }
};

/// The zero between low and high, where the values have different signs: bisection where Newton would leave the bracket
/// or is slow.
double BracketedZero(const Cubic& cubic, double low, double high)
{
    const bool isRising = cubic(low) < 0;
    const Cubic slope{cubic.start, cubic.c1, 2 * cubic.c2, 3 * cubic.c3, 0};
    double x = low + (high - low) / 2;
    for (int i = 0; i < 200; ++i) {
        const double value = cubic(x);
        if (value == 0) return x;
        ((value < 0) == isRising ? low : high) = x;
        double next = x - value / slope(x);
        const double middle = low + (high - low) / 2;
        if (!(next > low && next < high) || i % 8 == 7) next = middle;
        if (next == x || middle == low || middle == high) return next;
        x = next;
    }
    return x;
}

/// Not when there is a NaN, unless alone.
bool IsAscending(const double* x, std::size_t n)
{
    for (std::size_t i = 1; i < n; ++i)
        if (!(x[i] >= x[i - 1])) return false;
    return true;
}

int Sign(double value)
{
    return (value > 0) - (value < 0);
}

} // namespace

// ---- Construction ---------------------------------------------------------------------------------------------------

CNaturalSpline::CNaturalSpline(const Numbers& x, const Numbers& y)
{
    CheckData(x, y, 2);
    setPieces(x, y, NaturalCurvatures(x, y));
}

CNaturalSpline CNaturalSpline::Periodic(const Numbers& x, const Numbers& y)
{
    CheckData(x, y, 3);
    if (y.front() != y.back()) Refuse("y[0] and y[" + std::to_string(y.size() - 1) + "] of a periodic spline differ");
    CNaturalSpline spline;
    spline.isPeriodic_ = true;
    spline.setPieces(x, y, PeriodicCurvatures(x, y));
    return spline;
}

CNaturalSpline CNaturalSpline::Smoothing(const Numbers& x, const Numbers& y, double lambda, const Numbers& weights)
{
    CheckData(x, y, 2);
    if (!(lambda >= 0 && lambda < Infinity)) Refuse("lambda is negative or not finite");
    if (!weights.empty() && weights.size() != x.size())
        Refuse(std::to_string(x.size()) + " points, but " + std::to_string(weights.size()) + " weights are given");
    CheckFinite(weights, "weights");
    const auto fault = std::ranges::find_if_not(weights, [](double w) { return w > 0; });
    if (fault != weights.end()) Refuse("weights[" + std::to_string(fault - weights.begin()) + "] is not positive");

    CNaturalSpline spline;
    Numbers smooth = y;
    const Numbers curvatures = Smooth(x, smooth, lambda, weights);
    spline.setPieces(x, smooth, curvatures);
    return spline;
}

void CNaturalSpline::setPieces(const Numbers& x, const Numbers& y, const Numbers& curvature)
{
    const std::size_t n = x.size();
    knots_.reserve(n + 2);
    knots_.push_back(-Infinity);
    knots_.insert(knots_.end(), x.begin(), x.end());
    knots_.push_back(Infinity);

    pieces_.resize(n + 1);
    for (std::size_t i = 0; i + 1 < n; ++i) {
        const double inverse = 1 / (x[i + 1] - x[i]);
        const double m = curvature[i];
        const double next = curvature[i + 1];
        const double slope = (y[i + 1] - y[i]) * inverse - (x[i + 1] - x[i]) * (2 * m + next) * (1.0 / 6);
        pieces_[i + 1] = {y[i], slope, m * 0.5, (next - m) * inverse * (1.0 / 6)};
    }
    const double h = x[n - 1] - x[n - 2];
    const double lastSlope = (y[n - 1] - y[n - 2]) / h + h * (2 * curvature[n - 1] + curvature[n - 2]) / 6;
    pieces_.front() = {y[0], pieces_[1].slope, 0, 0};
    pieces_.back() = {y[n - 1], lastSlope, 0, 0};
}

// ---- Values ---------------------------------------------------------------------------------------------------------

/// The last k with knots_[k] ≤ x, without a branch that depends on x; the last piece for NaN.
std::size_t CNaturalSpline::findPiece(double x) const
{
    const double* first = knots_.data();
    for (std::size_t count = pieces_.size(); count > 1;) {
        const std::size_t half = count / 2;
        first += static_cast<std::size_t>(!(x < first[half])) * half;
        count -= half;
    }
    return static_cast<std::size_t>(first - knots_.data());
}

/// x moved by whole periods into [begin, end).
double CNaturalSpline::wrapped(double x) const
{
    if (!isPeriodic_ || (x >= Begin() && x < End())) return x;
    const double period = End() - Begin();
    const double inside = x - period * std::floor((x - Begin()) / period);
    return inside >= End() ? Begin() : std::max(inside, Begin()); // NaN stays
}

double CNaturalSpline::operator()(double x) const
{
    const double at = wrapped(x);
    const std::size_t k = findPiece(at);
    return pieces_[k](at - startOf(k));
}

Numbers CNaturalSpline::Values(const Numbers& x) const
{
    Numbers values(x.size());
    Values(x.data(), x.size(), values.data());
    return values;
}

void CNaturalSpline::Values(const double* x, std::size_t n, double* values) const
{
    constexpr std::size_t Block = 128;
    std::array<double, Block> inside;
    std::size_t k = 0;
    for (std::size_t first = 0; first < n; first += Block) {
        const std::size_t count = std::min(Block, n - first);
        const double* at = x + first;
        if (isPeriodic_) {
            for (std::size_t i = 0; i < count; ++i) inside[i] = wrapped(at[i]);
            at = inside.data();
        }
        if (IsAscending(at, count))
            k = walk(at, count, values + first, k);
        else
            for (std::size_t i = 0; i < count; ++i) { // no search waits for the one before
                const std::size_t piece = findPiece(at[i]);
                values[first + i] = pieces_[piece](at[i] - startOf(piece));
            }
    }
}

/// The values at ascending places, from piece k on if it is not beyond them. Returns the last piece.
std::size_t CNaturalSpline::walk(const double* at, std::size_t n, double* values, std::size_t k) const
{
    constexpr std::size_t Near = 4; // steps that cost no more than a search
    const std::size_t last = knots_.size() - 1;
    if (!(at[0] >= knots_[k])) k = findPiece(at[0]);
    for (std::size_t i = 0; i < n;) {
        if (at[i] < knots_[std::min(k + Near, last)])
            while (at[i] >= knots_[k + 1]) ++k;
        else
            k = findPiece(at[i]);
        const Piece piece = pieces_[k];
        const double start = startOf(k), end = knots_[k + 1];
        do {
            values[i] = piece(at[i] - start);
            ++i;
        } while (i < n && at[i] < end);
    }
    return k;
}

double CNaturalSpline::Derivative(double x, int order) const
{
    if (order != 1 && order != 2) Refuse("a derivative of order " + std::to_string(order) + "; 1 and 2 are possible");
    const double at = wrapped(x);
    const std::size_t k = findPiece(at);
    const Piece& p = pieces_[k];
    const double t = at - startOf(k);
    return order == 1 ? p.slope + t * (2 * p.bend + t * (3 * p.twist)) : 2 * p.bend + t * (6 * p.twist);
}

// ---- Stretches ------------------------------------------------------------------------------------------------------

/// Calls f(piece, start, begin, end) for all pieces of a stretch in ascending order: on [begin, end] the spline is the
/// piece's polynomial in x − start.
template <class F>
void CNaturalSpline::forEachPiece(double from, double to, F f) const
{
    const double period = End() - Begin();
    double turns = isPeriodic_ ? std::floor((from - Begin()) / period) : 0;
    std::size_t k = findPiece(isPeriodic_ ? wrapped(from) : from);
    for (double begin = from;;) {
        const double shift = turns * period;
        const double end = std::min(to, knots_[k + 1] + shift);
        if (end > begin || (from == to && end == to)) f(pieces_[k], startOf(k) + shift, begin, end);
        if (end >= to) return;
        begin = std::max(begin, end);
        ++k;
        if (isPeriodic_ && k + 1 == pieces_.size()) {
            k = 1;
            ++turns;
        }
    }
}

double CNaturalSpline::Integral(double a, double b) const
{
    CheckStretch(a, b);
    if (b < a) return -Integral(b, a);
    double sum = 0;
    const auto addPiece = [&sum](const Piece& p, double start, double begin, double end) {
        const double s = begin - start, t = end - start;
        const auto antiderivative = [&p](double u) {
            return u * (p.value + u * (p.slope / 2 + u * (p.bend / 3 + u * (p.twist / 4))));
        };
        sum += antiderivative(t) - antiderivative(s);
    };
    const double period = End() - Begin();
    if (isPeriodic_ && b - a >= period) { // whole periods once
        const double whole = std::floor((b - a) / period);
        forEachPiece(Begin(), End(), addPiece);
        sum *= whole;
        a = std::min(a + whole * period, b);
    }
    forEachPiece(a, b, addPiece);
    return sum;
}

/// A zero and the signs just before and behind it, 0 where it is 0 throughout or the stretch ends.
struct CNaturalSpline::Zero {
    double x;
    int before, after;
};

/// The zeros of the spline or of its first derivative. Between neighbouring marks (ends of pieces and the turns inside)
/// it is monotone: a zero stands at a mark or, alone, between two of different signs.
std::vector<CNaturalSpline::Zero> CNaturalSpline::zeros(double from, double to, EOf of) const
{
    CheckStretch(from, to);
    if (from > to) Refuse("the stretch ends before it begins");
    struct Mark {
        double x;
        int sign;
        bool isTurn;
        Cubic cubic; // from here on
    };
    std::vector<Mark> marks;
    forEachPiece(from, to, [&](const Piece& p, double start, double begin, double end) {
        const Cubic cubic = of == EOf::Value ? Cubic{start, p.value, p.slope, p.bend, p.twist}
                                             : Cubic{start, p.slope, 2 * p.bend, 3 * p.twist, 0};
        marks.push_back({begin, Sign(cubic(begin)), false, cubic});
        const auto [first, second] = cubic.Turns();
        for (const double turn : {first, second}) {
            if (!(turn > marks.back().x && turn < end)) continue;
            const double value = cubic(turn);
            marks.push_back(
                {turn, std::abs(value) <= cubic.Rounding(turn, std::abs(end - start)) ? 0 : Sign(value), true, cubic});
        }
        if (end == to && end > begin) // exact at a knot, where this piece's end is rounded
            marks.push_back({end, Sign(of == EOf::Value ? (*this)(end) : Derivative(end, 1)), false, cubic});
    });

    std::vector<Zero> zeros;
    for (std::size_t i = 0; i < marks.size(); ++i) {
        const int before = i > 0 ? marks[i - 1].sign : 0;
        const int after = i + 1 < marks.size() ? marks[i + 1].sign : 0;
        if (marks[i].sign == 0) {
            // A turn beside a zero differs from it by rounding only.
            const bool isTwin = marks[i].isTurn && ((i > 0 && before == 0) || (after == 0 && !marks[i + 1].isTurn));
            if (!isTwin) zeros.push_back({marks[i].x, before, after});
        } else if (marks[i].sign * after < 0) {
            zeros.push_back({BracketedZero(marks[i].cubic, marks[i].x, marks[i + 1].x), marks[i].sign, after});
        }
    }
    return zeros;
}

Numbers CNaturalSpline::Roots(double from, double to) const
{
    Numbers roots;
    for (const Zero& zero : zeros(from, to, EOf::Value)) roots.push_back(zero.x);
    return roots;
}

std::vector<CNaturalSpline::Extremum> CNaturalSpline::Extrema(double from, double to) const
{
    std::vector<Extremum> extrema;
    for (const Zero& zero : zeros(from, to, EOf::Slope))
        if (zero.before * zero.after < 0) extrema.push_back({zero.x, (*this)(zero.x), zero.before > 0});
    return extrema;
}

// ---- Curves ---------------------------------------------------------------------------------------------------------

namespace {

/// The length of the polygon up to each point, and back to the first one when it is closed.
Numbers ChordLengths(const TMatrix<double>& points, bool isClosed)
{
    const std::size_t n = points.Rows();
    Numbers lengths(n + (isClosed && n > 0 ? 1 : 0));
    for (std::size_t i = 1; i < lengths.size(); ++i) {
        double chordSq = 0;
        for (std::size_t d = 0; d < points.Cols(); ++d) {
            const double step = points(i % n, d) - points(i - 1, d);
            chordSq += step * step;
        }
        lengths[i] = lengths[i - 1] + std::sqrt(chordSq);
    }
    return lengths;
}

} // namespace

CNaturalSplineCurve::CNaturalSplineCurve(const TMatrix<double>& points, bool isClosed)
    : CNaturalSplineCurve(points, ChordLengths(points, isClosed), isClosed)
{
}

CNaturalSplineCurve::CNaturalSplineCurve(const TMatrix<double>& points, const Numbers& parameters, bool isClosed)
{
    const std::size_t n = points.Rows();
    if (points.Cols() == 0) Refuse("points without coordinates");
    for (std::size_t d = 0; d < points.Cols(); ++d) {
        Numbers y(points.Data() + d * n, points.Data() + (d + 1) * n);
        if (isClosed && n > 0) y.push_back(y.front());
        coordinates_.push_back(isClosed ? CNaturalSpline::Periodic(parameters, y) : CNaturalSpline(parameters, y));
    }
}

TVector<double> CNaturalSplineCurve::operator()(double t) const
{
    TVector<double> point(Dimension());
    for (std::size_t d = 0; d < Dimension(); ++d) point[d] = coordinates_[d](t);
    return point;
}

TVector<double> CNaturalSplineCurve::Derivative(double t, int order) const
{
    TVector<double> derivative(Dimension());
    for (std::size_t d = 0; d < Dimension(); ++d) derivative[d] = coordinates_[d].Derivative(t, order);
    return derivative;
}

TMatrix<double> CNaturalSplineCurve::Values(const Numbers& t) const
{
    TMatrix<double> points(t.size(), Dimension());
    for (std::size_t d = 0; d < Dimension(); ++d)
        coordinates_[d].Values(t.data(), t.size(), points.Data() + d * t.size());
    return points;
}

} // namespace VoAlgo
