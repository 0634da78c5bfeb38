#include "VoAlgorithms/verdict/viewdirection.h"

#include "VoAlgorithms/kdtree/tkdtree.h"
#include "numerics/principalaxes.h"
#include "platform/randomseed.h"
#include "verdict/detail_viewsample.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace prereg {
namespace {

using Vec3 = kdtree::Vector<3>;
using Tree = kdtree::TKdTree<3, 48>;
using detail::ViewSample;

constexpr std::size_t SampledPoints = 4500;
constexpr float IsolatedFactor = 3.0F; // times the median distance to the fourth neighbour
constexpr double MostFacingAway = 0.03;
constexpr double MostHidden = 0.04;
/// Share of points that must come into view before the direction leaves that of the density, per 1 − cos of the angle:
/// 0.15 % for 10 degrees.
constexpr double DensityWeight = 0.1;

Vec3 Unit(const Vec3& v)
{
    const float length = v.Norm();
    return length > 0.0F ? v / length : Vec3{};
}

float Median(std::vector<float> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Two unit vectors perpendicular to the unit vector d and to each other.
struct ImageAxes {
    Vec3 right;
    Vec3 up;

    explicit ImageAxes(const Vec3& d)
    {
        const bool alongX = std::abs(d.x) > 0.6F;
        right = Unit(d.Cross(alongX ? Vec3(0, 1, 0) : Vec3(1, 0, 0)));
        up = d.Cross(right);
    }
};

/// An image whose pixels hold the largest depth towards the viewer.
class DepthBuffer {
public:
    DepthBuffer(const std::vector<Vec3>& points, float spacing)
        : points_(points), spacing_(spacing), column_(points.size())
    {
    }

    /// The share of points that lie well behind another one of their pixel, seen along d.
    double HiddenShare(const Vec3& d)
    {
        constexpr float PixelFactor = 2.0F, BehindFactor = 8.0F; // times the spacing
        constexpr float LargestSide = 1000.0F;                   // pixels
        const ImageAxes axes(d);
        float low[2] = {INFINITY, INFINITY}, high[2] = {-INFINITY, -INFINITY};
        for (std::size_t i = 0; i < points_.size(); ++i) {
            column_[i] = Vec3(axes.right.Dot(points_[i]), axes.up.Dot(points_[i]), d.Dot(points_[i]));
            for (unsigned k = 0; k < 2; ++k) {
                low[k] = std::min(low[k], column_[i][k]);
                high[k] = std::max(high[k], column_[i][k]);
            }
        }
        const float extent = std::max(high[0] - low[0], high[1] - low[1]);
        const float pixel = std::max(PixelFactor * spacing_, extent / LargestSide);
        if (!(pixel > 0.0F)) return 0.0;
        const auto side = static_cast<std::size_t>(extent / pixel) + 1;
        const auto at = [&](const Vec3& p) {
            return static_cast<std::size_t>((p.y - low[1]) / pixel) * side +
                   static_cast<std::size_t>((p.x - low[0]) / pixel);
        };
        front_.assign(side * side, -INFINITY);
        for (const Vec3& p : column_) front_[at(p)] = std::max(front_[at(p)], p.z);
        std::size_t hidden = 0;
        for (const Vec3& p : column_) hidden += front_[at(p)] - p.z > BehindFactor * spacing_ ? 1 : 0;
        return static_cast<double>(hidden) / static_cast<double>(points_.size());
    }

private:
    const std::vector<Vec3>& points_;
    float spacing_;
    std::vector<Vec3> column_; // points in the frame of the view
    std::vector<float> front_;
};

double FacingAwayShare(const std::vector<Vec3>& normals, const Vec3& d)
{
    const auto away = std::count_if(normals.begin(), normals.end(), [&](const Vec3& n) { return n.Dot(d) < 0.0F; });
    return static_cast<double>(away) / static_cast<double>(normals.size());
}

/// Solves A·x = b for a symmetric positive definite A, given by its columns (Cramer's rule).
Vec3 Solve(const double (&A)[3][3], const double (&b)[3])
{
    const auto det = [](const double(&m)[3][3]) {
        return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) - m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
               m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    };
    const double whole = det(A);
    Vec3 x;
    for (unsigned k = 0; k < 3; ++k) {
        double replaced[3][3];
        for (unsigned r = 0; r < 3; ++r)
            for (unsigned c = 0; c < 3; ++c) replaced[r][c] = r == k ? b[c] : A[r][c];
        x[k] = static_cast<float>(det(replaced) / whole);
    }
    return x;
}

/// The unit direction of g in density ≈ g·n: least absolute errors by reweighting, with a weak pull to the mean normal
/// that decides where the surface is too flat to say.
Vec3 FitDensity(const ViewSample& sample)
{
    constexpr unsigned Rounds = 10;
    constexpr float SmallestError = 0.1F;
    constexpr double Pull = 0.003;
    const auto& normals = sample.normals;
    Vec3 mean;
    for (const Vec3& n : normals) mean += n;
    mean = mean / static_cast<float>(normals.size());
    if (!(mean.NormSq() > 0.0F)) return {};
    const Vec3 prior = mean / mean.NormSq(); // density 1 at the mean normal
    Vec3 g = prior;
    for (unsigned round = 0; round < Rounds; ++round) {
        double A[3][3] = {}, b[3] = {}, weights = 0.0;
        for (std::size_t i = 0; i < normals.size(); ++i) {
            const Vec3& n = normals[i];
            const double w = 1.0 / std::max(std::abs(sample.density[i] - g.Dot(n)), SmallestError);
            const double rest = sample.density[i] - prior.Dot(n);
            weights += w;
            for (unsigned r = 0; r < 3; ++r) {
                for (unsigned c = 0; c < 3; ++c) A[r][c] += w * n[r] * n[c];
                b[r] += w * rest * n[r];
            }
        }
        for (unsigned k = 0; k < 3; ++k) A[k][k] += Pull * weights;
        g = prior + Solve(A, b);
    }
    return Unit(g);
}

/// Measures the points of a sample and drops isolated ones. O(n log n).
void Measure(ViewSample& sample)
{
    constexpr unsigned Isolation = 4, Neighbours = 16;
    auto& points = sample.points;
    auto& normals = sample.normals;
    if (points.size() <= Neighbours) {
        sample = {};
        return;
    }
    const Tree tree(points.data(), points.size());
    std::vector<Tree::Neighbour> found;
    std::vector<float> nearest(points.size()), fourth(points.size()), last(points.size()); // squared distances
    std::vector<Vec3> rise(points.size());
    std::vector<char> disagrees(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
        tree.NearestK(&points[i].x, Neighbours + 1, std::numeric_limits<float>::infinity(), found);
        nearest[i] = found[1].second;
        fourth[i] = found[Isolation].second;
        last[i] = found[Neighbours].second;
        Vec3 sum;
        for (const Tree::Neighbour& other : found) sum += points[static_cast<std::size_t>(other.first)] - points[i];
        rise[i] = sum * (-1.0F / static_cast<float>(Neighbours));
        disagrees[i] = normals[i].Dot(normals[static_cast<std::size_t>(found[1].first)]) < 0.0F ? 1 : 0;
    }
    sample.spacing = std::sqrt(Median(nearest));
    const float limitSq = IsolatedFactor * IsolatedFactor * Median(fourth), typicalSq = Median(last);
    std::size_t kept = 0, disagreeing = 0;
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (!(fourth[i] <= limitSq) || !(last[i] > 0.0F)) continue;
        points[kept] = points[i];
        normals[kept] = normals[i];
        sample.index[kept] = sample.index[i];
        sample.rise.push_back(rise[i]);
        disagreeing += disagrees[i] != 0 ? 1 : 0;
        sample.density.push_back(typicalSq / last[i]);
        ++kept;
    }
    points.resize(kept);
    normals.resize(kept);
    sample.index.resize(kept);
    sample.disagreeing = kept > 0 ? static_cast<double>(disagreeing) / static_cast<double>(kept) : 0.0;
}

