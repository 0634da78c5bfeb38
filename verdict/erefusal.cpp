#include "VoAlgorithms/verdict/erefusal.h"

namespace prereg {
namespace {

struct Entry {
    ERefusal code;
    const char* identifier;
    const char* text;
};

using enum ERefusal;

constexpr Entry Entries[] = {
    {None, "", ""},
    {TooFewProposalsAgree, "too_few_proposals_agree", "too few proposals agree on the pose"},
    {SharedSurfaceTooSmall, "shared_surface_too_small", "too little of either scan lies on the other"},
    {SurfacesDisagree, "surfaces_disagree", "the surfaces disagree where both scans have some"},
    {MisfitTooLarge, "misfit_too_large", "the surfaces lie too far apart"},
    {SeenEmpty, "seen_empty", "points of one scan lie where the other saw that there is nothing"},
    {NotStable, "not_stable", "the shape of the overlap does not determine the pose: the scans could slide or rotate"},
    {FewFlatFaces, "few_flat_faces", "the overlap is hardly more than three flat faces, which may fit elsewhere, too"},
    {TooFewFeaturesInFix, "too_few_features_in_fix", "too few features in FIX"},
    {TooFewFeaturesInFlt, "too_few_features_in_flt", "too few features in FLT"},
    {NoPoseAccepted, "no_pose_accepted", "no proposed pose passed the acceptance tests"},
    {Ambiguous, "ambiguous", "ambiguous: different poses fit about equally well"},
    {Cancelled, "cancelled", "cancelled"},
    {NoFinitePoints, "no_finite_points", "no point has finite coordinates"},
    {TooFewPoints, "too_few_points", "too few points"},
    {PointsCoincide, "points_coincide", "all points coincide"},
    {ImplausibleExtent, "implausible_extent", "the extent is implausible for a scan"},
    {PointsCollinear, "points_collinear", "all points lie on a line, which cannot determine a pose"},
    {PointsCoplanar, "points_coplanar", "all points lie on a plane, which cannot determine a pose"},
    {UnitsDiffer, "units_differ", "the units of the scans probably differ"},
};

const Entry* Find(ERefusal code)
{
    for (const Entry& entry : Entries)
        if (entry.code == code) return &entry;
    return nullptr; // the code is that of a refinement
}

} // namespace

const char* CodeOf(ERefusal code)
{
    const Entry* entry = Find(code);
    return entry != nullptr ? entry->identifier : CodeOf(static_cast<EICPResultType>(code));
}

const char* TextOf(ERefusal code)
{
    const Entry* entry = Find(code);
    return entry != nullptr ? entry->text : CauseOf(static_cast<EICPResultType>(code));
}

Refusal::Refusal(ERefusal code_) : code(code_), text(TextOf(code_)) {}

} // namespace prereg
