#include "exchange/report/short_number.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace voalgo {

double ShortNumber(float value, double scale)
{
    if (value == 0.0F) return 0.0;
    const double exact = value / scale;
    if (!std::isfinite(exact)) return exact;
    for (int digits = 6; digits < 17; ++digits) {
        char text[40];
        std::snprintf(text, sizeof(text), "%.*g", digits, exact);
        const double candidate = std::strtod(text, nullptr);
        if (static_cast<float>(candidate * scale) == value) return candidate;
    }
    return exact;
}

} // namespace voalgo
