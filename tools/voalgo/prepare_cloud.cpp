#include "prepare_cloud.h"

#include "console.h"
#include "errors.h"
#include "normals.h"
#include "same_place.h"
#include "sampling.h"

#include <algorithm>
#include <cmath>

namespace voalgo {

namespace {

using Vec3 = kdtree::Vector<3>;

constexpr double SmallestExtent = 1.0;    // mm
constexpr double LargestExtent = 20000.0; // mm
constexpr float LengthTolerance = 1e-3F;  // of a unit normal

/// Drops points that are not finite or lie where another one lies.
void KeepUsablePoints(PreparedCloud& p)
{
    const std::vector<std::size_t> first = FirstAtSamePlace(p.cloud.points);
    const bool withNormals = !p.cloud.normals.empty();
    std::size_t kept = 0;
    for (std::size_t i = 0; i < first.size(); ++i) {
        if (!p.cloud.points[i].IsValid()) {
            ++p.notFinite;
        } else if (first[i] != i) {
            ++p.duplicates;
        } else {
            p.cloud.points[kept] = p.cloud.points[i];
            if (withNormals) p.cloud.normals[kept] = p.cloud.normals[i];
            ++kept;
        }
    }
    p.cloud.points.resize(kept);
    if (withNormals) p.cloud.normals.resize(kept);
}

/// Length in double precision, so that no finite normal overflows or vanishes; 0 for one that is not finite.
double LengthOf(const Vec3& n)
{
    return n.IsValid() ? std::hypot(double{n.x}, double{n.y}, double{n.z}) : 0.0;
}

/// Normals have one length (1, as a rule); colours or other columns that were taken for normals have all lengths.
bool LookLikeNormals(const std::vector<Vec3>& normals)
{
    std::vector<double> lengths;
    for (const Vec3& n : normals)
        if (const double length = LengthOf(n); length > 0.0) lengths.push_back(length);
    if (lengths.empty()) return false;
    const auto middle = lengths.begin() + static_cast<std::ptrdiff_t>(lengths.size() / 2);
    std::nth_element(lengths.begin(), middle, lengths.end());
    const double usual = *middle;
    const auto near = std::count_if(lengths.begin(), lengths.end(),
                                    [&](double length) { return std::abs(length - usual) <= 0.1 * usual; });
    return static_cast<double>(near) >= 0.8 * static_cast<double>(lengths.size());
}

void NormaliseNormals(PreparedCloud& p)
{
    for (Vec3& n : p.cloud.normals) {
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

void Measure(PreparedCloud& p)
{
    p.low = p.high = p.cloud.points.front();
    for (const Vec3& q : p.cloud.points)
        for (unsigned k = 0; k < 3; ++k) {
            p.low[k] = std::min(p.low[k], q[k]);
            p.high[k] = std::max(p.high[k], q[k]);
        }
    p.spacing = MeanSpacing(p.cloud);
}

} // namespace

double PreparedCloud::Extent() const
{
    double extent = 0.0;
    for (unsigned k = 0; k < 3; ++k) extent = std::max(extent, double{high[k]} - double{low[k]});
    return extent;
}

PreparedCloud PrepareCloud(Cloud raw, const std::string& name, double mmPerUnit, const std::optional<Vec3>& viewpoint)
{
    PreparedCloud p;
    p.name = name;
    p.cloud = std::move(raw);
    p.read = p.cloud.points.size();
    if (mmPerUnit != 1.0)
        for (Vec3& q : p.cloud.points) q *= static_cast<float>(mmPerUnit);
    KeepUsablePoints(p);
    if (p.cloud.points.empty())
        throw InputError(name + Format(": none of its %zu points has finite coordinates", p.read));

    p.implausibleNormals = !p.cloud.normals.empty() && !LookLikeNormals(p.cloud.normals);
    p.estimatedNormals = p.cloud.normals.empty() || p.implausibleNormals;
    if (p.estimatedNormals)
        p.cloud.normals = EstimateNormals(p.cloud.points, viewpoint);
    else
        NormaliseNormals(p);
    p.zeroNormals = static_cast<std::size_t>(
        std::count_if(p.cloud.normals.begin(), p.cloud.normals.end(), [](const Vec3& n) { return n == Vec3(); }));
    Measure(p);
    return p;
}

Remarks Describe(const PreparedCloud& p)
{
    Remarks r;
    if (p.notFinite > 0)
        r.warnings.push_back(
            Format("dropped %zu of %zu points whose coordinates are not finite (NaN, Inf)", p.notFinite, p.read));
    if (p.duplicates > 0)
        r.notes.push_back(Format("dropped %zu points that lie exactly where another one lies", p.duplicates));
    if (p.implausibleNormals) r.warnings.push_back("its normals are no normals (all zero, or of many lengths)");
    if (p.estimatedNormals) r.notes.push_back("estimated the normals from neighbouring points");
    if (p.scaledNormals > 0) r.notes.push_back(Format("brought %zu normals to unit length", p.scaledNormals));
    if (p.zeroNormals > 0) r.notes.push_back(Format("%zu points have no normal (zero length)", p.zeroNormals));
    const double extent = p.Extent();
    if (extent < SmallestExtent || extent > LargestExtent)
        r.warnings.push_back(Format("its largest extent is %.4g mm; is the unit right? (--unit)", extent));
    double farthest = 0.0;
    for (unsigned k = 0; k < 3; ++k)
        farthest = std::max({farthest, std::abs(double{p.low[k]}), std::abs(double{p.high[k]})});
    const double resolution = farthest * 6e-8;
    if (resolution > 0.02 * p.spacing && p.spacing > 0.0)
        r.warnings.push_back(
            Format("lies so far from the origin (%.3g mm) that single precision resolves only %.2g mm; "
                   "move it nearer before export",
                   farthest, resolution));
    return r;
}

} // namespace voalgo
