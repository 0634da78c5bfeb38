#pragma once

namespace voalgo {

/// The number with the fewest decimal digits that, times `scale` and rounded to float, is `value` again: what a file
/// states instead of 0.10000000149011612. Zero without a sign; what is not finite stays as it is.
double ShortNumber(float value, double scale = 1.0);

} // namespace voalgo
