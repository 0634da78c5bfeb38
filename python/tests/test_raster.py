"""Pixels and the plane, against brute force and hand-made cases."""

import numpy as np
import pytest

import voalgorithms as vo


def test_distances_equal_brute_force():
    full = np.random.default_rng(1).integers(0, 12, (23, 60)) == 0
    for mask in (full, full[::2, 3:50], full[::-1].view(np.uint8), full[:, ::3], np.asfortranarray(full)):
        y, x = np.indices(mask.shape)
        ys, xs = np.nonzero(mask)
        dy, dx = np.abs(y[..., None] - ys), np.abs(x[..., None] - xs)
        squared = vo.distance_transform(mask, threads=2)
        np.testing.assert_array_equal(squared, (dx**2 + dy**2).min(-1))
        nearest = vo.distance_transform(mask, metric="nearest").astype(int)
        np.testing.assert_array_equal((nearest // mask.shape[1] - y) ** 2 + (nearest % mask.shape[1] - x) ** 2, squared)
        np.testing.assert_array_equal(vo.distance_transform(mask, metric="city block"), (dx + dy).min(-1))
        np.testing.assert_array_equal(vo.distance_transform(mask, metric="chessboard"), np.maximum(dx, dy).min(-1))
        signed = vo.distance_transform(mask, metric="signed")
        np.testing.assert_array_equal(signed, np.where(mask, -vo.distance_transform(mask == 0).astype(int), squared))
        weighted = vo.distance_transform(mask, pixel_size=(0.5, 2))
        np.testing.assert_array_equal(weighted, ((0.5 * dx) ** 2 + (2.0 * dy) ** 2).min(-1))
    assert (vo.distance_transform(np.zeros((2, 3), bool)) == 2**64 - 1).all()
    assert vo.distance_transform(np.zeros((0, 3), bool)).shape == (0, 3)
    with pytest.raises(TypeError, match="mask: must be a two-dimensional array"):
        vo.distance_transform(np.zeros((2, 2)))
    with pytest.raises(ValueError, match="metric: must be"):
        vo.distance_transform(full, metric="taxi")


def test_lines_and_triangles():
    assert vo.line_pixels((0, 0), (4, 2)).tolist() == [[0, 0], [1, 1], [2, 1], [3, 2], [4, 2]]
    assert vo.line_pixels((0, 0), (1, 1), connection="4").tolist() == [[0, 0], [1, 0], [1, 1]]
    assert len(vo.line_pixels((0.5, 0.5), (1.5, 1.5), connection="supercover")) == 4
    assert vo.line_pixels((-(10**9), 7), (10**9, 7), shape=(8, 3)).tolist() == [[0, 7], [1, 7], [2, 7]]
    mask = np.zeros((10, 12), np.uint8)
    for c in ((10, 0), (0, 10)):
        before = mask.copy()
        vo.fill_triangle(mask[:, 1:], (0, 0), (10, 10), c, 7)
        assert (before[mask != before] == 0).all()
    assert (mask[:, 1:11] == 7).all() and (mask[:, [0, 11]] == 0).all()
    with pytest.raises(ValueError, match="mask: must be a writable array"):
        vo.fill_triangle(mask[:, ::2], (0, 0), (1, 1), (1, 0))


def test_signs_are_exact():
    assert vo.orientation((0, 0), (1, 0), (0, 1)) == 1
    assert vo.orientation((0.5, 0.5), (12, 12), (24, 24)) == 0
    assert vo.orientation((0.5, 0.5), (12, 12), (24, np.nextafter(24.0, 25))) == 1
    assert vo.in_circle((0, 0), (1e-200, 0), (0, 1e-200), (1e-200, 1e-200)) == 0
    with pytest.raises(ValueError, match="d: must be x and y"):
        vo.in_circle((0, 0), (1, 0), (0, 1), (1, 1, 1))
