#include "exchange/files/length_unit.h"

namespace voalgo {

const std::vector<std::string>& UnitNames()
{
    static const std::vector<std::string> names = {"mm", "cm", "m"};
    return names;
}

std::optional<LengthUnit> UnitOf(const std::string& name)
{
    if (name == "mm") return LengthUnit{name, 1.0};
    if (name == "cm") return LengthUnit{name, 10.0};
    if (name == "m") return LengthUnit{name, 1000.0};
    return std::nullopt;
}

} // namespace voalgo
