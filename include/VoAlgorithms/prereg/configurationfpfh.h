#pragma once

#include "VoAlgorithms/prereg/configurationicp.h"

#include <cstdint>

namespace prereg {

/// Settings of a pre-registration (CFPFHPreRegistration). Lengths in millimetres.
struct ConfigurationFPFH {
    std::uint32_t uiNumPolygons = 20;         ///< seeding attempts of one Compute; 0: only cluster what is there
    std::uint32_t uiNumPolygonVertices = 10;  ///< vertices of a polygon
    std::uint32_t uiNumNeighbors = 10;        ///< similar features looked up in 'fix' for each vertex, at most
                                              ///< √(33 · features of 'fix' ÷ vertices)
    double dMaxPolygonDiameter = -1.0;        ///< largest polygon diameter, mm; < 0: vertices from the feature clusters
    double dMaxPolygonVertexError = 1.0;      ///< largest accepted side-length error of a matched vertex, mm
    std::uint32_t uiMinCurvatureQuality = 25; ///< smallest curvature quality of a feature point, 0 to 100
    double dFeatureRadius = 1.5;              ///< radius of the feature histograms, mm
    double dFeatureClusteringBandwidth = -1.0;     ///< bandwidth of the feature clustering; ≤ 0: k-means instead
    double dTrafoClusteringBandwidth = 5.0;        ///< bandwidth of the position clustering of accepted poses, mm
    double dOrientationClusteringBandwidth = -1.0; ///< bandwidth of the orientation clustering, rad; ≤ 0: off
    std::uint32_t uiTrafoClusteringQuorum = 5;     ///< cluster size of the best result that ends the search; 0: never
    ConfigurationICP icpConfig;                    ///< settings of every refinement

    /// Whether all settings are the same.
    bool operator==(const ConfigurationFPFH&) const = default;
};

} // namespace prereg
