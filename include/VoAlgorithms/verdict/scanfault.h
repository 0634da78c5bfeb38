#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/verdict/erefusal.h"
#include "VoAlgorithms/verdict/preparedscan.h"

#include <cstddef>

namespace prereg {

/// Why the points of one scan cannot determine a pose: there are none, they coincide, lie on a line or on a plane, or
/// have an implausible extent. The text does not name the scan.
[[nodiscard]] VOALGO_API Refusal FindFault(const PreparedScan& prepared);
/// The first fault of either scan, with the scan's name; otherwise, whether the scans seem to have different units:
/// extents and spacings both differ by about 10, 25.4, 100 or 1000.
[[nodiscard]] VOALGO_API Refusal FindFault(const PreparedScan& fix, const PreparedScan& flt);
/// Refuses a scan with fewer points than a registration needs; the text names the scan.
[[nodiscard]] VOALGO_API Refusal FindTooFewPoints(const PreparedScan& prepared, std::size_t minPoints);

} // namespace prereg
