#pragma once

#include "VoAlgorithms/prereg/configurationfpfh.h"
#include "VoAlgorithms/verdict/verification.h"
#include "exchange/files/length_unit.h"

#include <nlohmann/json.hpp>

#include <functional>
#include <string>

namespace voalgo {

///@{
/// The settings by name, in the order of the declaration; those of the refinement are under "icpConfig". Lengths are in
/// the given unit, which settings of a search state as "unit" unless it is mm.
nlohmann::ordered_json ToJson(const prereg::ConfigurationFPFH& config, const LengthUnit& unit = {});
nlohmann::ordered_json ToJson(const prereg::Verification& verification, const LengthUnit& unit = {});
///@}
/// What applies the settings that a JSON file states, and leaves the others alone. Lengths are in the unit that its
/// "unit" names, by default mm. Throws InputError, naming the file and the key, for anything but a JSON object, an
/// unknown key (suggests the nearest known one), a wrong type, or a value out of range.
std::function<void(prereg::ConfigurationFPFH&)> ReadConfigFile(const std::string& path);

} // namespace voalgo
