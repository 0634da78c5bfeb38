#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/prereg/configurationfpfh.h"
#include "VoAlgorithms/prereg/configurationicp.h"
#include "VoAlgorithms/prereg/icpresult.h"

#include <concepts>
#include <string>
#include <type_traits>
#include <vector>

namespace prereg {

/// @file
/// The fields of the registration's records, listed once: documents, JSON, bindings, reports and manuals go through
/// VisitFields. The default of a field is that of a default-constructed record.

/// What a field is.
struct FieldInfo {
    const char* key;      ///< name of the field and of its key in documents
    const char* unit;     ///< "mm", "mm2", "rad" or empty
    const char* meaning;  ///< in a few words, without a full stop
    const char* off = ""; ///< of a setting: what a value ≤ 0 means; empty: nothing special
};

/// A record or a const one.
template <class R, class T>
concept RecordOf = std::same_as<std::remove_const_t<R>, T>;

/// Calls visit(FieldInfo, field) for every setting of a refinement, in the order of the declaration.
void VisitFields(RecordOf<ConfigurationICP> auto& r, auto&& visit)
{
    visit(FieldInfo{"uiMaxNumIterations", "", "iterations, at most", "no iteration"}, r.uiMaxNumIterations);
    visit(FieldInfo{"dMinQueryRadius", "mm", "smallest pairing radius; also the small radius"}, r.dMinQueryRadius);
    visit(FieldInfo{"dInitialQueryRadiusScaling", "", "first pairing radius in multiples of dPositionTolerance"},
          r.dInitialQueryRadiusScaling);
    visit(FieldInfo{"uiNumSamples", "", "points drawn for each pass and for the final evaluation"}, r.uiNumSamples);
    visit(FieldInfo{"dPositionTolerance", "mm", "search radius of the final evaluation"}, r.dPositionTolerance);
    visit(FieldInfo{"dNormalAngleTolerance", "rad", "largest angle between the normals of a pair"},
          r.dNormalAngleTolerance);
    visit(FieldInfo{"dMaxErrorRatio", "", "mismatched normals per match, at most", "not tested"}, r.dMaxErrorRatio);
    visit(FieldInfo{"dMaxRotationDistance", "rad", "rotation from the starting pose, at most", "not tested"},
          r.dMaxRotationDistance);
    visit(FieldInfo{"dMaxMovement", "mm", "movement from the starting pose, at most", "not tested"}, r.dMaxMovement);
    visit(FieldInfo{"dMinOverlapRatio", "", "overlap ratio, at least"}, r.dMinOverlapRatio);
    visit(FieldInfo{"dMaxRMSE", "mm", "root mean square error of the inliers, at most"}, r.dMaxRMSE);
    visit(FieldInfo{"dMinOverlapArea", "mm2", "overlap area, at least", "not tested"}, r.dMinOverlapArea);
    visit(FieldInfo{"dMinSmallBigRatio", "", "pairs within the small radius per point within the big one, at least",
                    "not tested"},
          r.dMinSmallBigRatio);
    visit(FieldInfo{"dSmallBigQueryRadiusScaling", "", "big radius in multiples of dMinQueryRadius"},
          r.dSmallBigQueryRadiusScaling);
    visit(FieldInfo{"dInlierScaling", "", "inlier threshold in robust standard deviations"}, r.dInlierScaling);
}

/// The key under which the settings of the refinements stand among those of a registration.
inline constexpr const char* IcpKey = "icpConfig";

/// The same for the settings of a registration, but for those of its refinements (IcpKey), which come last.
void VisitFields(RecordOf<ConfigurationFPFH> auto& r, auto&& visit)
{
    visit(FieldInfo{"uiNumPolygons", "", "polygons tried, at most", "clusters the proposals at hand"}, r.uiNumPolygons);
    visit(FieldInfo{"uiNumPolygonVertices", "", "vertices of a polygon"}, r.uiNumPolygonVertices);
    visit(FieldInfo{"uiNumNeighbors", "", "similar features looked up for each vertex"}, r.uiNumNeighbors);
    visit(FieldInfo{"dMaxPolygonDiameter", "mm", "largest diameter of a polygon", "vertices from feature clusters"},
          r.dMaxPolygonDiameter);
    visit(FieldInfo{"dMaxPolygonVertexError", "mm", "largest error of a side of a matched polygon"},
          r.dMaxPolygonVertexError);
    visit(FieldInfo{"uiMinCurvatureQuality", "", "smallest curvature quality of a feature point, 0 to 100"},
          r.uiMinCurvatureQuality);
    visit(FieldInfo{"dFeatureRadius", "mm", "radius of the feature histograms"}, r.dFeatureRadius);
    visit(FieldInfo{"dFeatureClusteringBandwidth", "", "bandwidth of the feature clustering", "k-means"},
          r.dFeatureClusteringBandwidth);
    visit(FieldInfo{"dTrafoClusteringBandwidth", "mm", "poses this close count as one"}, r.dTrafoClusteringBandwidth);
    visit(FieldInfo{"dOrientationClusteringBandwidth", "rad", "orientations this close count as one", "all do"},
          r.dOrientationClusteringBandwidth);
    visit(FieldInfo{"uiTrafoClusteringQuorum", "", "proposals that must agree to end the search early", "never"},
          r.uiTrafoClusteringQuorum);
}

/// The same for the figures of a result: all but the result type, the pose and the ellipsoid.
void VisitFields(RecordOf<ICPResult> auto& r, auto&& visit)
{
    visit(FieldInfo{"fStart_OverlapRatio", "", "pairs per sample in the first pass"}, r.fStart_OverlapRatio);
    visit(FieldInfo{"iStart_NumberOfInliers", "", "inliers of the first pass"}, r.iStart_NumberOfInliers);
    visit(FieldInfo{"fStart_RMSE", "mm", "root mean square error of the first pass's inliers"}, r.fStart_RMSE);
    visit(FieldInfo{"fStart_MismatchesPerMatchRatio", "", "mismatched normals per pair in the first pass"},
          r.fStart_MismatchesPerMatchRatio);
    visit(FieldInfo{"fStop_OverlapRatio", "", "matches per sample at the end"}, r.fStop_OverlapRatio);
    visit(FieldInfo{"fStop_OverlapArea", "mm2", "area of fix that flt covers; -1: not estimated"}, r.fStop_OverlapArea);
    visit(FieldInfo{"iStop_NumberOfInliers", "", "inliers of the pose"}, r.iStop_NumberOfInliers);
    visit(FieldInfo{"fStop_RMSE", "mm", "root mean square error of the pose's inliers"}, r.fStop_RMSE);
    visit(FieldInfo{"fStop_MismatchesPerMatchRatio", "", "mismatched normals per match at the end"},
          r.fStop_MismatchesPerMatchRatio);
    visit(FieldInfo{"iStop_Iterations", "", "iteration whose pose was kept, or that failed"}, r.iStop_Iterations);
    visit(
        FieldInfo{"fStop_SmallBigRatio", "", "pairs within the small radius per point within the big one, at the end"},
        r.fStop_SmallBigRatio);
}

/// The known key that is most like a wrong one, by single-character changes, upper and lower case taken as equal;
/// empty when none is known.
[[nodiscard]] VOALGO_API std::string NearestKey(const std::string& wrong, const std::vector<std::string>& known);

/// Throws std::invalid_argument, beginning with the key in quotes, for a value without which a registration has no
/// meaning.
VOALGO_API void RequireRanges(const ConfigurationFPFH& config);

} // namespace prereg
