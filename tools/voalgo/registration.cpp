#include "registration.h"

#include "VoAlgorithms/prereg/cfpfhdatasource.h"
#include "thin.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
#include <thread>

namespace voalgo {
namespace {

using prereg::CFPFHPointSet;
using prereg::CFPFHPreRegistration;

double Now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

} // namespace

std::shared_ptr<const CFPFHPointSet> ComputeFeatures(const Cloud& cloud, const Settings& settings)
{
    const unsigned threads =
        settings.threads != 0 ? settings.threads : std::max(1U, std::thread::hardware_concurrency());
    const Cloud thinned = settings.workingSpacing > 0.0 ? Thin(cloud, settings.workingSpacing) : cloud;
    prereg::CFPFHDataSource source(settings.config.dFeatureRadius, settings.config.uiMinCurvatureQuality, threads,
                                   false);
    source.Update(thinned.points, thinned.normals);
    return std::make_shared<const CFPFHPointSet>(cloud.points, cloud.normals, source.GetFeaturePoints(),
                                                 source.GetFeatureNormals(), source.GetFeatures());
}

double MeanSpacing(const Cloud& cloud)
{
    constexpr std::size_t Samples = 2000;
    if (cloud.points.size() < 2) return 0.0;
    const kdtree::TKdTree<3, 48> tree(&cloud.points[0].x, cloud.points.size(), 4);
    std::vector<std::pair<int, float>> nearest;
    double sum = 0.0;
    std::size_t count = 0;
    const std::size_t step = std::max<std::size_t>(1, cloud.points.size() / Samples);
    for (std::size_t i = 0; i < cloud.points.size(); i += step) {
        tree.NearestK(&cloud.points[i].x, 2, INFINITY, nearest);
        if (nearest.size() < 2) continue;
        sum += std::sqrt(static_cast<double>(nearest[1].second));
        ++count;
    }
    return count == 0 ? 0.0 : sum / static_cast<double>(count);
}

Settings DeriveSettings(const Cloud& fix, const Cloud& flt, Preset /*preset*/)
{
    const double spacing = std::max(MeanSpacing(fix), MeanSpacing(flt));
    Settings s;
    s.workingSpacing = 2.0 * spacing;
    s.config.dFeatureRadius = 12.0 * spacing;
    s.config.uiNumPolygons = 3000;
    s.config.uiNumPolygonVertices = 3;
    s.config.uiNumNeighbors = 10;
    s.config.dMaxPolygonDiameter = 40.0 * spacing;
    s.config.dMaxPolygonVertexError = 3.0 * spacing;
    s.config.dTrafoClusteringBandwidth = 5.0 * spacing;
    s.config.uiTrafoClusteringQuorum = 3;
    prereg::ConfigurationICP& icp = s.config.icpConfig;
    icp.uiMaxNumIterations = 15;
    icp.dMinQueryRadius = spacing;
    icp.dPositionTolerance = 2.0 * spacing;
    icp.dInitialQueryRadiusScaling = 5.0;
    icp.dNormalAngleTolerance = 30.0 * 0.0174532925199433;
    icp.dMaxErrorRatio = 0.02;
    icp.dMinOverlapRatio = 0.15;
    icp.dMaxRMSE = 0.35 * spacing;
    icp.dMinSmallBigRatio = 0.5;
    icp.dSmallBigQueryRadiusScaling = 3.0;
    return s;
}

Registration Register(const Cloud& fix, const Cloud& flt, const Settings& settings, const Progress& progress)
{
    Registration registration;
    double start = Now();
    if (progress) progress("features", 0.0);
    const auto fixSet = ComputeFeatures(fix, settings);
    if (progress) progress("features", 0.5);
    const auto fltSet = ComputeFeatures(flt, settings);
    registration.featureSeconds = Now() - start;

    start = Now();
    CFPFHPreRegistration driver(fixSet, fltSet, settings.config);
    driver.Compute();
    registration.results = driver.GetAllVerifiedTrafos();
    registration.statistics = driver.GetStatistics();
    registration.searchSeconds = Now() - start;
    if (registration.results.empty()) registration.reason = "no proposed pose passed the acceptance tests";
    return registration;
}

Registration Refine(const Cloud& fix, const Cloud& flt, const Settings& settings, const VoAlgo::CTrafo& start)
{
    Registration registration;
    CFPFHPreRegistration driver(ComputeFeatures(fix, settings), ComputeFeatures(flt, settings), settings.config);
    const prereg::ICPResult result = driver.InjectTrafo(start);
    registration.results = driver.GetAllVerifiedTrafos();
    if (registration.results.empty()) registration.reason = result.ToString(true);
    return registration;
}

} // namespace voalgo
