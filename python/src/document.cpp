#include "VoAlgorithms/bson/element.h"
#include "VoAlgorithms/documents/records.h"
#include "bytes.h"
#include "configuration.h"
#include "module.h"

#include <pybind11/numpy.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>

namespace voalgo::python {

namespace py = pybind11;
using VoAlgo::bson::element;
using Object = element::object;

namespace {

/// Documents may be nested deeper than the stack: Python's own limit ends the descent with a RecursionError.
class Descent {
public:
    Descent()
    {
        if (Py_EnterRecursiveCall(" in a document") != 0) throw py::error_already_set();
    }
    Descent(const Descent&) = delete;
    Descent& operator=(const Descent&) = delete;
    ~Descent() { Py_LeaveRecursiveCall(); }
};

/// Text that is not UTF-8 keeps its bytes as lone surrogates.
py::object TextOf(const std::string& text)
{
    return py::reinterpret_steal<py::object>(
        PyUnicode_DecodeUTF8(text.data(), static_cast<py::ssize_t>(text.size()), "surrogateescape"));
}

std::string BytesOf(const py::handle& text)
{
    const auto bytes =
        py::reinterpret_steal<py::bytes>(PyUnicode_AsEncodedString(text.ptr(), "utf-8", "surrogateescape"));
    if (!bytes) throw py::error_already_set();
    return std::string(bytes);
}

py::object Milliseconds(std::int64_t count)
{
    return py::module_::import("datetime").attr("timedelta")(py::arg("milliseconds") = count);
}

py::object Epoch()
{
    const py::module_ datetime = py::module_::import("datetime");
    return datetime.attr("datetime")(1970, 1, 1, py::arg("tzinfo") = datetime.attr("timezone").attr("utc"));
}

py::object DateOf(std::chrono::milliseconds since1970)
{
    return Epoch() + Milliseconds(since1970.count());
}

/// A date without a time zone could be any of 26 hours.
element Date(const std::string& name, const py::object& date)
{
    if (date.attr("tzinfo").is_none()) throw py::value_error(name + ": a datetime needs a time zone");
    const py::object whole = (date - Epoch()).attr("__floordiv__")(Milliseconds(1));
    return element::make_datetime(name, std::chrono::milliseconds(whole.cast<std::int64_t>()));
}

bool IsRegex(const py::object& value)
{
    if (!py::isinstance<py::tuple>(value) || py::len(value) != 2) return false;
    const auto pair = value.cast<py::tuple>();
    return py::isinstance<py::str>(pair[0]) && py::isinstance<py::str>(pair[1]);
}

py::dict ToDict(const Object& document);

py::object ValueOf(const element& e)
{
    switch (e.type()) {
    case element::Double:
        return py::float_(e.as_double());
    case element::Float:
        return py::float_(static_cast<double>(e.as_float()));
    case element::String:
        return TextOf(e.as_string());
    case element::Object:
        return ToDict(e.as_object());
    case element::Binary: {
        const auto [data, size, kind] = e.as_binary();
        return py::bytes(reinterpret_cast<const char*>(data), size);
    }
    case element::Boolean:
        return py::bool_(e.as_boolean());
    case element::DateTime:
        return DateOf(e.as_datetime());
    case element::Regex: {
        const auto [pattern, options] = e.as_regex();
        return py::make_tuple(TextOf(pattern), TextOf(options));
    }
    case element::Int8:
        return py::int_(e.as_int8());
    case element::UInt8:
        return py::int_(e.as_uint8());
    case element::Int16:
        return py::int_(e.as_int16());
    case element::UInt16:
        return py::int_(e.as_uint16());
    case element::Int32:
        return py::int_(e.as_int32());
    case element::UInt32:
        return py::int_(e.as_uint32());
    case element::Int64:
        return py::int_(e.as_int64());
    case element::UInt64:
        return py::int_(e.as_uint64());
    default:
        return py::none();
    }
}

py::list Items(const Object& document)
{
    py::list items;
    for (const element& e : document) items.append(py::make_tuple(TextOf(e.name()), ValueOf(e)));
    return items;
}

py::dict ToDict(const Object& document)
{
    const Descent descent;
    py::dict dict;
    for (const element& e : document) {
        const py::object name = TextOf(e.name());
        if (dict.contains(name))
            throw py::value_error("the name " + py::repr(name).cast<std::string>() +
                                  " repeats, which no dict can hold; use items()");
        dict[name] = ValueOf(e);
    }
    return dict;
}

/// Python's whole numbers have no width: the smallest of int32, int64 and uint64 that holds the value.
element Whole(const std::string& name, const py::handle& value)
{
    int overflow = 0;
    const long long number = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
    if (overflow == 0) {
        const auto narrow = static_cast<std::int32_t>(number);
        return narrow == number ? element::make_int32(name, narrow) : element::make_int64(name, number);
    }
    const unsigned long long large = overflow > 0 ? PyLong_AsUnsignedLongLong(value.ptr()) : 0;
    if (overflow < 0 || PyErr_Occurred() != nullptr) {
        PyErr_Clear();
        throw py::value_error(name + ": needs more than 64 bits");
    }
    return element::make_uint64(name, large);
}

/// A scalar of numpy keeps its width.
element Scalar(const std::string& name, const py::object& value)
{
    const py::dtype type = value.attr("dtype");
    const auto is = [&](char kind, py::ssize_t size) { return type.kind() == kind && type.itemsize() == size; };
    if (is('f', 4)) return element::make_float(name, static_cast<float>(value.cast<double>()));
    if (is('f', 8)) return element::make_double(name, value.cast<double>());
    if (is('b', 1)) return element::make_boolean(name, value.attr("item")().cast<bool>());
    if (type.kind() == 'i' || type.kind() == 'u') {
        const py::object whole = value.attr("item")();
        if (is('i', 1)) return element::make_int8(name, whole.cast<std::int8_t>());
        if (is('u', 1)) return element::make_uint8(name, whole.cast<std::uint8_t>());
        if (is('i', 2)) return element::make_int16(name, whole.cast<std::int16_t>());
        if (is('u', 2)) return element::make_uint16(name, whole.cast<std::uint16_t>());
        if (is('i', 4)) return element::make_int32(name, whole.cast<std::int32_t>());
        if (is('u', 4)) return element::make_uint32(name, whole.cast<std::uint32_t>());
        if (is('i', 8)) return element::make_int64(name, whole.cast<std::int64_t>());
        return element::make_uint64(name, whole.cast<std::uint64_t>());
    }
    throw py::type_error(name + ": numpy's " + py::repr(type).cast<std::string>() + " has no form in a document");
}

Object FromDict(const py::dict& dict);

element FromValue(const std::string& name, const py::object& value)
{
    if (value.is_none()) return element::make_null(name);
    if (py::isinstance<py::bool_>(value)) return element::make_boolean(name, value.cast<bool>());
    if (py::isinstance<py::str>(value)) return element::make_string(name, BytesOf(value));
    if (py::isinstance<py::bytes>(value)) {
        const std::string bytes = value.cast<std::string>();
        if (bytes.size() > UINT32_MAX) throw py::value_error(name + ": longer than a document can hold");
        return element::make_binary(name, bytes.data(), static_cast<unsigned>(bytes.size()));
    }
    if (py::isinstance(value, py::module_::import("numpy").attr("generic"))) return Scalar(name, value);
    if (py::isinstance<py::int_>(value)) return Whole(name, value);
    if (py::isinstance<py::float_>(value)) return element::make_double(name, value.cast<double>());
    if (py::isinstance<py::dict>(value)) return element::make_object(name, FromDict(value.cast<py::dict>()));
    if (py::isinstance(value, py::module_::import("datetime").attr("datetime"))) return Date(name, value);
    if (IsRegex(value)) {
        const auto pair = value.cast<py::tuple>();
        return element::make_regex(name, BytesOf(pair[0]), BytesOf(pair[1]));
    }
    if (py::isinstance<Object>(value)) return element::make_object(name, value.cast<const Object&>());
    throw py::type_error(name + ": a " + TypeOf(value) + " has no form in a document");
}

Object FromDict(const py::dict& dict)
{
    const Descent descent;
    Object document;
    for (const auto& [key, value] : dict) {
        if (!py::isinstance<py::str>(key))
            throw py::type_error("values: the names in a document are str, not " + TypeOf(key));
        document.append(FromValue(BytesOf(key), py::reinterpret_borrow<py::object>(value)));
    }
    return document;
}

py::bytes Freeze(const Object& document)
{
    const auto [bytes, size] = document.freeze();
    return {reinterpret_cast<const char*>(bytes.get()), static_cast<std::size_t>(size)};
}

Object Unfreeze(const Buffer& data)
{
    const Bytes bytes(data);
    return Object::unfreeze(bytes.Data(), bytes.Size());
}

} // namespace

void DefineDocument(py::module_& m)
{
    py::class_<Object>(m, "Document", R"(An ordered list of named, typed values and its binary form.

Parameters
----------
values : dict, optional
    None, bool, int (stored as int32, int64 or uint64, the first that holds it), float (as double), str, bytes,
    datetime with a time zone (to the millisecond), (pattern, options) of a regular expression, dict and Document;
    numpy's scalars keep their width.)")
        .def(py::init<>())
        .def(py::init(&FromDict), py::arg("values"))
        .def_static("from_bytes", &Unfreeze, py::arg("data"), R"(Reads the binary form.

Parameters
----------
data : bytes or another buffer, C order without gaps
    Bytes after the document are ignored; fewer than four bytes give the empty document.

Raises
------
ValueError
    "parse error" when the bytes are truncated or not a document.)")
        .def("to_bytes", &Freeze, "The binary form, bytes.")
        .def(
            "to_dict", [](const Object& document) { return ToDict(document); },
            R"(Returns the values as a dict, nested documents as dicts.

Dates become aware datetimes, regular expressions tuples (pattern, options). Text that is not UTF-8 keeps its bytes as
surrogate escapes.

Raises
------
ValueError
    When a name repeats; use `items` for such documents.
OverflowError
    For a date outside of the years 1 to 9999.
RecursionError
    When documents are nested deeper than Python's limit.)")
        .def("items", &Items, "list of (name, value): as `to_dict`, but the names at this level may repeat.")
        .def(
            "to_json", [](const Object& document) { return TextOf(document.to_json()); },
            "JSON text (RFC 8259), without spaces.")
        .def("__len__", [](const Object& document) { return document.end() - document.begin(); })
        .def(
            "__eq__",
            [](const Object& a, const Object& b) { return std::equal(a.begin(), a.end(), b.begin(), b.end()); },
            py::is_operator())
        .def(py::pickle(&Freeze, [](const py::bytes& data) { return Unfreeze(Buffer(data)); }))
        .def("__repr__",
             [](const Object& document) {
                 return "<Document: " + std::to_string(document.end() - document.begin()) + " values, " +
                        std::to_string(document.size()) + " bytes>";
             })
        .attr("__hash__") = py::none();
    m.def(
        "config_to_document",
        [](const py::dict& config) {
            prereg::ConfigurationFPFH settings;
            Apply(config, {}, settings);
            return VoAlgo::bson::to_object(settings);
        },
        py::arg("config"),
        "Stores the settings of a registration in a Document; settings that the dict leaves out get their defaults.");
    m.def(
        "config_from_document",
        [](const Object& document) { return ToDict(VoAlgo::bson::from_object<prereg::ConfigurationFPFH>(document)); },
        py::arg("document"), "Returns the settings that a Document holds as a dict; see `default_config`.");
}

} // namespace voalgo::python
