#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/prereg/configurationicp.h"
#include "VoAlgorithms/prereg/icpresult.h"

#include <limits>
#include <vector>

namespace prereg {

/// The tests that a pose must pass, in the order in which they are made.
enum class ETest {
    AgreeingProposals,
    SurfaceOverlap,
    SurfaceAgreement,
    Misfit,
    SeenEmpty,
    Stability,
    BeyondFlatFaces,
    PairsAtStart,
    InliersAtStart,
    MismatchesIterating,
    PairsIterating,
    InliersIterating,
    SmallBigRatio,
    Rmse,
    OverlapRatio,
    MismatchRatio,
    MovementFromStart,
    OverlapArea,
    RunnerUp,
};

/// The step of a registration at which a test is made.
enum class EStage { Search, Verification, Grading, AllResults };

/// The outcome of a test.
enum class EOutcome { NotRun, Passed, Failed };

/// A kind of test: what it compares, and its names.
struct TestInfo {
    const char* code;    ///< stable identifier for programs
    const char* name;    ///< for people
    const char* setting; ///< the setting that holds the limit; empty: the limit is fixed
    const char* unit;    ///< of value and limit: "mm", "mm2", "rad", or empty for a ratio or a count
    bool isAtMost;       ///< whether the limit is an upper one
};
/// The same for every pose.
[[nodiscard]] VOALGO_API const TestInfo& InfoOf(ETest test);
///@{
/// Words for results: "search", "verification", …; "not run", "passed", "failed".
[[nodiscard]] VOALGO_API const char* NameOf(EStage stage);
[[nodiscard]] VOALGO_API const char* NameOf(EOutcome outcome);
///@}

/// One acceptance test of one pose.
struct VOALGO_API AcceptanceTest {
    ETest test = ETest::AgreeingProposals;                   ///< what is tested
    EStage stage = EStage::Search;                           ///< where it is tested
    double value = std::numeric_limits<double>::quiet_NaN(); ///< NaN: not reached, or not known
    double limit = std::numeric_limits<double>::quiet_NaN(); ///< NaN: the test compares no figures
    EOutcome outcome = EOutcome::NotRun;                     ///< passed, failed or not run
};

/// Compares a value with its limit as a refinement does: equality passes, and so does NaN.
[[nodiscard]] VOALGO_API AcceptanceTest Compared(ETest test, EStage stage, double value, double limit);

/// The tests of one refinement with these settings, in their order, without those that are switched off.
[[nodiscard]] VOALGO_API std::vector<AcceptanceTest> TestsOf(const ICPResult& result, const ConfigurationICP& config,
                                                             EStage stage);

/// The driver's test of the overlap area, which follows those of a refinement; not run while the area is unknown.
[[nodiscard]] VOALGO_API AcceptanceTest AreaTest(const ICPResult& result, const ConfigurationICP& config, EStage stage);

} // namespace prereg
