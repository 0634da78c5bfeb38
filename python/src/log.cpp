#include "VoAlgorithms/platform/logging.h"
#include "module.h"

#include <string>

namespace voalgo::python {

namespace py = pybind11;

namespace {

/// Passes a message to Python's logging, from any thread. An exception of a handler cannot pass through the library: it
/// is reported as unraisable.
void Hand(const Logging::Message& message)
{
    const py::gil_scoped_acquire acquire;
    try {
        const py::object logger =
            py::module_::import("logging").attr("getLogger")(std::string("voalgorithms.") + message.channel);
        logger.attr(message.level == Logging::ELogLevel::Error ? "error" : "warning")("%s: %s", message.function,
                                                                                      message.text);
    } catch (py::error_already_set& error) {
        if (error.matches(PyExc_KeyboardInterrupt)) PyErr_SetInterrupt(); // so that it is not lost
        error.discard_as_unraisable("voalgorithms' log");
    }
}

} // namespace

void DefineLog(py::module_& /*m*/)
{
    Logging::SetSink(&Hand);
    // The interpreter takes no messages while it shuts down.
    py::module_::import("atexit").attr("register")(py::cpp_function([] { Logging::SetSink({}); }));
}

} // namespace voalgo::python
