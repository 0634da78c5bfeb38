#include "platform/cpu.h"

#if defined(__GNUC__) && defined(__x86_64__)
#include <cpuid.h>
#endif

namespace VoAlgo {

unsigned CpuHas()
{
#if defined(__GNUC__) && defined(__x86_64__)
    unsigned a = 0, b = 0, c = 0, d = 0, has = 0;
    const auto bit = [](unsigned word, unsigned index) { return (word >> index & 1U) != 0; };
    if (__get_cpuid(0x80000001U, &a, &b, &c, &d) != 0 && bit(c, 5)) has |= CpuLzcnt;
    if (__get_cpuid(1, &a, &b, &c, &d) == 0) return has;
    if (bit(c, 22)) has |= CpuMovbe;
    unsigned saved = 0; // registers that the operating system keeps: 2 and 4 for AVX, 0xE0 for AVX-512
    if (bit(c, 27)) __asm__("xgetbv" : "=a"(saved), "=d"(d) : "c"(0));
    const bool keepsAvx = (saved & 6U) == 6U;
    if (keepsAvx && bit(c, 28)) has |= CpuAvx;
    if (keepsAvx && bit(c, 29)) has |= CpuF16c;
    if (keepsAvx && bit(c, 12)) has |= CpuFma;
    if (__get_cpuid_count(7, 0, &a, &b, &c, &d) == 0) return has;
    if (bit(b, 3)) has |= CpuBmi1;
    if (bit(b, 8)) has |= CpuBmi2;
    if (keepsAvx && bit(b, 5)) has |= CpuAvx2;
    if (keepsAvx && (saved & 0xE0U) == 0xE0U && bit(b, 16)) has |= CpuAvx512;
    return has;
#else
    return ~0U;
#endif
}

bool DescribeMissing(unsigned needs, unsigned has, char* text, std::size_t size)
{
    static const char* const Names[] = {"AVX", "F16C", "FMA", "MOVBE", "AVX2", "BMI1", "BMI2", "LZCNT", "AVX-512"};
    const unsigned missing = needs & ~has;
    text[0] = '\0';
    if (missing == 0) return false;
    std::size_t used = 0;
    const auto append = [&](const char* word) {
        while (*word != '\0' && used + 1 < size) text[used++] = *word++;
        text[used] = '\0';
    };
    append("the processor lacks instructions that this build uses:");
    const char* separator = " ";
    for (unsigned i = 0; i < sizeof Names / sizeof *Names; ++i) {
        if ((missing >> i & 1U) == 0) continue;
        append(separator);
        append(Names[i]);
        separator = ", ";
    }
    return true;
}

} // namespace VoAlgo
