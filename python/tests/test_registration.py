import json
import math
import signal
import subprocess
import threading
import time

import numpy as np
import pytest

import voalgorithms as vo
from conftest import ROOT


def cube(n=12):
    """Surface of a cube, 10 mm: enough points and shape for the checks of a scan."""
    side = np.linspace(0, 10, n)
    grid = np.stack(np.meshgrid(side, side, side), -1).reshape(-1, 3)
    return grid[((grid == 0) | (grid == 10)).any(1)]


def test_equals_the_command_line_tool(hippo, tool, tmp_path):
    command = [tool, "register", "hippo1.ply", "hippo2.ply", "--json", "--quiet"]
    told = json.loads(subprocess.run(command, cwd=ROOT / "examples/data", check=True, capture_output=True).stdout)
    found = vo.register(*hippo)
    assert found and found.best and found.reason == ""
    mine = found.to_dict()
    assert len(mine["results"]) == len(told["results"]) > 0
    for a, b in zip(mine["results"], told["results"]):
        for key, value in b.items():
            # The tool prints as many digits as single precision has.
            np.testing.assert_array_equal(np.float32(a[key]), np.float32(value), err_msg=key)
    assert mine["statistics"] == told["statistics"]
    assert mine["settings"]["config"] == told["settings"]["config"]
    assert mine["settings"]["verification"] == told["settings"]["verification"]
    assert all(test["outcome"] == "passed" for test in found.best.tests)


def test_every_form_of_a_scan_gives_the_same_pose(hippo):
    (points, normals), flt = hippo
    best = vo.register((points, normals), flt).best
    wide = np.asfortranarray(np.hstack([points, normals]).astype(np.float64))
    assert vo.register(wide, flt, threads=1).best.to_dict() == best.to_dict()
    derived = vo.derive_settings((points, normals), flt)
    features = {
        "dFeatureRadius": derived["config"]["dFeatureRadius"],
        "working_spacing": derived["workingSpacing"],
    }
    sets = [vo.compute_features(*scan, **features) for scan in hippo]
    assert vo.register(*sets).best.to_dict() == best.to_dict()
    # Without normals the pose is another one in the last digits, but not by more than the scans allow.
    estimated = vo.register(points, flt[0]).best
    assert estimated.trafo.rotation_distance(best.trafo) < math.radians(1)
    start = vo.register((points, normals), flt, start=best.trafo)
    assert start and start.best.trafo.rotation_distance(best.trafo) < math.radians(0.2)


def test_refusals_say_why(hippo):
    fix, flt = hippo
    refused = vo.register(fix, flt, icpConfig={"dMaxRMSE": 1e-4}, uiNumPolygons=100)
    assert not refused and refused.best is None and refused.reason
    assert refused.settings["config"]["uiNumPolygons"] == 100
    assert refused.settings["verification"]["icpConfig"]["dMaxRMSE"] == 1e-4
    assert sum(f["count"] for f in refused.statistics["failures"]) == refused.statistics["uiNumFailed"]
    far = np.eye(4)
    far[:3, 3] = 1000
    judged = vo.register(fix, flt, start=far)
    assert not judged and judged.refused[0].objection == judged.reason
    assert judged.refused[0].tests[0]["outcome"] == "failed"


def test_icp_brings_a_moved_copy_back(hippo):
    fix = points, normals = hippo[0]
    moved = vo.Trafo.from_quaternion([1, 0.002, 0.004, -0.002], [0.5, -0.3, 0.2])
    flt = moved.apply(points), moved.rotate(normals)
    wide = dict(dPositionTolerance=1.2, dInitialQueryRadiusScaling=3, dMinQueryRadius=1.2, dSmallBigQueryRadiusScaling=2)
    result = vo.icp(fix, flt, config={"uiMaxNumIterations": 30}, **wide)
    assert result and result.resultType == 0 and result.fStop_OverlapRatio > 0.99
    np.testing.assert_allclose((result.trafo @ moved).matrix, np.eye(4), atol=2e-3)
    held = vo.icp(fix, flt, dMaxMovement=1e-3, **wide)
    assert not held and held.resultType == 6


