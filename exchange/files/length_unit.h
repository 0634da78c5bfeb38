#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace voalgo {

/// A unit of lengths.
struct LengthUnit {
    std::string name = "mm";
    double mm = 1.0; ///< its length

    /// How much larger it makes a figure of this unit of measurement, as FieldInfo and TestInfo name it: that of "mm",
    /// of its square for "mm2", and 1 for all others.
    [[nodiscard]] double ScaleOf(std::string_view measure) const
    {
        return measure == "mm" ? mm : measure == "mm2" ? mm * mm : 1.0;
    }
    /// The name of that unit of measurement with this unit in place of the millimetre.
    [[nodiscard]] std::string NameOf(std::string_view measure) const
    {
        return measure == "mm" ? name : measure == "mm2" ? name + "2" : std::string(measure);
    }
};

/// "mm", "cm", "m".
const std::vector<std::string>& UnitNames();
/// The unit of that name, if there is one.
std::optional<LengthUnit> UnitOf(const std::string& name);

} // namespace voalgo
