#include "VoAlgorithms/solvers/cpolynomial.h"

#include "solvers/detail_doubledouble.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <span>
#include <stdexcept>
#include <string>
#include <tuple>

namespace VoAlgo {

namespace {

using Complex = std::complex<double>;
constexpr int MaxDegree = 4;
constexpr double Unit = 0x1p-53; // relative error of a rounding

double Abs(Complex z)
{
    return std::sqrt(std::norm(z));
} // the scaled values cannot overflow

Complex Quotient(Complex a, Complex b)
{
    return a * std::conj(b) / std::norm(b);
}

/// Insertion sort by ascending keys.
template <class T, class Key>
void SortFew(std::span<T> values, const Key& key)
{
    for (std::size_t i = 1; i < values.size(); ++i)
        for (std::size_t k = i; k > 0 && key(values[k]) < key(values[k - 1]); --k) std::swap(values[k], values[k - 1]);
}

/// z1 + z2 = −b and z1·z2 = c.
void SolveQuadratic(double b, double c, Complex* z)
{
    const double half = -b / 2, discriminant = std::fma(half, half, -c);
    if (discriminant < 0) {
        z[0] = {half, std::sqrt(-discriminant)};
        z[1] = std::conj(z[0]);
        return;
    }
    const double larger = half + std::copysign(std::sqrt(discriminant), half);
    z[0] = larger;
    z[1] = larger == 0 ? 0 : c / larger;
}

/// x³ + b·x² + c·x + d = 0 by Viète and Cardano. Source: F. Viète, De emendatione, 1615; G. Cardano, Ars magna, 1545.
void SolveCubic(double b, double c, double d, Complex* z)
{
    const double mean = -b / 3;
    const double q = mean * mean - c / 3, r = (mean * (2 * mean * mean - c) - d) / 2; // t³ − 3·q·t − 2·r = 0
    const double discriminant = r * r - q * q * q;
    if (discriminant < 0) {
        const double angle = std::acos(std::clamp(r / (q * std::sqrt(q)), -1.0, 1.0));
        for (int k = 0; k < 3; ++k) z[k] = mean + 2 * std::sqrt(q) * std::cos((angle + 2 * k * std::numbers::pi) / 3);
        return;
    }
    const double u = std::cbrt(r + std::copysign(std::sqrt(discriminant), r)), v = u == 0 ? 0 : q / u;
    z[0] = mean + (u + v);
    z[1] = {mean - (u + v) / 2, std::sqrt(3.0) / 2 * (u - v)};
    z[2] = std::conj(z[1]);
}

/// x⁴ + b·x³ + c·x² + d·x + e = 0 by Ferrari. Source: G. Cardano, Ars magna, 1545.
void SolveQuartic(double b, double c, double d, double e, Complex* z)
{
    const double mean = -b / 4, meanSq = mean * mean;
    const double p = c - 6 * meanSq, q = d + mean * (2 * c - 8 * meanSq); // t⁴ + p·t² + q·t + r = 0
    const double r = e + mean * (d + mean * (c - 3 * meanSq));
    std::array<Complex, 3> resolvent;
    SolveCubic(p, p * p / 4 - r, -q * q / 8, resolvent.data());
    double m = 0;
    for (const Complex root : resolvent)
        if (root.imag() == 0) m = std::max(m, root.real());
    // (t² + p/2 + m)² = (s·t − shift)² with 2·s·shift = q; the larger one determines the other.
    double s = std::sqrt(2 * m), shift = std::sqrt(std::max(0.0, (p / 2 + m) * (p / 2 + m) - r));
    if (2 * m > shift)
        shift = q / (2 * s);
    else if (shift > 0)
        s = q / (2 * shift);
    SolveQuadratic(s, p / 2 + m - shift, z);
    SolveQuadratic(-s, p / 2 + m + shift, z + 2);
    for (int k = 0; k < 4; ++k) z[k] += mean;
}

/// Ascending coefficients, the first and the last not zero.
void SolveClosed(std::span<const double> a, Complex* z)
{
    const std::size_t n = a.size() - 1;
    const auto c = [&](std::size_t k) { return a[k] / a[n]; };
    if (n == 1) z[0] = -c(0);
    if (n == 2) SolveQuadratic(c(1), c(0), z);
    if (n == 3) SolveCubic(c(2), c(1), c(0), z);
    if (n == 4) SolveQuartic(c(3), c(2), c(1), c(0), z);
}

/// A polynomial with scaled coefficients of twice the working precision.
struct Scaled {
    std::array<DoubleDouble, MaxDegree + 1> a;
    std::size_t n = 0;

