#pragma once

#include "VoAlgorithms/prereg/configurationfpfh.h"

#include <string>
#include <vector>

namespace voalgo {

/// Calls visit(key, field) for every setting of a refinement.
template <typename Config, typename Visit>
void VisitIcp(Config& c, Visit visit)
{
    visit("uiMaxNumIterations", c.uiMaxNumIterations);
    visit("dMinQueryRadius", c.dMinQueryRadius);
    visit("dInitialQueryRadiusScaling", c.dInitialQueryRadiusScaling);
    visit("uiNumSamples", c.uiNumSamples);
    visit("dPositionTolerance", c.dPositionTolerance);
    visit("dNormalAngleTolerance", c.dNormalAngleTolerance);
    visit("dMaxErrorRatio", c.dMaxErrorRatio);
    visit("dMaxRotationDistance", c.dMaxRotationDistance);
    visit("dMaxMovement", c.dMaxMovement);
    visit("dMinOverlapRatio", c.dMinOverlapRatio);
    visit("dMaxRMSE", c.dMaxRMSE);
    visit("dMinOverlapArea", c.dMinOverlapArea);
    visit("dMinSmallBigRatio", c.dMinSmallBigRatio);
    visit("dSmallBigQueryRadiusScaling", c.dSmallBigQueryRadiusScaling);
    visit("dInlierScaling", c.dInlierScaling);
}

/// The same for the settings of a registration; without those of the refinement, which stand under IcpKey.
template <typename Config, typename Visit>
void VisitFpfh(Config& c, Visit visit)
{
    visit("uiNumPolygons", c.uiNumPolygons);
    visit("uiNumPolygonVertices", c.uiNumPolygonVertices);
    visit("uiNumNeighbors", c.uiNumNeighbors);
    visit("dMaxPolygonDiameter", c.dMaxPolygonDiameter);
    visit("dMaxPolygonVertexError", c.dMaxPolygonVertexError);
    visit("uiMinCurvatureQuality", c.uiMinCurvatureQuality);
    visit("dFeatureRadius", c.dFeatureRadius);
    visit("dFeatureClusteringBandwidth", c.dFeatureClusteringBandwidth);
    visit("dTrafoClusteringBandwidth", c.dTrafoClusteringBandwidth);
    visit("dOrientationClusteringBandwidth", c.dOrientationClusteringBandwidth);
    visit("uiTrafoClusteringQuorum", c.uiTrafoClusteringQuorum);
}

inline constexpr const char* IcpKey = "icpConfig";

/// The known key that is most like a wrong one; there is at least one.
std::string NearestKey(const std::string& wrong, const std::vector<std::string>& known);

/// Throws InputError, with the file and the key, for values without which a registration has no meaning.
void RequireRanges(const prereg::ConfigurationFPFH& config, const std::string& path);

} // namespace voalgo
