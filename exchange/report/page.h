#pragma once

#include "exchange/report/outcome.h"

#include <string>

namespace voalgo {

/// The outcome as one page of HTML that opens without a network: both scans, the poses, the tests that they passed or
/// failed, why others were refused, settings and times. Larger scans are shown by 150,000 of their points.
std::string ReportPage(const Outcome& outcome);

} // namespace voalgo
