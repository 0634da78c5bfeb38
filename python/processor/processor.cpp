// Imported before the compiled part, whose first instruction may be one that the processor lacks.
#include <Python.h>

#include "platform/cpu.h"

PyMODINIT_FUNC PyInit__processor() // NOLINT(readability-identifier-naming): the name that Python looks for
{
    static PyModuleDef definition = {
        PyModuleDef_HEAD_INIT, "voalgorithms._processor", nullptr, -1, nullptr, nullptr, nullptr, nullptr, nullptr};
    char text[160];
    if (VoAlgo::DescribeMissing(VoAlgo::CpuNeeds, VoAlgo::CpuHas(), text, sizeof text)) {
        PyErr_Format(PyExc_ImportError, "voalgorithms: %s", text);
        return nullptr;
    }
    return PyModule_Create(&definition);
}
