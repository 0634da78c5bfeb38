#pragma once

#include <pybind11/pybind11.h>

namespace voalgo::python {

// Each adds one subject to the module.
void DefineLog(pybind11::module_& m);
void DefineTrafo(pybind11::module_& m);
void DefineScan(pybind11::module_& m);
void DefinePointSet(pybind11::module_& m);
void DefineResult(pybind11::module_& m);
void DefineRegistration(pybind11::module_& m);
void DefineRegister(pybind11::module_& m);
void DefineNumerics(pybind11::module_& m);
void DefineGraphs(pybind11::module_& m);
void DefineNls(pybind11::module_& m);
void DefineSolvers(pybind11::module_& m);
void DefineCurves(pybind11::module_& m);
void DefineTours(pybind11::module_& m);
void DefineColour(pybind11::module_& m);
void DefineTransferCurve(pybind11::module_& m);
void DefineRaster(pybind11::module_& m);
void DefineRunLength(pybind11::module_& m);
void DefineDocument(pybind11::module_& m);

} // namespace voalgo::python
