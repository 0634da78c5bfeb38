#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/verdict/erefusal.h"
#include "VoAlgorithms/verdict/preparedscan.h"

#include <cstddef>

namespace prereg {

/// Why the points of one scan cannot determine a pose: none, all at one place, on a line or on a plane, or with an
/// extent that no scan has. The text does not name the scan.
[[nodiscard]] VOALGO_API Refusal FindFault(const PreparedScan& prepared);
/// The first fault of either scan, with its name; else, whether they differ as if their files had different units:
/// extents and spacings both by about 10, 25.4, 100 or 1000.
[[nodiscard]] VOALGO_API Refusal FindFault(const PreparedScan& fix, const PreparedScan& flt);
/// Whether a scan has fewer points than a registration needs; names the scan.
[[nodiscard]] VOALGO_API Refusal FindTooFewPoints(const PreparedScan& prepared, std::size_t minPoints);

} // namespace prereg
