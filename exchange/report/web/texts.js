// Advice and headings, by the stable codes of the data.

/** By code of a refinement's outcome: what happened, and what to look at. */
export const CAUSES = {
    initial_overlap_too_small: ["Hardly any point of FLT found a partner in FIX at the start.", "Many of these are normal: most proposals are wrong. If all are, check the unit and that the scans share a part."],
    too_few_inliers_initially: ["There were pairs at the start, but they did not agree with each other.", "As above."],
    too_many_mismatches_iterating: ["Normals pointed away from each other during the refinement.", "Check that both scans' normals point outwards (--viewpoint)."],
    overlap_too_small_iterating: ["The scans drifted apart during the refinement.", "The part that they share may be small; more polygons help (uiNumPolygons)."],
    too_few_inliers_iterating: ["Too few pairs agreed during the refinement.", "As above."],
    too_far_away: ["The refined pose lies farther from its start than allowed.", "Raise dMaxRotationDistance or dMaxMovement, or start closer."],
    too_many_mismatches: ["Points lay close to each other, but their surroundings or their normals disagree.", "Check the normals; clutter around the object counts too (dMinSmallBigRatio, dMaxErrorRatio)."],
    overlap_too_small: ["Too small a part of FLT lies on FIX.", "If the scans share little, lower dMinOverlapRatio (or dMinOverlapArea, if you set it) and search longer (--preset thorough)."],
    rmse_too_large: ["The surfaces lie on each other, but not closely enough.", "If the scans differ by more than their own noise, raise dMaxRMSE."],
};

/** What to do about a starting pose that was refused, by code. */
export const ADVICE_ON_START = {
    initial_overlap_too_small: "The starting pose brings hardly any point of FLT close to FIX. It must map FLT into FIX, in the files' unit, and be right to a few point spacings; without --start a pose is searched for.",
};

const FEATURES = "Features are taken where the surface bends. Lower uiMinCurvatureQuality, or set dFeatureRadius closer to the size of the details.";
const OVERLAP = "The scans may share too little. Lower dMinOverlapRatio (or dMinOverlapArea, if you set it) and search longer (--preset thorough).";
const NORMALS = "Normals disagree where the surfaces meet, or points lack a partner although others are close: the tests below show which. Check that both scans' normals point outwards (--viewpoint).";

/** What to do about a refusal, by code. */
export const ADVICE = {
    too_few_features_in_fix: FEATURES,
    too_few_features_in_flt: FEATURES,
    ambiguous: "The object looks alike from several sides. Give a starting pose (--start), or scans that show what breaks the symmetry.",
    not_stable: "The shared part is nearly flat, round or cylindrical: any pose along it would fit. Scan more of its surroundings.",
    too_few_proposals_agree: "Right poses are usually found several times. Search longer: --preset thorough, or a larger uiNumPolygons.",
    neighbourhoods_differ: "Where one scan has points the other should have them too. Clutter, another state of the object or a wrong pose break that.",
    rmse_too_large: "The surfaces do not lie closely enough on each other. Look at the distances below: an even spread means noise (raise dMaxRMSE), a pattern means a wrong pose or a deformed object.",
    initial_overlap_too_small: OVERLAP,
    overlap_too_small_iterating: OVERLAP,
    overlap_too_small: OVERLAP,
    too_many_mismatches_iterating: NORMALS,
    too_many_mismatches: NORMALS,
    sides_disagree: "Seen from FIX and from FLT the refinement ends in different places: the shape does not decide between them.",
    no_pose_accepted: "Look at the causes below: if most lack overlap, check the units and whether the scans share a part at all; then search longer (--preset thorough).",
};

export const STAGES = {
    search: "Search",
    "FLT on FIX": "Verification, FLT laid on FIX",
    "FIX on FLT": "Verification, FIX laid on FLT",
    "both sides": "Verification, both sides together",
    "all results": "Results against each other",
};

export const TIMES = {
    reading: "Reading, checks, normals", settings: "Measuring the scans", features: "Features",
    search: "Search, refinement, verification", report: "Data of this report",
};
