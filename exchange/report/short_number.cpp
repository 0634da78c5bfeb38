#include "exchange/report/short_number.h"

#include <charconv>
#include <cmath>

namespace voalgo {

double ShortNumber(float value, double scale)
{
    if (value == 0.0F) return 0.0;
    const double exact = value / scale;
    if (!std::isfinite(exact)) return exact;
    for (int digits = 6; digits < 17; ++digits) {
        char text[40];
        const auto written = std::to_chars(text, text + sizeof(text), exact, std::chars_format::general, digits);
        double candidate = 0.0;
        std::from_chars(text, written.ptr, candidate);
        if (static_cast<float>(candidate * scale) == value) return candidate;
    }
    return exact;
}

} // namespace voalgo
