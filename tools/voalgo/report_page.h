#pragma once

#include "report.h"

#include <string>

namespace voalgo {

/// How long what lies around the registration took, s.
struct Times {
    double reading = 0.0;  ///< of both files, with their normals
    double settings = 0.0; ///< measuring the clouds to scale the settings
};

/// The run as one page of HTML that holds all it needs and opens without a network: both clouds, the poses, the tests
/// that they passed or failed, why others were refused, settings and times. Clouds beyond 150,000 points are shown by
/// that many.
std::string ReportPage(const Report& report, const Times& times);

} // namespace voalgo
