import ast
import datetime
import inspect
import json
import pathlib

import numpy as np
import pytest

import voalgorithms as vo


def rotation(rng):
    q, r = np.linalg.qr(rng.normal(size=(3, 3)))
    q *= np.sign(np.diag(r))
    return q * np.sign(np.linalg.det(q))


def kabsch(a, b):
    """The same fit by singular values."""
    u, _, vt = np.linalg.svd((a - a.mean(0)).T @ (b - b.mean(0)))
    return (u @ np.diag([1, 1, np.linalg.det(u @ vt)]) @ vt).T


def test_fits_against_singular_values_and_known_motions():
    rng = np.random.default_rng(3)
    for _ in range(20):
        a = rng.normal(size=(30, 3))
        R = rotation(rng)
        b = a @ R.T + [5, 6, 7] + 0.05 * rng.normal(size=a.shape)
        fit = vo.procrustes(a, np.asfortranarray(b))
        np.testing.assert_allclose(fit[:3, :3], kabsch(a, b), atol=1e-9)
        np.testing.assert_allclose(fit[:3, 3], b.mean(0) - fit[:3, :3] @ a.mean(0), atol=1e-9)
        np.testing.assert_array_equal(vo.procrustes(a, b, np.ones(30)), fit)
    near = vo.Trafo.from_quaternion([1, 0.05, -0.1, 0.08], [0.3, 0.2, -0.4]).matrix
    normals = rng.normal(size=a.shape)
    plane = vo.point_to_plane(a, a @ near[:3, :3].T + near[:3, 3], normals)
    np.testing.assert_allclose(plane, near, atol=1e-6)
    line = np.outer(np.arange(5.0), [0, 0, 1])
    with pytest.raises(ValueError, match="do not tell one rotation"):
        vo.procrustes(line, line)
    with pytest.raises(ValueError, match="weights: has 2 rows, but a has 5"):
        vo.procrustes(line, line, [1.0, 2.0])


@pytest.mark.parametrize("cluster", [vo.mean_shift, vo.mean_shift_3d])
def test_mean_shift_finds_separate_blobs(cluster):
    rng = np.random.default_rng(4)
    centres = np.array([[0, 0, 0], [20, 0, 0], [0, 30, 0]])
    points = np.repeat(centres, 40, axis=0) + rng.normal(size=(120, 3))
    found = cluster(points, 6.0)
    assert len(found) == 3 and sorted(found.sizes) == [40, 40, 40] and found.dunn_index > 1
    for k in range(3):
        label = set(found.labels[40 * k : 40 * (k + 1)])
        assert len(label) == 1
        np.testing.assert_allclose(found.centres[label.pop()], points[40 * k : 40 * (k + 1)].mean(0), atol=0.05)
    with pytest.raises(ValueError, match="points: must be finite"):
        cluster(points * np.inf, 6.0)
    with pytest.raises(ValueError, match="invalid bandwidth"):
        cluster(points, 0.0)


