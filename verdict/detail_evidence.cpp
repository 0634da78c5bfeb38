// The evidence for a pose. Samples of each scan are moved into the frame of the other:
// 1. A sample whose nearest point there lies across the surface, not beside it, tells something: both scans have
// surface
//    there. It agrees when the surfaces are close and face the same way.
// 2. A sample in front of what the other scan saw from its view is in space known to be empty.
// 3. Closest pairs alone decide whether the scans could still slide or rotate on each other (N. Gelfand, L. Ikemoto,
//    S. Rusinkiewicz, M. Levoy, Geometrically Stable Sampling for the ICP Algorithm, 3DIM 2003).
// 4. A corner of three flat faces determines a pose, but fits on each corner of the same angles: closest pairs that
// face
//    other ways tell one from another.
#include "verdict/detail_evidence.h"

#include "VoAlgorithms/numerics/symsolvers.h"
#include "verdict/detail_flatfaces.h"
#include "verdict/detail_stability.h"

#include <algorithm>
#include <cmath>

namespace prereg::detail {
namespace {

using Vec3 = kdtree::Vector<3>;
using VoAlgo::CTrafo;

constexpr float CosSameWay = 0.8660F; // 30 degrees
constexpr float CosPairing = 0.7F;
constexpr std::size_t MinPairs = 50;
// Lengths in resolutions.
constexpr double Reach = 4.0;      // across which the other scan's surface is looked for
constexpr double Beside = 1.5;     // a nearest point farther aside than this is the border of the surface
constexpr double Coincides = 1.0;  // distance of surfaces that agree
constexpr double Closest = 0.25;   // distance of the pairs that decide on stability
constexpr double InFront = 4.0;    // distance in front of what was seen that no error of measurement explains
constexpr double PixelSize = 2.0;  // of the depth images
constexpr double IsolatedAt = 3.0; // radius in which a point that is not isolated has neighbours
constexpr std::size_t Neighbours = 4;

float Squared(double length)
{
    return static_cast<float>(length * length);
}

double Median(std::vector<float>& values)
{
    if (values.empty()) return INFINITY;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return static_cast<double>(*middle);
}

double Share(std::size_t part, std::size_t whole)
{
    return whole == 0 ? 0.0 : static_cast<double>(part) / static_cast<double>(whole);
}

/// Pairs of points for one step of a refinement, in the frame of fix; three numbers a point.
struct Pairs {
    std::vector<double> moved;
    std::vector<double> fixed;
    std::vector<double> normals;
    std::vector<float> distances;

    void Add(const Vec3& p, const Vec3& q, const Vec3& normal)
    {
        for (unsigned k = 0; k < 3; ++k) {
            moved.push_back(static_cast<double>(p[k]));
            fixed.push_back(static_cast<double>(q[k]));
            normals.push_back(static_cast<double>(normal[k]));
        }
        distances.push_back(std::fabs((p - q).Dot(normal)));
    }

