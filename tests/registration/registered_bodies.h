#pragma once

#include "VoAlgorithms/prereg/cfpfhdatasource.h"
#include "VoAlgorithms/prereg/cfpfhpreregistration.h"

#include "support/clouds.h"

#include <string>

namespace test_support {

inline constexpr double BodySpacing = 0.67; // mm, of 4000 samples
inline constexpr double BodyFeatureRadius = 3.0;
inline constexpr unsigned BodyQuality = 20;

inline prereg::CFPFHPointSet ToPointSet(const Cloud& cloud, double radius = BodyFeatureRadius,
                                        unsigned quality = BodyQuality)
{
    prereg::CFPFHDataSource source(radius, quality, 1, false);
    source.Update(cloud.points, cloud.normals);
    return prereg::CFPFHPointSet(source);
}

/// Two scans of one body, each of about three quarters of it, sampled at different points; `truth` maps flt into fix.
struct ScanPair {
    VoAlgo::CTrafo truth;
    Cloud fixCloud, fltCloud;
    prereg::CFPFHPointSet fix, flt;

    explicit ScanPair(unsigned shape)
        : truth(Random(shape).Pose(2.5F, 40.0F)),
          fixCloud(Body(4000, shape, 1, [](const Vec3& p) { return p.x < 5.0F; })),
          fltCloud(Moved(Body(4000, shape, 2, [](const Vec3& p) { return p.x > -6.0F; }), truth.GetInverse())),
          fix(ToPointSet(fixCloud)), flt(ToPointSet(fltCloud))
    {
    }
};

inline prereg::ConfigurationFPFH BodyConfig()
{
    prereg::ConfigurationFPFH config;
    config.uiNumPolygons = 60;
    config.uiNumPolygonVertices = 5;
    config.dMaxPolygonDiameter = 15.0;
    config.dFeatureRadius = BodyFeatureRadius;
    config.uiMinCurvatureQuality = BodyQuality;
    config.uiTrafoClusteringQuorum = 3;
    config.dTrafoClusteringBandwidth = 2.0;
    config.icpConfig.uiMaxNumIterations = 15;
    config.icpConfig.dMinQueryRadius = BodySpacing;
    config.icpConfig.dSmallBigQueryRadiusScaling = 3.0;
    config.icpConfig.dMinSmallBigRatio = 0.5;
    config.icpConfig.dPositionTolerance = 2.0 * BodySpacing;
    config.icpConfig.dInitialQueryRadiusScaling = 5.0;
    config.icpConfig.dMaxRMSE = 0.05;
    config.icpConfig.dMinOverlapRatio = 0.3;
    return config;
}

} // namespace test_support
