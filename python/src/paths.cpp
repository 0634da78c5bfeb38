#include "paths.h"

#include "scalars.h"

namespace voalgo::python {

std::string ReadPath(const py::object& path)
{
    const py::module_ os = py::module_::import("os");
    if (!py::isinstance<py::str>(path) && !py::isinstance(path, os.attr("PathLike")))
        throw py::type_error("path: must be a str or path-like, is " + TypeOf(path));
    return os.attr("fsencode")(path).cast<std::string>();
}

void OpenAndClose(const py::object& path, const char* mode)
{
    py::module_::import("io").attr("open")(path, mode).attr("close")();
}

void Raise(const OutputError& error)
{
    const py::object builtins = py::module_::import("builtins");
    const py::object name = py::module_::import("os").attr("fsdecode")(py::bytes(error.path));
    const py::object raised = builtins.attr("OSError")(error.code().value(), error.code().message(), name);
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(raised.ptr())), raised.ptr());
    throw py::error_already_set();
}

py::object NameOf(const prereg::Scan& scan)
{
    return py::module_::import("os").attr("fsdecode")(py::bytes(scan.name));
}

} // namespace voalgo::python
