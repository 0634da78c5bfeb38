#pragma once

#include "VoAlgorithms/prereg/configurationicp.h"
#include "VoAlgorithms/prereg/icpresult.h"

#include <cstdint>
#include <string>
#include <vector>

namespace voalgo {

/// One acceptance test of a pose, as it came out.
struct AcceptanceTest {
    enum class Outcome { NotRun, Passed, Failed };

    std::string name;
    std::string setting; ///< the one that states the limit; empty: the limit is fixed
    std::string unit;    ///< of value and limit: mm, mm2, rad, or empty for a ratio or a count
    double value = 0.0;  ///< NaN when the test was not reached or its figure is not known
    double limit = 0.0;  ///< NaN: the test is no comparison
    bool isAtMost = false;
    Outcome outcome = Outcome::NotRun;
    std::string stage; ///< "search", "FLT on FIX", "FIX on FLT", "both sides" or "all results"
};

/// A test that value ≤ limit (≥ limit); as in the refinement, a value that is no number passes.
AcceptanceTest AtMost(std::string name, std::string setting, std::string unit, double value, double limit);
AcceptanceTest AtLeast(std::string name, std::string setting, std::string unit, double value, double limit);

/// The tests of one refinement with these settings, in their order; those that are off are left out.
/// `minSmallBigRatio`: the limit in force when it is stricter than the configured one.
std::vector<AcceptanceTest> TestsOf(const prereg::ICPResult& result, const prereg::ConfigurationICP& config,
                                    const std::string& stage, double minSmallBigRatio = 0.0);

/// The driver's own test of the overlap area, which comes after those of a refinement; not reached while the area is
/// -1.
AcceptanceTest AreaTest(const prereg::ICPResult& result, const prereg::ConfigurationICP& config,
                        const std::string& stage);

/// What a result type of the refinement means, in words.
std::string CauseText(std::int32_t resultType);

} // namespace voalgo
