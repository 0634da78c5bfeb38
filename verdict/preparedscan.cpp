#include "VoAlgorithms/verdict/preparedscan.h"

#include "VoAlgorithms/verdict/estimatenormals.h"
#include "VoAlgorithms/verdict/sameplace.h"
#include "VoAlgorithms/verdict/sampling.h"
#include "platform/format.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace prereg {
namespace {

using Vec3 = kdtree::Vector<3>;

constexpr double SmallestExtent = 1.0;    // mm
constexpr double LargestExtent = 20000.0; // mm
constexpr float LengthTolerance = 1e-3F;  // of a unit normal
constexpr double MixedShare = 0.25;       // of normals that face away from their neighbour's
constexpr double UncertainShare = 0.02;   // the same after signs were propagated
constexpr double InwardShare = 0.4;       // of convex surface

/// Drops points that are not finite or coincide with an earlier one.
void KeepUsablePoints(PreparedScan& p)
{
    const std::vector<std::size_t> first = FirstAtSamePlace(p.scan.points);
    const bool withNormals = !p.scan.normals.empty();
    std::size_t kept = 0;
    for (std::size_t i = 0; i < first.size(); ++i) {
        if (!p.scan.points[i].IsValid()) {
            ++p.notFinite;
        } else if (first[i] != i) {
            ++p.duplicates;
        } else {
            p.scan.points[kept] = p.scan.points[i];
            if (withNormals) p.scan.normals[kept] = p.scan.normals[i];
            ++kept;
        }
    }
    p.scan.points.resize(kept);
    if (withNormals) p.scan.normals.resize(kept);
}

/// Length in double precision, so that no finite normal overflows or vanishes; 0 for one that is not finite.
double LengthOf(const Vec3& n)
{
    if (!n.IsValid()) return 0.0;
    return std::sqrt(double{n.x} * double{n.x} + double{n.y} * double{n.y} + double{n.z} * double{n.z});
}

/// Normals have one length, usually 1; colours and other columns mistaken for normals vary in length.
bool LookLikeNormals(const std::vector<Vec3>& normals)
{
    constexpr std::size_t Samples = 20000;
    const std::size_t step = std::max<std::size_t>(1, normals.size() / Samples);
    std::vector<double> lengths;
    for (std::size_t i = 0; i < normals.size(); i += step)
        if (const double length = LengthOf(normals[i]); length > 0.0) lengths.push_back(length);
    if (lengths.empty()) return false;
    const auto middle = lengths.begin() + static_cast<std::ptrdiff_t>(lengths.size() / 2);
    std::nth_element(lengths.begin(), middle, lengths.end());
    const double median = *middle;
    const auto near = std::count_if(lengths.begin(), lengths.end(),
                                    [&](double length) { return std::abs(length - median) <= 0.1 * median; });
    return static_cast<double>(near) >= 0.8 * static_cast<double>(lengths.size());
}

void NormaliseNormals(PreparedScan& p)
{
    for (Vec3& n : p.scan.normals) {
        const double length = LengthOf(n);
        if (length == 0.0) {
            n = {};
            continue;
        }
        if (std::abs(length - 1.0) <= LengthTolerance) continue;
        n = Vec3(static_cast<float>(n.x / length), static_cast<float>(n.y / length), static_cast<float>(n.z / length));
        ++p.scaledNormals;
    }
}

/// Normals that face either side are oriented anew; the plain average of a neighbourhood would cancel.
void UseGivenNormals(PreparedScan& p)
{
    NormaliseNormals(p);
    p.orientation = AssessNormals(p.scan.points, p.scan.normals);
    p.mixedNormals = p.orientation.disagreeing > MixedShare;
    if (p.mixedNormals) p.orientation = OrientNormals(p.scan.points, p.scan.normals, p.scan.LocalViewpoint());
}

/// What decided the signs of normals that were not taken as given.
const char* SignsDecidedBy(const NormalOrientation& orientation)
{
    switch (orientation.by) {
    case ENormalSigns::Viewpoint:
        return "the normals face the stated viewpoint";
    case ENormalSigns::View:
        return "the normals face the one direction that sees all points";
    case ENormalSigns::Propagation:
        return "the normals agree from neighbour to neighbour; no direction sees all points";
    case ENormalSigns::Given:
        break;
    }
    return "the normals face the side that was given";
}

void MeasureBox(PreparedScan& p)
{
    p.low = p.high = p.scan.points.front();
    for (const Vec3& q : p.scan.points)
        for (unsigned k = 0; k < 3; ++k) {
            p.low[k] = std::min(p.low[k], q[k]);
            p.high[k] = std::max(p.high[k], q[k]);
        }
}

/// Moves the origin to the centre of the box, unless rounding of the points is all that keeps it away. The centre is
/// not rounded: a scan that is moved then has the same local points, wherever it goes.
void MoveOriginToCentre(PreparedScan& p)
{
    constexpr double Rounding = 1e-6; // times the extent
    double shift[3];
    double largest = 0.0;
    for (unsigned k = 0; k < 3; ++k) {
        shift[k] = 0.5 * (double{p.low[k]} + double{p.high[k]});
        largest = std::max(largest, std::abs(shift[k]));
    }
    if (largest <= Rounding * p.Extent()) return;
    for (Vec3& q : p.scan.points)
        for (unsigned k = 0; k < 3; ++k) q[k] = static_cast<float>(double{q[k]} - shift[k]);
    for (unsigned k = 0; k < 3; ++k) p.scan.origin[k] += shift[k];
    MeasureBox(p);
}

/// Half the distance between the floats at the point farthest from the origin.
double Resolution(const PreparedScan& p)
{
    double farthest = 0.0;
    for (unsigned k = 0; k < 3; ++k)
        farthest = std::max({farthest, std::abs(double{p.low[k]}), std::abs(double{p.high[k]})});
    return farthest * 6e-8;
}

void MeasureSpacing(PreparedScan& p)
{
    const Sampling sampling = MeasureSampling(p.scan);
    p.spacing = sampling.spacing;
    p.roughness = sampling.roughness;
}

} // namespace