    /// By division by the real quadratic (x − z)·(x − z̄), half as expensive as complex arithmetic.
    [[nodiscard]] Complex AccurateValue(Complex z) const
    {
        DoubleDouble b = a[n];
        if (z.imag() == 0) {
            for (std::size_t k = n; k-- > 0;) b = z.real() * b + a[k];
            return b.high;
        }
        if (n == 0) return b.high;
        const double sum = 2 * z.real();
        const DoubleDouble product =
            DoubleDouble::Product(z.real(), z.real()) + DoubleDouble::Product(z.imag(), z.imag());
        DoubleDouble before;
        for (std::size_t k = n; --k > 0;) {
            const DoubleDouble next = a[k] + (sum * b - product * before);
            before = b;
            b = next;
        }
        const DoubleDouble real = a[0] + (z.real() * b - product * before), imag = z.imag() * b;
        return {real.high, imag.high};
    }
    [[nodiscard]] Complex Value(Complex z) const
    {
        Complex value = a[n].high;
        for (std::size_t k = n; k-- > 0;) value = value * z + a[k].high;
        return value;
    }
    [[nodiscard]] Complex AccurateSlope(Complex z) const
    {
        Scaled derivative{{}, n - 1};
        for (std::size_t k = 0; k < n; ++k) derivative.a[k] = static_cast<double>(k + 1) * a[k + 1];
        return derivative.AccurateValue(z);
    }
    [[nodiscard]] Complex Slope(Complex z) const
    {
        Complex slope = static_cast<double>(n) * a[n].high;
        for (std::size_t k = n; --k > 0;) slope = slope * z + static_cast<double>(k) * a[k].high;
        return slope;
    }
    /// Σ |aₖ|·|z|ᵏ
    [[nodiscard]] double Magnitude(double z) const
    {
        double value = std::abs(a[n].high);
        for (std::size_t k = n; k-- > 0;) value = value * z + std::abs(a[k].high);
        return value;
    }
};

/// Roots of given multiplicities whose product comes closest to a polynomial, by Gauss-Newton steps.
/// Source: Z. Zeng, Math. Comp. 74 (2005) 869–903.
struct Window {
    Window(const Scaled& polynomial, std::size_t firstCoefficient, std::size_t lastCoefficient)
        : p(polynomial), first(firstCoefficient), end(lastCoefficient)
    {
    }

    const Scaled& p;
    std::size_t first, end;
    std::size_t count = 0; // of the distinct roots
    std::array<Complex, MaxDegree> roots{};
    std::array<std::size_t, MaxDegree> multiplicities{};

    void Add(Complex root, std::size_t multiplicity)
    {
        roots[count] = root;
        multiplicities[count++] = multiplicity;
    }

    /// Whether the product of the rounded roots differs from the polynomial by no more than the rounding of the
    /// coefficient and of each root.
    bool Fit()
    {
        const std::array<std::size_t, MaxDegree> partner = partners();
        const std::size_t n = end - first;
        double largestStep = 1;
        for (int round = 0; round < 8 && largestStep > Unit / 2; ++round) {
            std::array<Complex, MaxDegree> step{};
            evaluate();
            if (!solve(step)) return false;
            largestStep = 0;
            for (std::size_t g = 0; g < count; ++g) {
                largestStep = std::max(largestStep, Abs(step[g]));
                if (!(Abs(step[g]) < 0x1p-6)) return false;
                if (partner[g] == g)
                    roots[g] -= roots[g] * step[g].real();
                else if (partner[g] > g)
                    roots[g] -= roots[g] * step[g];
                else
                    roots[g] = std::conj(roots[partner[g]]);
            }
        }
        return evaluate() <= static_cast<double>(n + 1) * Unit;
    }

private:
    /// The conjugate of each root, itself when it is real.
    std::array<std::size_t, MaxDegree> partners()
    {
        std::array<std::size_t, MaxDegree> partner{0, 1, 2, 3};
        for (std::size_t g = 0; g < count; ++g)
            for (std::size_t h = 0; h < count && partner[g] == g; ++h)
                if (std::norm(std::conj(roots[g]) - roots[h]) < std::norm(std::conj(roots[g]) - roots[partner[g]]) &&
                    multiplicities[g] == multiplicities[h] && partner[h] == h) {
                    partner[g] = h;
                    partner[h] = g;
                    roots[h] = std::conj(roots[g]);
                }
        for (std::size_t g = 0; g < count; ++g)
            if (partner[g] == g) roots[g] = roots[g].real();
        return partner;
    }

