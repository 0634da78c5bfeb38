#pragma once

#include <cstdint>

namespace prereg {

/// Settings of one ICP registration (CPointSet::ComputeICPRegistration). Lengths in millimetres, angles in radians. The
/// defaults are products in double arithmetic, so that every build holds the same values.
struct ConfigurationICP {
    std::uint32_t uiMaxNumIterations = 10;    ///< largest number of update iterations; 0 skips the iteration
    double dMinQueryRadius = 300 * 0.001;     ///< smallest pairing radius, mm; also the "small" radius
    double dInitialQueryRadiusScaling = 10.0; ///< first pairing radius = this × dPositionTolerance
    std::uint32_t uiNumSamples = 500;         ///< random samples per pairing pass and final evaluation
    double dPositionTolerance = 800 * 0.001;  ///< search radius of the final evaluation, mm
    double dNormalAngleTolerance = 20 * 0.0174532925199433; ///< largest angle between the normals of a pair, rad
    double dMaxErrorRatio = 3 * 0.01;                       ///< mismatch limit; ≤ 0 disables both mismatch tests
    double dMaxRotationDistance = -1.0;   ///< largest rotation from the reference pose, rad; ≤ 0 disables
    double dMaxMovement = -1.0;           ///< largest movement of the ellipsoid, mm; ≤ 0 disables
    double dMinOverlapRatio = 10 * 0.01;  ///< smallest accepted final overlap ratio
    double dMaxRMSE = 100 * 0.001;        ///< largest accepted RMSE, mm
    double dMinOverlapArea = 0.0;         ///< smallest accepted overlap area, mm²; the driver's limit, ≤ 0 disables
    double dMinSmallBigRatio = 60 * 0.01; ///< smallest accepted small/big ratio; ≤ 0 skips the test
    double dSmallBigQueryRadiusScaling = 10.0; ///< "big" radius = this × dMinQueryRadius
    double dInlierScaling = 5.0;               ///< inlier threshold in robust standard deviations

    /// Whether all settings are the same.
    bool operator==(const ConfigurationICP&) const = default;
};

} // namespace prereg
