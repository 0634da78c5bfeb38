#include "VoAlgorithms/verdict/registrationsettings.h"

#include "VoAlgorithms/prereg/fields.h"
#include "VoAlgorithms/verdict/sampling.h"

#include <algorithm>

namespace prereg {
namespace {

constexpr double RadiansPerDegree = 0.0174532925199433;
// In multiples of the spacing: even without noise, two scans sample the surface at different points.
constexpr double MinRoughness = 0.05;

/// What a preset sets; lengths in multiples of the spacing.
struct PresetFactors {
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
        return {1.5, 8.0, 30.0, 3000, 10}; // fine detail, little noise
    case EPreset::Thorough:
        return {2.0, 12.0, 40.0, 20000, 20}; // small overlaps, much clutter
    case EPreset::Automatic:
    case EPreset::Scan:
        break;
    }
    return {2.0, 12.0, 40.0, 3000, 10};
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
    const Sampling fixSampling = MeasureSampling(fix);
    const Sampling fltSampling = MeasureSampling(flt);
    const double spacing = std::max(fixSampling.spacing, fltSampling.spacing);
    const double roughness = std::max({fixSampling.roughness, fltSampling.roughness, MinRoughness * spacing});
    const PresetFactors factors = FactorsOf(preset);

    RegistrationSettings s;
    s.workingSpacing = factors.workingSpacing * spacing;
    ConfigurationFPFH& config = s.config;
    config.dFeatureRadius = factors.featureRadius * spacing;
    config.uiNumPolygons = factors.numPolygons;
    config.uiNumPolygonVertices = 4;
    config.uiNumNeighbors = factors.numNeighbours;
    config.dMaxPolygonDiameter = factors.polygonDiameter * spacing;
    config.dMaxPolygonVertexError = 3.0 * spacing;
    config.dTrafoClusteringBandwidth = 5.0 * spacing;
    config.dOrientationClusteringBandwidth = 0.1; // rad; a symmetric part has several poses at one place
    config.uiTrafoClusteringQuorum = 3;
    ConfigurationICP& icp = config.icpConfig;
    icp.uiMaxNumIterations = 15;
    icp.dMinQueryRadius = 2.0 * spacing;
    icp.dPositionTolerance = 2.0 * spacing;
    icp.dInitialQueryRadiusScaling = 5.0;
    icp.dNormalAngleTolerance = 30.0 * RadiansPerDegree;
    icp.dMaxErrorRatio = 0.05;
    icp.dMinOverlapRatio = 0.18;
    icp.dMaxRMSE = 3.0 * roughness;
    icp.dMinSmallBigRatio = 0.5;
    icp.dSmallBigQueryRadiusScaling = 2.0;

    Verification& verification = s.verification;
    verification.icp = icp;
    verification.icp.uiMaxNumIterations = 5;
    verification.icp.uiNumSamples = 2000;
    verification.icp.dInitialQueryRadiusScaling = 1.0;
    verification.icp.dMinOverlapRatio = 0.22;
    verification.icp.dMaxRMSE = 2.5 * roughness;
    verification.icp.dMinSmallBigRatio = 0.65;
    verification.strictness = 0.05;
    verification.roughness = roughness;
    verification.maxTurn = 1.5 * RadiansPerDegree;
    verification.minStability = 0.003;
    verification.minClusterSize = 2;
    return s;
}

RegistrationSettings DeriveSettings(const Scan& fix, const Scan& flt, EPreset preset,
                                    const std::function<void(ConfigurationFPFH&)>& adjust)
{
    RegistrationSettings settings = DeriveSettings(fix, flt, preset);
    if (!adjust) return settings;
    const ConfigurationFPFH derived = settings.config;
    adjust(settings.config);
    RequireRanges(settings.config);
    settings.verification.Follow(derived, settings.config);
    return settings;
}

} // namespace prereg