def test_nls_against_linear_algebra_and_known_minima():
    rng = np.random.default_rng(7)
    A, sigma = rng.normal(size=(40, 3)), rng.uniform(0.5, 2, 40)
    b = A @ [1.0, -2, 3] + sigma * rng.normal(size=40)
    fit = vo.nls_solve(lambda p: A @ p - b, [1.0, 1, 1], sigma=sigma, jacobian=lambda p: A)
    N = A.T @ (A / sigma[:, None] ** 2)
    np.testing.assert_allclose(fit.parameters, np.linalg.solve(N, A.T @ (b / sigma**2)), atol=1e-6)
    np.testing.assert_allclose(fit.covariance, np.linalg.inv(N), rtol=1e-6)
    assert fit and fit.result.endswith("(++)")
    plain = vo.nls_solve(lambda p: A @ p - b, [1.0, 1, 1])
    r = A @ plain.parameters - b
    np.testing.assert_allclose(plain.covariance, r @ r / 37 * np.linalg.inv(A.T @ A), rtol=1e-4)
    assert plain.rmse == pytest.approx(np.sqrt(r @ r / 40))
    # With the sum held, by the bordered normal equations; the derivatives are projected.
    K = np.block([[A.T @ A, np.ones((3, 1))], [np.ones((1, 3)), 0]])
    held = np.linalg.solve(K, [*(A.T @ b), 5.0])[:3]
    for jacobian in (None, lambda p: A):
        sum5 = vo.nls_solve(lambda p: A @ p - b, [1.0, 1, 1], jacobian=jacobian, equalities=([[1.0, 1, 1]], [5.0]))
        np.testing.assert_allclose(sum5.parameters, held, atol=1e-6)

    def valley(p):
        return np.array([10 * (p[1] - p[0] ** 2), 1 - p[0]])

    np.testing.assert_allclose(vo.nls_solve(valley, [-1.2, 1.0]).parameters, [1, 1], atol=1e-6)
    corner = {"start": [0.01, 0.0], "bounds": [[0.0, 10], [0.0, 10]]}
    np.testing.assert_allclose(vo.nls_solve(lambda p: p - [3, 4], **corner).parameters, [3, 4], atol=1e-9)
    assert vo.nls_solve(lambda p: p - [3, 4], **corner, refinement=False).parameters[1] == 0
    below = vo.nls_solve(valley, [-1.2, 1.0], bounds=[[-np.inf, 0.5], [-np.inf, np.inf]])
    np.testing.assert_allclose(below.parameters, [0.5, 0.25], atol=1e-6)
    with pytest.raises(ZeroDivisionError):
        vo.nls_solve(lambda p: 1 / 0, [1.0])
    with pytest.raises(ValueError, match=r"jacobian: shape must be \(n, 2\)"):
        vo.nls_solve(valley, [1.0, 2.0], jacobian=lambda p: np.eye(3))
    with pytest.raises(ValueError, match="sigma: needs 2 values, has 3"):
        vo.nls_solve(valley, [1.0, 2.0], sigma=[1.0, 1, 1])
    with pytest.raises(ValueError, match="equalities: contradict"):
        vo.nls_solve(valley, [1.0, 2.0], equalities=([[1.0, 0], [1, 0]], [1.0, 2]))


def test_run_lengths_come_back():
    rng = np.random.default_rng(5)
    mask = np.repeat(rng.integers(0, 4, 500, dtype=np.uint8), rng.integers(1, 2000, 500))
    for move_to_front in (False, True):
        coded = vo.rle_compress(mask, move_to_front=move_to_front)
        assert len(coded) < len(mask) // 50
        assert vo.rle_uncompress(coded, move_to_front=move_to_front) == mask.tobytes()
        assert vo.rle_uncompress(vo.rle_compress(b"", move_to_front=move_to_front)) == b""
    assert vo.rle_compress(b"aaaaab", escape=0) == b"\0\0\4ab"
    with pytest.raises(ValueError, match="more than max_size, 100 bytes"):
        vo.rle_uncompress(vo.rle_compress(mask), max_size=100)
    with pytest.raises(ValueError, match="ends within a token"):
        vo.rle_uncompress(b"\0\0\4")
    with pytest.raises(TypeError, match="data: must be bytes"):
        vo.rle_compress(mask[::2])
    with pytest.raises(ValueError, match="invalid escape symbol"):
        vo.rle_compress(b"a", escape=256)


def test_colours():
    white = vo.convert_colours(np.array([[255, 255, 255], [0, 0, 0]], np.uint8), "sRGB", "Lab")
    np.testing.assert_allclose(white, [[100, 0, 0], [0, 0, 0]], atol=0.02)
    rgb = np.random.default_rng(6).uniform(20, 200, (100, 3))
    for space in ("XYZ", "Lab", "DIN99o"):
        np.testing.assert_allclose(
            vo.convert_colours(vo.convert_colours(rgb, "sRGB", space), space, "sRGB"), rgb, atol=0.01
        )
    via = vo.convert_colours(vo.convert_colours(rgb, "RGB", "XYZ"), "XYZ", "Lab")
    np.testing.assert_allclose(vo.convert_colours(rgb, "RGB", "Lab"), via, atol=1e-9)
    # The first pair of the published test data of CIEDE2000.
    a, b = [[50, 2.6772, -79.7751]], [[50, 0, -82.7485]]
    assert vo.colour_difference(a, b)[0] == pytest.approx(2.0425, abs=5e-5)
    assert vo.colour_difference(a, a, "DIN99o")[0] == 0
    with pytest.raises(ValueError, match="no conversion from XYZ to HSV"):
        vo.convert_colours(rgb, "XYZ", "HSV")


