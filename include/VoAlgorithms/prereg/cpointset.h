#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/kdtree/tkdtree.h"
#include "VoAlgorithms/kdtree/vector.h"
#include "VoAlgorithms/numerics/ctrafo.h"
#include "VoAlgorithms/prereg/configurationicp.h"
#include "VoAlgorithms/prereg/ellipsoid.h"
#include "VoAlgorithms/prereg/icpresult.h"
#include "VoAlgorithms/prereg/ipointset.h"

#include <cstdint>
#include <functional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace prereg {

/// A cloud of surfels (points with unit normals, millimetres) with a kd-tree over its points and its covariance
/// ellipsoid. Made by derived classes. Const operations only read and may run on several threads at once.
class VOALGO_API CPointSet : public IPointSet {
public:
    /// A point (mm) or a unit normal.
    using Vec3 = kdtree::Vector<3>;
    /// Tree over the points.
    using Tree = kdtree::TKdTree<3, 48>;
    using Surfels = std::pair<std::vector<Vec3>, std::vector<Vec3>>; ///< points and their normals

    [[nodiscard]] std::size_t GetMemUsage() const override;
    void InitializeBitMasks(unsigned mask) override;
    /// Removes the masks: each then reads 0.
    void ClearBitMasks() override;
    [[nodiscard]] std::size_t Size() const override { return points_.size(); }
    [[nodiscard]] bool Empty() const override { return points_.empty(); }
    [[nodiscard]] std::pair<Vec3, Vec3> GetAABB() const override;

    ///@{
    /// All points (mm) and their unit normals, by index.
    [[nodiscard]] const std::vector<Vec3>& GetPoints() const { return points_; }
    [[nodiscard]] const std::vector<Vec3>& GetNormals() const { return normals_; }
    ///@}
    ///@{
    /// Point (mm) and unit normal i; unchecked.
    [[nodiscard]] const Vec3& GetPoint(std::size_t i) const { return points_[i]; }
    [[nodiscard]] const Vec3& GetNormal(std::size_t i) const { return normals_[i]; }
    ///@}
    /// Tree over the points; a found index is a point's, lengths are squared, mm².
    [[nodiscard]] const Tree& GetPointsKdTree() const { return tree_; }
    /// The covariance ellipsoid of the points.
    [[nodiscard]] const Ellipsoid& GetEllipsoid() const { return ellipsoid_; }
    /// Mask of point i; 0 when there are no masks. Throws std::out_of_range "invalid vector<T> subscript".
    std::uint32_t GetBitMask(std::size_t i) const;
    /// Throws std::out_of_range "invalid vector<T> subscript", also when there are no masks.
    void SetBitMask(std::size_t i, std::uint32_t mask);

    /// Refines `start` (maps 'flt' into this set's frame) and grades the outcome; see ICPResult for the result types.
    /// The rotation and movement limits are measured against `reference`, or against `start` when it is null.
    /// Deterministic: every call draws from its own engine. O(iterations × samples × log n).
    [[nodiscard]] ICPResult ComputeICPRegistration(const ConfigurationICP& config, const CPointSet& flt,
                                                   const VoAlgo::CTrafo& start,
                                                   const VoAlgo::CTrafo* reference = nullptr) const;

    /// Area of this set that 'flt' covers under `pose`, mm². `searchRadius`: a point is covered when a moved 'flt'
    /// point lies within it, mm. `areaRadius`: neighbourhood of the local area estimate, mm. With a negative or NaN
    /// radius the area is 0. Stops once `maxArea` (mm²) is exceeded.
    [[nodiscard]] float EstimateOverlapArea(const CPointSet& flt, const VoAlgo::CTrafo& pose, float searchRadius,
                                            float areaRadius, float maxArea) const;
    /// Area that point i stands for, from its four nearest neighbours within `radius`, mm²; 0 with fewer.
    [[nodiscard]] double estimateLocalVoronoiArea(std::size_t i, float radius) const;

