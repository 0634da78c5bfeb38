"""How the module behaves in a program: copies, processes, threads, signals, logs, and what tools read of it."""

import ast
import copy
import inspect
import multiprocessing
import pathlib
import pickle
import signal
import sys
import threading
import time

import numpy as np
import pytest

import voalgorithms as vo
from test_registration import page_data


@pytest.fixture(scope="module")
def found(hippo):
    return vo.register(*hippo)


def test_results_go_through_pickles_and_copies(hippo, found, tmp_path):
    arrays = ["points", "normals", "feature_points", "feature_normals", "features", "ellipsoid"]
    refused = vo.register(*hippo, icpConfig={"dMaxRMSE": 1e-4}, uiNumPolygons=100)
    for again in (lambda x: pickle.loads(pickle.dumps(x)), copy.copy, copy.deepcopy):
        for registration in (found, refused):
            twin = again(registration)
            assert twin.to_dict() == registration.to_dict() and bool(twin) == bool(registration)
            assert repr(twin) == repr(registration) and twin.results == registration.results
            registration.write_report(tmp_path / "first.html")
            twin.write_report(tmp_path / "twin.html")
            assert page_data(tmp_path / "twin.html") == page_data(tmp_path / "first.html")
            for name in arrays:
                np.testing.assert_array_equal(getattr(twin.flt, name), getattr(registration.flt, name))
        best = again(found.best)
        assert best == found.best and best.trafo == found.best.trafo and str(best) == str(found.best)
        np.testing.assert_array_equal(best.ellipsoid, found.best.ellipsoid)
        far = vo.Trafo.from_quaternion([1, 0, 0, 0], [1e4, 0, 0])
        lost = vo.icp(*hippo, far)  # some figures are infinite
        assert not lost and again(lost) == lost and again(lost).objection == lost.objection
        at_fault = vo.register(hippo[0], hippo[0][0][:3])
        assert again(at_fault).to_dict() == at_fault.to_dict() and again(at_fault).fix is None
        scan = vo.Scan(hippo[0][0], viewpoint=[1, 2, 3], name="µ")
        np.testing.assert_array_equal(again(scan).points, scan.points)
        assert again(scan).normals is None and again(scan).viewpoint.tolist() == [1, 2, 3] and again(scan).name == "µ"
        document = vo.Document({"a": np.int8(1), "b": {"c": "µ"}})
        assert again(document) == document and again(found.best.trafo) == found.best.trafo
        fit = vo.nls_solve(lambda p: p - [1.0, 2.0], [0.0, 0.0])
        assert bool(again(fit)) == bool(fit) and repr(again(fit)) == repr(fit)
        np.testing.assert_array_equal(again(fit).parameters, fit.parameters)
        np.testing.assert_array_equal(again(fit).covariance, fit.covariance)
        clusters = vo.mean_shift(hippo[0][0][:50], 9.0)
        for name in ("labels", "centres", "sizes", "dunn_index"):
            np.testing.assert_array_equal(getattr(again(clusters), name), getattr(clusters, name))
    with pytest.raises(ValueError, match=r"pose: shape must be \(4, 4\)"):
        vo.Trafo.__new__(vo.Trafo).__setstate__(np.zeros((0, 4)))


def judge(fix, flt, start):
    return vo.register(fix, flt, start=start)


def test_other_processes_hand_results_back(found):
    poses = [found.best.trafo, vo.Trafo.from_quaternion([1, 0, 0, 0], [1000, 0, 0])]
    with multiprocessing.get_context("spawn").Pool(1) as pool:
        good, bad = pool.starmap(judge, [(found.fix, found.flt, pose) for pose in poses])
    assert good and good.best == judge(found.fix, found.flt, poses[0]).best
    assert not bad and bad.reason_code == "initial_overlap_too_small"


def test_anything_may_be_compared(found):
    for thing in (found, found.best, found.fix, vo.Trafo(), vo.Document({"a": 1})):
        assert thing == thing and thing != None and thing != 3 and not thing == "text"  # noqa: E711
    assert vo.Document({"a": 1}) != vo.Document({"a": 2}) and vo.Trafo() != found.best.trafo
    assert found.best == found.results[0] and (vo.Trafo() == np.eye(4)).all()


LARGE = np.random.default_rng(1).normal(size=(200_000, 3))
NORMALS = LARGE[::-1].copy()
EDGES = np.random.default_rng(2).integers(0, len(LARGE), (len(LARGE), 2))


@pytest.mark.parametrize(
    "call",
    [
        lambda p, n: vo.register((p, n), (p, n), uiNumPolygons=50),
        lambda p, n: vo.icp((p, n), (p, n)),
        lambda p, n: vo.derive_settings((p, n), (p, n)),
        lambda p, n: vo.compute_features(p, n, threads=1),
        lambda p, n: vo.estimate_normals(p),
        lambda p, n: vo.voxel_down(p, n, 1.0),
        lambda p, n: vo.Scan(LARGE).transformed(np.eye(4)),
        lambda p, n: vo.mean_shift(p[::10], 5.0),
        lambda p, n: vo.mean_shift_3d(p[::10], 5.0),
        lambda p, n: vo.strong_components(len(EDGES), EDGES),
        lambda p, n: vo.shortest_path(len(EDGES), EDGES, LARGE[:, 0] ** 2, 0, 1),
        lambda p, n: vo.DisjointSets(len(EDGES)).unite_pairs(EDGES),
        lambda p, n: vo.procrustes(LARGE, LARGE),
        lambda p, n: vo.point_to_plane(LARGE, LARGE, NORMALS),
        lambda p, n: vo.convert_colours(LARGE, "Lab", "sRGB"),
        lambda p, n: vo.colour_difference(LARGE, NORMALS),
        lambda p, n: vo.rle_uncompress(vo.rle_compress(LARGE)),
        lambda p, n: vo.lp_solve(LARGE[:2000], np.ones(2000), [1.0, 1, 1]),
        lambda p, n: vo.d_optimal_design(LARGE[:300], 60),
    ],
)
def test_other_threads_run_meanwhile(hippo, call):
    """A call that kept the interpreter's lock would let none of another thread's steps in: nothing else takes the lock
    away from this thread within hours."""
    count, done, before = 0, False, sys.getswitchinterval()

    def run():
        nonlocal count
        while not done:
            count += 1
            time.sleep(0)

    thread = threading.Thread(target=run)
    points, normals = (np.ascontiguousarray(a) for a in hippo[0])
    thread.start()
    try:
        sys.setswitchinterval(10_000)
        for _ in range(100):  # the other thread may have been kept waiting by the machine
            start = count
            call(points, normals)
            if count > start:
                break
    finally:
        sys.setswitchinterval(before)
        done = True
        thread.join()
    assert count > start


