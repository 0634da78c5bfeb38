// Advice and headings, by the stable codes of the data.

/** By code of a refinement's outcome: what happened, and what to look at. */
export const CAUSES = {
    initial_overlap_too_small: ["Hardly any point of FLT had a partner in FIX at the start.", "That is normal for many proposals, because most are wrong. If it is true of nearly all, check the unit and whether the scans overlap."],
    too_few_inliers_initially: ["Points were paired at the start, but the pairs did not agree with each other.", "As above."],
    too_many_mismatches_iterating: ["Paired normals pointed away from each other during the refinement.", "Check that the normals of both scans point outwards (--viewpoint)."],
    overlap_too_small_iterating: ["The scans drifted apart during the refinement.", "The overlap may be small; more polygons help (uiNumPolygons)."],
    too_few_inliers_iterating: ["Too few pairs agreed during the refinement.", "As above."],
    too_far_away: ["The refined pose lies farther from its start than allowed.", "Raise dMaxRotationDistance or dMaxMovement, or start closer."],
    too_many_mismatches: ["Points lay close together, but their surroundings or their normals disagreed.", "Check the normals; clutter around the object counts, too (dMinSmallBigRatio, dMaxErrorRatio)."],
    overlap_too_small: ["Too small a part of FLT lies on FIX.", "If the scans overlap only a little, lower dMinOverlapRatio (or dMinOverlapArea, if you set it) and search longer (--preset thorough)."],
    rmse_too_large: ["The surfaces lie on each other, but not closely enough.", "If the scans differ by more than their own noise, raise dMaxRMSE."],
};

/** What to do about a starting pose that was refused, by code. */
export const ADVICE_ON_START = {
    overlap_too_small: "Too small a part of FLT lies on FIX at this pose. Check the starting pose, or lower dMinOverlapRatio (or dMinOverlapArea, if you set it).",
    initial_overlap_too_small: "The starting pose brings hardly any point of FLT close to FIX. It must map FLT into FIX, in the files' unit, and be accurate to a few point spacings. Without --start, voalgo searches for a pose.",
};

const FEATURES = "Features are found where the surface is curved. Lower uiMinCurvatureQuality, or bring dFeatureRadius closer to the size of the details.";
const OVERLAP = "The scans may overlap too little. Lower dMinOverlapRatio (or dMinOverlapArea, if you set it) and search longer (--preset thorough).";
const INLIERS = "Too few pairs of points agree on one pose. Draw more samples (uiNumSamples), or raise dInlierScaling.";
const NORMALS = "Normals disagree where the surfaces meet, or points near the other surface have no partner on it: the tests below show which. Check that the normals of both scans point outwards (--viewpoint).";

/** What to do about a refusal, by code. */
export const ADVICE = {
    too_few_features_in_fix: FEATURES,
    too_few_features_in_flt: FEATURES,
    ambiguous: "The object looks the same from several sides. Provide a starting pose (--start), or scans that show what breaks the symmetry.",
    not_stable: "The overlap is nearly flat, round or cylindrical: the scans could slide along it or rotate on it. Scan more of its surroundings.",
    few_flat_faces: "Three flat faces determine a pose, but they fit on every corner of the same angles. Scan more of the object's other faces, or provide a starting pose (--start).",
    too_few_proposals_agree: "A correct pose is usually found several times. Search longer: --preset thorough, or a larger uiNumPolygons.",
    shared_surface_too_small: "The scans may overlap too little: take one between them, or search longer (--preset thorough).",
    surfaces_disagree: "Where both scans have surface, it should be the same. A wrong pose, clutter or a changed object violates that.",
    misfit_too_large: "The surfaces do not lie closely enough on each other. Look at the distances below: an even spread means noise, a pattern means a wrong pose or a deformed object.",
    seen_empty: "Points of one scan float in front of what the other one saw. If the scans were merged or the object moved between them, say from where each was taken (--viewpoint); otherwise the pose is wrong.",
    rmse_too_large: "The surfaces do not lie closely enough on each other. Look at the distances below: an even spread means noise (raise dMaxRMSE), a pattern means a wrong pose or a deformed object.",
    initial_overlap_too_small: OVERLAP,
    overlap_too_small_iterating: OVERLAP,
    overlap_too_small: OVERLAP,
    too_few_inliers_initially: INLIERS,
    too_few_inliers_iterating: INLIERS,
    too_far_away: "Raise dMaxRotationDistance or dMaxMovement, or start closer.",
    too_many_mismatches_iterating: NORMALS,
    too_many_mismatches: NORMALS,
    no_pose_accepted: "Look at the causes below. If most proposals lack overlap, check the units and whether the scans overlap at all; then search longer (--preset thorough).",
};

export const STAGES = {
    search: "Search",
    verification: "Verification: evidence for the refined pose",
    grading: "Grading: the search's limits for the refined pose",
    "all results": "Comparison of the results",
};

export const TIMES = {
    reading: "Reading and preparing the scans", settings: "Deriving the settings", features: "Computing features",
    search: "Search, refinement, verification", report: "Preparing this report",
};
