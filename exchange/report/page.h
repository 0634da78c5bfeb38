#pragma once

#include "exchange/report/outcome.h"

#include <string>

namespace voalgo {

/// The outcome as one page of HTML that holds all it needs and opens without a network: both scans, the poses, the
/// tests that they passed or failed, why others were refused, settings and times. Scans beyond 150,000 points are shown
/// by that many.
std::string ReportPage(const Outcome& outcome);

} // namespace voalgo
