#pragma once

namespace voalgo {

/// The number with the fewest decimal digits that, multiplied by `scale` and rounded to float, gives `value` again: a
/// file then says 0.1 instead of 0.10000000149011612. Zero has no sign; values that are not finite stay as they are.
double ShortNumber(float value, double scale = 1.0);

} // namespace voalgo
