#include "VoAlgorithms/prereg/cfpfhpointset.h"

#include "VoAlgorithms/prereg/cfpfhdatasource.h"
#include "platform/channels.h"
#include "prereg/detail_textfile.h"

#include <algorithm>
#include <stdexcept>

namespace prereg {
namespace {

namespace channels = VoAlgo::channels;
using Vec3 = kdtree::Vector<3>;

} // namespace

CFPFHPointSet::CFPFHPointSet(const std::vector<Vec3>& points, const std::vector<Vec3>& normals,
                             const std::vector<Vec3>& featurePoints, const std::vector<Vec3>& featureNormals,
                             const std::vector<CPointFeatureHistogram>& features)
    : CPointSet(points, normals), featurePoints_(featurePoints), featureNormals_(featureNormals), features_(features)
{
    // Without histograms, or without positions, there are no features: that is bad data and ends as the empty set.
    const bool hasFeatures = !features.empty() && !featurePoints.empty();
    if (hasFeatures && (featurePoints.size() != features.size() || featureNormals.size() != features.size()))
        throw std::invalid_argument("feature points, normals and histograms differ in number");
    rebuildFeatureKdTree();
}

CFPFHPointSet::CFPFHPointSet(const CFPFHDataSource& source)
    : CFPFHPointSet(source.GetPoints(), source.GetNormals(), source.GetFeaturePoints(), source.GetFeatureNormals(),
                    source.GetFeatures())
{
}

void CFPFHPointSet::InitializeBitMasks(unsigned mask)
{
    CPointSet::InitializeBitMasks(mask);
    featureBitMasks_.assign(SizeFeatures(), mask);
}

void CFPFHPointSet::ClearBitMasks()
{
    CPointSet::ClearBitMasks();
    featureBitMasks_.clear();
}

std::size_t CFPFHPointSet::GetMemUsage() const
{
    return CPointSet::GetMemUsage() + sizeof(*this) - sizeof(CPointSet) +
           (featurePoints_.capacity() + featureNormals_.capacity()) * sizeof(Vec3) +
           features_.capacity() * sizeof(CPointFeatureHistogram) + featureBitMasks_.capacity() * sizeof(unsigned) +
           featurePointTree_.GetMemUsage() + featureTree_.GetMemUsage();
}

std::uint32_t CFPFHPointSet::GetFeatureBitMask(std::size_t i) const
{
    if (featureBitMasks_.empty()) return 0;
    if (i >= featureBitMasks_.size()) throw std::out_of_range("invalid vector<T> subscript");
    return featureBitMasks_[i];
}

void CFPFHPointSet::SetFeatureBitMask(std::size_t i, std::uint32_t mask)
{
    if (i >= featureBitMasks_.size()) throw std::out_of_range("invalid vector<T> subscript");
    featureBitMasks_[i] = mask;
}

void CFPFHPointSet::rebuildFeatureKdTree()
{
    constexpr const char* Function = "prereg::CFPFHPointSet::rebuildFeatureKdTree";
    if (features_.empty()) {
        VOALGO_LOG(channels::Features(), Warn, Function, L"point set has no features");
        *this = CFPFHPointSet();
        return;
    }
    featureTree_ = FeatureTree(features_[0].bins, features_.size(), CPointFeatureHistogram::NumBins);
    if (featureTree_.Empty()) {
        VOALGO_LOG(channels::Features(), Error, Function,
                   L"Inf/NaN in FPFH data resulted in empty kD-tree; invalidating point set");
        *this = CFPFHPointSet();
        return;
    }
    if (featureTree_.Size() < features_.size())
        VOALGO_LOG(channels::Features(), Warn, Function,
                   L"kD-Tree reduced the number of FPFH features (Inf/NaN/duplicates) from %zu to %u (performance "
                   L"warning)",
                   features_.size(), featureTree_.Size());
    if (featurePoints_.empty()) { // deliberately without a message
        *this = CFPFHPointSet();
        return;
    }
    featurePointTree_ = PointTree(&featurePoints_[0].x, featurePoints_.size(), sizeof(Vec3) / sizeof(float));
    if (featurePointTree_.Empty()) {
        VOALGO_LOG(channels::Features(), Error, Function,
                   L"Inf/NaN in feature point data resulted in empty kD-tree; invalidating point set");
        *this = CFPFHPointSet();
    }
}

void CFPFHPointSet::LookupSimilarFeatures(std::vector<std::pair<int, float>>& result,
                                          const CPointFeatureHistogram& query, unsigned k, float maxDistance) const
{
    result.clear();
    if (maxDistance >= 0.0F) featureTree_.NearestK(query.bins, k, maxDistance * maxDistance, result);
}

bool CFPFHPointSet::IsTooLean(const ConfigurationFPFH& config) const
{
    constexpr std::size_t FeaturesPerVertex = 10;
    return Size() < config.icpConfig.uiNumSamples || SizeFeatures() < FeaturesPerVertex * config.uiNumPolygonVertices;
}

CFPFHPointSet CFPFHPointSet::RestrictWithMask(unsigned mask) const
{
    CFPFHPointSet result;
    std::tie(result.featurePoints_, result.featureNormals_, result.features_) = filterFeatureSurfelsWithMask(mask);
    result.rebuildFeatureKdTree();
    std::tie(result.points_, result.normals_) = filterSurfelsWithMask(mask);
    result.rebuildKdTree();
    result.rebuildEllipsoid();
    return result;
}

CFPFHPointSet CFPFHPointSet::RestrictWithPredicate(const std::function<bool(const Vec3&)>& keep) const
{
    CFPFHPointSet result;
    std::tie(result.featurePoints_, result.featureNormals_, result.features_) = filterFeatureSurfelsWithPredicate(keep);
    result.rebuildFeatureKdTree();
    std::tie(result.points_, result.normals_) = filterSurfelsWithPredicate(keep);
    result.rebuildKdTree();
    result.rebuildEllipsoid();
    return result;
}

CFPFHPointSet CFPFHPointSet::RestrictWithInequalities(const float* A, const float* b, unsigned n) const
{
    CFPFHPointSet result;
    const std::vector<std::size_t> matching = identifyMatchingIndices(featurePoints_, A, b, n);
    if (matching.empty()) return result;
    for (const std::size_t i : matching) {
        result.featurePoints_.push_back(featurePoints_[i]);
        result.featureNormals_.push_back(featureNormals_[i]);
        result.features_.push_back(features_[i]);
    }
    result.rebuildFeatureKdTree();
    std::tie(result.points_, result.normals_) = filterSurfelsWithInequalities(A, b, n);
    result.rebuildKdTree();
    result.rebuildEllipsoid();
    return result;
}

CFPFHPointSet CFPFHPointSet::Transform(VoAlgo::CTrafo pose) const
{
    CFPFHPointSet result;
    std::tie(result.points_, result.normals_) = transformSurfels(pose);
    result.rebuildKdTree();
    result.ellipsoid_ = ellipsoid_.Transformed(pose);
    result.featurePoints_.reserve(SizeFeatures());
    result.featureNormals_.reserve(SizeFeatures());
    for (const Vec3& p : featurePoints_) result.featurePoints_.push_back(pose * p);
    for (const Vec3& n : featureNormals_) result.featureNormals_.push_back(pose.Rotate(n));
    result.features_ = features_;
    result.rebuildFeatureKdTree();
    return result;
}

/// Deliberate: point masks are read by feature index; callers that give points and features the same masks see what
/// they expect.
CFPFHPointSet::FeatureSurfels CFPFHPointSet::filterFeatureSurfelsWithMask(unsigned mask) const
{
    FeatureSurfels result;
    if (bitMasks_.empty() || mask == 0) return result;
    auto& [points, normals, features] = result;
    const std::size_t n = std::min(featureBitMasks_.size(), bitMasks_.size());
    for (std::size_t i = 0; i < n; ++i) {
        if ((bitMasks_[i] & mask) != mask) continue;
        points.push_back(featurePoints_[i]);
        normals.push_back(featureNormals_[i]);
        features.push_back(features_[i]);
    }
    return result;
}

CFPFHPointSet::FeatureSurfels
CFPFHPointSet::filterFeatureSurfelsWithPredicate(const std::function<bool(const Vec3&)>& keep) const
{
    FeatureSurfels result;
    auto& [points, normals, features] = result;
    for (std::size_t i = 0; i < SizeFeatures(); ++i) {
        if (!keep(featurePoints_[i])) continue;
        points.push_back(featurePoints_[i]);
        normals.push_back(featureNormals_[i]);
        features.push_back(features_[i]);
    }
    return result;
}

void CFPFHPointSet::SaveFeaturePointsXYZN(const std::string& path, unsigned colour) const
{
    detail::SaveSurfels(path, featurePoints_, featureNormals_, colour, detail::Digits::Six);
}

} // namespace prereg
