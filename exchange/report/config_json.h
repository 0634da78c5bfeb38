#pragma once

#include "VoAlgorithms/prereg/configurationfpfh.h"
#include "VoAlgorithms/verdict/verification.h"

#include <nlohmann/json.hpp>

#include <string>

namespace voalgo {

///@{
/// The settings by name, in the order of the declaration; those of the refinement are under "icpConfig".
nlohmann::ordered_json ToJson(const prereg::ConfigurationFPFH& config);
nlohmann::ordered_json ToJson(const prereg::ConfigurationICP& config);
nlohmann::ordered_json ToJson(const prereg::Verification& verification);
///@}
/// Applies the settings that a JSON file states and leaves the others alone. Throws InputError, naming the file and the
/// key, for anything but a JSON object, an unknown key (suggests the nearest known one), a wrong type, or a value out
/// of range.
void ApplyConfigFile(prereg::ConfigurationFPFH& config, const std::string& path);

} // namespace voalgo