def test_interrupt_stops_the_search(hippo):
    (points, normals), flt = hippo
    stages = []

    def press(stage, share):
        stages.append(share if stage == "search" else -1.0)
        if len(stages) == 4:
            threading.Timer(0.02, signal.raise_signal, [signal.SIGINT]).start()

    endless = dict(uiNumPolygons=10_000_000, uiTrafoClusteringQuorum=0)
    before = signal.signal(signal.SIGINT, signal.default_int_handler)  # jobs in the background start with it ignored
    try:
        with pytest.raises(KeyboardInterrupt):
            vo.register((points, normals), flt, progress=press, **endless)
    finally:
        signal.signal(signal.SIGINT, before)
    assert 0 <= max(stages) < 0.01, "the search went on"
    with pytest.raises(ZeroDivisionError):
        vo.register((points, normals), flt, progress=lambda stage, share: 1 / 0)


def test_other_threads_run_meanwhile(hippo):
    ticks = []
    done = threading.Event()

    def tick():
        while not done.is_set():
            ticks.append(time.monotonic())
            time.sleep(0.001)

    thread = threading.Thread(target=tick)
    thread.start()
    begin = time.monotonic()
    vo.compute_features(*hippo[0], dFeatureRadius=12.0, working_spacing=0.0, threads=1)
    end = time.monotonic()
    done.set()
    thread.join()
    # A call that held the lock would let through what the interpreter did before and after it alone.
    inside = [t for t in ticks if begin + 0.25 * (end - begin) < t < begin + 0.75 * (end - begin)]
    assert inside


@pytest.mark.parametrize(
    "call, error, message",
    [
        (lambda p: vo.register(p[:, :2], p), ValueError, r"fix: shape must be \(n, 3\), is \(\d+, 2\)"),
        (lambda p: vo.register(p, p.astype(int)), TypeError, "flt: dtype must be float32 or float64, is int64"),
        (lambda p: vo.register(p, p.astype(">f8")), TypeError, "flt: dtype .* is >f8"),
        (lambda p: vo.register((p, p[1:]), p), ValueError, r"fix\[1\]: has \d+ rows, but the points has \d+"),
        (lambda p: vo.register(p * [1, 1, 0], p), ValueError, "fix: all points lie on a plane"),
        (lambda p: vo.register(p, p[::100]), ValueError, "flt: too few points"),
        (lambda p: vo.register(p, p * 25.4), ValueError, "units of the files probably differ by 25.4"),
        (lambda p: vo.register(p, p, preset="fast"), ValueError, "preset: must be auto"),
        (lambda p: vo.register(p, p, uiNumPolygon=3), TypeError, "uiNumPolygon: no such setting; .* uiNumPolygons"),
        (lambda p: vo.register(p, p, config={"icpConfig": {"dMaxRMS": 1}}), TypeError, r"config\.icpConfig\.dMaxRMSE"),
        (lambda p: vo.register(p, p, dMaxRMSE=1.0), TypeError, "dMaxRMSE: belongs inside icpConfig"),
        (lambda p: vo.register(p, p, uiNumPolygons=-1), ValueError, "uiNumPolygons: must lie between 0 and 4294967295"),
        (lambda p: vo.register(p, p, uiNumPolygons=1.5), TypeError, "uiNumPolygons: must be a whole number, is float"),
        (lambda p: vo.register(p, p, dFeatureRadius="2"), TypeError, "dFeatureRadius: must be a number, is str"),
        (lambda p: vo.register(p, p, dFeatureRadius=0), ValueError, "dFeatureRadius.*greater than 0"),
        (lambda p: vo.register(p, p, start=2 * np.eye(4)), ValueError, "start: the last row"),
        (lambda p: vo.Trafo(np.diag([1.0, 1, -1, 1])), ValueError, "matrix: .* reflection"),
        (lambda p: vo.Trafo(np.diag([2.0, 1, 1, 1])), ValueError, "matrix: .* no rotation"),
        (lambda p: vo.compute_features(p, dFeatureRadius=1e-3), ValueError, "points: none becomes a feature"),
        (
            lambda p: vo.PointSet(p, p, feature_points=p, feature_normals=p, features=np.zeros((3, 33))),
            ValueError,
            r"features: has 3 rows, but feature_points has \d+",
        ),
        (lambda p: vo.estimate_normals(p * np.nan), ValueError, "points: must be finite"),
    ],
)
def test_wrong_arguments_are_named(call, error, message):
    with pytest.raises(error, match=message):
        call(cube())