    /// Writes one line per point, "x y z nx ny nz"; a colour other than 0xFFFFFFFF (0xRRGGBB) adds " r g b".
    /// Coordinates read back to the same bits, and do not depend on a locale. Throws std::invalid_argument "empty file
    /// name" and the stream's failure.
    void SaveXYZN(const std::string& fileName, unsigned colour = 0xFFFFFFFFU) const;

    /// Surfels whose masks contain every bit of `mask`; none when there are no masks or `mask` is 0.
    [[nodiscard]] Surfels filterSurfelsWithMask(unsigned mask) const;
    /// Surfels whose position satisfies `keep`.
    [[nodiscard]] Surfels filterSurfelsWithPredicate(const std::function<bool(const Vec3&)>& keep) const;
    /// Surfels with A·p ≤ b for all n rows; A is n×3 row-major, b has n values (borrowed).
    [[nodiscard]] Surfels filterSurfelsWithInequalities(const float* A, const float* b, unsigned n) const;
    /// The same as a set of its own, with its tree and ellipsoid.
    [[nodiscard]] CPointSet filterPointSet(const float* A, const float* b, unsigned n) const;
    /// Points by the pose, normals by its rotation.
    [[nodiscard]] Surfels transformSurfels(const VoAlgo::CTrafo& pose) const;
    /// Points scaled component by component; normals are those of the scaled surface, unit length. The same positive
    /// factor for all components leaves normals as they are. A factor of 0 flattens the cloud: a normal then has the
    /// direction that it approaches as the factor goes to 0.
    [[nodiscard]] Surfels scaleSurfels(const Vec3& scale) const;

    /// One correspondence of the ICP.
    struct PairWithError {
        std::uint32_t fixIndex; ///< reference point
        std::int32_t fltIndex;  ///< floating point
        float distanceSq;       ///< of the moved floating point to its partner, mm²
        float error;            ///< larger of the squared distances to the two tangent planes, mm²
    };

    /// Indices of the points with A·p ≤ b for all n rows.
    [[nodiscard]] static std::vector<std::size_t> identifyMatchingIndices(const std::vector<Vec3>& points,
                                                                          const float* A, const float* b, unsigned n);

protected:
    /// Empty.
    CPointSet() = default;
    /// Copies both (same length; throws std::invalid_argument otherwise), builds the tree, then the ellipsoid.
    CPointSet(const std::vector<Vec3>& points, const std::vector<Vec3>& normals);
    /// The same with a tree already built over the same points, which is copied.
    CPointSet(const std::vector<Vec3>& points, const std::vector<Vec3>& normals, const Tree& tree);

    /// Bad data (only Inf/NaN) empties the set, with a message.
    void rebuildKdTree();
    /// From the points as they are.
    void rebuildEllipsoid();

    std::vector<Vec3> points_;            ///< mm
    std::vector<Vec3> normals_;           ///< of the points, unit length
    std::vector<std::uint32_t> bitMasks_; ///< of the points, or empty
    Tree tree_;                           ///< over the points
    Ellipsoid ellipsoid_;                 ///< of the points

private:
    friend class CIcpRun;

    float samplePairs(const ConfigurationICP& config, float radiusSq, const CPointSet& flt, const VoAlgo::CTrafo& pose,
                      const std::function<int()>& randomIndex, std::vector<PairWithError>& pairs,
                      std::uint32_t& mismatches, const std::vector<int>* fixedSamples, bool testNormals) const;
    static std::tuple<std::size_t, float, float> computeNumberOfInliers(const std::vector<PairWithError>& pairs,
                                                                        double inlierScaling);
    VoAlgo::CTrafo computeTrafoUpdate(const ConfigurationICP& config, const CPointSet& flt,
                                      const std::vector<PairWithError>& pairs, const VoAlgo::CTrafo& current,
                                      std::size_t k) const;
};

} // namespace prereg
