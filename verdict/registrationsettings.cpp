#include "VoAlgorithms/verdict/registrationsettings.h"

#include "VoAlgorithms/prereg/fields.h"
#include "VoAlgorithms/verdict/sampling.h"

#include <algorithm>
#include <cmath>

namespace prereg {
namespace {

constexpr double RadiansPerDegree = 0.0174532925199433;
// Means over a cube of this many roughnesses leave little of the noise.
constexpr double ResolutionPerRoughness = 4.0;

/// What a preset sets; lengths in multiples of the resolution.
struct PresetFactors {
    double resolvedRadius; // the radius of the smaller scan, in resolutions, that suffices
    double workingSpacing;
    double featureRadius;
    double polygonDiameter;
    std::uint32_t numPolygons;
    std::uint32_t numNeighbours;
};

PresetFactors FactorsOf(EPreset preset)
{
    switch (preset) {
    case EPreset::Dense:
        return {160.0, 1.5, 8.0, 30.0, 3000, 10}; // fine detail, little noise
    case EPreset::Thorough:
        return {80.0, 2.0, 12.0, 40.0, 20000, 20}; // small overlaps, much clutter
    case EPreset::Automatic:
    case EPreset::Scan:
        break;
    }
    return {80.0, 2.0, 12.0, 40.0, 3000, 10};
}

/// The root mean square distance of the points from their centroid, mm.
double RadiusOf(const std::vector<kdtree::Vector<3>>& points)
{
    if (points.empty()) return 0.0;
    double sums[3] = {};
    double squares = 0.0;
    for (const kdtree::Vector<3>& p : points)
        for (unsigned k = 0; k < 3; ++k) {
            const auto d = static_cast<double>(p[k] - points[0][k]);
            sums[k] += d;
            squares += d * d;
        }
    const auto n = static_cast<double>(points.size());
    const double mean = (sums[0] * sums[0] + sums[1] * sums[1] + sums[2] * sums[2]) / n;
    return std::sqrt(std::max(0.0, (squares - mean) / n));
}

RegistrationSettings Derived(const Scan& fix, const Sampling& fixSampling, const Scan& flt, const Sampling& fltSampling,
                             EPreset preset)
{
    const double roughness = std::max(fixSampling.roughness, fltSampling.roughness);
    const double radius = std::min(RadiusOf(fix.points), RadiusOf(flt.points));
    const double resolution = std::max({fixSampling.spacing, fltSampling.spacing,
                                        radius / FactorsOf(preset).resolvedRadius, ResolutionPerRoughness * roughness});
    RegistrationSettings settings = DeriveSettings(resolution, roughness, preset);
    // A model is the whole object, so that most of a scan must lie on it.
    if (fix.meshSpacing > 0.0 || flt.meshSpacing > 0.0) settings.verification.minOverlap = 0.5;
    return settings;
}

} // namespace

const std::vector<std::string>& PresetNames()
{
    static const std::vector<std::string> names = {"auto", "dense", "scan", "thorough"}; // in the order of EPreset
    return names;
}

std::optional<EPreset> PresetOf(const std::string& name)
{
    const auto& names = PresetNames();
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) return std::nullopt;
    return static_cast<EPreset>(found - names.begin());
}

RegistrationSettings DeriveSettings(const Scan& fix, const Scan& flt, EPreset preset)
{
    return Derived(fix, MeasureSampling(fix), flt, MeasureSampling(flt), preset);
}

RegistrationSettings DeriveSettings(const PreparedScan& fix, const PreparedScan& flt, EPreset preset)
{
    return Derived(fix.scan, {fix.spacing, fix.roughness}, flt.scan, {flt.spacing, flt.roughness}, preset);
}

RegistrationSettings DeriveSettings(double resolution, double roughness, EPreset preset)
{
    const PresetFactors factors = FactorsOf(preset);
    RegistrationSettings s;
    s.resolution = resolution;
    s.workingSpacing = factors.workingSpacing * resolution;
    ConfigurationFPFH& config = s.config;
    config.dFeatureRadius = factors.featureRadius * resolution;
    config.uiNumPolygons = factors.numPolygons;
    config.uiNumPolygonVertices = 4;
    config.uiNumNeighbors = factors.numNeighbours;
    config.dMaxPolygonDiameter = factors.polygonDiameter * resolution;
    config.dMaxPolygonVertexError = 3.0 * resolution;
    config.dTrafoClusteringBandwidth = 5.0 * resolution;
    config.dOrientationClusteringBandwidth = 0.1; // rad; a symmetric part has several poses at one place
    config.uiTrafoClusteringQuorum = 3;
    ConfigurationICP& icp = config.icpConfig;
    icp.uiMaxNumIterations = 8; // poses that pass are refined again, by more points of both scans
    icp.uiNumSamples = 300;
    icp.dMinQueryRadius = 2.0 * resolution;
    icp.dPositionTolerance = 2.0 * resolution;
    icp.dInitialQueryRadiusScaling = 5.0;
    icp.dNormalAngleTolerance = 30.0 * RadiansPerDegree;
    icp.dMaxErrorRatio = 0.1;
    icp.dMinOverlapRatio = 0.12;
    icp.dMaxRMSE = 1.0 * resolution;
    icp.dMinSmallBigRatio = 0.5;
    icp.dSmallBigQueryRadiusScaling = 2.0;

    Verification& verification = s.verification;
    verification.minOverlap = 0.15;
    verification.minAgreement = 0.8;
    verification.maxMisfit = 0.35 * resolution;
    verification.maxSeenEmpty = 0.03;
    verification.minStability = 0.006;
    verification.minBeyondFaces = 0.15;
    verification.minClusterSize = 2;
    verification.roughness = roughness;
    verification.icp = icp;
    verification.icp.uiMaxNumIterations = 6;
    verification.icp.uiNumSamples = 2000;
    verification.icp.dInitialQueryRadiusScaling = 1.0;
    return s;
}

RegistrationSettings Adjusted(RegistrationSettings settings, const std::function<void(ConfigurationFPFH&)>& adjust)
{
    if (!adjust) return settings;
    const ConfigurationFPFH derived = settings.config;
    adjust(settings.config);
    RequireRanges(settings.config);
    settings.verification.Follow(derived, settings.config);
    return settings;
}

} // namespace prereg
