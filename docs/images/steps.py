#!/usr/bin/env python3
"""Draws steps.png, the steps of a registration on the scans of examples/data, with the library's own features, fits and
refinement. Needs matplotlib and the Python module: PYTHONPATH=build/package/python python3 docs/images/steps.py"""

import itertools

import numpy as np
import voalgorithms as vo
from scans import BLUE, CONFIG, FIX, FLT, GREY, HERE, ORANGE, PALE, POSE, S, Scan, camera, distances, draw, features_of, note, plt
from PIL import Image

CANDIDATES, TOLERANCE, DIAMETER = 10, 3 * S, 40 * S  # uiNumNeighbors, dMaxPolygonVertexError, dMaxPolygonDiameter
PAIRS = list(itertools.combinations(range(4), 2))


def sides(corners):
    return np.array([np.linalg.norm(corners[i] - corners[j]) for i, j in PAIRS])


def proposals(fix, flt, candidates):
    """Yields polygons of four feature points of FLT, the matching candidates in FIX, and the pose that follows."""
    random, apart = np.random.default_rng(3), distances(flt.points, flt.points)
    while True:
        near = np.flatnonzero(apart[random.integers(len(flt))] < DIAMETER)
        if len(near) < 4:
            continue
        polygon = random.choice(near, 4, replace=False)
        wanted = sides(flt.points[polygon])
        if wanted.min() < DIAMETER / 4 or wanted.max() > DIAMETER:
            continue
        choices = np.array(list(itertools.product(*candidates[polygon])))
        corners = fix.points[choices]
        error = np.max([abs(np.linalg.norm(corners[:, i] - corners[:, j], axis=1) - w) for (i, j), w in zip(PAIRS, wanted)], axis=0)
        best = error.argmin()
        if error[best] < TOLERANCE:
            yield polygon, choices[best], vo.Trafo(vo.procrustes(flt.points[polygon], corners[best]))


def outline(axes, view, corners, colour):
    x, y = (corners[[0, 1, 2, 3, 0]] @ view.T)[:, :2].T
    axes.plot(x, y, "-o", ms=5, lw=2, color=colour)


def turn(axis, angle):
    x, y, z = axis
    cross = np.array([[0, -z, y], [z, 0, -x], [-y, x, 0]])
    matrix = np.eye(4)
    matrix[:3, :3] += np.sin(angle) * cross + (1 - np.cos(angle)) * cross @ cross
    return vo.Trafo(matrix)


view = camera(FIX)
truth = (turn(view[2], 1.9) @ turn(view[1], 0.5)).inverse()  # FLT is moved away first
scan = FLT.moved(truth.inverse() @ POSE)
(fix, fix_values), (flt, flt_values) = features_of(FIX, 12 * S), features_of(scan, 12 * S)
similar = distances(flt_values, fix_values).argsort(1)[:, :CANDIDATES]
proposed = proposals(fix, flt, similar)
first = next((p, c, pose, r) for p, c, pose in proposed
             if (r := vo.icp((FIX.points, FIX.normals), (scan.points, scan.normals), pose, config=CONFIG["icpConfig"])))
polygon, counterparts, pose, refined = first

figure, axes = plt.subplots(2, 3, figsize=(12, 5.8), dpi=90, height_ratios=(1, 1.35))
for ax, title in zip(axes.flat, ("two scans", "1 features", "2 a polygon and its counterpart",
                                 "3 the proposed pose", "4 refined and tested", "5 clusters")):
    ax.set_title(title, fontsize=14, loc="left")
    ax.set_aspect("equal")
    ax.axis("off")

# FLT beside FIX, seen from the same direction.
aside = (FIX.points.mean(0) - scan.points.mean(0) + 88 * view[0]).astype(np.float32)
shown, shown_features = Scan(scan.points + aside, scan.normals), Scan(flt.points + aside, flt.normals)
for ax in axes[0]:
    draw(ax, view, FIX, GREY, 4)
    draw(ax, view, shown, PALE, 4)
note(axes[0, 0], f"FIX: {len(FIX):,} points; FLT: {len(scan):,}")
draw(axes[0, 1], view, fix, BLUE, 4)
draw(axes[0, 1], view, shown_features, BLUE, 4)
note(axes[0, 1], f"{len(fix):,} and {len(flt):,}, a histogram for each")
for corner in polygon:
    draw(axes[0, 2], view, fix[similar[corner]], BLUE, 22)
outline(axes[0, 2], view, shown_features.points[polygon], ORANGE)
outline(axes[0, 2], view, fix.points[counterparts], ORANGE)
note(axes[0, 2], "candidates, and those with the same sides")


def error(trafo):
    """Root mean square distance of FLT's points from their true positions, mm."""
    return np.sqrt(((trafo.apply(scan.points) - truth.apply(scan.points)) ** 2).sum(1).mean())


for ax, trafo, text in ((axes[1, 0], pose, "closed-form fit of the corners"), (axes[1, 1], refined.trafo, "point-to-plane ICP, then fixed tests")):
    moved = scan.moved(trafo)
    draw(ax, view, FIX, GREY, 8)
    draw(ax, view, moved, ORANGE if trafo is not pose else BLUE, 8)
    note(ax, f"{text};\n{error(trafo):.2f} mm from the right pose")

outcomes = [(p, vo.icp((FIX.points, FIX.normals), (scan.points, scan.normals), p, config=CONFIG["icpConfig"]))
            for _, _, p in itertools.islice(proposed, 60)]
accepted = [r.trafo for _, r in outcomes if r]
centre = scan.points.mean(0, keepdims=True)
placed = np.vstack([t.apply(centre) for t in accepted])
groups = vo.mean_shift_3d(placed, CONFIG["dTrafoClusteringBandwidth"])
ax = axes[1, 2]
draw(ax, view, FIX, GREY, 8)
ax.scatter(*(np.vstack([p.apply(centre) for p, _ in outcomes]) @ view.T)[:, :2].T, s=14, color=BLUE)
for size, at in zip(groups.sizes, groups.centres @ view.T):
    ax.scatter(*at[:2], s=200, color=ORANGE)
    ax.text(*at[:2], size, ha="center", va="center", fontsize=11, clip_on=True)
note(ax, f"blue: where {len(outcomes)} proposals put FLT's middle;\norange: how many of {len(accepted)} accepted ones agree")
limits = np.vstack([FIX.points, FLT.moved(POSE).points]) @ view.T
for ax in axes[1]:
    ax.set_xlim(limits[:, 0].min() - 5, limits[:, 0].max() + 5)
    ax.set_ylim(limits[:, 1].min() - 5, limits[:, 1].max() + 5)
figure.subplots_adjust(0.01, 0.09, 0.99, 0.95, 0.03, 0.2)
figure.canvas.draw()
picture = Image.fromarray(np.asarray(figure.canvas.buffer_rgba())).convert("RGB")
picture.quantize(64, Image.Quantize.MAXCOVERAGE, dither=Image.Dither.NONE).save(HERE / "steps.png", optimize=True)