double PreparedScan::Extent() const
{
    double extent = 0.0;
    for (unsigned k = 0; k < 3; ++k) extent = std::max(extent, double{high[k]} - double{low[k]});
    return extent;
}

PreparedScan PrepareScan(Scan scan, bool keepOrigin)
{
    if (!scan.normals.empty() && scan.normals.size() != scan.points.size())
        throw std::invalid_argument(
            (scan.name.empty() ? "scan" : scan.name) +
            VoAlgo::Format(": %zu normals for %zu points", scan.normals.size(), scan.points.size()));
    PreparedScan p;
    p.scan = std::move(scan);
    p.read = p.scan.points.size();
    KeepUsablePoints(p);
    if (p.scan.points.empty()) return p;
    MeasureBox(p);
    p.resolution = Resolution(p);
    if (!keepOrigin) MoveOriginToCentre(p);

    p.implausibleNormals = !p.scan.normals.empty() && !LookLikeNormals(p.scan.normals);
    p.estimatedNormals = p.scan.normals.empty() || p.implausibleNormals;
    if (p.estimatedNormals)
        p.scan.normals = EstimateNormals(p.scan.points, p.scan.LocalViewpoint(), 16, &p.orientation);
    else
        UseGivenNormals(p);
    p.zeroNormals = static_cast<std::size_t>(
        std::count_if(p.scan.normals.begin(), p.scan.normals.end(), [](const Vec3& n) { return n == Vec3(); }));
    MeasureSpacing(p);
    return p;
}

PreparedScan PreparedFrom(std::shared_ptr<const CFPFHPointSet> set, std::string name,
                          const std::array<double, 3>& origin)
{
    PreparedScan p;
    p.scan.points = set->GetPoints();
    p.scan.normals = set->GetNormals();
    p.scan.name = std::move(name);
    p.scan.origin = origin;
    p.read = p.scan.points.size();
    if (!p.scan.points.empty()) MeasureBox(p);
    MeasureSpacing(p);
    p.pointSet = std::move(set);
    return p;
}

Remarks Describe(const PreparedScan& p)
{
    Remarks r;
    if (p.notFinite > 0)
        r.warnings.push_back(VoAlgo::Format("dropped %zu of %zu points: their coordinates are not finite (NaN, Inf)",
                                            p.notFinite, p.read));
    if (p.duplicates > 0) r.notes.push_back(VoAlgo::Format("dropped %zu duplicate points", p.duplicates));
    if (p.implausibleNormals) r.warnings.push_back("ignored the normals: they are all zero or vary widely in length");
    if (p.estimatedNormals) r.notes.push_back("estimated the normals from neighbouring points");
    if (p.mixedNormals)
        r.warnings.push_back("the normals given face either side of the surface; decided their signs anew");
    if (p.orientation.by != ENormalSigns::Given) r.notes.push_back(SignsDecidedBy(p.orientation));
    if (p.orientation.convex < InwardShare)
        r.warnings.push_back(
            VoAlgo::Format("%.0f %% of the surface is concave as its normals face; do they point inwards?",
                           100.0 * (1.0 - p.orientation.convex)));
    if (p.orientation.by == ENormalSigns::Propagation && p.orientation.disagreeing > UncertainShare)
        r.warnings.push_back(
            VoAlgo::Format("%.1f %% of the normals face away from their neighbour's; patches may point "
                           "the wrong way",
                           100.0 * p.orientation.disagreeing));
    if (p.scaledNormals > 0) r.notes.push_back(VoAlgo::Format("scaled %zu normals to unit length", p.scaledNormals));
    if (p.zeroNormals > 0) r.notes.push_back(VoAlgo::Format("%zu points have no normal (zero length)", p.zeroNormals));
    const double extent = p.Extent();
    if (extent < SmallestExtent || extent > LargestExtent)
        r.warnings.push_back(VoAlgo::Format("its largest extent is %.4g mm; is the unit right?", extent));
    if (p.resolution > 0.02 * p.spacing && p.spacing > 0.0)
        r.warnings.push_back(VoAlgo::Format("lies so far from the origin that single precision resolves only %.2g mm; "
                                            "export it in double precision, or shift it closer",
                                            p.resolution));
    return r;
}

} // namespace prereg
