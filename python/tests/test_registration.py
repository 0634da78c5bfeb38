import json
import math
import subprocess

import numpy as np
import pytest

import voalgorithms as vo
from conftest import ROOT


# Settings of a refinement for scans with a spacing of half a millimetre and more.
WIDE = dict(dPositionTolerance=1.2, dInitialQueryRadiusScaling=3, dMinQueryRadius=1.2, dSmallBigQueryRadiusScaling=2)


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


def test_finds_the_true_pose(hippo):
    # The pose in which the best of 600 random starts of a trimmed ICP met, refined from point to plane.
    truth = vo.Trafo(
        [
            [0.733095445, 0.0144436232, -0.679972389, -10.4898119],
            [-0.0467721201, 0.998478209, -0.0292170468, -0.448751659],
            [0.678515613, 0.0532226342, 0.732655385, -3.74867268],
            [0, 0, 0, 1],
        ]
    )
    fix, (points, normals) = hippo
    rng = np.random.default_rng(14)
    for _ in range(3):
        turn = vo.Trafo.from_quaternion(rng.normal(size=4), 50 * rng.normal(size=3))
        found = vo.register(fix, (turn.apply(points), turn.rotate(normals)))
        assert found and found.best.clusterSize >= 3
        pose = found.best.trafo @ turn
        assert pose.rotation_distance(truth) < math.radians(1)
        assert np.linalg.norm(pose.apply(points) - truth.apply(points), axis=1).mean() < 0.6
        # The figures are those of the pose: every point within reach of fix counts, measured along the normal.
        moved = pose.apply(points)
        near = np.linalg.norm(fix[0][:, None] - moved[::20], axis=2)
        reach = found.settings["verification"]["icpConfig"]["dPositionTolerance"]
        share = (near.min(0) <= reach).mean()
        assert abs(share - found.best.fStop_OverlapRatio) < 0.1
        np.testing.assert_allclose(found.best.ellipsoid, vo.Trafo(found.best.trafo).apply(found.flt.ellipsoid), atol=1e-3)


def test_refines_independent_samples_of_one_body():
    rng = np.random.default_rng(16)
    scans = []
    for _ in range(2):
        d = rng.normal(size=(6000, 3))
        d /= np.linalg.norm(d, axis=1, keepdims=True)
        n = d / [20, 15, 10]
        scans.append((d * [20, 15, 10], n / np.linalg.norm(n, axis=1, keepdims=True)))
    fix, (points, normals) = scans
    for _ in range(5):
        moved = vo.Trafo.from_quaternion([1, *(0.02 * rng.normal(size=3))], 0.5 * rng.normal(size=3))
        flt = moved.apply(points), moved.rotate(normals)
        result = vo.icp(fix, flt, uiNumSamples=2000, uiMaxNumIterations=40, **WIDE)
        assert result and result.fStop_OverlapRatio > 0.95 and result.fStop_RMSE < 0.1
        assert (result.trafo @ moved).rotation_distance(vo.Trafo()) < math.radians(0.3)
        assert np.linalg.norm((result.trafo @ moved).matrix[:3, 3]) < 0.05
        assert all(test["outcome"] == "passed" for test in result.tests)


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
    again = vo.register(*sets, start=best.trafo)
    assert again.best == start.best and np.shares_memory(again.fix.points, sets[0].points)


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
    result = vo.icp(fix, flt, config={"uiMaxNumIterations": 30}, **WIDE)
    assert result and result.resultType == 0 and result.fStop_OverlapRatio > 0.99
    np.testing.assert_allclose((result.trafo @ moved).matrix, np.eye(4), atol=2e-3)
    held = vo.icp(fix, flt, dMaxMovement=1e-3, **WIDE)
    assert not held and held.resultType == 6


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
