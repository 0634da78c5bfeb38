#pragma once

#include "VoAlgorithms/prereg/configurationfpfh.h"

#include <pybind11/pybind11.h>

namespace voalgo::python {

/// All settings with the names of the fields; those of the refinement under "icpConfig".
pybind11::dict ToDict(const prereg::ConfigurationFPFH& config);
pybind11::dict ToDict(const prereg::ConfigurationICP& config);

/// Takes over what `config` (a dict or None) and then the keywords state, and leaves the rest. Raises TypeError for an
/// unknown name, with the nearest known one, or a value of the wrong type, ValueError for one out of range.
void Apply(const pybind11::object& config, const pybind11::dict& keywords, prereg::ConfigurationFPFH& target);
void Apply(const pybind11::object& config, const pybind11::dict& keywords, prereg::ConfigurationICP& target);

} // namespace voalgo::python
