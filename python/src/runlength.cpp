#include "VoAlgorithms/runtime/rle.h"
#include "bytes.h"
#include "module.h"
#include "scalars.h"

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

namespace voalgo::python {

namespace py = pybind11;
namespace RLE = VoAlgo::RLE;

namespace {

py::bytes ToBytes(const std::vector<unsigned char>& buffer, std::size_t size)
{
    return {reinterpret_cast<const char*>(buffer.data()), size};
}

py::bytes Compress(const Buffer& data, const Whole& escapeByte, bool moveToFront)
{
    const int escape = static_cast<int>(ReadWhole(escapeByte, "escape", -1, 255));
    const Bytes in(data);
    std::vector<unsigned char> out;
    std::size_t size = 0;
    {
        const py::gil_scoped_release release;
        out.resize(1 + 2 * in.Size());
        size = moveToFront ? RLE::CompressWithMTF(in.Data(), out.data(), in.Size())
                           : RLE::Compress(in.Data(), out.data(), in.Size(), escape);
    }
    return ToBytes(out, size);
}

py::bytes Uncompress(const Buffer& data, const Whole& largest, bool moveToFront)
{
    const auto maxSize =
        static_cast<std::size_t>(ReadWhole(largest, "max_size", 0, std::numeric_limits<std::ptrdiff_t>::max()));
    const Bytes in(data);
    std::vector<unsigned char> out;
    RLE::DecodeResult result{};
    {
        const py::gil_scoped_release release;
        // The decoded length is known at the end only: with eight times the room each time the last run dominates.
        for (std::size_t capacity = 8 * in.Size() + 64;; capacity *= 8) {
            out.resize(std::min(capacity, maxSize));
            result = moveToFront ? RLE::UncompressWithMTFChecked(in.Data(), out.data(), in.Size(), out.size())
                                 : RLE::UncompressChecked(in.Data(), out.data(), in.Size(), out.size());
            if (result.end != RLE::EDecoded::TooLarge || out.size() == maxSize) break;
        }
    }
    if (result.end == RLE::EDecoded::TooLarge)
        throw py::value_error("data: decodes to more than max_size, " + std::to_string(maxSize) + " bytes");
    if (result.end == RLE::EDecoded::CutShort) throw py::value_error("data: ends within a token");
    return ToBytes(out, result.size);
}

} // namespace

void DefineRunLength(py::module_& m)
{
    m.def("rle_compress", &Compress, py::arg("data"), py::kw_only(), py::arg("escape") = -1,
          py::arg("move_to_front") = false, R"(Compresses bytes by coding run lengths; meant for masks and label images.

Parameters
----------
data : bytes or another buffer, C order without gaps
    Read without a copy.
escape : int, default -1
    Escape byte, 0 to 255; -1 chooses the rarest byte. Ignored with `move_to_front`.
move_to_front : bool, default False
    Code positions in a table that moves each byte to its front: better for few, clustered symbols.

Returns
-------
bytes
    At most 1 + 2 n.)");
    m.def("rle_uncompress", &Uncompress, py::arg("data"), py::kw_only(), py::arg("max_size") = std::int64_t{1} << 30,
          py::arg("move_to_front") = false, R"(Decodes what `rle_compress` wrote; safe for untrusted bytes.

Parameters
----------
data : bytes or another buffer, C order without gaps
max_size : int, default 2**30
    Largest accepted decoded size, bytes.
move_to_front : bool, default False
    As for `rle_compress`.

Returns
-------
bytes

Raises
------
ValueError
    When the data end within a token or decode to more than `max_size`.)");
}

} // namespace voalgo::python
