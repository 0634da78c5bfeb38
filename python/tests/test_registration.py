import json
import math
import re
import subprocess

import numpy as np
import pytest

import voalgorithms as vo
from conftest import ROOT


def page_data(path):
    """What a report shows, but for the times."""
    data = json.loads(re.search(r'<script type="application/json" id="data">(.*?)</script>', path.read_text(), re.S)[1])
    assert data.pop("seconds")["search"] > 0
    return without_checksums(data)


def without_checksums(data):
    """The module does not know which files its arrays come from."""
    for scan in ("fix", "flt"):
        data[scan].pop("sha1", None)
    return data


@pytest.mark.parametrize("settings", [{}, {"icpConfig": {"dMaxRMSE": 0.1}}], ids=["found", "refused"])
def test_equals_the_command_line_tool(tool, tmp_path, monkeypatch, settings):
    """Every figure, word and code of the tool's JSON and of its report, from the same files."""
    monkeypatch.chdir(ROOT / "examples/data")
    (tmp_path / "config.json").write_text(json.dumps(settings))
    command = [tool, "register", "hippo1.ply", "hippo2.ply", "--json", "--quiet", "--report", tmp_path / "tool.html"]
    run = subprocess.run([*command, "--config", tmp_path / "config.json"], capture_output=True)
    told = without_checksums(json.loads(run.stdout))
    assert told.pop("seconds")["search"] > 0
    found = vo.register(vo.read("hippo1.ply"), vo.read("hippo2.ply"), **settings)
    assert found.found == (run.returncode == 0) == (not settings)
    mine = found.to_dict()
    assert len(mine["results"]) == len(told["results"])
    mine["results"] = [{key: mine_[key] for key in tools} for mine_, tools in zip(mine["results"], told["results"])]
    assert {key: mine[key] for key in told} == told
    found.write_report(tmp_path / "mine.html")
    assert page_data(tmp_path / "mine.html") == page_data(tmp_path / "tool.html")
    if found:
        np.testing.assert_array_equal(np.float32(found.pose), np.float32(found.best.trafo.matrix))
        np.testing.assert_array_equal(np.float32(told["results"][0]["pose"]), np.float32(found.best.pose))
        assert (found.overlap, found.rmse) == (found.best.overlap, found.best.rmse)
        assert (found.best.overlap, found.best.rmse) == (found.best.fStop_OverlapRatio, found.best.fStop_RMSE)
        assert {test["outcome"] for test in found.best.tests} == {"passed"}
        assert found.reason == found.reason_code == found.best.objection_code == ""
    else:
        assert found.best is found.pose is found.overlap is found.rmse is None and found.reason


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
        own = (found.flt.ellipsoid + found.flt_origin).astype(np.float32)
        np.testing.assert_allclose(found.best.ellipsoid, vo.Trafo(found.best.trafo).apply(own), atol=1e-3)


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
        result = vo.icp(fix, flt, uiNumSamples=2000, uiMaxNumIterations=40)
        assert result and result.overlap > 0.95 and result.rmse < 0.1
        assert (result.trafo @ moved).rotation_distance(vo.Trafo()) < math.radians(0.3)
        assert np.linalg.norm((result.trafo @ moved).matrix[:3, 3]) < 0.05
        assert all(test["outcome"] == "passed" for test in result.tests)
    held = vo.icp(fix, flt, config={"dMaxMovement": 1e-3})
    assert not held and held.resultType == 6 and held.objection_code == "too_far_away"


def test_every_form_of_a_scan_gives_the_same_pose(hippo):
    (points, normals), flt = hippo
    best = vo.register((points, normals), flt).best
    wide = np.asfortranarray(np.hstack([points, normals]).astype(np.float64))
    np.testing.assert_allclose(vo.register(wide, flt, threads=1).pose, best.pose, atol=1e-6)
    derived = vo.derive_settings((points, normals), flt)
    features = {
        "dFeatureRadius": derived["config"]["dFeatureRadius"],
        "working_spacing": derived["workingSpacing"],
    }
    sets = [vo.compute_features(*scan, **features) for scan in hippo]
    assert vo.register(*sets).best.trafo.rotation_distance(best.trafo) < math.radians(1)  # in the sets' own frame
    for shift in (1e7, 5e8):  # doubles keep their digits
        far = vo.register((points.astype(np.float64) + shift, normals), (flt[0].astype(np.float64) - shift, flt[1])).pose
        moved = (flt[0].astype(np.float64) - shift) @ far[:3, :3].T + far[:3, 3] - shift
        np.testing.assert_allclose(moved, flt[0] @ best.pose[:3, :3].T + best.pose[:3, 3], atol=1e-3)
    # Without normals the pose is another one in the last digits, but not by more than the scans allow.
    estimated = vo.register(points, flt[0]).best
    assert estimated.trafo.rotation_distance(best.trafo) < math.radians(1)
    start = vo.register((points, normals), flt, start=best.trafo)
    assert start and start.best.trafo.rotation_distance(best.trafo) < math.radians(0.2)
    again = vo.register(*sets, start=best.trafo)
    np.testing.assert_allclose(again.pose, start.pose, atol=1e-3)
    assert np.shares_memory(again.fix.points, sets[0].points)


def test_refusals_say_why(hippo, tmp_path):
    fix, flt = hippo
    refused = vo.register(fix, flt, icpConfig={"dMaxRMSE": 1e-4}, uiNumPolygons=100)
    assert not refused and refused.best is None and refused.reason and refused.reason_code == "no_pose_accepted"
    assert refused.settings["config"]["uiNumPolygons"] == 100
    assert refused.settings["verification"]["icpConfig"]["dMaxRMSE"] == 1e-4
    failures = refused.statistics["failures"]
    assert sum(f["count"] for f in failures) == refused.statistics["uiNumFailed"]
    assert "rmse_too_large" in {f["code"] for f in failures}
    far = np.eye(4)
    far[:3, 3] = 1000
    judged = vo.register(fix, flt, start=far)
    assert not judged and judged.refused[0].objection == judged.reason
    assert judged.refused[0].objection_code == judged.reason_code == "initial_overlap_too_small"
    assert (judged.refused[0].tests[0]["code"], judged.refused[0].tests[0]["outcome"]) == ("pairs_at_start", "failed")
    judged.write_report(tmp_path / "far.html")
    assert page_data(tmp_path / "far.html")["poses"][0]["objectionCode"] == judged.reason_code


@pytest.mark.parametrize(
    "spoil, code, reason",
    [
        (lambda p: p[:0], "no_finite_points", "flt: none of its 0 points has finite coordinates"),
        (lambda p: p * np.nan, "no_finite_points", "flt: none of its 6104 points has finite coordinates"),
        (lambda p: p[:1], "points_coincide", "flt: "),
        (lambda p: p * [1, 1, 0], "points_coplanar", "flt: all points lie on a plane"),
        (lambda p: p[::100], "too_few_points", "flt: too few points"),
        (lambda p: p * 25.4, "units_differ", "the units of the scans probably differ by a factor of 25.4"),
    ],
)
@pytest.mark.filterwarnings("ignore::UserWarning")
def test_scans_that_determine_no_pose_are_refused(hippo, tmp_path, spoil, code, reason):
    refused = vo.register(hippo[0], spoil(hippo[0][0]))
    assert not refused and refused.reason_code == code and refused.reason.startswith(reason)
    assert refused.fix is refused.flt is None and refused.results == refused.refused == []
    with pytest.raises(ValueError, match="there is nothing to report: "):
        refused.write_report(tmp_path / "none.html")


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
