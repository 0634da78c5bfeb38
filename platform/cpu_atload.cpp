#include "platform/cpu.h"

#if defined(__GNUC__) && defined(__x86_64__) && !defined(_WIN32)

#include <cstdio>
#include <unistd.h>

namespace {

/// Ends the process before the first instruction of the library that the processor lacks would. Priority 101, the first
/// that is not the compiler's own: before all other objects of the library are constructed.
[[gnu::constructor(101)]] void RequireCpu()
{
    constexpr int Unavailable = 69; // EX_UNAVAILABLE of sysexits.h
    char text[160];
    if (!VoAlgo::DescribeMissing(VoAlgo::CpuNeeds, VoAlgo::CpuHas(), text, sizeof text)) return;
    std::fprintf(stderr, "VoAlgorithms: error: %s\n", text);
    _exit(Unavailable);
}

} // namespace

#endif