    /// Sets the residuals aₖ − aₙ·gₖ of the product g, relative to the coefficients of |aₙ|·∏(x + |root|), and their
    /// derivatives by relative changes of the roots; returns the largest residual.
    double evaluate()
    {
        const std::size_t n = end - first;
        std::array<DoubleDouble, MaxDegree + 1> real{p.a[end]}, imag{};
        std::array<double, MaxDegree + 1> bound{std::abs(p.a[end].high)};
        std::size_t degree = 0;
        for (std::size_t g = 0; g < count; ++g)
            for (std::size_t i = 0; i < multiplicities[g]; ++i) { // highest power first
                const double x = roots[g].real(), y = roots[g].imag();
                ++degree;
                for (std::size_t k = degree; k > 0; --k) {
                    const DoubleDouble re = x * real[k - 1] - y * imag[k - 1], im = x * imag[k - 1] + y * real[k - 1];
                    real[k] = real[k] - re;
                    imag[k] = imag[k] - im;
                    bound[k] += Abs(roots[g]) * bound[k - 1];
                }
            }
        double largest = 0;
        for (std::size_t k = 1; k <= n; ++k) {
            const DoubleDouble difference = p.a[end - k] - real[k];
            residuals_[k - 1] = Complex(difference.high, -imag[k].high) / bound[k];
            largest = std::max(largest, Abs(residuals_[k - 1]));
        }
        for (std::size_t g = 0; g < count; ++g) { // from the product of the other factors: a division would cancel
            std::array<Complex, MaxDegree + 1> others{p.a[end].high};
            degree = 0;
            for (std::size_t h = 0; h < count; ++h)
                for (std::size_t i = h == g ? 1 : 0; i < multiplicities[h]; ++i) {
                    ++degree;
                    for (std::size_t k = degree; k > 0; --k) others[k] -= roots[h] * others[k - 1];
                }
            for (std::size_t k = 1; k <= n; ++k)
                slopes_[g][k - 1] = static_cast<double>(multiplicities[g]) * roots[g] * others[k - 1] / bound[k];
        }
        return largest;
    }

    /// The relative steps, by modified Gram-Schmidt orthogonalisation; false when they are not determined.
    bool solve(std::array<Complex, MaxDegree>& step) const
    {
        const std::size_t n = end - first;
        const auto product = [n](const auto& a, const auto& b) {
            Complex sum = 0;
            for (std::size_t k = 0; k < n; ++k) sum += std::conj(a[k]) * b[k];
            return sum;
        };
        auto q = slopes_;
        auto rest = residuals_;
        std::array<std::array<Complex, MaxDegree>, MaxDegree> r{};
        for (std::size_t g = 0; g < count; ++g) {
            const double length = std::sqrt(product(q[g], q[g]).real());
            if (!(length > 0)) return false;
            r[g][g] = length;
            for (Complex& e : q[g]) e /= length;
            for (std::size_t h = g + 1; h < count; ++h) {
                r[g][h] = product(q[g], q[h]);
                for (std::size_t k = 0; k < n; ++k) q[h][k] -= r[g][h] * q[g][k];
            }
            step[g] = product(q[g], rest);
            for (std::size_t k = 0; k < n; ++k) rest[k] -= step[g] * q[g][k];
        }
        for (std::size_t g = count; g-- > 0;) {
            for (std::size_t h = g + 1; h < count; ++h) step[g] -= r[g][h] * step[h];
            step[g] /= r[g][g];
        }
        return true;
    }

