import colorsys
import datetime
import itertools
import json

import numpy as np
import pytest

import voalgorithms as vo


def rotation(rng):
    q, r = np.linalg.qr(rng.normal(size=(3, 3)))
    q *= np.sign(np.diag(r))
    return q * np.sign(np.linalg.det(q))


def kabsch(a, b, weights=None):
    """The same fit by singular values; weights enter the centroids alone."""
    a0, b0 = (np.average(c, axis=0, weights=weights) for c in (a, b))
    u, _, vt = np.linalg.svd((a - a0).T @ (b - b0))
    fit = np.eye(4)
    fit[:3, :3] = (u @ np.diag([1, 1, np.linalg.det(u @ vt)]) @ vt).T
    fit[:3, 3] = b0 - fit[:3, :3] @ a0
    return fit


def test_fits_against_singular_values_and_known_motions():
    rng = np.random.default_rng(3)
    for _ in range(20):
        a = rng.normal(size=(30, 3))
        R = rotation(rng)
        b = a @ R.T + [5, 6, 7] + 0.05 * rng.normal(size=a.shape)
        fit = vo.procrustes(a, b)
        np.testing.assert_allclose(fit, kabsch(a, b), atol=1e-9)
        np.testing.assert_array_equal(vo.procrustes(a, b, np.ones(30)), fit)
        weights = rng.uniform(0.1, 9, 30)
        np.testing.assert_allclose(vo.procrustes(a, b, weights), kabsch(a, b, weights), atol=1e-9)
        mirrored = a * [1, 1, -1]  # no rotation reaches it: the best one, no reflection
        np.testing.assert_allclose(vo.procrustes(a, mirrored), kabsch(a, mirrored), atol=1e-9)
    near = vo.Trafo.from_quaternion([1, 0.05, -0.1, 0.08], [0.3, 0.2, -0.4]).matrix
    normals = rng.normal(size=a.shape)
    plane = vo.point_to_plane(a, a @ near[:3, :3].T + near[:3, 3], normals)
    np.testing.assert_allclose(plane, near, atol=1e-6)
    # With noise: no small motion from there makes the weighted sum of squares smaller.
    b, weights = a @ near[:3, :3].T + 0.05 * rng.normal(size=a.shape), rng.uniform(0.5, 2, 30)
    plane = vo.point_to_plane(a, b, normals, weights)
    moved = a @ plane[:3, :3].T + plane[:3, 3]
    r = ((moved - b) * normals).sum(1)
    gradient = np.hstack([np.cross(moved, normals), normals]).T @ (weights * r)
    np.testing.assert_allclose(gradient, 0, atol=1e-5)
    line = np.outer(np.arange(5.0), [0, 0, 1])
    with pytest.raises(ValueError, match="do not determine the rotation"):
        vo.procrustes(line, line)


def modes(points, bandwidth):
    """Where a flat kernel that starts at each point comes to rest, one place after the other."""
    ends = points.copy()
    while True:
        near = (np.linalg.norm(ends[:, None] - points, axis=2) <= bandwidth).astype(float)
        shifted = near @ points / near.sum(1, keepdims=True)
        if np.allclose(shifted, ends, atol=1e-9):
            return ends
        ends = shifted


def dunn_index(points, labels):
    d = np.linalg.norm(points[:, None] - points, axis=2)
    same = labels[:, None] == labels
    return d[~same].min() / d[same].max()


