#pragma once

#include "VoAlgorithms/verdict/registerscans.h"
#include "exchange/files/length_unit.h"

#include <nlohmann/json.hpp>

#include <array>
#include <string>

namespace voalgo {

/// A pose as a file states it: row-major 4×4, translation in the file's unit.
using PoseMatrix = std::array<std::array<double, 4>, 4>;
PoseMatrix InUnit(const VoAlgo::CbMatrix4Rd& pose, const LengthUnit& unit);

/// SHA-1 of the files that the scans were read from, in hexadecimal; empty where unknown.
struct Checksums {
    std::string fix;
    std::string flt;
};

/// A registration and the files it was made of; the references are borrowed.
struct Outcome {
    const prereg::PreparedScan& fix;
    const prereg::PreparedScan& flt;
    const prereg::Registration& registration;
    std::string preset = "auto"; ///< name
    LengthUnit unit = {};        ///< of the files
    double readingSeconds = 0.0; ///< to read both files and prepare the scans
    Checksums checksums = {};    ///< of the files
};

///@{
/// All lengths are in the given unit.
/// A result with its figures and tests; the pose as given. Figures that are not finite are null.
nlohmann::ordered_json ToJson(const prereg::JudgedTrafo& judged, const PoseMatrix& pose, const LengthUnit& unit = {});
/// The counts and sizes of a scan, and the checksum of its file if there is one.
nlohmann::ordered_json ToJson(const prereg::PreparedScan& prepared, const LengthUnit& unit = {},
                              const std::string& checksum = {});
///@}
/// The whole outcome without times: the same input gives the same text. Poses map the files' coordinates; all lengths
/// are in the files' unit; codes for programs stand beside the words. The settings of the search can be given to
/// ReadConfigFile.
nlohmann::ordered_json ToJson(const Outcome& outcome);

/// Indented JSON text. Whatever is not UTF-8, which may be in a file's name, becomes a replacement character.
std::string JsonText(const nlohmann::ordered_json& json);

} // namespace voalgo
