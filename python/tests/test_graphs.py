"""Graphs and disjoint sets against plain computations on matrices."""

import copy
import pickle

import numpy as np
import pytest

import voalgorithms as vo


def graphs():
    for seed in range(30):
        rng = np.random.default_rng(seed)
        n = int(rng.integers(1, 40))
        edges = rng.integers(0, n, (int(rng.integers(0, 2 * n)), 2))
        if seed % 2:
            edges = edges[edges[:, 0] > edges[:, 1]]  # no cycles
        yield n, edges.astype(rng.choice(["i4", "u4", "i8", "u8", ">i2"])), rng.integers(-9, 9, len(edges)).astype(float)


def lengths(n, edges, weights):
    """Shortest paths between all nodes (R. W. Floyd, Comm. ACM 5 (1962) 345)."""
    d = np.where(np.eye(n, dtype=bool), 0, np.inf)
    np.minimum.at(d, (edges[:, 0], edges[:, 1]), weights)
    for k in range(n):
        d = np.minimum(d, d[:, k : k + 1] + d[k])
    return d


def test_graphs_against_matrices():
    for n, edges, signed in graphs():
        weights = np.abs(signed)
        d = lengths(n, edges, weights)
        component = vo.strong_components(n, edges)
        np.testing.assert_array_equal(component == component[:, None], np.isfinite(d) & np.isfinite(d.T))
        assert (component[edges[:, 0]] <= component[edges[:, 1]]).all()

        distances, before = vo.shortest_paths(n, edges, weights, 0)
        np.testing.assert_array_equal(distances, d[0])
        assert ((before >= 0) == (np.isfinite(distances) & (np.arange(n) > 0))).all()
        for target in range(n):
            path, length = vo.shortest_path(n, edges, weights, 0, target)
            assert length == d[0, target]
            if np.isfinite(length):
                nodes = [0, *edges[path, 1]]
                assert nodes[:-1] == list(edges[path, 0]) and nodes[-1] == target and weights[path].sum() == length

        is_order, order = vo.topological_order(n, edges)
        assert is_order == (len(set(component)) == n and (edges[:, 0] != edges[:, 1]).all())
        if is_order:
            place = np.argsort(order)
            assert (place[edges[:, 0]] < place[edges[:, 1]]).all() and len(order) == n
        else:
            assert {tuple(e) for e in edges} >= set(zip(order, np.roll(order, -1)))

        sets, tree, labels = vo.DisjointSets(n), [], np.arange(n)
        for row in np.argsort(signed, kind="stable"):
            a, b = labels[edges[row]]
            tree += [row] if a != b else []
            labels[labels == max(a, b)] = min(a, b)
        found, total = vo.spanning_tree(n, edges, signed)
        assert list(found) == sorted(tree) and total == signed[found].sum()
        assert sets.unite_pairs(edges) == len(tree) and sets.num_sets == n - len(tree)
        np.testing.assert_array_equal(sets.labels, np.unique(labels, return_inverse=True)[1])
        assert [sets.size_of(i) for i in range(n)] == list(np.bincount(labels)[labels])
        for twin in (copy.deepcopy(sets), pickle.loads(pickle.dumps(sets))):
            assert [twin.find(i) for i in range(n)] == [sets.find(i) for i in range(n)] and repr(twin) == repr(sets)
            assert not twin.unite(0, sets.find(0)) and len(twin) == n


@pytest.mark.parametrize(
    "call, error, message",
    [
        (lambda: vo.strong_components(2, [[0, 1], [1, 2]]), ValueError, "edges: row 1 names node 2 of 2"),
        (lambda: vo.strong_components(2, [[0, -1]]), ValueError, "edges: row 0 names node -1 of 2"),
        (lambda: vo.strong_components(2, [[0.0, 1.0]]), TypeError, "edges: dtype must be that of whole numbers"),
        (lambda: vo.topological_order(2, [0, 1]), ValueError, r"edges: shape must be \(m, 2\), is \(2,\)"),
        (lambda: vo.topological_order(-1, []), ValueError, "nodes: must lie between"),
        (lambda: vo.spanning_tree(2, [[0, 1]], [np.nan]), ValueError, "weights: must not be NaN"),
        (lambda: vo.spanning_tree(2, [[0, 1]], []), ValueError, "weights: has 0 rows, but edges has 1"),
        (lambda: vo.shortest_paths(2, [[0, 1]], [-1.0], 0), ValueError, "weights: must be 0 or more"),
        (lambda: vo.shortest_path(2, [[0, 1]], [1.0], 0, 2), ValueError, "target: must lie between 0 and 1, is 2"),
        (lambda: vo.DisjointSets(3).find(3), ValueError, "element: must lie between 0 and 2, is 3"),
        (lambda: vo.DisjointSets(3).unite(0, 1.0), TypeError, "b: must be a whole number"),
        (lambda: vo.DisjointSets(2**31), ValueError, "n: must lie between 0 and 2147483647"),
    ],
)
def test_wrong_arguments_are_refused_by_their_names(call, error, message):
    with pytest.raises(error, match=f"^{message}"):
        call()