@pytest.mark.parametrize("seed", range(8))
def test_mean_shift_against_the_definition(seed):
    rng = np.random.default_rng(seed)
    d = 3 if seed % 2 else int(rng.integers(1, 7))
    corners = 14 * np.stack(np.meshgrid(*[np.arange(2.0 if d > 2 else 5.0)] * d, indexing="ij"), -1).reshape(-1, d)
    blobs = corners[rng.permutation(len(corners))[:5]]
    points = np.repeat(blobs, rng.integers(1, 40, len(blobs)), axis=0)
    points = (points + rng.normal(size=points.shape)).astype(np.float32).astype(np.float64)
    points = points[rng.permutation(len(points))]
    ends = modes(points, 6.0)
    for cluster in [vo.mean_shift, vo.mean_shift_3d] if d == 3 else [vo.mean_shift]:
        found = cluster(points, 6.0)
        assert found.labels.min() == 0 and len(found) == found.labels.max() + 1
        np.testing.assert_array_equal(found.sizes, np.bincount(found.labels))
        np.testing.assert_allclose(found.centres[found.labels], ends, atol=0.05)
        assert found.dunn_index == pytest.approx(dunn_index(points, found.labels), rel=1e-4)
        with pytest.raises(ValueError, match="points: must be finite"):
            cluster(points * np.inf, 6.0)


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


def test_linear_programmes_against_all_vertices():
    rng = np.random.default_rng(8)
    for n in (1, 2, 3):
        for _ in range(20):
            A = np.vstack([rng.normal(size=(6, n)), np.eye(n), -np.eye(n)])
            b, c = np.concatenate([rng.uniform(0.1, 1, 6), np.full(2 * n, 3.0)]), rng.normal(size=n)
            best = -np.inf
            for rows in itertools.combinations(range(len(A)), n):
                z = np.linalg.lstsq(A[list(rows)], b[list(rows)], rcond=None)[0]
                best = max(best, c @ z if (A @ z <= b + 1e-9).all() else -np.inf)
            z = vo.lp_solve(A, b, c)
            assert c @ z == pytest.approx(best, abs=1e-9) and (A @ z <= b + 1e-9).all()
    np.testing.assert_array_equal(vo.lp_solve([[1, 0], [0, 1], [1, 1]], [2, 2, np.inf], [1, 2]), [2, 2])
    for A, b, c, message in [
        ([[1], [-1]], [0, -1], [1], "A, b: no z satisfies all rows"),
        ([[1], [1]], [0, 1], [-1], "A, b, c: c z is unbounded"),
        ([[np.nan]], [0], [1], "A, b, c: must be finite"),
    ]:
        with pytest.raises(ValueError, match=message):
            vo.lp_solve(A, b, c)


def test_optimal_designs_against_all_choices():
    rng = np.random.default_rng(10)
    for _ in range(10):
        rows = rng.normal(size=(9, 2))
        determinants = {
            s: np.linalg.det(rows[list(s)].T @ rows[list(s)]) for s in itertools.combinations(range(9), 4)
        }
        chosen, determinant = vo.d_optimal_design(rows, 4)
        assert determinant == pytest.approx(max(determinants.values())) == determinants[tuple(chosen)]
    with pytest.raises(ValueError, match="candidates: do not determine the parameters"):
        vo.d_optimal_design(np.ones((9, 2)), 4)


def decoded(stream):
    """The bytes of a run-length coded stream, token by token as the format's description tells it."""
    escape, at, out = stream[0], 1, b""
    while at < len(stream):
        if stream[at] != escape:
            out, at = out + stream[at : at + 1], at + 1
            continue
        c = stream[at + 1]
        length = (c & 127) * 256 + stream[at + 2] + 1 if c > 127 else c + 1
        at += 3 if c > 127 else 2
        if c <= 2:
            out += bytes([escape]) * length
        else:
            out, at = out + stream[at : at + 1] * length, at + 1
    return out