    std::array<Complex, MaxDegree> residuals_{};
    std::array<std::array<Complex, MaxDegree>, MaxDegree> slopes_{};
};

/// The roots of a polynomial of degree 1 to 4 whose first and last coefficients are not zero.
class RootFinder {
public:
    explicit RootFinder(std::span<const double> coefficients) : coefficients_(coefficients), n_(coefficients.size() - 1)
    {
        start();
        iterate(false);
        findMultiple();
        separate();
        iterate(true);
        if (isClustered_) findMultiple(); // now with closer starts
        pair();
    }
    [[nodiscard]] Complex operator[](std::size_t i) const
    {
        if (std::abs(scale(i)) < 1000) return z_[i] * std::ldexp(1.0, scale(i));
        return {std::ldexp(z_[i].real(), scale(i)), std::ldexp(z_[i].imag(), scale(i))};
    }

private:
    /// Edges of the Newton polygon give the sizes of the roots; edges of like slope are solved together.
    void start()
    {
        std::array<double, MaxDegree + 1> logs{};
        for (std::size_t k = 0; k <= n_; ++k) logs[k] = std::log2(std::abs(coefficients_[k])); // −∞ for 0
        double sizeBefore = 0;
        std::size_t first = 0;
        for (std::size_t k = 0; k < n_;) {
            std::size_t end = n_;
            const auto size = [&](std::size_t j) { return (logs[k] - logs[j]) / static_cast<double>(j - k); };
            for (std::size_t j = n_; j-- > k + 1;)
                if (size(j) < size(end)) end = j;
            if (k > 0 && size(end) > sizeBefore + 6) {
                solve(first, k, logs);
                first = k;
            }
            sizeBefore = size(end);
            k = end;
        }
        solve(first, n_, logs);
        if (count_ == 1) return;
        // Roots of another size can turn a real pair into a conjugate one or the reverse, to which no symmetric start
        // leads.
        for (std::size_t i = 0; i < n_; ++i) z_[i] *= Complex(1, 0x1p-5 * static_cast<double>(i + 1));
    }

    /// The roots first … end − 1 from the coefficients first … end.
    void solve(std::size_t first, std::size_t end, const std::array<double, MaxDegree + 1>& logs)
    {
        const double size = (logs[first] - logs[end]) / static_cast<double>(end - first);
        const int exponent = static_cast<int>(std::lround(size));
        Scaled& p = scaled_[count_];
        p.n = n_;
        const auto weight = [&](std::size_t k) { return exponent * static_cast<int>(k); };
        double top = logs[first] + weight(first);
        for (std::size_t k = 0; k <= n_; ++k) top = std::max(top, logs[k] + weight(k));
        std::array<double, MaxDegree + 1> a{};
        for (std::size_t k = 0; k <= n_; ++k) {
            a[k] = std::ldexp(coefficients_[k], weight(k) - static_cast<int>(top)); // may become 0: without effect here
            p.a[k].high = a[k];
        }
        SolveClosed(std::span<const double>(a).subspan(first, end - first + 1), &z_[first]);
        for (std::size_t i = first; i < end; ++i) segment_[i] = count_;
        exponents_[count_++] = exponent;
    }

    [[nodiscard]] int scale(std::size_t i) const { return exponents_[segment_[i]]; }
    /// Infinite between segments.
    [[nodiscard]] double distanceSq(std::size_t i, std::size_t j) const
    {
        return segment_[i] == segment_[j] ? std::norm(z_[i] - z_[j]) : std::numeric_limits<double>::infinity();
    }
    [[nodiscard]] bool isNear(std::size_t i, std::size_t j) const
    {
        return distanceSq(i, j) <= 0x1p-16 * std::norm(z_[i]);
    }

    /// Σ 1/(zᵢ − zⱼ) over the other roots.
    [[nodiscard]] Complex repulsion(std::size_t i) const
    {
        Complex sum = 0;
        for (std::size_t j = 0; j < n_; ++j) {
            const int shift = scale(j) - scale(i);
            if (j == i || shift > 200) continue;
            const Complex other = shift == 0 ? z_[j] : shift < -200 ? 0 : z_[j] * std::ldexp(1.0, shift);
            if (other != z_[i]) sum += Quotient(1, z_[i] - other);
        }
        return sum;
    }

