#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/kdtree/tkdtree.h"
#include "VoAlgorithms/prereg/configurationfpfh.h"
#include "VoAlgorithms/prereg/cpointfeaturehistogram.h"
#include "VoAlgorithms/prereg/cpointset.h"

#include <cstdint>
#include <functional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace prereg {

class CFPFHDataSource;

/// A point set with feature points: each a position, a unit normal and a histogram, and trees over both. Immutable in
/// use; restrictions and transformations return new sets. Bad data never throws: it is logged and the set becomes
/// empty.
class VOALGO_API CFPFHPointSet : public CPointSet {
public:
    /// Tree over points or feature points.
    using PointTree = kdtree::TKdTree<3, 48>;
    /// Tree over the 33 bins of the histograms.
    using FeatureTree = kdtree::TKdTree<33, 6>;

    /// Empty.
    CFPFHPointSet() = default;
    /// Copies all. Throws std::invalid_argument when points and normals differ in number, or when the three feature
    /// arrays do; but without histograms, or without feature points, the set becomes empty whatever the others hold.
    CFPFHPointSet(const std::vector<Vec3>& points, const std::vector<Vec3>& normals,
                  const std::vector<Vec3>& featurePoints, const std::vector<Vec3>& featureNormals,
                  const std::vector<CPointFeatureHistogram>& features);
    /// Copies the result of the source's last successful update.
    explicit CFPFHPointSet(const CFPFHDataSource& source);
    CFPFHPointSet(const CFPFHPointSet&) = default;
    CFPFHPointSet(CFPFHPointSet&&) = default;
    CFPFHPointSet& operator=(const CFPFHPointSet&) = default;
    CFPFHPointSet& operator=(CFPFHPointSet&&) = default;
    ~CFPFHPointSet() override = default;

    ///@{
    /// Points and features.
    void InitializeBitMasks(unsigned mask) override;
    void ClearBitMasks() override;
    ///@}
    [[nodiscard]] std::size_t GetMemUsage() const override;

    /// Number of features.
    [[nodiscard]] std::size_t SizeFeatures() const { return features_.size(); }
    ///@{
    /// Histogram, position (mm) and unit normal of feature i; unchecked.
    [[nodiscard]] const CPointFeatureHistogram& GetFeature(std::size_t i) const { return features_[i]; }
    [[nodiscard]] Vec3 GetFeaturePoint(std::size_t i) const { return featurePoints_[i]; }
    [[nodiscard]] Vec3 GetFeatureNormal(std::size_t i) const { return featureNormals_[i]; }
    ///@}
    ///@{
    /// The same of all features, by index.
    [[nodiscard]] const std::vector<Vec3>& GetFeaturePoints() const { return featurePoints_; }
    [[nodiscard]] const std::vector<Vec3>& GetFeatureNormals() const { return featureNormals_; }
    [[nodiscard]] const std::vector<CPointFeatureHistogram>& GetFeatures() const { return features_; }
    ///@}
    ///@{
    /// Their trees; a found index is a feature's, lengths are squared.
    [[nodiscard]] const PointTree& GetFeaturePointsKdTree() const { return featurePointTree_; }
    [[nodiscard]] const FeatureTree& GetFeatureKdTree() const { return featureTree_; }
    ///@}

    /// Mask of feature i; 0 when there are no masks. Throws std::out_of_range "invalid vector<T> subscript".
    std::uint32_t GetFeatureBitMask(std::size_t i) const;
    /// Throws std::out_of_range "invalid vector<T> subscript", also when there are no masks.
    void SetFeatureBitMask(std::size_t i, std::uint32_t mask);
    /// A copy of all masks; empty when there are none.
    [[nodiscard]] std::vector<unsigned> GetFeatureBitMasks() const { return featureBitMasks_; }

    /// The at most k features nearest to `query` in squared Euclidean distance over the 33 bins, none farther than
    /// `maxDistance` (negative or NaN: none at all); `result` receives (feature index, squared distance), nearest
    /// first. Exact.
    void LookupSimilarFeatures(std::vector<std::pair<int, float>>& result, const CPointFeatureHistogram& query,
                               unsigned k, float maxDistance) const;
    /// Whether there are fewer points than one ICP pass samples, or fewer features than 10 per polygon vertex.
    [[nodiscard]] bool IsTooLean(const ConfigurationFPFH& config) const;

    /// Features and points whose masks contain every bit of `mask`.
    [[nodiscard]] CFPFHPointSet RestrictWithMask(unsigned mask) const;
    /// Features and points whose position satisfies `keep`.
    [[nodiscard]] CFPFHPointSet RestrictWithPredicate(const std::function<bool(const Vec3&)>& keep) const;
    /// Features and points with A·p ≤ b for all n rows (A n×3 row-major, b n values); empty when no feature qualifies.
    [[nodiscard]] CFPFHPointSet RestrictWithInequalities(const float* A, const float* b, unsigned n) const;
    /// Everything moved by `pose`; histograms are kept.
    [[nodiscard]] CFPFHPointSet Transform(VoAlgo::CTrafo pose) const;

    /// Writes one line per feature point, "x y z nx ny nz"; a colour other than 0xFFFFFFFF (0xRRGGBB) adds " r g b".
    /// Numbers have six digits and do not depend on a locale. Throws std::invalid_argument "empty file name" and the
    /// stream's failure.
    void SaveFeaturePointsXYZN(const std::string& path, unsigned colour) const;

private:
    using FeatureSurfels = std::tuple<std::vector<Vec3>, std::vector<Vec3>, std::vector<CPointFeatureHistogram>>;

    void rebuildFeatureKdTree();
    [[nodiscard]] FeatureSurfels filterFeatureSurfelsWithMask(unsigned mask) const;
    [[nodiscard]] FeatureSurfels filterFeatureSurfelsWithPredicate(const std::function<bool(const Vec3&)>& keep) const;

    std::vector<Vec3> featurePoints_;
    std::vector<Vec3> featureNormals_;
    PointTree featurePointTree_;
    std::vector<CPointFeatureHistogram> features_;
    FeatureTree featureTree_;
    std::vector<unsigned> featureBitMasks_;
};

} // namespace prereg
