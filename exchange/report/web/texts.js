// What the figures mean and what to change, in words.

/** By result type of a refinement: what happened, and what to look at. */
export const CAUSES = {
    1: ["Hardly a point of FLT found a partner in FIX at the start.", "Many of these are normal: most proposals are wrong ones. If all are, check the unit and that the scans share a part."],
    2: ["There were pairs at the start, but they did not agree with each other.", "As above."],
    3: ["Normals pointed away from each other while the pose was refined.", "Check that both scans' normals point outwards (--viewpoint)."],
    4: ["The scans drifted apart while the pose was refined.", "The part that they share may be small; more polygons help (uiNumPolygons)."],
    5: ["Too few pairs agreed while the pose was refined.", "As above."],
    6: ["The refined pose lies farther from its start than allowed.", "Raise dMaxRotationDistance or dMaxMovement, or start nearer."],
    7: ["Points lay near each other, but their surroundings differ or their normals disagree.", "Check the normals; clutter around the object counts too (dMinSmallBigRatio, dMaxErrorRatio)."],
    8: ["Too small a part of FLT lies on FIX.", "If the scans share little, lower dMinOverlapRatio (or a dMinOverlapArea that was set) and search longer (--preset thorough)."],
    9: ["The surfaces lie on each other, but not closely enough.", "If the scans are noisier than their points tell, raise dMaxRMSE."],
};

/** What to do about a given pose that was refused, by result type of its refinement. */
export const ADVICE_ON_START = {
    1: "The given pose brings hardly a point of FLT near FIX. It must map FLT into FIX, in the files' unit, and be right to a few point spacings; without --start a pose is searched for.",
};

/** What to do about a refusal, by words in its reason. */
export const ADVICE = [
    [/too few features/, "Features are taken where the surface bends. Lower uiMinCurvatureQuality, or give a dFeatureRadius nearer to the size of the details."],
    [/ambiguous/, "The object looks alike from several sides. Give a starting pose (--start), or scans that show what breaks the symmetry."],
    [/slide or turn/, "The shared part is nearly flat, round or cylindrical: any pose along it would fit. Scan more of what surrounds it."],
    [/too few proposals agree/, "Right poses are usually found several times. Search longer: --preset thorough, or a larger uiNumPolygons."],
    [/neighbourhoods of the scans differ/, "Where one scan has points the other should have them too. Clutter, another state of the object or a wrong pose break that."],
    [/RMSE/, "The surfaces do not lie closely enough on each other. Look at the distances below: an even spread means noise (raise dMaxRMSE), a pattern means a wrong pose or a bent object."],
    [/overlap/, "The scans may share too little. Lower dMinOverlapRatio, or a dMinOverlapArea that was set, and search longer (--preset thorough)."],
    [/mismatch/, "Normals disagree where the surfaces meet, or points lack a partner though others lie near: the tests below tell which. Check that both scans' normals point outwards (--viewpoint)."],
    [/different poses/, "Seen from FIX and from FLT the refinement ends in different places: the shape does not decide between them."],
    [/no proposed pose passed/, "Look at the causes below: if most lack overlap, check the units and whether the scans share a part at all; then search longer (--preset thorough)."],
];

/** Meaning and unit of each setting. */
export const SETTINGS = {
    workingSpacing: ["mm", "Clouds are thinned to this spacing for the features; 0: not thinned"],
    uiNumPolygons: ["", "Polygons tried at most"],
    uiNumPolygonVertices: ["", "Vertices of a polygon"],
    uiNumNeighbors: ["", "Similar features looked up for each vertex"],
    dMaxPolygonDiameter: ["mm", "Largest diameter of a polygon", "vertices from clusters"],
    dMaxPolygonVertexError: ["mm", "Largest error of a side's length"],
    uiMinCurvatureQuality: ["", "Smallest curvature quality of a feature point, 0 to 100"],
    dFeatureRadius: ["mm", "Radius of the features"],
    dFeatureClusteringBandwidth: ["", "Bandwidth of the feature clustering", "k-means"],
    dTrafoClusteringBandwidth: ["mm", "Poses this near count as one"],
    dOrientationClusteringBandwidth: ["rad", "Orientations this near count as one", "off"],
    uiTrafoClusteringQuorum: ["", "Proposals that must agree to end the search early"],
    uiMaxNumIterations: ["", "Iterations at most"],
    dMinQueryRadius: ["mm", "Smallest pairing radius"],
    dInitialQueryRadiusScaling: ["", "First pairing radius in multiples of dPositionTolerance"],
    uiNumSamples: ["", "Points drawn per pass"],
    dPositionTolerance: ["mm", "Radius of the final evaluation"],
    dNormalAngleTolerance: ["rad", "Largest angle between the normals of a pair"],
    dMaxErrorRatio: ["", "Mismatched normals per match, at most", "off"],
    dMaxRotationDistance: ["rad", "Turn from the start, at most", "off"],
    dMaxMovement: ["mm", "Movement from the start, at most", "off"],
    dMinOverlapRatio: ["", "Overlap ratio, at least"],
    dMaxRMSE: ["mm", "Root mean square error of the inliers, at most"],
    dMinOverlapArea: ["mm2", "Overlap area, at least", "off"],
    dMinSmallBigRatio: ["", "Pairs in the small radius per point in the big one, at least", "off"],
    dSmallBigQueryRadiusScaling: ["", "Big radius in multiples of dMinQueryRadius"],
    dInlierScaling: ["", "Inlier threshold in robust standard deviations"],
    strictness: ["", "Small/big limit rises by this per roughness of RMSE"],
    roughness: ["mm", "Measured roughness of the scans"],
    maxTurn: ["rad", "Turn between both sides' poses, at most"],
    minStability: ["", "Hold of the overlap's shape, at least"],
    minClusterSize: ["", "Proposals that must agree on a pose"],
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
