import pickle
from fractions import Fraction

import numpy as np
import pytest

import voalgorithms as vo


def natural_coefficients(x, y):
    """Value, slope, bend and twist of every piece, by one dense linear system."""
    n, h = len(x) - 1, np.diff(x)
    A, b, row = np.zeros((4 * n, 4 * n)), np.zeros(4 * n), 0
    for i in range(n):
        powers = h[i] ** np.arange(4)
        A[row, 4 * i], b[row] = 1, y[i]
        A[row + 1, 4 * i : 4 * i + 4], b[row + 1] = powers, y[i + 1]
        row += 2
        if i + 1 < n:
            A[row, 4 * i : 4 * i + 4] = np.arange(4) * np.append(0, powers[:3])
            A[row, 4 * i + 5] = -1
            A[row + 1, 4 * i + 2 : 4 * i + 4], A[row + 1, 4 * i + 6] = [2, 6 * h[i]], -2
            row += 2
    A[row, 2], A[row + 1, -2:] = 1, [2, 6 * h[-1]]
    return np.linalg.solve(A, b).reshape(n, 4)


def test_splines_against_a_dense_system():
    rng = np.random.default_rng(1)
    x, y = np.cumsum(rng.uniform(0.2, 2, 12)), rng.normal(size=12)
    spline, pieces = vo.NaturalSpline(x, y), natural_coefficients(x, y)
    t = np.sort(rng.uniform(x[0], x[-1], 300))
    k = np.searchsorted(x, t, side="right") - 1
    (v, s, b, w), d = pieces[k].T, t - x[k]
    np.testing.assert_allclose(spline(t), v + d * (s + d * (b + d * w)), atol=1e-12)
    np.testing.assert_allclose(spline.derivative(t), s + d * (2 * b + 3 * d * w), atol=1e-11)
    np.testing.assert_allclose(spline.derivative(t, order=2), 2 * b + 6 * d * w, atol=1e-10)
    assert isinstance(spline(t[5]), float) and spline(t[5]) == spline(t)[5] == spline(np.float64(t[5]))
    powers = np.arange(1, 5)
    area = np.sum(pieces * np.diff(x)[:, None] ** powers / powers)
    assert spline.integral(x[0], x[-1]) == pytest.approx(area) == -spline.integral(x[-1], x[0])
    roots, (at, height, is_maximum) = spline.roots(), spline.extrema(spline.begin, spline.end)
    np.testing.assert_allclose(spline(roots), 0, atol=1e-12)
    np.testing.assert_allclose(spline.derivative(at), 0, atol=1e-10)
    np.testing.assert_allclose(spline(at), height, atol=1e-12)
    assert len(roots) >= np.count_nonzero(np.diff(np.sign(y))) and ((spline.derivative(at, 2) < 0) == is_maximum).all()

    line = np.polyfit(x, y, 1, w=np.sqrt(np.arange(1.0, 13)))
    stiff = vo.NaturalSpline.smoothing(x, y, 1e9, weights=np.arange(1.0, 13))
    np.testing.assert_allclose(stiff(t), np.polyval(line, t), atol=1e-5)
    np.testing.assert_allclose(vo.NaturalSpline.smoothing(x, y, 0)(t), spline(t), atol=1e-10)
    turn = np.linspace(0, 2 * np.pi, 101)
    wave = vo.NaturalSpline.periodic(turn, np.append(np.sin(turn[:-1]), 0))
    np.testing.assert_allclose(wave(t + 20), np.sin(t + 20), atol=1e-6)
    for bad, message in [(([0, 1], [0, 1, 2]), "x"), (([0, 0], [1, 2]), "x"), (([[0]], [1]), r"x: shape must be \(n,\)")]:
        with pytest.raises(ValueError, match=message):
            vo.NaturalSpline(*bad)
    with pytest.raises(ValueError, match="order"):
        spline.derivative(0.0, 3)
    with pytest.raises(TypeError, match="x: "):
        spline("1")


def test_spline_curves():
    angles = np.linspace(0, 2 * np.pi, 65)
    circle = np.stack([np.cos(angles), np.sin(angles), 0 * angles], 1)
    closed = vo.NaturalSplineCurve(circle[:-1], closed=True)
    assert closed.dimension == 3 and closed.begin == 0 and closed.end == pytest.approx(2 * np.pi, rel=1e-3)
    t = np.linspace(-10, 10, 500)
    np.testing.assert_allclose(np.linalg.norm(closed(t), axis=1), 1, atol=1e-5)
    np.testing.assert_allclose(np.sum(closed(t) * closed.derivative(t), axis=1), 0, atol=1e-3)
    np.testing.assert_array_equal(closed(t)[7], closed(t[7]))
    assert closed.derivative(t[7], 2).shape == (3,)
    given = vo.NaturalSplineCurve(circle, parameters=angles)
    for d in range(3):
        np.testing.assert_array_equal(given(t)[:, d], vo.NaturalSpline(angles, circle[:, d])(t))


def test_polynomials_against_numpy():
    rng = np.random.default_rng(2)
    P = np.polynomial.Polynomial
    for _ in range(50):
        a, b = rng.normal(size=rng.integers(1, 8)), rng.normal(size=rng.integers(1, 5))
        p, q, x = vo.Polynomial(a), vo.Polynomial(b), rng.normal(size=20)
        for ours, theirs in [
            (p + q, P(a) + P(b)), (p - q, P(a) - P(b)), (p * q, P(a) * P(b)), (2.5 * p, 2.5 * P(a)),
            (p.of(q), P(a)(P(b))), (p.derivative(), P(a).deriv()), (p.integral(), P(a).integ()),
        ]:  # fmt: skip
            np.testing.assert_allclose(ours(x), theirs(x), rtol=1e-9, atol=1e-9)
        quotient, remainder = divmod(p, q)
        assert remainder.degree < q.degree
        np.testing.assert_allclose((quotient * q + remainder)(x), p(x), rtol=1e-6, atol=1e-6)
        assert pickle.loads(pickle.dumps(p)) == p and p.degree == len(a) - 1
        roots = rng.normal(size=4)
        found = vo.Polynomial(P.fromroots(roots).coef)
        np.testing.assert_allclose(found.real_roots(), np.sort(roots), rtol=1e-6)
    roots = vo.Polynomial([4.0, 0, 1]).roots()
    assert roots.dtype == np.complex128
    np.testing.assert_array_equal(roots, [2j, -2j])
    np.testing.assert_array_equal(vo.Polynomial([4, 0, -3, 1]).real_roots(), [-1, 2, 2])
    near = vo.Polynomial([1, -6, 15, -20, 15, -6, 1])  # (x - 1)^6
    exact = float((Fraction(1.01) - 1) ** 6)
    assert near(1.01, compensated=True) == pytest.approx(exact, rel=1e-3, abs=0) != near(1.01)
    with pytest.raises(ValueError, match="degree"):
        near.roots()
    with pytest.raises(ValueError, match="coefficients: shape"):
        vo.Polynomial([[1.0]])
