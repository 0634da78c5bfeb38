#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/prereg/cfpfhpreregistration.h"
#include "VoAlgorithms/prereg/fields.h"
#include "VoAlgorithms/verdict/acceptancetest.h"
#include "VoAlgorithms/verdict/erefusal.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace prereg {

/// Settings of the final verification: each pose of the search is refined once more with many samples, flt onto fix and
/// fix onto flt; both must pass stricter limits than the search's and lead to the same pose.
struct VOALGO_API Verification {
    ConfigurationICP icp;             ///< settings and limits of both refinements
    double strictness = 0.0;          ///< rise of the small/big limit per roughness of excess RMSE
    double roughness = 0.0;           ///< of the scans, mm
    double maxTurn = 0.0;             ///< largest rotation between the poses of both sides, rad
    double minStability = 0.0;        ///< smallest geometric stability of the overlap, 0 to 1/3
    std::uint32_t minClusterSize = 0; ///< fewest proposals that must have led to the pose

    /// Takes over what differs between `derived` and `stated`: a limit that is stated for the search holds here, too.
    void Follow(const ConfigurationFPFH& derived, const ConfigurationFPFH& stated);
};

/// Calls visit(FieldInfo, field) for every setting but those of the refinements (IcpKey), which come last.
void VisitFields(RecordOf<Verification> auto& v, auto&& visit)
{
    visit(FieldInfo{"strictness", "", "rise of the small/big limit per roughness of excess RMSE"}, v.strictness);
    visit(FieldInfo{"roughness", "mm", "measured roughness of the scans"}, v.roughness);
    visit(FieldInfo{"maxTurn", "rad", "rotation between the two sides' poses, at most"}, v.maxTurn);
    visit(FieldInfo{"minStability", "", "geometric stability of the overlap, at least"}, v.minStability);
    visit(FieldInfo{"minClusterSize", "", "proposals that must agree on a pose"}, v.minClusterSize);
}

/// A judged pose with its figures and tests. It may be handed out when there is no objection.
struct VOALGO_API JudgedTrafo : CFPFHPreRegistration::VerifiedTrafo {
    Refusal objection;                 ///< why the pose is refused; nothing when it is accepted
    std::vector<AcceptanceTest> tests; ///< in their order, up to the stage that refused it

    JudgedTrafo() = default;
    /// A result that has not been judged yet, or one with an objection.
    explicit JudgedTrafo(const VerifiedTrafo& result, Refusal objection_ = {})
        : VerifiedTrafo(result), objection(std::move(objection_))
    {
    }
};

/// Refines a pose of the search with the verification's settings and judges its fit. The pose and figures returned are
/// those of flt refined onto fix, unless that refinement broke off.
[[nodiscard]] VOALGO_API JudgedTrafo VerifyFit(const CFPFHPointSet& fix, const CFPFHPointSet& flt,
                                               const Verification& verification,
                                               const CFPFHPreRegistration::VerifiedTrafo& found);

/// The same, and also judges whether the shape of the overlap determines the pose.
[[nodiscard]] VOALGO_API JudgedTrafo Verify(const CFPFHPointSet& fix, const CFPFHPointSet& flt,
                                            const Verification& verification,
                                            const CFPFHPreRegistration::VerifiedTrafo& found);

} // namespace prereg
