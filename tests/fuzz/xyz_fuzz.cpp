// Any bytes as a table of points: read, or refused with the file's name and line. What is read is read again from its
// own plain text, three numbers a line.
#include "exchange/files/input_error.h"
#include "exchange/files/read_xyz.h"
#include "tests/fuzz/detail_require.h"

#include <charconv>
#include <sstream>
#include <string_view>

namespace {

prereg::Scan Read(const std::string& text)
{
    std::istringstream stream(text);
    return voalgo::ReadXyz(stream, "f.xyz", 1.0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    prereg::Scan scan;
    try {
        scan = Read({reinterpret_cast<const char*>(data), size});
    } catch (const voalgo::InputError& error) {
        Require(std::string_view(error.what()).substr(0, 6) == "f.xyz:");
        return 0;
    }
    Require(scan.points.size() <= size / 5 + 1 && (scan.normals.empty() || scan.normals.size() == scan.points.size()));
    std::string text;
    for (const auto& p : scan.points)
        for (unsigned k = 0; k < 3; ++k) {
            char digits[32];
            const auto written = std::to_chars(digits, digits + sizeof digits, p[k]);
            text.append(digits, written.ptr) += k < 2 ? ' ' : '\n';
        }
    Require(Read(text).points.size() == scan.points.size());
    return 0;
}
