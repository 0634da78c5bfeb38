#pragma once

#include "VoAlgorithms/clustering/csearchgrid.h"
#include "VoAlgorithms/export.h"
#include "VoAlgorithms/kdtree/range.h"
#include "VoAlgorithms/kdtree/vector.h"
#include "VoAlgorithms/numerics/ctrafo.h"
#include "VoAlgorithms/prereg/cdirtymap.h"
#include "VoAlgorithms/prereg/cpointfeaturehistogram.h"

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace prereg {

class CFPFHPointSet;

/// Access to a GPU; false when there is none, and the features are then computed on the CPU.
class VOALGO_API GPUContext {
public:
    /// Asks for the accessor once.
    GPUContext();
    /// Whether there is a GPU.
    explicit operator bool() const { return accessor_ != nullptr; }

private:
    std::shared_ptr<void> accessor_;
};

/// Computes the feature histograms of a scan. Results are the same bits whatever the number of threads and whether
/// computed incrementally or from scratch.
class VOALGO_API CFPFHDataSource {
public:
    /// The GPU that a data source may work on.
    using GPUContext = prereg::GPUContext;
    /// Points (mm) and unit normals.
    using Vec3 = kdtree::Vector<3>;

    /// Holds no scan yet.
    /// @param radius  of the features, mm.
    /// @param minCurvatureQuality  smallest curvature quality of a feature point, 0 to 100
    ///         (ConfigurationFPFH::uiMinCurvatureQuality): 100 · min(1, r·k), k the root-mean-square normal curvature.
    /// @param threads  workers of the per-point loops, at most as many as the hardware has; 0 and 1 run serially.
    /// @param incremental  keep the state of an update, so that the next one computes only what changed.
    CFPFHDataSource(double radius, unsigned minCurvatureQuality, unsigned threads, bool incremental);
    /// The same with a GPU, when it is neither null nor false; the CPU then works serially.
    CFPFHDataSource(const std::shared_ptr<GPUContext>& gpu, double radius, unsigned minCurvatureQuality,
                    bool incremental);

    /// Computes the features of a scan: points (mm) and unit normals, same length (throws std::invalid_argument
    /// otherwise); a zero normal is allowed. `candidates`, when given, holds the indices of the only points that may
    /// become feature points (throws std::out_of_range for an index past the end). Returns false and keeps the previous
    /// content when points are not finite or not distinct; the reason is logged. Empty after an exception.
    bool Update(const std::vector<Vec3>& points, const std::vector<Vec3>& normals,
                const std::vector<unsigned>* candidates = nullptr);
    /// Merges point sets, each moved by its pose into the common frame, on a grid of the given cell size (mm): what
    /// falls into one cell becomes one point, its position, normal and histogram the (normalised) means. Returns false
    /// for a cell size that is not positive, finite and normal, or when nothing finite remains.
    bool Update(const std::vector<std::pair<const CFPFHPointSet*, VoAlgo::CTrafo>>& posedSets, double cellSize);

    ///@{
    /// Copies of the points and normals of the last successful update: the scan as given, or merged.
    [[nodiscard]] std::vector<Vec3> GetPoints() const { return points_; }
    [[nodiscard]] std::vector<Vec3> GetNormals() const { return normals_; }
    ///@}
    ///@{
    /// Copies of positions (mm) and unit normals of the feature points.
    [[nodiscard]] std::vector<Vec3> GetFeaturePoints() const { return featurePoints_; }
    [[nodiscard]] std::vector<Vec3> GetFeatureNormals() const { return featureNormals_; }
    ///@}
    /// One histogram per feature point.
    [[nodiscard]] std::vector<CPointFeatureHistogram> GetFeatures() const;

    /// Empties the result and the kept state, without giving back memory.
    void Clear();

private:
    /// Simple histogram of a point, padded with zeros to whole registers.
    struct alignas(32) SimpleHistogram {
        float bins[40] = {};
    };
    /// How far a stored point has been processed.
    enum State : std::uint8_t { Unknown, HasHistogram, HasFeature };
    struct Scan;
    struct Match;
    class FeatureUpdate;

    [[nodiscard]] Match matchWithPrevious(const Scan& scan) const;
    bool updateUsingGPU(const Scan& scan);
    void removeContentsOfDirtyBBoxes(const std::vector<kdtree::Range<3>>& boxes);
    void forgetScan();

    // The result.
    std::vector<Vec3> points_;
    std::vector<Vec3> normals_;
    std::vector<Vec3> featurePoints_;
    std::vector<Vec3> featureNormals_;
    std::vector<std::uint32_t> featureSlots_;      // of the feature points
    std::vector<CPointFeatureHistogram> features_; // by slot
    // Its intermediate values, by slot; a point keeps its slot from update to update.
    std::vector<State> states_;
    std::vector<SimpleHistogram> simple_;
    std::vector<float> quality_; // curvature quality; negative where the surface is cut off
    // The previous scan in the order of its search grid.
    std::vector<std::uint32_t> slotOf_;
    std::vector<float> normalX_, normalY_, normalZ_;
    CDirtyMap dirtyMap_;
    VoAlgo::CSearchGrid grid_;
    float radius_;
    double minCurvatureQuality_;
    unsigned threads_;
    bool incremental_;
    std::shared_ptr<GPUContext> gpu_;
};

} // namespace prereg
