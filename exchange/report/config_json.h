#pragma once

#include "VoAlgorithms/prereg/configurationfpfh.h"
#include "VoAlgorithms/verdict/verification.h"

#include <nlohmann/json.hpp>

#include <string>

namespace voalgo {

/// The configuration with its own keys, in the order of the declaration; the refinement's settings under "icpConfig".
nlohmann::ordered_json ToJson(const prereg::ConfigurationFPFH& config);
nlohmann::ordered_json ToJson(const prereg::ConfigurationICP& config);
nlohmann::ordered_json ToJson(const prereg::Verification& verification);
/// Takes over the values that a JSON file states and leaves the others. Throws InputError with the file and the key for
/// anything but a JSON object, an unknown key (names the nearest known one), a wrong type, or a value out of range.
void ApplyConfigFile(prereg::ConfigurationFPFH& config, const std::string& path);

} // namespace voalgo
