#pragma once

#include "prepare_cloud.h"
#include "registration.h"

#include <nlohmann/json.hpp>

#include <string>

namespace voalgo {

/// All that one run of `register` was about; borrowed.
struct Report {
    const PreparedCloud& fix;
    const PreparedCloud& flt;
    const Settings& settings;
    const Registration& registration;
    std::string unit; ///< of the files
    double mmPerUnit;
    std::string preset;        ///< name
    bool isRefinement = false; ///< of a given pose
};

/// The pose in a unit, and the figures of a result.
nlohmann::ordered_json ToJson(const prereg::CFPFHPreRegistration::VerifiedTrafo& result, double mmPerUnit);
/// What was read, found and done.
nlohmann::ordered_json ToJson(const PreparedCloud& prepared);
/// Everything that can be said about the outcome, no times: the same inputs give the same text. Poses are in the files'
/// unit, all other lengths in millimetres. Figures that are not finite are null.
nlohmann::ordered_json ToJson(const Report& report);
/// The ranked results as a table, or the reason why there is none with the causes of the refusals.
std::string ToText(const Registration& registration);
/// Prints the results, as text or, with the times, as JSON.
void Print(const Report& report, bool json);

} // namespace voalgo
