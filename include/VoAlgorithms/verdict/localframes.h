#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/numerics/cbmatrix4.h"
#include "VoAlgorithms/numerics/ctrafo.h"

#include <array>

namespace prereg {

/// The pose that maps flt into fix, mm, in the frames of their coordinates, from the pose between points relative to
/// the origins: R·(p − fltOrigin) + t + fixOrigin. Computed in double precision, R from the unit quaternion of the
/// local rotation.
[[nodiscard]] VOALGO_API VoAlgo::CbMatrix4Rd PoseOfCoordinates(const VoAlgo::CTrafo& local,
                                                               const std::array<double, 3>& fixOrigin,
                                                               const std::array<double, 3>& fltOrigin);
/// The reverse: the pose between points relative to the origins.
[[nodiscard]] VOALGO_API VoAlgo::CTrafo LocalPose(const VoAlgo::CbMatrix4Rd& pose,
                                                  const std::array<double, 3>& fixOrigin,
                                                  const std::array<double, 3>& fltOrigin);

} // namespace prereg
