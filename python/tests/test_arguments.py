"""What goes in: every form that counts as the same, what is refused and under which name, what is not copied."""

import tracemalloc

import numpy as np
import pytest

import voalgorithms as vo


def cube(n=12):
    """Surface of a cube, 10 mm: enough points and shape for the checks of a scan."""
    side = np.linspace(0, 10, n)
    grid = np.stack(np.meshgrid(side, side, side), -1).reshape(-1, 3)
    return grid[((grid == 0) | (grid == 10)).any(1)]


def forms(array):
    """The same numbers in every way that an array can hold them; single precision holds them all."""
    padded = np.full((2 * len(array), 5), np.nan)
    padded[::2, 1:4] = array
    locked = array.copy()
    locked.flags.writeable = False
    unaligned = np.frombuffer(b"x" + array.astype(np.float32).tobytes(), np.float32, array.size, 1)
    return {
        "float64": array.astype(np.float64),
        "float32": array.astype(np.float32),
        "Fortran order": np.asfortranarray(array),
        "with gaps": padded[::2, 1:4],
        "backwards": array[::-1].copy()[::-1],
        "read-only": locked,
        "unaligned": unaligned.reshape(array.shape),
        "list": array.tolist(),
        "list of rows": list(array),
    }


def egg(n=600):
    """Points on an ellipsoid, in numbers that single precision holds."""
    directions = np.random.default_rng(11).normal(size=(n, 3))
    directions /= np.linalg.norm(directions, axis=1, keepdims=True)
    return (directions * [20, 15, 10]).astype(np.float32).astype(np.float64)


POINTS = egg()
HISTOGRAMS = np.random.default_rng(12).uniform(size=(len(POINTS), 33))
NORMALS = vo.estimate_normals(POINTS)
POSE = vo.Trafo.from_quaternion([1, 0.1, 0.2, -0.1], [1, 2, 3])
SET = vo.PointSet(POINTS, NORMALS, feature_points=POINTS, feature_normals=NORMALS, features=HISTOGRAMS)


@pytest.mark.parametrize(
    "call",
    [
        POSE.apply,
        POSE.rotate,
        vo.estimate_normals,
        lambda a: vo.compute_features(a, NORMALS, dFeatureRadius=8, working_spacing=0, uiMinCurvatureQuality=0).features,
        lambda a: vo.PointSet(a, a, feature_points=a, feature_normals=a, features=HISTOGRAMS).feature_points,
        lambda a: vo.icp((a, NORMALS), (a, NORMALS), POSE).to_dict()["fStart_RMSE"],
        lambda a: vo.derive_settings(a, a)["workingSpacing"],
        lambda a: vo.mean_shift(a, 9.0).labels,
        lambda a: vo.mean_shift_3d(a, 9.0).centres,
        lambda a: vo.procrustes(a, POSE.apply(POINTS)),
        lambda a: vo.point_to_plane(POINTS, a, NORMALS),
        lambda a: vo.convert_colours(a, "Lab", "DIN99o"),
        lambda a: vo.colour_difference(POINTS[::-1], a),
        lambda a: vo.d_optimal_design(a, 8)[0],
        lambda a: vo.lp_solve(a, np.ones(len(a)), [1.0, 0, 0]),
    ],
)
def test_every_form_of_the_same_numbers_is_the_same(call):
    expected = call(POINTS)
    assert np.isfinite(expected).all()
    for form, array in forms(POINTS).items():
        np.testing.assert_allclose(call(array), expected, rtol=0, atol=1e-6, err_msg=form)
    for whole in ([[1, 2, 3], [4, 5, 7]], [(1, 2, 3), (4, 5, 7)]):
        np.testing.assert_array_equal(vo.Trafo().apply(whole), whole)  # whole numbers in lists count as numbers


