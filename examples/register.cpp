// Registers two partial scans without a starting pose and says whether the answer can be trusted:
//     register FIX.ply FLT.ply
#include <VoAlgorithms/verdict/registerscans.h>

#include "sample_scan.h"

#include <cstdio>

int main(int argc, char** argv)
try {
    if (argc != 3) throw std::invalid_argument("usage: register FIX.ply FLT.ply");
    const prereg::Scan fix = ReadSample(argv[1]), flt = ReadSample(argv[2]);
    // [register]
    const prereg::Registration r = prereg::RegisterScans(fix, flt); // normals are estimated where a scan has none
    if (!r) {
        std::printf("refused: %s\n", r.Reason().c_str());
        return 2;
    }
    const VoAlgo::CbMatrix4Rd pose = r.Pose(); // maps flt into the frame of fix, mm
    for (unsigned row = 0; row < 4; ++row)
        std::printf("%.9g %.9g %.9g %.9g\n", pose(row, 0), pose(row, 1), pose(row, 2), pose(row, 3));
    // [register]
    const prereg::ICPResult& figures = r.Best();
    std::printf("overlap %.9g, RMSE %.9g mm\n", static_cast<double>(figures.fStop_OverlapRatio),
                static_cast<double>(figures.fStop_RMSE));
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 3;
}