def test_run_lengths_against_the_described_format():
    rng = np.random.default_rng(15)
    lengths = [1, 2, 3, 4, 5, 127, 128, 129, 130, 32767, 32768, 32769, 70000]
    for i in range(60):
        symbols = rng.integers(0, 256, rng.integers(1, 300), dtype=np.uint8)
        if i % 2:
            symbols = rng.permutation(256).astype(np.uint8)  # all of them: the escape byte occurs, too
        data = np.repeat(symbols, rng.choice(lengths, len(symbols), p=[0.82] + [0.015] * 12)).tobytes()
        escape = int(rng.integers(-1, 256))
        coded = vo.rle_compress(data, escape=escape)
        assert coded[0] == escape or escape == -1
        assert decoded(coded) == data == vo.rle_uncompress(coded) and len(coded) <= 1 + 2 * len(data)
        both = vo.rle_compress(bytearray(data), move_to_front=True)
        assert vo.rle_uncompress(memoryview(both), move_to_front=True) == data
        junk = rng.bytes(40)  # decodes to something or is refused
        try:
            assert vo.rle_uncompress(junk) == decoded(junk)
        except ValueError as error:
            assert "ends within a token" in str(error)
    mask = np.repeat(rng.integers(0, 4, 500, dtype=np.uint8), rng.integers(1, 2000, 500))
    coded = vo.rle_compress(mask)
    assert len(coded) < len(mask) // 50 and vo.rle_uncompress(vo.rle_compress(b"")) == b""
    with pytest.raises(ValueError, match="more than max_size, 100 bytes"):
        vo.rle_uncompress(coded, max_size=100)
    with pytest.raises(ValueError, match="ends within a token"):
        vo.rle_uncompress(b"\0\0\4")


def test_colours():
    bytes_ = np.array([[255, 255, 255], [0, 0, 0], [255, 0, 0], [0, 255, 0], [0, 0, 255], [128, 128, 128]], np.uint8)
    published = [[100, 0, 0], [0, 0, 0], [53.24, 80.09, 67.20], [87.73, -86.18, 83.18], [32.30, 79.19, -107.86]]
    np.testing.assert_allclose(vo.convert_colours(bytes_, "sRGB", "Lab")[:5], published, atol=0.02)
    # IEC 61966-2-1, then CIE 15; the primaries' matrix is that of ITU-R BT.709 to more digits.
    unit = bytes_ / 255
    linear = np.where(unit <= 0.04045, unit / 12.92, ((unit + 0.055) / 1.055) ** 2.4)
    M = [[0.4124, 0.3576, 0.1805], [0.2126, 0.7152, 0.0722], [0.0193, 0.1192, 0.9505]]
    np.testing.assert_allclose(vo.convert_colours(bytes_, "sRGB", "XYZ"), 100 * linear @ np.transpose(M), atol=0.03)
    np.testing.assert_allclose(vo.convert_colours(255 * linear, "RGB", "XYZ"), 100 * linear @ np.transpose(M), atol=0.03)
    lab = np.random.default_rng(13).uniform([0, -90, -90], [100, 90, 90], (200, 3))
    y = (lab[:, 0] + 16) / 116
    f = np.stack([y + lab[:, 1] / 500, y, y - lab[:, 2] / 200], 1)
    xyz = np.where(f > 6 / 29, f**3, 3 * (6 / 29) ** 2 * (f - 4 / 29)) * [95.047, 100, 108.883]
    inside = (xyz > 0).all(1) & (xyz < 100).all(1)
    np.testing.assert_allclose(vo.convert_colours(lab, "Lab", "XYZ")[inside], xyz[inside], atol=1e-3)
    np.testing.assert_allclose(vo.convert_colours(xyz[inside], "XYZ", "Lab"), lab[inside], atol=1e-3)
    # DIN 6176.
    e = np.cos(np.radians(26)) * lab[:, 1] + np.sin(np.radians(26)) * lab[:, 2]
    g = 0.83 * (np.cos(np.radians(26)) * lab[:, 2] - np.sin(np.radians(26)) * lab[:, 1])
    chroma, hue = np.log(1 + 0.075 * np.hypot(e, g)) / 0.0435, np.arctan2(g, e) + np.radians(26)
    din = np.stack([303.67 * np.log(1 + 0.0039 * lab[:, 0]), chroma * np.cos(hue), chroma * np.sin(hue)], 1)
    converted = vo.convert_colours(lab, "Lab", "DIN99o")
    np.testing.assert_allclose(converted, din, atol=0.03)
    np.testing.assert_allclose(vo.convert_colours(converted, "DIN99o", "Lab"), lab, atol=1e-9)
    np.testing.assert_allclose(
        vo.colour_difference(lab, lab[::-1], "DIN99o"), np.linalg.norm(converted - converted[::-1], axis=1), atol=1e-9
    )
    hsv = [colorsys.rgb_to_hsv(*row) for row in unit]
    np.testing.assert_allclose(vo.convert_colours(bytes_, "RGB", "HSV"), hsv * np.array([360, 1, 1]), atol=1e-9)
    dark = unit / 2
    h, l, s = np.transpose([colorsys.rgb_to_hls(*row) for row in dark])
    np.testing.assert_allclose(vo.convert_colours(dark, "RGB", "HSL"), np.stack([360 * h, s, l], 1), atol=1e-9)
    np.testing.assert_allclose(vo.convert_colours(np.stack([360 * h, 100 * s, 100 * l], 1), "HSL", "RGB"), dark, atol=1e-9)
    rgb = np.random.default_rng(6).uniform(20, 200, (100, 3))
    for space in ("XYZ", "Lab", "DIN99o"):
        np.testing.assert_allclose(
            vo.convert_colours(vo.convert_colours(rgb, "sRGB", space), space, "sRGB"), rgb, atol=0.01
        )
    via = vo.convert_colours(vo.convert_colours(rgb, "RGB", "XYZ"), "XYZ", "Lab")
    np.testing.assert_allclose(vo.convert_colours(rgb, "RGB", "Lab"), via, atol=1e-9)
    # From the published test data of CIEDE2000.
    a = [[50, 2.6772, -79.7751], [50, 3.1571, -77.2803], [60.2574, -34.0099, 36.2677], [2.0776, 0.0795, -1.135]]
    b = [[50, 0, -82.7485], [50, 0, -82.7485], [60.4626, -34.1751, 39.4387], [0.9033, -0.0636, -0.5514]]
    np.testing.assert_allclose(vo.colour_difference(a, b), [2.0425, 2.8615, 1.2644, 0.9082], atol=5e-5)