NOT_ARRAYS = [
    (None, TypeError, "must be an array of float32 or float64, is NoneType"),
    ("points.ply", TypeError, "must be an array of float32 or float64, is str"),
    ({"x": 1.0}, TypeError, "must be an array of float32 or float64, is dict"),
    ([[1.0, 2.0], [3.0]], TypeError, "must be an array of float32 or float64, is list"),
    (np.zeros((9, 3), int), TypeError, "dtype must be float32 or float64, is int64"),
    (np.zeros((9, 3), ">f4"), TypeError, "dtype must be float32 or float64, is >f4"),
    (np.zeros((9, 3), np.float16), TypeError, "dtype must be float32 or float64, is float16"),
    (np.zeros((9, 3), complex), TypeError, "dtype must be float32 or float64, is complex128"),
    (np.zeros((9, 3), object), TypeError, "dtype must be float32 or float64, is object"),
    (np.zeros((9, 4)), ValueError, r"shape must be \(n, 3\), is \(9, 4\)"),
    (np.zeros(9), ValueError, r"shape must be \(n, 3\), is \(9,\)"),
    (np.zeros((1, 9, 3)), ValueError, r"shape must be \(n, 3\), is \(1, 9, 3\)"),
    ([], ValueError, r"shape must be \(n, 3\), is \(0,\)"),
]


@pytest.mark.parametrize("wrong, error, message", NOT_ARRAYS, ids=lambda value: str(value)[:20])
@pytest.mark.parametrize(
    "name, call",
    [
        ("fix", lambda a: vo.register(a, POINTS)),
        ("flt", lambda a: vo.register(cube(), a)),
        (r"flt\[1\]", lambda a: vo.icp(POINTS, (np.zeros((9, 3)), a if a is not None else "x"))),
        ("points", vo.estimate_normals),
        ("points", vo.compute_features),
        ("points", lambda a: vo.mean_shift_3d(a, 1.0)),
        ("points", POSE.apply),
        ("vectors", POSE.rotate),
        ("normals", lambda a: vo.PointSet(POINTS, a, feature_points=POINTS, feature_normals=POINTS, features=POINTS)),
        ("b", lambda a: vo.procrustes(POINTS, a)),
        ("normals", lambda a: vo.point_to_plane(POINTS, POINTS, a)),
        ("colours", lambda a: vo.convert_colours(a, "Lab", "XYZ")),
        ("a", lambda a: vo.colour_difference(a, POINTS)),
    ],
)
def test_what_is_no_n_by_3_array_is_refused_by_its_name(name, call, wrong, error, message):
    if name == r"flt\[1\]":
        message = message.replace("NoneType", "str")
    with pytest.raises(error, match=f"^{name}: {message}"):
        call(wrong)