    /// Tukey's biweight at 4.685 robust standard deviations, as the square root of the weight of each row.
    void Weigh(double smallestSpread)
    {
        constexpr double MadToSigma = 1.4826;
        constexpr double TukeyConstant = 4.685;
        std::vector<float> sorted = distances;
        const double limit = TukeyConstant * std::max(smallestSpread, MadToSigma * Median(sorted));
        for (std::size_t i = 0; i < distances.size(); ++i) {
            const double u = static_cast<double>(distances[i]) / limit;
            const double w = std::max(0.0, 1.0 - u * u);
            for (std::size_t k = 3 * i; k < 3 * i + 3; ++k) normals[k] *= w;
        }
    }
};

} // namespace

/// What the samples of one scan found in the other.
struct ScanPair::Matches {
    std::size_t samples = 0;
    std::size_t opposite = 0; // samples that have the other scan's surface opposite
    std::size_t agreeing = 0;
    std::size_t seen = 0; // samples where the other scan saw something
    std::size_t inFront = 0;
    std::vector<float> distances; // of the samples opposite a surface that faces the same way, mm
    std::vector<Vec3> closest;    // points of the closest pairs and their normals
    std::vector<Vec3> closestNormals;
};

ScanPair::ScanPair(const CPointSet& fix, const CPointSet& flt, const std::optional<View>& fixView,
                   const std::optional<View>& fltView, double resolution, std::size_t samples)
    : resolution_(resolution), fix_(makeSide(fix, fixView, samples)), flt_(makeSide(flt, fltView, samples))
{
}

ScanPair::Side ScanPair::makeSide(const CPointSet& set, const std::optional<View>& view, std::size_t samples) const
{
    Side side;
    side.set = &set;
    std::vector<std::pair<int, float>> nearest;
    const std::size_t step = std::max<std::size_t>(1, set.Size() / samples);
    for (std::size_t i = 0; i < set.Size(); i += step) {
        if (!(set.GetNormal(i).NormSq() > 0.0F)) continue;
        set.GetPointsKdTree().NearestK(&set.GetPoint(i).x, Neighbours, Squared(IsolatedAt * resolution_), nearest);
        if (nearest.size() == Neighbours) side.samples.push_back(i);
    }
    if (view) side.seen.emplace(set.GetPoints(), *view, PixelSize * resolution_);
    return side;
}

CTrafo ScanPair::Refine(const CTrafo& start, double startRadius, unsigned iterations, unsigned stride) const
{
    constexpr double Shrinking = 0.7;
    constexpr double SmallestSpread = 1e-3; // resolutions
    CTrafo pose = start;
    Pairs pairs;
    for (unsigned i = 0; i < iterations; ++i) {
        const float radiusSq = Squared(std::max(1.0, startRadius * std::pow(Shrinking, i)) * resolution_);
        pairs = {};
        for (const Side* side : {&flt_, &fix_}) {
            const bool isFlt = side == &flt_;
            const CPointSet& other = isFlt ? *fix_.set : *flt_.set;
            const CTrafo toOther = isFlt ? pose : pose.GetInverse(true);
            for (std::size_t s = i % stride; s < side->samples.size(); s += stride) {
                const std::size_t k = side->samples[s];
                const auto [p, n] = toOther.Transform(side->set->GetPoint(k), side->set->GetNormal(k));
                const int partner = other.GetPointsKdTree().Nearest(&p.x, radiusSq);
                if (partner < 0) continue;
                const Vec3& q = other.GetPoint(static_cast<std::size_t>(partner));
                const Vec3& normal = other.GetNormal(static_cast<std::size_t>(partner));
                if (!(n.Dot(normal) > CosPairing)) continue;
                if (isFlt)
                    pairs.Add(p, q, normal);
                else
                    pairs.Add(pose * q, side->set->GetPoint(k), pose.Rotate(normal));
            }
        }
        if (pairs.distances.size() < MinPairs) break;
        pairs.Weigh(SmallestSpread * resolution_);
        const double weight = 1.0;
        double turn[3];
        double shift[3];
        if (!VoAlgo::symsolvers::PointToPlaneUpdateLS(pairs.moved.data(), pairs.fixed.data(), pairs.normals.data(),
                                                      &weight, turn, shift, static_cast<int>(pairs.distances.size()),
                                                      true))
            break;
        const auto toVector = [](const double* v) {
            return Vec3(static_cast<float>(v[0]), static_cast<float>(v[1]), static_cast<float>(v[2]));
        };
        pose = CTrafo(toVector(turn), toVector(shift)) * pose;
    }
    return pose;
}

ScanPair::Matches ScanPair::match(const Side& fix, const Side& flt, const CTrafo& pose, unsigned stride) const
{
    Matches matches;
    const float reachSq = Squared(Reach * resolution_);
    const auto beside = static_cast<float>(Beside * resolution_);
    const auto coincides = static_cast<float>(Coincides * resolution_);
    const auto closest = static_cast<float>(Closest * resolution_);
    const auto inFront = static_cast<float>(InFront * resolution_);
    for (std::size_t s = 0; s < flt.samples.size(); s += stride) {
        const auto [p, n] = pose.Transform(flt.set->GetPoint(flt.samples[s]), flt.set->GetNormal(flt.samples[s]));
        ++matches.samples;
        const float front = fix.seen ? fix.seen->InFront(p) : std::numeric_limits<float>::quiet_NaN();
        if (!std::isnan(front)) {
            ++matches.seen;
            if (front > inFront) ++matches.inFront;
        }
        const int partner = fix.set->GetPointsKdTree().Nearest(&p.x, reachSq);
        if (partner < 0) continue;
        const Vec3& q = fix.set->GetPoint(static_cast<std::size_t>(partner));
        const Vec3& normal = fix.set->GetNormal(static_cast<std::size_t>(partner));
        const float across = (p - q).Dot(normal);
        if ((p - q - normal * across).Norm() > beside) continue;
        ++matches.opposite;
        const float distance = std::fabs(across);
        const float cosine = n.Dot(normal);
        if (cosine > 0.0F) matches.distances.push_back(distance);
        if (!(distance <= coincides && cosine > CosSameWay)) continue;
        ++matches.agreeing;
        if (distance > closest) continue;
        matches.closest.push_back(q);
        matches.closestNormals.push_back(normal);
    }
    return matches;
}

Evidence ScanPair::Measure(const CTrafo& pose, unsigned stride) const
{
    Matches forward = match(fix_, flt_, pose, stride);
    Matches backward = match(flt_, fix_, pose.GetInverse(true), stride);
    Evidence evidence;
    evidence.overlap = std::max(Share(forward.agreeing, forward.samples), Share(backward.agreeing, backward.samples));
    evidence.agreement =
        std::min(Share(forward.agreeing, forward.opposite), Share(backward.agreeing, backward.opposite));
    evidence.misfit = std::max(Median(forward.distances), Median(backward.distances));
    if (KnowsEmptySpace())
        evidence.seenEmpty = std::max(Share(forward.inFront, forward.seen), Share(backward.inFront, backward.seen));
    evidence.stability = Stability(forward.closest, forward.closestNormals);
    evidence.beyondFaces =
        std::min(ShareBeyondThreeFaces(forward.closestNormals), ShareBeyondThreeFaces(backward.closestNormals));
    return evidence;
}

} // namespace prereg::detail
