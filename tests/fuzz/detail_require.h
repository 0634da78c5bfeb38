#pragma once

#include <cstdlib>

/// A condition that must hold for every input; its failure is a finding.
inline void Require(bool condition)
{
    if (!condition) std::abort();
}