def test_transfer_curves():
    curve = vo.TransferCurve([[0, 10], [50, 40], [100, 90]], range=(0, 100), channel="L*", unit="%")
    x = np.array([-5, 0, 50, 75, 100, 200])
    np.testing.assert_array_equal(curve(x.astype(float))[[0, 1, 2, 4, 5]], [10, 10, 40, 90, 90])
    again = vo.TransferCurve.from_text(curve.to_text())
    np.testing.assert_array_equal(again.points, [[0, 10], [50, 40], [100, 90]])
    assert (again.range, again.channel, again.unit) == ((0, 100), "L*", "%")
    with pytest.raises(ValueError, match="text: line 2, column 7: not a number"):
        vo.TransferCurve.from_text("transfercurve 1\nrange x 1")
    with pytest.raises(ValueError, match="points: invalid control point 1"):
        vo.TransferCurve([[0, 0], [0, 1]])


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
    assert vo.Document({"t": expected}).to_bytes() == date
    early = datetime.datetime(1, 1, 1, 12, 0, 0, 1999, datetime.timezone(datetime.timedelta(hours=3)))
    assert vo.Document({"t": early}).to_dict() == {"t": early.replace(microsecond=1000)}
    odd = {"pattern": ("^a.*", "i"), "nam\udce9": np.str_("x"), "raw": np.bytes_(b"y")}
    assert vo.Document(vo.Document(odd).to_dict()).to_dict() == odd
    assert vo.Document.from_bytes(memoryview(bytearray(date))) == vo.Document({"t": expected})
    with pytest.raises(ValueError, match="t: a datetime needs a time zone"):
        vo.Document({"t": datetime.datetime(2000, 1, 1)})
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
