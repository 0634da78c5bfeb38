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

    /// What a figure in "mm" or "mm2", as FieldInfo and TestInfo name its measure, is to be divided by; 1 for every
    /// other measure, and for a negative figure, which marks something that is unknown or switched off.
    [[nodiscard]] double ScaleOf(std::string_view measure, double figure) const
    {
        if (figure < 0.0) return 1.0;
        return measure == "mm" ? mm : measure == "mm2" ? mm * mm : 1.0;
    }
    /// The name of a measure with this unit in place of the millimetre.
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
