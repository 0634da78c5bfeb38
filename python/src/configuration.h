#pragma once

#include "VoAlgorithms/prereg/fields.h"
#include "VoAlgorithms/verdict/verification.h"

#include <pybind11/pybind11.h>

#include <string>

namespace voalgo::python {

/// All settings with the names of the fields; those of the refinement under "icpConfig".
pybind11::dict ToDict(const prereg::ConfigurationFPFH& config);
pybind11::dict ToDict(const prereg::ConfigurationICP& config);

/// Takes over what `config` (a dict or None) and then the keywords state, and leaves the rest. Raises TypeError for an
/// unknown name, with the nearest known one, or a value of the wrong type, ValueError for one out of range.
void Apply(const pybind11::object& config, const pybind11::dict& keywords, prereg::ConfigurationFPFH& target);
void Apply(const pybind11::object& config, const pybind11::dict& keywords, prereg::ConfigurationICP& target);

///@{
/// The settings of a record for help texts: name, type, default, unit, meaning, and what switches one off.
std::string DescribeFields(const prereg::ConfigurationFPFH& defaults);
std::string DescribeFields(const prereg::ConfigurationICP& defaults);
/// These follow from the scans: without defaults.
std::string DescribeFields(const prereg::Verification& verification);
///@}
/// "millimetres", "square millimetres", "radians" or nothing.
std::string UnitInWords(const prereg::FieldInfo& info);

} // namespace voalgo::python
