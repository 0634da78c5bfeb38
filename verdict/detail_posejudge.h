#pragma once

#include "VoAlgorithms/prereg/cfpfhpreregistration.h"
#include "VoAlgorithms/verdict/registrationsettings.h"
#include "VoAlgorithms/verdict/verification.h"
#include "verdict/detail_evidence.h"

#include <optional>
#include <vector>

namespace prereg::detail {

/// Refines poses that the search proposes and judges them by the evidence. Refers to the sets and settings.
class PoseJudge {
public:
    PoseJudge(const CFPFHPointSet& fix, const CFPFHPointSet& flt, const std::optional<View>& fixView,
              const std::optional<View>& fltView, const RegistrationSettings& settings);

    /// Judges a pose of the search.
    [[nodiscard]] JudgedTrafo Judge(const CFPFHPreRegistration::VerifiedTrafo& found) const;
    /// A first estimate of how much of the scans a pose explains: overlap × agreement, 0 to 1.
    [[nodiscard]] double EstimateExplained(const VoAlgo::CTrafo& pose) const;
    /// The fewest proposals that must have led to a pose: one where a scan tells what is empty.
    [[nodiscard]] std::uint32_t MinClusterSize() const;
    /// The test of that.
    [[nodiscard]] AcceptanceTest AgreementTest(const CFPFHPreRegistration::VerifiedTrafo& found) const;

private:
    [[nodiscard]] Evidence refine(VoAlgo::CTrafo& pose) const;
    [[nodiscard]] bool weigh(const Evidence& evidence, JudgedTrafo& judged) const;
    void grade(JudgedTrafo& judged) const;

    const CFPFHPointSet& fix_;
    const CFPFHPointSet& flt_;
    const Verification& limits_;
    ScanPair pair_;
};

} // namespace prereg::detail
