#include "platform/cpu.h"

#include <gtest/gtest.h>

namespace {

TEST(Cpu, WhatIsMissingIsNamed)
{
    char text[160];
    EXPECT_FALSE(VoAlgo::DescribeMissing(VoAlgo::CpuNeeds, VoAlgo::CpuHas(), text, sizeof text)) << "this runs here";
    EXPECT_STREQ(text, "");
    EXPECT_TRUE(VoAlgo::DescribeMissing(VoAlgo::CpuFma | VoAlgo::CpuAvx2 | VoAlgo::CpuBmi2, VoAlgo::CpuBmi2, text,
                                        sizeof text));
    EXPECT_STREQ(text, "the processor lacks instructions that this build uses: FMA, AVX2");
    EXPECT_TRUE(VoAlgo::DescribeMissing(~0U, 0, text, sizeof text));
    EXPECT_STREQ(text, "the processor lacks instructions that this build uses: AVX, F16C, FMA, MOVBE, AVX2, BMI1, "
                       "BMI2, LZCNT, AVX-512");
    EXPECT_TRUE(VoAlgo::DescribeMissing(~0U, 0, text, 12));
    EXPECT_STREQ(text, "the process");
}

} // namespace