    /// Ehrlich-Aberth steps until the values are noise, or the steps are so small relative to the roots that the next
    /// ones, of the order of their square, would be below the precision.
    void iterate(bool isAccurate)
    {
        const double smallStep = isAccurate && isClustered_ ? 0x1p-50 : 0x1p-34,
                     noise = isAccurate ? 0x1p-100 : 8 * Unit;
        std::array<bool, MaxDegree> isDone = isFinal_;
        for (int round = 0; round < 60; ++round) {
            bool isAnyLeft = false;
            for (std::size_t i = 0; i < n_; ++i) {
                if (isDone[i]) continue;
                const Scaled& p = scaled_[segment_[i]];
                const Complex value = isAccurate ? p.AccurateValue(z_[i]) : p.Value(z_[i]);
                const double magnitude = p.Magnitude(Abs(z_[i]));
                isDone[i] = Abs(value) <= noise * magnitude;
                if (isDone[i]) continue;
                Complex slope = p.Slope(z_[i]);
                if (isAccurate && Abs(slope) <= 0x1p-24 * magnitude) slope = p.AccurateSlope(z_[i]); // in a cluster
                const Complex denominator = slope - value * repulsion(i);
                if (denominator == 0.0) continue;
                const Complex step = Quotient(value, denominator);
                z_[i] -= step;
                isDone[i] = Abs(step) <= smallStep * Abs(z_[i]);
                isAnyLeft |= !isDone[i];
            }
            if (!isAnyLeft) break;
        }
    }

    /// Looks for multiple roots, the largest multiplicities first.
    void findMultiple()
    {
        for (std::size_t m = n_; m >= 2; --m)
            for (std::size_t i = 0; i < n_; ++i)
                if (!isFinal_[i] && numNear(i) >= m) tryMultiple(i, m);
    }

    /// Including root i.
    [[nodiscard]] std::size_t numNear(std::size_t i) const
    {
        std::size_t count = 0;
        for (std::size_t j = 0; j < n_; ++j) count += isNear(i, j) ? 1 : 0;
        return count;
    }

    /// With the m roots closest to root i as one; if possible, with another double root, for example the conjugate one.
    void tryMultiple(std::size_t i, std::size_t m)
    {
        std::array<std::size_t, MaxDegree> order{}; // the members first
        for (std::size_t j = 0; j < n_; ++j) order[j] = j;
        SortFew(std::span(order.data(), n_), [&](std::size_t j) { return std::make_tuple(distanceSq(i, j), j); });
        const std::span<const std::size_t> members(order.data(), m), others(order.data() + m, n_ - m);
        const bool areTwo = m == 2 && n_ == 4 && isNear(others[0], others[1]);
        if (!areTwo || !fit(members, others)) fit(members, {});
    }

    /// Fits the polynomial with the members of a group, or two, made equal.
    bool fit(std::span<const std::size_t> members, std::span<const std::size_t> moreMembers)
    {
        // Roots beyond a wide gap do not interact.
        const std::size_t i = members[0];
        std::size_t first = i, end = i + 1;
        while (first > 0 && scale(first) - scale(first - 1) <= 60) --first;
        while (end < n_ && scale(end) - scale(end - 1) <= 60) ++end;

        Window window(scaled_[segment_[i]], first, end);
        std::array<std::size_t, MaxDegree> group{};
        std::array<bool, MaxDegree> isTaken{};
        for (const auto& g : {members, moreMembers}) {
            if (g.empty()) continue;
            Complex centre = 0;
            for (const std::size_t j : g) {
                centre += z_[j] / static_cast<double>(g.size());
                group[j] = window.count;
                isTaken[j] = true;
            }
            if (std::abs(centre.imag()) <= Abs(z_[g.back()] - z_[g.front()])) centre = centre.real();
            window.Add(centre * std::ldexp(1.0, scale(g[0]) - scale(i)), g.size());
        }
        for (std::size_t j = first; j < end; ++j) {
            if (isTaken[j]) continue;
            group[j] = window.count;
            window.Add(z_[j] * std::ldexp(1.0, scale(j) - scale(i)), 1);
        }
        if (!window.Fit()) return false;
        for (std::size_t j = first; j < end; ++j) {
            z_[j] = window.roots[group[j]] * std::ldexp(1.0, scale(i) - scale(j));
            isFinal_[j] = true;
        }
        return true;
    }

