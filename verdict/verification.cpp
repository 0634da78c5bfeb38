#include "VoAlgorithms/verdict/verification.h"

#include <algorithm>

namespace prereg {

void Verification::Follow(const ConfigurationFPFH& derived, const ConfigurationFPFH& stated)
{
    using Icp = ConfigurationICP;
    for (double Icp::*field : {&Icp::dMinQueryRadius, &Icp::dPositionTolerance, &Icp::dNormalAngleTolerance,
                               &Icp::dMaxErrorRatio, &Icp::dMinOverlapRatio, &Icp::dMaxRMSE, &Icp::dMinSmallBigRatio,
                               &Icp::dSmallBigQueryRadiusScaling, &Icp::dInlierScaling})
        if (stated.icpConfig.*field != derived.icpConfig.*field) icp.*field = stated.icpConfig.*field;
    icp.uiMaxNumIterations = std::min(icp.uiMaxNumIterations, stated.icpConfig.uiMaxNumIterations);
    if (stated.uiTrafoClusteringQuorum == 1) minClusterSize = 1;
}

} // namespace prereg