@pytest.mark.parametrize(
    "call, error, message",
    [
        (lambda p: vo.register((p, p[1:]), p), ValueError, r"fix\[1\]: has \d+ rows, but the points has \d+"),
        (lambda p: vo.register((p, p, p), p), ValueError, r"fix: a tuple must be \(points, normals\), has 3 members"),
        (lambda p: vo.derive_settings(p * [1, 1, 0], p), ValueError, "fix: all points lie on a plane"),
        (lambda p: vo.icp(p, p[:0]), ValueError, "flt: none of its 0 points has finite coordinates"),
        (lambda p: vo.register(p, p, preset="fast"), ValueError, "preset: must be one of auto, .* is fast"),
        (lambda p: vo.register(p, p, preset=None), TypeError, "preset: must be a str, is NoneType"),
        (lambda p: vo.register(p, p, threads=-1), ValueError, "threads: must lie between 0 and 4294967295, is -1"),
        (lambda p: vo.register(p, p, progress=3), TypeError, "progress: must be callable, is int"),
        (lambda p: vo.register(p, p, viewpoint=[1, 2]), ValueError, "viewpoint: needs 3 values, has 2"),
        (lambda p: vo.register(p, p, viewpoint=[0, 0, np.nan]), ValueError, "viewpoint: must be finite"),
        (lambda p: vo.register(p, p, config="fine"), TypeError, "config: must be a dict, is str"),
        (lambda p: vo.register(p, p, uiNumPolygon=3), TypeError, "uiNumPolygon: no such setting; .* uiNumPolygons"),
        (lambda p: vo.register(p, p, config={"icpConfig": {"dMaxRMS": 1}}), TypeError, r"config\.icpConfig\.dMaxRMSE"),
        (lambda p: vo.register(p, p, dMaxRMSE=1.0), TypeError, "dMaxRMSE: belongs inside icpConfig"),
        (lambda p: vo.register(p, p, uiNumPolygons=-1), ValueError, "uiNumPolygons: must lie between 0 and 4294967295"),
        (lambda p: vo.register(p, p, uiNumPolygons=1.5), TypeError, "uiNumPolygons: must be a whole number, is float"),
        (lambda p: vo.register(p, p, uiNumPolygons=True), TypeError, "uiNumPolygons: must be a whole number, is bool"),
        (lambda p: vo.register(p, p[:9], dFeatureRadius=0), ValueError, "dFeatureRadius.*greater than 0"),
        (lambda p: vo.register(p, p, dMaxPolygonDiameter=np.nan), ValueError, "dMaxPolygonDiameter: must not be NaN"),
        (lambda p: vo.icp(p, p, dPositionTolerance=np.nan), ValueError, "dPositionTolerance: must not be NaN"),
        (lambda p: vo.icp(p, p, uiNumSamples=0), ValueError, "uiNumSamples: must be at least 1"),
        (lambda p: vo.icp(p, p, icpConfig={}), TypeError, "icpConfig: no such setting"),
        (lambda p: vo.icp(p, p, reference="here"), TypeError, "reference: must be an array"),
        (lambda p: vo.config_to_document({"uiNumNeighbors": "x"}), TypeError, r"config\.uiNumNeighbors: must be a whole"),
        # Poses: no other matrix may pass for one.
        (lambda p: vo.register(p, p, start=2 * np.eye(4)), ValueError, "start: the last row"),
        (lambda p: vo.icp(p, p, np.full((4, 4), np.nan)), ValueError, "start: the last row"),
        (lambda p: vo.Trafo(np.eye(3)), ValueError, r"matrix: shape must be \(n, 4\), is \(3, 3\)"),
        (lambda p: vo.Trafo(np.diag([1.0, 1, -1, 1])), ValueError, "matrix: .* reflection"),
        (lambda p: vo.Trafo(np.diag([2.0, 1, 1, 1])), ValueError, "matrix: .* not a rotation"),
        (lambda p: vo.Trafo(np.eye(4) + np.diag([np.nan], 3)), ValueError, "matrix: is not finite"),
        (lambda p: vo.Trafo(np.eye(4) + np.diag([1e300], 3)), ValueError, "matrix: is not finite"),
        (lambda p: SET.transformed(None), TypeError, "pose: must be an array .* is NoneType"),
        (lambda p: POSE @ p, ValueError, r"other: shape must be \(n, 4\)"),
        (lambda p: vo.Trafo.from_quaternion([0, 0, 0, 0], [0, 0, 0]), ValueError, "quaternion: has no direction"),
        (lambda p: vo.Trafo.from_quaternion([1, 0, 0, 0], [0, 0, np.inf]), ValueError, "translation: must be finite"),
        # Point sets and features.
        (lambda p: vo.estimate_normals(p * np.nan), ValueError, "points: must be finite"),
        (lambda p: vo.estimate_normals(p, neighbours=2), ValueError, "neighbours: must lie between 3 and"),
        (lambda p: vo.compute_features(p, dFeatureRadius=1e-3), ValueError, "points: none becomes a feature"),
        (lambda p: vo.compute_features(p, dFeatureRadius=np.inf), ValueError, "dFeatureRadius: .* finite, is inf"),
        (lambda p: vo.compute_features(p, working_spacing=np.nan), ValueError, "working_spacing: must not be less than"),
        (lambda p: vo.compute_features(p, uiMinCurvatureQuality=101), ValueError, "uiMinCurvatureQuality: must lie .*100"),
        (lambda p: SET.overlap_area(SET, POSE, -1, 1), ValueError, "search_radius: must be greater than 0"),
        (lambda p: vo.PointSet.from_document(vo.Document({"a": 1})), ValueError, "document: holds no points"),
        (
            lambda p: vo.PointSet(p, p, feature_points=p, feature_normals=p, features=np.zeros((3, 33))),
            ValueError,
            r"features: has 3 rows, but feature_points has \d+",
        ),
        # Numbers.
        (lambda p: vo.mean_shift(p[:0], 1), ValueError, "points: needs at least one"),
        (lambda p: vo.mean_shift(p, np.nan), ValueError, "bandwidth: must be greater than 0 and finite, is nan"),
        (lambda p: vo.mean_shift_3d(p, 1e-300), ValueError, "bandwidth: must be greater than 0"),
        (lambda p: vo.procrustes(p[:2], p[:2]), ValueError, "a: needs at least 3 points, has 2"),
        (lambda p: vo.procrustes(p, p, np.ones((len(p), 1))), ValueError, r"weights: shape must be \(n,\)"),
        (lambda p: vo.point_to_plane(p, p[1:], p), ValueError, r"dst: has \d+ rows, but src has \d+"),
        (lambda p: vo.convert_colours(p, None, "Lab"), TypeError, "source: must be a str, is NoneType"),
        (lambda p: vo.convert_colours(p, "sRGB", "CMYK"), ValueError, "no conversion from sRGB to CMYK; .* sRGB to Lab"),
        (lambda p: vo.rle_compress("text"), TypeError, "data: must be bytes .* is str"),
        (lambda p: vo.rle_compress(np.zeros(9, np.uint8)[::2]), TypeError, "data: .* without gaps, is ndarray"),
        (lambda p: vo.rle_compress(b"a", escape=256), ValueError, "escape: must lie between -1 and 255, is 256"),
        (lambda p: vo.lp_solve(p, np.ones(3), np.ones(3)), ValueError, r"b: has 3 rows, but A has \d+"),
        (lambda p: vo.lp_solve(p, np.ones(len(p)), [1.0]), ValueError, "c: has 1 values, but A has 3 columns"),
        (lambda p: vo.d_optimal_design(p, 2), ValueError, "size: must lie between 3 and"),
        (lambda p: vo.Document({1: 2}), TypeError, "values: the names in a document are str, not int"),
    ],
)
def test_wrong_arguments_are_named(call, error, message):
    with pytest.raises(error, match=message):
        call(cube())


