#pragma once

#include "registration.h"

#include <pybind11/pybind11.h>

namespace voalgo::python {

/// Settings, figures and outcomes as dicts of plain values, with the names of the fields.
pybind11::dict ToDict(const Settings& settings);
pybind11::dict ToDict(const AcceptanceTest& test);
pybind11::dict ToDict(const JudgedTrafo& result);
pybind11::dict ToDict(const prereg::CFPFHPreRegistration::Statistics& statistics);
pybind11::dict ToDict(const Registration& registration, const pybind11::dict& statistics,
                      const pybind11::dict& settings);

/// The way back. A registration comes without its point sets and statistics.
JudgedTrafo ResultOf(const pybind11::dict& dict);
Registration RegistrationOf(const pybind11::dict& dict);

} // namespace voalgo::python
