#pragma once

#include <cstdlib>

/// What must hold for every input; its failure is a finding.
inline void Require(bool condition)
{
    if (!condition) std::abort();
}
