#pragma once

#include <cstddef>

// Whether the processor has what this build was compiled for. This header and the sources that it belongs to run before
// that is known: they are compiled for every x86-64 processor, and use no templates, which the linker might take from
// other objects.

namespace VoAlgo {

/// Sets of instructions that not every x86-64 processor has, one bit each, in the order of their names in cpu.cpp.
enum CpuFeature : unsigned {
    CpuAvx = 1,
    CpuF16c = 2,
    CpuFma = 4,
    CpuMovbe = 8,
    CpuAvx2 = 16,
    CpuBmi1 = 32,
    CpuBmi2 = 64,
    CpuLzcnt = 128,
    CpuAvx512 = 256
};

/// What this build uses; 0 for other processors than x86.
extern const unsigned CpuNeeds;
/// What the processor has and the operating system supports.
unsigned CpuHas();
/// Writes a sentence that names what of `needs` is not in `has`. Returns false, with an empty text, when nothing is
/// missing.
bool DescribeMissing(unsigned needs, unsigned has, char* text, std::size_t size);

} // namespace VoAlgo