    /// Turns the roots of a cluster about their centre: steps from conjugate or real starts would keep the symmetry,
    /// though a pair may have to become two real roots, or the reverse.
    void separate()
    {
        const std::array<Complex, MaxDegree> before = z_;
        for (std::size_t i = 0; i < n_; ++i) {
            Complex centre = 0;
            double count = 0;
            for (std::size_t j = 0; j < n_; ++j)
                if (!isFinal_[j] && segment_[j] == segment_[i] &&
                    Abs(before[i] - before[j]) <= 0x1p-8 * Abs(before[i])) {
                    centre += before[j];
                    ++count;
                }
            if (isFinal_[i] || count < 2) continue;
            isClustered_ = true;
            centre /= count;
            const double offset = 0x1p-30 * static_cast<double>(i + 1) * Abs(centre); // parts equal roots
            z_[i] = centre + (before[i] - centre) * Complex(0.7, 0.7) + offset * Complex(0.6, 0.8);
        }
    }

    /// Makes each root real or the conjugate of another.
    void pair()
    {
        std::array<bool, MaxDegree> isPaired = isFinal_;
        for (std::size_t i = 0; i < n_; ++i) {
            if (isPaired[i]) continue;
            std::size_t partner = i;
            const auto distance = [&](std::size_t j) { return std::norm(std::conj(z_[i]) - z_[j]); };
            for (std::size_t j = i + 1; j < n_; ++j)
                if (!isPaired[j] && segment_[j] == segment_[i] && distance(j) < distance(partner)) partner = j;
            isPaired[i] = isPaired[partner] = true;
            if (partner == i)
                z_[i] = z_[i].real();
            else
                z_[partner] = std::conj(z_[i]);
        }
    }

    std::span<const double> coefficients_;
    std::size_t n_;
    std::array<Complex, MaxDegree> z_{}; // in units of 2^scale
    std::array<bool, MaxDegree> isFinal_{};
    bool isClustered_ = false;
    std::array<std::size_t, MaxDegree> segment_{};
    std::array<Scaled, MaxDegree> scaled_{};
    std::array<int, MaxDegree> exponents_{};
    std::size_t count_ = 0;
};

/// Writes the roots in their order and returns their number.
std::size_t FindRoots(const std::vector<double>& coefficients, std::array<Complex, MaxDegree>& roots)
{
    if (coefficients.empty()) throw std::domain_error("Every number is a root of the zero polynomial");
    const std::size_t n = coefficients.size() - 1;
    if (n > MaxDegree)
        throw std::domain_error("Roots are computed up to degree 4; this polynomial has degree " + std::to_string(n));
    std::size_t zeros = 0;
    while (coefficients[zeros] == 0) ++zeros;
    if (zeros < n) {
        const RootFinder finder(std::span<const double>(coefficients).subspan(zeros));
        for (std::size_t i = zeros; i < n; ++i) roots[i] = finder[i - zeros];
    }
    const auto key = [](Complex z) { return std::make_tuple(z.imag() != 0, z.real(), std::abs(z.imag()), -z.imag()); };
    SortFew(std::span(roots.data(), n), key);
    if (n == 4 && roots[0] == roots[1] && roots[0].imag() != 0) std::swap(roots[1], roots[2]); // to conjugate pairs
    return n;
}

} // namespace

std::vector<std::complex<double>> CPolynomial::Roots() const
{
    std::array<Complex, MaxDegree> roots{};
    const std::size_t n = FindRoots(coefficients_, roots);
    return {roots.begin(), roots.begin() + static_cast<std::ptrdiff_t>(n)};
}

std::vector<double> CPolynomial::RealRoots() const
{
    std::array<Complex, MaxDegree> roots{};
    const std::size_t n = FindRoots(coefficients_, roots);
    std::vector<double> real;
    real.reserve(n);
    for (std::size_t i = 0; i < n && roots[i].imag() == 0; ++i) real.push_back(roots[i].real());
    return real;
}

} // namespace VoAlgo
