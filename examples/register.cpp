// Registers two partial scans without a starting pose: register FIX.ply FLT.ply SPACING
#include <VoAlgorithms/VoAlgorithms.h>

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

// [settings]
// Everything follows from the spacing, the mean distance of a point to its nearest neighbour, mm.
prereg::ConfigurationFPFH SettingsFor(double spacing)
{
    prereg::ConfigurationFPFH config;
    config.dFeatureRadius = 12 * spacing;
    config.uiNumPolygons = 3000;
    config.uiNumPolygonVertices = 4;
    config.dMaxPolygonDiameter = 40 * spacing;
    config.dMaxPolygonVertexError = 3 * spacing;
    config.dTrafoClusteringBandwidth = 5 * spacing;
    config.dOrientationClusteringBandwidth = 0.1; // rad
    config.uiTrafoClusteringQuorum = 3;
    config.icpConfig.uiMaxNumIterations = 15;
    config.icpConfig.dMinQueryRadius = 2 * spacing;
    config.icpConfig.dSmallBigQueryRadiusScaling = 2;
    config.icpConfig.dMinSmallBigRatio = 0.65;
    config.icpConfig.dPositionTolerance = 2 * spacing;
    config.icpConfig.dInitialQueryRadiusScaling = 5;
    config.icpConfig.dMinOverlapRatio = 0.2;
    config.icpConfig.dMaxRMSE = 0.3 * spacing;
    return config;
}
// [settings]

// [register]
struct Scan {
    std::vector<kdtree::Vector<3>> points, normals; // millimetres; unit length
};

prereg::ICPResult Register(const Scan& fix, const Scan& flt, const prereg::ConfigurationFPFH& config)
{
    const unsigned threads = 2;
    prereg::CFPFHDataSource fixSource(config.dFeatureRadius, config.uiMinCurvatureQuality, threads, false);
    prereg::CFPFHDataSource fltSource = fixSource;
    if (!fixSource.Update(fix.points, fix.normals) || !fltSource.Update(flt.points, flt.normals)) return {};
    const prereg::CFPFHPointSet fixSet(fixSource), fltSet(fltSource);
    prereg::CFPFHPreRegistration registration(fixSet, fltSet, config, false);
    registration.Compute();
    return registration.GetNextResult(); // resultType 0: accepted; trafo maps flt into the frame of fix
}
// [register]

// The sample scans' form of PLY: binary little-endian, six floats a vertex.
Scan Read(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::size_t count = 0;
    for (std::string line; std::getline(file, line) && line != "end_header";)
        if (line.rfind("element vertex ", 0) == 0) count = std::stoul(line.substr(15));
    Scan scan;
    for (float v[6]; count > 0 && file.read(reinterpret_cast<char*>(v), sizeof v); --count) {
        scan.points.emplace_back(v[0], v[1], v[2]);
        scan.normals.emplace_back(v[3], v[4], v[5]);
    }
    if (count != 0 || scan.points.empty()) throw std::runtime_error("cannot read " + path);
    return scan;
}

int main(int argc, char** argv)
try {
    if (argc != 4) throw std::runtime_error("usage: register FIX.ply FLT.ply SPACING");
    const prereg::ICPResult result = Register(Read(argv[1]), Read(argv[2]), SettingsFor(std::stod(argv[3])));
    std::printf("%s\n", result.ToString(false).c_str());
    if (result.resultType != 0) return 2;
    std::printf("maps %s into the frame of %s:\n", argv[2], argv[1]);
    for (unsigned row = 0; row < 3; ++row)
        std::printf("%13.9f %13.9f %13.9f %13.6f\n", result.trafo(row, 0), result.trafo(row, 1), result.trafo(row, 2),
                    result.trafo(row, 3));
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 3;
}
