#include "VoAlgorithms/verdict/sampling.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

namespace prereg {
namespace {

using Vec3 = kdtree::Vector<3>;

/// A sampled point and its nearest neighbour so far.
struct Sample {
    std::size_t point;
    std::size_t neighbour = 0;
    float distanceSq = std::numeric_limits<float>::infinity();

    void Offer(std::size_t other, const std::vector<Vec3>& points)
    {
        const float d = (points[other] - points[point]).NormSq();
        if (other == point || !(d < distanceSq)) return; // the first one of equals
        distanceSq = d;
        neighbour = other;
    }
};

/// The samples that have a point within `edge`, by the cubes of that edge around them. A single pass over all points
/// then meets the nearest neighbour of each sample that has one within the edge.
class CubesAround {
public:
    CubesAround(const std::vector<Vec3>& points, std::vector<Sample>& samples, double edge)
        : points_(points), samples_(samples), edge_(edge)
    {
        for (std::uint32_t s = 0; s < samples.size(); ++s) {
            const Cube centre = cubeOf(points[samples[s].point]);
            for (int i = 0; i < 27; ++i) {
                const Cube cube = {centre[0] + i % 3 - 1, centre[1] + i / 3 % 3 - 1, centre[2] + i / 9 - 1};
                entries_.push_back({hashOf(cube), s});
            }
        }
        std::sort(entries_.begin(), entries_.end(), [](const Entry& a, const Entry& b) {
            return a.hash != b.hash ? a.hash < b.hash : a.sample < b.sample;
        });
        // A coarse table of the hashes' leading bits, about one entry each.
        shift_ = 64U - static_cast<unsigned>(std::bit_width(entries_.size()));
        begin_.assign((std::size_t{1} << (64U - shift_)) + 1, 0);
        for (const Entry& e : entries_) ++begin_[(e.hash >> shift_) + 1];
        for (std::size_t b = 1; b < begin_.size(); ++b) begin_[b] += begin_[b - 1];
    }

    void Offer(std::size_t point)
    {
        const std::uint64_t hash = hashOf(cubeOf(points_[point]));
        const std::size_t bucket = hash >> shift_;
        for (std::uint32_t e = begin_[bucket]; e < begin_[bucket + 1]; ++e)
            if (entries_[e].hash == hash) samples_[entries_[e].sample].Offer(point, points_);
    }

private:
    using Cube = std::array<std::int64_t, 3>;
    struct Entry {
        std::uint64_t hash; // of the cube; two cubes with one hash only cost time
        std::uint32_t sample;
    };

    [[nodiscard]] Cube cubeOf(const Vec3& p) const
    {
        Cube cube{};
        for (unsigned k = 0; k < 3; ++k) cube[k] = static_cast<std::int64_t>(std::floor(double{p[k]} / edge_));
        return cube;
    }
    static std::uint64_t hashOf(const Cube& cube)
    {
        std::uint64_t hash = 0;
        for (const std::int64_t c : cube) {
            hash = (hash ^ static_cast<std::uint64_t>(c)) * 0x9E3779B97F4A7C15U;
            hash ^= hash >> 29U;
        }
        return hash * 0x9E3779B97F4A7C15U;
    }

    const std::vector<Vec3>& points_;
    std::vector<Sample>& samples_;
    double edge_;
    unsigned shift_ = 0;
    std::vector<Entry> entries_;
    std::vector<std::uint32_t> begin_; // of each bucket in entries_
};

/// The median distance between neighbours among the samples, shrunk to the density of all points on a surface.
double ExpectedSpacing(const std::vector<Vec3>& points, std::vector<Sample> samples)
{
    for (Sample& sample : samples)
        for (const Sample& other : samples) sample.Offer(other.point, points);
    const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
    std::nth_element(samples.begin(), middle, samples.end(),
                     [](const Sample& a, const Sample& b) { return a.distanceSq < b.distanceSq; });
    return std::sqrt(double{middle->distanceSq} * static_cast<double>(samples.size()) /
                     static_cast<double>(points.size()));
}

/// Finds the nearest neighbours without a tree of all points: in passes with growing cubes, the first of which settle
/// nearly all samples.
std::vector<Sample> NearestNeighbours(const std::vector<Vec3>& points, std::vector<Sample> open)
{
    std::vector<Sample> settled;
    double farthest = 0.0;
    for (const Vec3& p : points)
        for (unsigned k = 0; k < 3; ++k) farthest = std::max(farthest, std::abs(double{p[k]}));
    constexpr double SmallestEdge = 1e-9; // times the farthest coordinate: cubes can be counted
    double edge = std::max(1.5 * ExpectedSpacing(points, open), SmallestEdge * farthest);
    for (; !open.empty() && edge > 0.0 && edge < 16.0 * farthest; edge *= 2.0) {
        CubesAround cubes(points, open, edge);
        for (std::size_t i = 0; i < points.size(); ++i) cubes.Offer(i);
        const auto isSettled = [&](const Sample& s) { return double{s.distanceSq} <= edge * edge; };
        const auto rest = std::partition(open.begin(), open.end(), isSettled);
        settled.insert(settled.end(), open.begin(), rest);
        open.erase(open.begin(), rest);
    }
    std::sort(settled.begin(), settled.end(), [](const Sample& a, const Sample& b) { return a.point < b.point; });
    return settled;
}

} // namespace

Sampling MeasureSampling(const Scan& scan)
{
    constexpr std::size_t Samples = 2000;
    constexpr double InlierShare = 0.9;
    Sampling sampling;
    if (scan.points.size() < 2) return sampling;
    const std::size_t step = std::max<std::size_t>(1, scan.points.size() / Samples);
    std::vector<Sample> samples;
    for (std::size_t i = 0; i < scan.points.size(); i += step) samples.push_back({i});
    std::vector<double> errors;
    double sum = 0.0;
    for (const Sample& s : NearestNeighbours(scan.points, std::move(samples))) {
        const Vec3 d = scan.points[s.neighbour] - scan.points[s.point];
        sum += std::sqrt(double{s.distanceSq});
        errors.push_back(
            std::max(std::fabs(d.Dot(scan.normals[s.point])), std::fabs(d.Dot(scan.normals[s.neighbour]))));
    }
    if (errors.empty()) return sampling;
    sampling.spacing = sum / static_cast<double>(errors.size());
    std::sort(errors.begin(), errors.end());
    errors.resize(static_cast<std::size_t>(std::ceil(InlierShare * static_cast<double>(errors.size()))));
    double squares = 0.0;
    for (const double error : errors) squares += error * error;
    sampling.roughness = std::sqrt(squares / static_cast<double>(errors.size()));
    return sampling;
}

} // namespace prereg
