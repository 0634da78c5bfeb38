#include "VoAlgorithms/verdict/viewdirection.h"

#include "VoAlgorithms/kdtree/tkdtree.h"
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
constexpr std::size_t FewestPoints = 50;
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
    explicit DepthBuffer(const ViewSample& sample) : sample_(sample), column_(sample.points.size()) {}

    /// The share of points that lie well behind another one of their pixel, seen along d.
    double HiddenShare(const Vec3& d)
    {
        constexpr float PixelFactor = 2.0F, BehindFactor = 8.0F; // times the spacing
        constexpr float LargestSide = 1000.0F;                   // pixels
        const ImageAxes axes(d);
        const auto& points = sample_.points;
        float low[2] = {INFINITY, INFINITY}, high[2] = {-INFINITY, -INFINITY};
        for (std::size_t i = 0; i < points.size(); ++i) {
            column_[i] = Vec3(axes.right.Dot(points[i]), axes.up.Dot(points[i]), d.Dot(points[i]));
            for (unsigned k = 0; k < 2; ++k) {
                low[k] = std::min(low[k], column_[i][k]);
                high[k] = std::max(high[k], column_[i][k]);
            }
        }
        const float extent = std::max(high[0] - low[0], high[1] - low[1]);
        const float pixel = std::max(PixelFactor * sample_.spacing, extent / LargestSide);
        if (!(pixel > 0.0F)) return 0.0;
        const auto side = static_cast<std::size_t>(extent / pixel) + 1;
        const auto at = [&](const Vec3& p) {
            return static_cast<std::size_t>((p.y - low[1]) / pixel) * side +
                   static_cast<std::size_t>((p.x - low[0]) / pixel);
        };
        front_.assign(side * side, -INFINITY);
        for (const Vec3& p : column_) front_[at(p)] = std::max(front_[at(p)], p.z);
        std::size_t hidden = 0;
        for (const Vec3& p : column_) hidden += front_[at(p)] - p.z > BehindFactor * sample_.spacing ? 1 : 0;
        return static_cast<double>(hidden) / static_cast<double>(points.size());
    }

private:
    const ViewSample& sample_;
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

ViewSample MeasureViewSample(std::vector<Vec3> points, std::vector<Vec3> normals)
{
    constexpr unsigned Isolation = 4, Neighbours = 16;
    ViewSample sample;
    if (points.size() <= Neighbours) return sample;
    const Tree tree(points.data(), points.size());
    std::vector<Tree::Neighbour> found;
    std::vector<float> nearest(points.size()), fourth(points.size()), last(points.size()); // squared distances
    for (std::size_t i = 0; i < points.size(); ++i) {
        tree.NearestK(&points[i].x, Neighbours + 1, std::numeric_limits<float>::infinity(), found);
        nearest[i] = found[1].second;
        fourth[i] = found[Isolation].second;
        last[i] = found[Neighbours].second;
    }
    sample.spacing = std::sqrt(Median(nearest));
    const float limitSq = IsolatedFactor * IsolatedFactor * Median(fourth), typicalSq = Median(last);
    std::size_t kept = 0;
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (!(fourth[i] <= limitSq) || !(last[i] > 0.0F)) continue;
        points[kept] = points[i];
        normals[kept] = normals[i];
        sample.density.push_back(typicalSq / last[i]);
        ++kept;
    }
    points.resize(kept);
    normals.resize(kept);
    sample.points = std::move(points);
    sample.normals = std::move(normals);
    return sample;
}

ViewDirection BestView(const ViewSample& sample)
{
    constexpr float Steps[] = {0.24F, 0.12F, 0.06F, 0.03F}; // tangents of angles
    constexpr unsigned MovesPerStep = 4;
    const Vec3 start = FitDensity(sample);
    if (start == Vec3()) return {};
    DepthBuffer buffer(sample);
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

bool SeesAll(const ViewDirection& view)
{
    return view.direction != Vec3() && view.hidden <= MostHidden && view.facingAway <= MostFacingAway;
}

} // namespace detail

std::optional<ViewDirection> InferViewDirection(const std::vector<Vec3>& points, const std::vector<Vec3>& normals)
{
    std::vector<Vec3> somePoints, someNormals;
    for (const std::size_t i : detail::SpreadIndices(points.size(), SampledPoints))
        if (normals[i] != Vec3()) {
            somePoints.push_back(points[i]);
            someNormals.push_back(normals[i]);
        }
    const ViewSample sample = detail::MeasureViewSample(std::move(somePoints), std::move(someNormals));
    if (sample.points.size() < FewestPoints) return std::nullopt;
    const ViewDirection view = detail::BestView(sample);
    return detail::SeesAll(view) ? std::optional(view) : std::nullopt;
}

} // namespace prereg
