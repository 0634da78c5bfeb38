#include "input/between.h"

#include "platform/format.h"

namespace voalgo {

CLI::Validator Between(double low, double high)
{
    const std::string range = VoAlgo::Format("between %g and %g", low, high);
    const auto fault = [=](const std::string& text) {
        double value = 0.0;
        const bool isNumber = CLI::detail::lexical_cast(text, value);
        return isNumber && value >= low && value <= high ? std::string() : "must be " + range + ", is " + text;
    };
    return CLI::Validator([fault](std::string& text) { return fault(text); }, range);
}

} // namespace voalgo
