#pragma once

#include "VoAlgorithms/verdict/preparedscan.h"
#include "VoAlgorithms/verdict/registration.h"

#include <string>

namespace voalgo::python {

/// A registration with the scans that it was made of; Python's Registration.
struct Found {
    prereg::PreparedScan fix;
    prereg::PreparedScan flt;
    std::string preset;          ///< name
    double readingSeconds = 0.0; ///< of both scans, with their normals
    prereg::Registration registration = {};
};

} // namespace voalgo::python
