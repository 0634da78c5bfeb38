import itertools

import numpy as np
import pytest

import voalgorithms as vo


def shortest(d, closed):
    n = len(d)
    lengths = (sum(d[a, b] for a, b in zip(p, p[1:] + (p[:1] if closed else ()))) for p in itertools.permutations(range(n)))
    return min(lengths)


def test_tours_against_all_orders():
    rng = np.random.default_rng(1)
    for columns, closed in itertools.product((2, 3), (True, False)):
        points = rng.normal(size=(7, columns)).astype(np.float32)
        d = np.linalg.norm(points[:, None].astype(float) - points, axis=2)
        for order, length, bound in (vo.tour(points, closed=closed), vo.tour_of_distances(d, closed=closed)):
            assert sorted(order) == list(range(7)) and length == bound == pytest.approx(shortest(d, closed))


def test_tours_of_many_points_and_demands():
    points = np.random.default_rng(2).uniform(size=(500, 2))
    order, length, bound = vo.tour(points, closed=False, first=3, last=7, neighbours=[(1, 2), [2, 4]], rounds=500)
    place = np.argsort(order)
    assert order[0] == 3 and order[-1] == 7 and abs(place[1] - place[2]) == abs(place[2] - place[4]) == 1
    steps = np.linalg.norm(np.diff(points[order], axis=0), axis=1)
    assert length == pytest.approx(steps.sum(), rel=1e-6) and bound <= length < 1.06 * bound
    assert vo.tour(np.zeros((0, 3)))[1:] == (0, 0)
    with pytest.raises(ValueError, match="points: point 1 is not finite"):
        vo.tour([[0, 0], [np.inf, 0]])
    with pytest.raises(ValueError, match=r"distances: distance \(0, 1\) differs from the way back"):
        vo.tour_of_distances([[0, 1], [2, 0]])
    for keywords, message in [
        ({"first": 3}, "first, last: a closed tour has no ends"),
        ({"closed": False, "first": 500}, "first: must lie between 0 and 499"),
        ({"neighbours": [(1, 1)]}, "neighbours: both"),
        ({"neighbours": [(1, 2), (2, 3), (3, 1)]}, "form a ring"),
    ]:
        with pytest.raises(ValueError, match=message):
            vo.tour(points, **keywords)