def test_doubtful_scans_warn():
    points = cube()
    points[0, 0] = np.nan
    with pytest.warns(UserWarning, match="fix: dropped 1 of .* not finite"):
        vo.derive_settings(points, cube())


def test_point_sets_show_their_own_memory(hippo):
    (points, normals), _ = hippo
    fix = vo.compute_features(points, normals)
    np.testing.assert_array_equal(fix.points, points)
    assert fix.features.shape == (len(fix.feature_points), 33) and len(fix.features) > 100
    assert np.shares_memory(fix.points, fix.points) and not fix.points.flags.writeable
    view = fix.points
    copy = vo.PointSet.from_document(vo.Document.from_bytes(fix.to_document().to_bytes()))
    arrays = ["points", "normals", "feature_points", "feature_normals", "features"]
    again = vo.PointSet(*(getattr(fix, a) for a in arrays[:2]), **{a: getattr(fix, a) for a in arrays[2:]})
    for name in arrays:
        np.testing.assert_array_equal(getattr(copy, name), getattr(fix, name))
        np.testing.assert_array_equal(getattr(again, name), getattr(fix, name))
    shift = np.eye(4)
    shift[:3, 3] = [1, 2, 3]
    np.testing.assert_allclose(fix.transformed(shift).feature_points, fix.feature_points + shift[:3, 3], atol=1e-4)
    whole = fix.overlap_area(fix, np.eye(4), search_radius=0.1, area_radius=2.4)
    half = vo.PointSet(points[:: 2], normals[::2], feature_points=points[:1], feature_normals=normals[:1], features=fix.features[:1])
    assert 0.4 * whole < fix.overlap_area(half, np.eye(4), 0.1, 2.4) < 0.6 * whole
    del fix  # the view keeps the set alive
    np.testing.assert_array_equal(view, points)


def test_estimated_normals_of_a_sphere_point_outwards():
    rng = np.random.default_rng(1)
    directions = rng.normal(size=(3000, 3))
    directions /= np.linalg.norm(directions, axis=1, keepdims=True)
    outwards = vo.estimate_normals(10 * directions + [100, 0, 0])
    assert ((outwards * directions).sum(1) > 0.98).all()
    inwards = vo.estimate_normals((10 * directions).astype(np.float32), viewpoint=[0.0, 0, 0], neighbours=20)
    assert ((inwards * directions).sum(1) < -0.98).all()


def test_trafo_is_the_matrix():
    rng = np.random.default_rng(2)
    for _ in range(20):
        a, b = (vo.Trafo.from_quaternion(rng.normal(size=4), 100 * rng.normal(size=3)) for _ in "ab")
        p = 50 * rng.normal(size=(5, 3))
        np.testing.assert_allclose((a @ b).matrix, a.matrix @ b.matrix, atol=1e-3)
        np.testing.assert_allclose(a.apply(p), p @ a.matrix[:3, :3].T + a.matrix[:3, 3], atol=1e-3)
        np.testing.assert_allclose(a.rotate(p), p @ a.matrix[:3, :3].T, atol=1e-3)
        np.testing.assert_allclose((a.inverse() @ a).matrix, np.eye(4), atol=1e-3)
        assert vo.Trafo(np.asarray(a)) == a and vo.Trafo(a.matrix.astype(np.float32)) == a
    cosine = (np.trace(a.matrix[:3, :3].T @ b.matrix[:3, :3]) - 1) / 2
    assert a.rotation_distance(b.matrix) == pytest.approx(math.acos(cosine), abs=1e-3)
