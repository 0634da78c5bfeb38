#pragma once

#include "VoAlgorithms/verdict/scan.h"
#include "exchange/files/input_error.h"

#include <pybind11/pybind11.h>

#include <string>

/// Files. Python reports missing and unwritable ones itself, with the exceptions that its users know.
namespace voalgo::python {

namespace py = pybind11;

/// The bytes of a path that is a str or path-like.
std::string ReadPath(const py::object& path);
/// Opens and closes a file as Python would; raises its OSError.
void OpenAndClose(const py::object& path, const char* mode);
/// Runs `write`, without the interpreter's lock; a file that cannot be written raises OSError.
template <class Write>
void WriteFile(const py::object& path, const Write& write)
{
    OpenAndClose(path, "ab");
    try {
        const py::gil_scoped_release release;
        write();
    } catch (const InputError& error) {
        PyErr_SetString(PyExc_OSError, error.what());
        throw py::error_already_set();
    }
}
/// The name of a scan as Python decodes file names.
py::object NameOf(const prereg::Scan& scan);

} // namespace voalgo::python
