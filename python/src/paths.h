#pragma once

#include "VoAlgorithms/verdict/scan.h"
#include "exchange/files/output_error.h"

#include <pybind11/pybind11.h>

#include <string>

/// Files. Python reports missing and unwritable ones itself, with the exceptions that its users know.
namespace voalgo::python {

namespace py = pybind11;

/// The bytes of a path that is a str or path-like.
std::string ReadPath(const py::object& path);
/// Opens and closes a file as Python would; raises its OSError.
void OpenAndClose(const py::object& path, const char* mode);
/// Raises the OSError that Python raises for the same reason.
[[noreturn]] void Raise(const OutputError& error);
/// Runs `write`, without the interpreter's lock; a file that cannot be written raises OSError.
template <class Write>
void WriteFile(const Write& write)
{
    try {
        const py::gil_scoped_release release;
        write();
    } catch (const OutputError& error) {
        Raise(error);
    }
}
/// The name of a scan as Python decodes file names.
py::object NameOf(const prereg::Scan& scan);

} // namespace voalgo::python