def test_documents_come_back():
    values = {
        "none": None, "yes": True, "int": -5, "long": 2**40, "huge": 2**63, "real": 0.1, "text": "µm \udc80",
        "bytes": b"\0\1", "inner": {"deep": {"x": 1}}, "empty": {},
    }  # fmt: skip
    document = vo.Document(values)
    again = vo.Document.from_bytes(document.to_bytes())
    assert again == document and again.to_dict() == values and len(again) == len(values)
    types = {"f": np.float32(0.1), "b": np.int8(-1), "B": np.uint8(255), "H": np.uint16(7), "I": np.uint32(2**32 - 1)}
    sizes = [len(vo.Document({"v": v}).to_bytes()) - 8 for v in types.values()]
    assert sizes == [4, 1, 1, 2, 4]
    assert vo.Document(types).to_dict() == {k: v.item() for k, v in types.items()}
    assert json.loads(vo.Document({"a": {"b": 1.5}}).to_json()) == {"a": {"b": 1.5}}
    # type 9, name, milliseconds; then the same name twice.
    date = b"\x0b\0\0\0\x09t\0" + (86_400_500).to_bytes(8, "little") + b"\0"
    expected = datetime.datetime(1970, 1, 2, 0, 0, 0, 500_000, datetime.timezone.utc)
    assert vo.Document.from_bytes(date).to_dict() == {"t": expected}
    twice = vo.Document.from_bytes(b"\6\0\0\0\x0at\0\x0at\0\0")
    assert twice.items() == [("t", None), ("t", None)]
    with pytest.raises(ValueError, match="'t' repeats"):
        twice.to_dict()
    with pytest.raises(ValueError, match="parse error"):
        vo.Document.from_bytes(document.to_bytes()[:-1])
    with pytest.raises(TypeError, match="list: a list has no form"):
        vo.Document({"list": [1]})
    with pytest.raises(ValueError, match="big: needs more than 64 bits"):
        vo.Document({"big": 2**64})
    nested = vo.Document()
    for _ in range(5000):
        nested = vo.Document({"": nested})
    with pytest.raises(RecursionError):
        nested.to_dict()


def test_configurations_as_documents():
    config = vo.default_config()
    config["icpConfig"]["dMaxRMSE"] = 0.25
    document = vo.config_to_document({"icpConfig": {"dMaxRMSE": 0.25}})
    assert document.to_dict() == config == vo.config_from_document(document)
    assert config["icpConfig"] == {**vo.default_icp_config(), "dMaxRMSE": 0.25}


def members(node):
    return {n.name for n in node.body if isinstance(n, ast.FunctionDef)} | {
        n.target.id for n in node.body if isinstance(n, ast.AnnAssign)
    }


def test_stubs_name_what_there_is():
    """Checkers believe the stubs: nothing may be missing in them, nor only stand there."""
    tree = ast.parse((pathlib.Path(vo.__file__).with_name("__init__.pyi")).read_text())
    classes = {n.name: members(n) for n in tree.body if isinstance(n, ast.ClassDef) and not n.name.startswith("_")}
    functions = {n.name: n for n in tree.body if isinstance(n, ast.FunctionDef)}
    assert set(classes) | set(functions) == set(vo.__all__)
    for name, stated in classes.items():
        own = {m for m in vars(getattr(vo, name)) if not m.startswith("_")}
        assert {m for m in stated if not m.startswith("_")} == own, name
    for name, node in functions.items():
        doc = getattr(vo, name).__doc__.split("->")[0]
        arguments = [a.arg for a in node.args.args + node.args.kwonlyargs]
        assert [a for a in arguments if f"{a}: " not in doc] == [], name
        assert doc.count(": ") == len(arguments), name
    for name in vo.__all__:
        assert inspect.getdoc(getattr(vo, name)), name