/// The best view near `start`, the direction that the density suggests; zero when that is zero.
ViewDirection BestView(const ViewSample& sample, const Vec3& start)
{
    constexpr float Steps[] = {0.24F, 0.12F, 0.06F, 0.03F}; // tangents of angles
    constexpr unsigned MovesPerStep = 4;
    if (start == Vec3()) return {};
    DepthBuffer buffer(sample.points, sample.spacing);
    const auto look = [&](const Vec3& d) {
        return ViewDirection{d, buffer.HiddenShare(d), FacingAwayShare(sample.normals, d)};
    };
    const auto cost = [&](const ViewDirection& v) {
        return v.hidden + v.facingAway + DensityWeight * (1.0 - double{v.direction.Dot(start)});
    };
    const ImageAxes axes(start);
    ViewDirection best = look(start);
    Vec3 at = start; // in the plane through `start` that is perpendicular to it
    for (const float step : Steps)
        for (unsigned move = 0; move < MovesPerStep; ++move) {
            const Vec3 from = at;
            for (const Vec3& way : {axes.right, -axes.right, axes.up, -axes.up}) {
                const Vec3 next = from + step * way;
                const ViewDirection view = look(Unit(next));
                if (!(cost(view) < cost(best))) continue;
                best = view;
                at = next;
            }
            if (at == from) break;
        }
    return best;
}

