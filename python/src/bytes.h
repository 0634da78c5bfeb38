#pragma once

#include "scalars.h"

#include <cstddef>

namespace voalgo::python {

/// An argument that should have the buffer protocol; signatures show it as bytes.
class Buffer : public py::object {
    PYBIND11_OBJECT(Buffer, object, IsAny)
};

/// The bytes of an argument named "data", where they lie.
class Bytes {
public:
    explicit Bytes(const Buffer& data)
    {
        if (PyObject_GetBuffer(data.ptr(), &view_, PyBUF_SIMPLE) == 0) return;
        PyErr_Clear();
        throw py::type_error("data: must be bytes or another buffer in C order without gaps, is " + TypeOf(data));
    }
    Bytes(const Bytes&) = delete;
    Bytes& operator=(const Bytes&) = delete;
    ~Bytes() { PyBuffer_Release(&view_); }

    [[nodiscard]] const unsigned char* Data() const { return static_cast<const unsigned char*>(view_.buf); }
    [[nodiscard]] std::size_t Size() const { return static_cast<std::size_t>(view_.len); }

private:
    Py_buffer view_{};
};

} // namespace voalgo::python

namespace pybind11::detail {

template <>
struct handle_type_name<voalgo::python::Buffer> {
    static constexpr auto name = const_name("bytes");
};

} // namespace pybind11::detail