def test_arrays_in_the_right_layout_are_not_copied():
    """What Python allocates meanwhile: nothing of the input's size, save where it must be converted."""

    def allocated(call, *arrays):
        tracemalloc.start()
        try:
            call(*arrays)
            return tracemalloc.get_traced_memory()[1] / arrays[0].nbytes
        finally:
            tracemalloc.stop()

    rng = np.random.default_rng(9)
    a, weights, few = rng.normal(size=(100_000, 3)), np.ones(100_000), rng.normal(size=(4, 100_000)).astype(np.float32)
    normals = a[::-1].copy()
    assert allocated(vo.procrustes, a, a, weights) < 0.1 < 0.9 < allocated(vo.procrustes, np.asfortranarray(a), a)
    assert allocated(vo.point_to_plane, a, a, normals, weights) < 0.1
    assert allocated(vo.colour_difference, a, a) < 0.4  # the answer is a third
    assert allocated(vo.convert_colours, a, "Lab", "XYZ") < 1.1 < 1.9 < allocated(
        vo.convert_colours, np.asfortranarray(a), "Lab", "XYZ"
    )
    assert allocated(lambda f: vo.mean_shift(f, 1e4), few) < 0.3  # the one centre is a quarter
    assert allocated(vo.rle_compress, np.zeros(1_000_000, np.uint8)) < 0.1