/// Whether all but a few points are seen in this view.
bool SeesAll(const ViewDirection& view)
{
    return view.direction != Vec3() && view.hidden <= MostHidden && view.facingAway <= MostFacingAway;
}

/// Turns normals that face away from the viewer.
void TurnTowards(std::vector<Vec3>& normals, const Vec3& d)
{
    for (Vec3& n : normals)
        if (n.Dot(d) < 0.0F) n = -n;
}

/// Directions from which the search for a view without oriented normals starts: the principal axes and the diagonals
/// between them.
std::vector<Vec3> AxesOf(const std::vector<Vec3>& points)
{
    const auto axes = VoAlgo::ComputePrincipalAxes(points.size(), [&](std::size_t i) { return points[i]; });
    Vec3 axis[3];
    for (std::size_t k = 0; k < 3; ++k)
        for (std::size_t c = 0; c < 3; ++c) axis[k][c] = static_cast<float>(axes.axis[k][c]);
    std::vector<Vec3> all(axis, axis + 3);
    for (const float y : {-1.0F, 1.0F})
        for (const float z : {-1.0F, 1.0F}) all.push_back(Unit(axis[0] + y * axis[1] + z * axis[2]));
    return all;
}

} // namespace

namespace detail {

std::vector<std::size_t> SpreadIndices(std::size_t n, std::size_t count)
{
    std::vector<std::size_t> indices(std::min(n, count));
    std::mt19937 engine(VoAlgo::RandomSeed);
    for (std::size_t i = 0; i < indices.size(); ++i) {
        const std::size_t begin = i * n / indices.size(), end = (i + 1) * n / indices.size();
        indices[i] = begin + engine() % (end - begin);
    }
    return indices;
}

ViewSample TakeViewSample(const std::vector<Vec3>& points, const std::vector<Vec3>& normals)
{
    ViewSample sample;
    for (const std::size_t i : SpreadIndices(points.size(), SampledPoints))
        if (normals[i] != Vec3()) {
            sample.index.push_back(i);
            sample.points.push_back(points[i]);
            sample.normals.push_back(normals[i]);
        }
    Measure(sample);
    return sample;
}

double ConvexShare(const ViewSample& sample)
{
    if (sample.points.empty()) return 0.5;
    double convex = 0.0;
    for (std::size_t i = 0; i < sample.points.size(); ++i) {
        const float rise = sample.rise[i].Dot(sample.normals[i]);
        convex += rise > 0.0F ? 1.0 : (rise < 0.0F ? 0.0 : 0.5);
    }
    return convex / static_cast<double>(sample.points.size());
}

double HiddenShare(const std::vector<Vec3>& points, float spacing, const Vec3& d)
{
    return DepthBuffer(points, spacing).HiddenShare(d);
}

std::optional<ViewDirection> FindView(ViewSample& sample)
{
    constexpr unsigned Rounds = 3;
    if (sample.points.size() < FewestViewPoints) return std::nullopt;
    DepthBuffer buffer(sample.points, sample.spacing);
    Vec3 start;
    double fewest = 2.0;
    for (Vec3 d : AxesOf(sample.points))
        for (unsigned round = 0; round < Rounds && d != Vec3(); ++round) {
            if (const double hidden = buffer.HiddenShare(d); hidden < fewest) {
                fewest = hidden;
                start = d;
            }
            TurnTowards(sample.normals, d);
            d = FitDensity(sample);
        }
    if (start == Vec3()) return std::nullopt;
    TurnTowards(sample.normals, start);
    ViewDirection view = BestView(sample, start);
    view.facingAway = 0.0; // by the next line
    TurnTowards(sample.normals, view.direction);
    if (!SeesAll(view)) return std::nullopt;
    if (ConvexShare(sample) < 0.5) {
        view.direction = -view.direction;
        view.hidden = buffer.HiddenShare(view.direction);
        TurnTowards(sample.normals, view.direction);
    }
    return view;
}

} // namespace detail

std::optional<ViewDirection> InferViewDirection(const std::vector<Vec3>& points, const std::vector<Vec3>& normals)
{
    const ViewSample sample = detail::TakeViewSample(points, normals);
    if (sample.points.size() < detail::FewestViewPoints) return std::nullopt;
    const ViewDirection view = BestView(sample, FitDensity(sample));
    return SeesAll(view) ? std::optional(view) : std::nullopt;
}

} // namespace prereg
