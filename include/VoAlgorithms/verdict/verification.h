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

/// Limits of the verification: a pose that the search proposes is refined between both scans and handed out when the
/// evidence speaks for it. Shares are 0 to 1.
struct VOALGO_API Verification {
    double minOverlap = 0.0;          ///< smallest share of a scan that must lie on the other, of the side with more
    double minAgreement = 0.0;        ///< smallest share that must coincide where both scans have surface
    double maxMisfit = 0.0;           ///< largest median distance of the surfaces there, mm
    double maxSeenEmpty = 0.0;        ///< largest share of points in space that the other scan saw to be empty
    double minStability = 0.0;        ///< smallest geometric stability of the overlap, 0 to 1/3
    double minBeyondFaces = 0.0;      ///< smallest share of the overlap that faces none of three main directions
    std::uint32_t minClusterSize = 0; ///< fewest proposals that must have led to a pose without evidence of empty space
    double roughness = 0.0;           ///< of the scans, mm
    ConfigurationICP icp;             ///< limits of the final grading, the search's unless stated, with more samples;
                                      ///< its number of iterations is that of the refinement on all samples

    /// Takes over what differs between `derived` and `stated`: a limit that is stated for the search holds here, too.
    void Follow(const ConfigurationFPFH& derived, const ConfigurationFPFH& stated);
};

/// Calls visit(FieldInfo, field) for every setting but those of the grading (IcpKey), which come last.
void VisitFields(RecordOf<Verification> auto& v, auto&& visit)
{
    visit(FieldInfo{"minOverlap", "", "share of a scan that must lie on the other, of the side with more"},
          v.minOverlap);
    visit(
        FieldInfo{"minAgreement", "", "share that must coincide where both scans have surface, of the side with less"},
        v.minAgreement);
    visit(FieldInfo{"maxMisfit", "mm", "median distance of the surfaces where both scans have surface, at most"},
          v.maxMisfit);
    visit(FieldInfo{"maxSeenEmpty", "", "share of points in space that the other scan saw to be empty, at most"},
          v.maxSeenEmpty);
    visit(FieldInfo{"minStability", "", "geometric stability of the overlap, at least"}, v.minStability);
    visit(
        FieldInfo{"minBeyondFaces", "", "share of the overlap that faces none of its three main directions, at least"},
        v.minBeyondFaces);
    visit(FieldInfo{"minClusterSize", "", "proposals that must agree on a pose when no scan tells what is empty"},
          v.minClusterSize);
    visit(FieldInfo{"roughness", "mm", "measured roughness of the scans"}, v.roughness);
}

/// A judged pose with its figures and tests. It may be handed out when there is no objection.
struct VOALGO_API JudgedTrafo : CFPFHPreRegistration::VerifiedTrafo {
    Refusal objection;                 ///< why the pose is refused; nothing when it is accepted
    std::vector<AcceptanceTest> tests; ///< in their order, up to the stage that refused it
    double explained = 0.0;            ///< overlap × agreement of the surfaces, 0 to 1; 0 until it is verified

    JudgedTrafo() = default;
    /// A result that has not been judged yet, or one with an objection.
    explicit JudgedTrafo(const VerifiedTrafo& result, Refusal objection_ = {})
        : VerifiedTrafo(result), objection(std::move(objection_))
    {
    }
};

} // namespace prereg
