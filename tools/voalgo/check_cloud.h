#pragma once

#include "prepare_cloud.h"

namespace voalgo {

/// Throws InputError when the points cannot tell a pose: all at one place, on a line or on a plane.
void RequireShape(const PreparedCloud& prepared);
/// Throws InputError for fewer points than the registration needs.
void RequirePoints(const PreparedCloud& prepared, std::size_t minPoints);
/// Throws InputError when the clouds' sizes differ as if their files had different units: extents and spacings both by
/// about 10, 25.4, 100 or 1000.
void RequireSameUnit(const PreparedCloud& fix, const PreparedCloud& flt);

} // namespace voalgo
