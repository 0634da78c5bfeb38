#pragma once

#include "VoAlgorithms/verdict/registerscans.h"

#include <nlohmann/json.hpp>

#include <array>
#include <string>

namespace voalgo {

/// A pose as a file states it: row-major 4×4, translation in the file's unit. Its numbers, written with enough digits,
/// read back as the same floats in millimetres.
using PoseMatrix = std::array<std::array<double, 4>, 4>;
PoseMatrix InUnit(const VoAlgo::CTrafo& pose, double mmPerUnit);

/// A registration with what its files were; borrowed.
struct Outcome {
    const prereg::PreparedScan& fix;
    const prereg::PreparedScan& flt;
    const prereg::Registration& registration;
    std::string preset = "auto"; ///< name
    std::string unit = "mm";     ///< of the files
    double mmPerUnit = 1.0;
    double readingSeconds = 0.0; ///< of both files, with their normals
};

///@{
/// What results, page and programs say of each: stable codes beside the words. Poses in the given unit; figures that
/// are not finite are null.
nlohmann::ordered_json ToJson(const prereg::CFPFHPreRegistration::VerifiedTrafo& result, double mmPerUnit);
nlohmann::ordered_json ToJson(const prereg::AcceptanceTest& test);
nlohmann::ordered_json ToJson(const prereg::PreparedScan& prepared);
///@}
/// Everything that can be said about the outcome, without times: the same input gives the same text. Poses are in the
/// files' unit, all other lengths in millimetres.
nlohmann::ordered_json ToJson(const Outcome& outcome);

} // namespace voalgo