@pytest.mark.parametrize("settings", [{}, {"dMaxPolygonDiameter": -1.0}], ids=["diameter", "clusters"])
def test_interrupt_stops_the_search(hippo, settings):
    stages = []

    def press(stage, share):
        stages.append(share if stage == "search" else -1.0)
        if len(stages) == 4:
            threading.Timer(0.02, signal.raise_signal, [signal.SIGINT]).start()

    endless = dict(uiNumPolygons=10_000_000, uiTrafoClusteringQuorum=0, **settings)
    before = signal.signal(signal.SIGINT, signal.default_int_handler)  # jobs in the background start with it ignored
    try:
        with pytest.raises(KeyboardInterrupt):
            vo.register(*hippo, progress=press, **endless)
    finally:
        signal.signal(signal.SIGINT, before)
    assert 0.3 <= max(stages) < 0.31, "the search went on"
    with pytest.raises(ZeroDivisionError):
        vo.register(*hippo, progress=lambda stage, share: 1 / 0)


def test_progress_tells_stages_and_cancels(hippo):
    shares = (0.0, 0.3, 0.3, 0.475, 0.65, 0.825, 1.0)
    steps = [("features" if i < 2 else "search", pytest.approx(share)) for i, share in enumerate(shares)]
    settings = dict(uiNumPolygons=200, uiTrafoClusteringQuorum=0)
    told = []
    whole = vo.register(*hippo, progress=lambda *step: told.append(step), **settings)
    assert told == steps and whole.reason_code != "cancelled"
    for last in range(6):
        told.clear()

        def until(*step):
            told.append(step)
            return [True, 0, None][len(told) % 3] if len(told) <= last else False

        cancelled = vo.register(*hippo, progress=until, **settings)
        assert told == steps[: last + 1]
        assert not cancelled and cancelled.reason == cancelled.reason_code == "cancelled"
        assert cancelled.best is None and (cancelled.fix is None) == (last < 2)


def test_the_library_speaks_through_logging(caplog, capfd):
    with pytest.raises(ValueError):
        vo.procrustes(np.full((5, 3), np.nan), np.zeros((5, 3)))
    record = caplog.records[0]
    assert (record.name, record.levelname) == ("voalgorithms.KEP.PreRegistration", "ERROR")
    assert "Inf/NaN in Procrustes input" in record.getMessage()
    caplog.clear()
    flat = np.stack(np.meshgrid(np.arange(30.0), np.arange(30.0), [0.0]), -1).reshape(-1, 3)
    with pytest.raises(ValueError, match="points: none becomes a feature"):
        vo.compute_features(flat, threads=2)
    assert {r.levelname for r in caplog.records} == {"WARNING"}
    assert capfd.readouterr().err == ""


def members(node):
    return {n.name: n for n in node.body if isinstance(n, ast.FunctionDef)}


def parameters(function):
    """[(name, default)] of positional and of keyword parameters; defaults as text."""
    a = function.args
    defaults = [None] * (len(a.args) - len(a.defaults)) + a.defaults
    pairs = [zip(a.args, defaults), zip(a.kwonlyargs, a.kw_defaults)]
    return [[(p.arg, d and ast.unparse(d)) for p, d in each] for each in pairs], a.kwarg is not None


def compiled(function):
    """The same of a compiled function, whose first line of help is its signature."""
    return parameters(ast.parse(f"def {function.__doc__.splitlines()[0]}: ...").body[0])


def test_stubs_say_what_there_is():
    """Checkers believe the stubs: names, order, kinds and defaults of the parameters are those of the module."""
    tree = ast.parse(pathlib.Path(vo.__file__).with_name("__init__.pyi").read_text())
    classes = {n.name: members(n) for n in tree.body if isinstance(n, ast.ClassDef) and not n.name.startswith("_")}
    functions = {n.name: n for n in tree.body if isinstance(n, ast.FunctionDef)}
    assert set(classes) | set(functions) == set(vo.__all__)
    for name, stated in classes.items():
        own = {m for m in vars(getattr(vo, name)) if not m.startswith("_")}
        assert {m for m in stated if not m.startswith("_")} == own, name
        for member in own:
            there = getattr(getattr(vo, name), member)
            is_property = "property" in {ast.unparse(d) for d in stated[member].decorator_list}
            assert isinstance(there, property) == is_property and inspect.getdoc(there), (name, member)
            if not is_property:
                assert compiled(there) == parameters(stated[member]), (name, member)
    for name, node in functions.items():
        assert compiled(getattr(vo, name)) == parameters(node), name
    for name in vo.__all__:
        there = getattr(vo, name)
        assert inspect.getdoc(there) and there.__module__ == "voalgorithms", name
