#pragma once

#include "cloud.h"

namespace voalgo {

/// One point per cube of the given edge (mm): the means of its points and normals. Deterministic.
Cloud Thin(const Cloud& cloud, double edge);

} // namespace voalgo
