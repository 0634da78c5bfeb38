"""Scans from and to files, thinned, with normals, and in every form that a call takes."""

import pathlib

import numpy as np
import pytest

import voalgorithms as vo
from conftest import ROOT, read_ply

HIPPO = ROOT / "examples/data/hippo1.ply"


def sphere(n=3000, seed=1):
    directions = np.random.default_rng(seed).normal(size=(n, 3))
    return directions / np.linalg.norm(directions, axis=1, keepdims=True)


def test_reads_what_the_files_hold(tmp_path):
    scan, (points, normals) = vo.read(HIPPO), read_ply("hippo1.ply")
    np.testing.assert_array_equal(scan.points, points)
    np.testing.assert_array_equal(scan.normals, normals)
    assert len(scan) == len(points) and scan.name == str(HIPPO) and scan.viewpoint is None
    assert not scan.points.flags.writeable and np.shares_memory(scan.points, scan.points)
    text = tmp_path / "m\udce9tres.xyz"  # a name that is not UTF-8
    text.write_text("0.001 0.002 0.003\nnan 0 1\n")
    scan = vo.read(str(text), "m", [0, 0, 0.5])
    np.testing.assert_allclose(scan.points, [[1, 2, 3], [np.nan, 0, 1000]], rtol=1e-6)
    assert scan.normals is None and scan.viewpoint.tolist() == [0, 0, 500] and scan.name == str(text)


def test_writes_what_it_reads(tmp_path, hippo):
    path = tmp_path / "scan.ply"
    for scan in (hippo[0], np.hstack(hippo[0]), vo.read(HIPPO)):  # every form of a scan
        vo.write(path, scan)
        again = vo.read(path)
        np.testing.assert_array_equal(again.points, hippo[0][0])
        np.testing.assert_array_equal(again.normals, hippo[0][1])
    vo.write(path, hippo[0][0], unit="m")
    assert vo.read(path).normals is None
    np.testing.assert_allclose(vo.read(path, unit="m").points, hippo[0][0], rtol=1e-6)
    np.testing.assert_allclose(vo.read(path).points, hippo[0][0] / 1000, rtol=1e-6)
    pose = vo.Trafo.from_quaternion([1, 0.1, 0.2, -0.1], [1, 2, 3])
    moved = vo.Scan(*hippo[0], viewpoint=[4, 5, 6]).transformed(pose)
    np.testing.assert_allclose(moved.points, pose.apply(hippo[0][0]), atol=1e-5)
    np.testing.assert_allclose(moved.normals, pose.rotate(hippo[0][1]))
    np.testing.assert_allclose(moved.viewpoint, pose.apply([[4, 5, 6]])[0], rtol=1e-6)


@pytest.mark.parametrize(
    "call, error, message",
    [
        (lambda d: vo.read(d / "none.ply"), FileNotFoundError, "none.ply"),
        (lambda d: vo.read(d), IsADirectoryError, ""),
        (lambda d: vo.read(3), TypeError, "path: must be a str or path-like, is int"),
        (lambda d: vo.read(d / "bad.xyz"), ValueError, 'bad.xyz:2: not a number: "two"'),
        (lambda d: vo.read(d / "bad.doc"), ValueError, "bad.doc: unknown file type"),
        (lambda d: vo.read(d / "bad.xyz", unit="inch"), ValueError, "unit: must be mm, cm or m, is inch"),
        (lambda d: vo.read(d / "bad.xyz", viewpoint=[1, 2]), ValueError, "viewpoint: needs 3 values"),
        (lambda d: vo.write(d / "no/a.ply", np.eye(3)), FileNotFoundError, "a.ply"),
        (lambda d: vo.write(d / "a.xyz", np.eye(3)), ValueError, "path: must end in .ply, is .*a.xyz"),
        (lambda d: vo.write(d / "full.ply", np.eye(3)), OSError, "No space left on device: .*full.ply"),
        (lambda d: vo.write(d / "a.ply", np.eye(3), np.eye(3)[1:]), ValueError, "normals: has 2 rows, but the points has 3"),
        (lambda d: vo.Scan(np.eye(3), name=3), TypeError, "name: must be a str, is int"),
        (lambda d: vo.voxel_down(np.eye(3), None, 0), ValueError, "edge: must be greater than 0"),
        (lambda d: vo.voxel_down(np.eye(3) * np.nan, None, 1), ValueError, "points: must be finite"),
    ],
)
def test_files_that_cannot_be_used_are_named(tmp_path, call, error, message):
    (tmp_path / "bad.xyz").write_text("1 2 3\n1 two 3\n")
    (tmp_path / "bad.doc").write_text("")
    (tmp_path / "full.ply").symlink_to("/dev/full")
    with pytest.raises(error, match=message):
        call(tmp_path)


def test_thins_to_the_means_of_cubes(hippo):
    points, normals = hippo[0]
    thin, along = vo.voxel_down(points, normals, 2.5)
    cube = lambda p: np.floor(p.astype(float) / (2.5 * 1.0001))  # noqa: E731  the library's slack
    cubes, member, count = np.unique(cube(points), axis=0, return_inverse=True, return_counts=True)
    means, sums = np.zeros((2, len(cubes), 3))
    np.add.at(means, member.ravel(), points)
    np.add.at(sums, member.ravel(), normals)
    order = np.lexsort(cube(thin).T[::-1])
    np.testing.assert_allclose(thin[order], means / count[:, None], atol=1e-4)
    np.testing.assert_allclose(along[order], sums / np.linalg.norm(sums, axis=1, keepdims=True), atol=1e-4)
    alone, none = vo.voxel_down(points, None, 2.5)
    assert none is None
    np.testing.assert_array_equal(alone, thin)


def test_estimated_normals_follow_the_viewpoint(tmp_path):
    directions = sphere()
    outwards = vo.estimate_normals(10 * directions + [100, 0, 0])
    assert ((outwards * directions).sum(1) > 0.98).all()
    inwards = vo.estimate_normals((10 * directions).astype(np.float32), viewpoint=[0.0, 0, 0], neighbours=20)
    assert ((inwards * directions).sum(1) < -0.98).all()
    scan = vo.Scan(10 * directions, viewpoint=[0, 0, 0])  # each scan has its own, before that of the call
    assert ((vo.compute_features(scan).normals * directions).sum(1) < -0.98).all()
    both = vo.register(scan, 10 * directions, viewpoint=[1000, 0, 0], uiNumPolygons=1)
    towards = (both.flt.normals * ([1000, 0, 0] - both.flt.points)).sum(1)
    assert ((both.fix.normals * directions).sum(1) < -0.98).all() and (towards > 0).mean() > 0.98


def test_doubtful_scans_warn():
    points = 10 * sphere(600)
    spoilt = points.copy()
    spoilt[0, 0] = np.nan
    with pytest.warns(UserWarning, match="fix: dropped 1 of 600 points: their coordinates are not finite"):
        vo.derive_settings(spoilt, points)
    with pytest.warns(UserWarning, match="flt: ignored the normals"):
        vo.icp(points, (points, np.zeros_like(points)))
    with pytest.warns(UserWarning, match=r"^small.ply: its largest extent is .* mm; is the unit right\?$"):
        vo.compute_features(vo.Scan(points / 1000, name="small.ply"))
