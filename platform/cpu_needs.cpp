#include "platform/cpu.h"

// Compiled as the rest of the library is; a constant needs no instructions.

namespace VoAlgo {

const unsigned CpuNeeds = 0
#if defined(__AVX__)
                          | CpuAvx
#endif
#if defined(__F16C__)
                          | CpuF16c
#endif
#if defined(__FMA__)
                          | CpuFma
#endif
#if defined(__MOVBE__)
                          | CpuMovbe
#endif
#if defined(__AVX2__)
                          | CpuAvx2
#endif
#if defined(__BMI__)
                          | CpuBmi1
#endif
#if defined(__BMI2__)
                          | CpuBmi2
#endif
#if defined(__LZCNT__)
                          | CpuLzcnt
#endif
#if defined(__AVX512F__)
                          | CpuAvx512
#endif
    ;

} // namespace VoAlgo
