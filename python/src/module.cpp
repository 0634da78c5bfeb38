#include "module.h"

#include "VoAlgorithms/version.h"
#include "exchange/files/input_error.h"

#include <exception>

namespace py = pybind11;

PYBIND11_MODULE(_core, m)
{
    m.doc() = "The compiled part of voalgorithms.";
    m.attr("__name__") = "voalgorithms"; // where users find the classes, also in signatures and pickles
    m.attr("__version__") = VOALGO_VERSION;
    py::register_exception_translator([](std::exception_ptr error) {
        try {
            if (error) std::rethrow_exception(error);
        } catch (const voalgo::InputError& wrong) {
            PyErr_SetString(PyExc_ValueError, wrong.what());
        }
    });
    using namespace voalgo::python;
    DefineLog(m);
    DefineTrafo(m);
    DefineDocument(m);
    DefineScan(m);
    DefinePointSet(m);
    DefineResult(m);
    DefineRegistration(m);
    DefineRegister(m);
    DefineNumerics(m);
    DefineGraphs(m);
    DefineNls(m);
    DefineSolvers(m);
    DefineCurves(m);
    DefineTours(m);
    DefineColour(m);
    DefineTransferCurve(m);
    DefineRaster(m);
    DefineRunLength(m);
    m.attr("__name__") = "voalgorithms._core";
}
