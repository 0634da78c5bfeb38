#!/usr/bin/env python3
"""Draws features.png, polygons.png and pairs.png: lengths that are too small, good and too large on the scans of
examples/data. Needs matplotlib and the Python module: PYTHONPATH=build/package/python python3 docs/images/scans.py"""

import pathlib

import matplotlib
import numpy as np
import voalgorithms as vo
from PIL import Image

matplotlib.use("Agg")
import matplotlib.pyplot as plt

HERE = pathlib.Path(__file__).parent
GREY, BLUE, ORANGE, PALE, BLACK = "#c9cccf", "#0b6e99", "#f26a1b", "#a9d3e6", "#202020"


class Scan:
    def __init__(self, points, normals):
        self.points, self.normals = np.ascontiguousarray(points), np.ascontiguousarray(normals)

    @staticmethod
    def read(name):  # x y z nx ny nz of each point
        data = (HERE / "../../examples/data" / name).read_bytes().split(b"end_header\n", 1)[1]
        values = np.frombuffer(data, "<f4").reshape(-1, 6)
        return Scan(values[:, :3], values[:, 3:])

    def moved(self, pose):
        return Scan(pose.apply(self.points), pose.rotate(self.normals))

    def __getitem__(self, chosen):
        return Scan(self.points[chosen], self.normals[chosen])

    def __len__(self):
        return len(self.points)


def features_of(scan, radius):
    found = vo.compute_features(scan.points, scan.normals, dFeatureRadius=radius, working_spacing=2 * S)
    return Scan(found.feature_points, found.feature_normals), found.features


def distances(a, b):
    """Distances from each row of a to each row of b."""
    a, b = a.astype(float), b.astype(float)  # double precision, since squares cancel
    square = (a**2).sum(1)[:, None] + (b**2).sum(1) - 2 * a @ b.T
    return np.sqrt(np.maximum(square, 0))


def camera(scan):
    """Right, up and backward axes of a view from the scanner's direction."""
    back = scan.normals.mean(0) / np.linalg.norm(scan.normals.mean(0))
    right = np.cross((0, 1, 0), back) / np.linalg.norm(np.cross((0, 1, 0), back))
    return np.array([right, np.cross(back, right), back])


def draw(axes, view, scan, colour, size):
    """Draws the points that face the camera, far ones first, darker where the surface turns away."""
    at, facing = scan.points @ view.T, scan.normals @ view[2]
    order = np.argsort(at[:, 2])
    order = order[facing[order] > 0.05]
    rgb = np.array(matplotlib.colors.to_rgb(colour)) * (0.5 + 0.5 * facing[order, None])
    axes.scatter(at[order, 0], at[order, 1], s=size, c=np.clip(rgb, 0, 1), linewidths=0)


def panels(name, view, rows, titles, legend):
    """Makes three columns, too small to too large. Returns the axes and a function that saves the picture."""
    figure, axes = plt.subplots(rows, 3, figsize=(12, 1.2 + 2.2 * rows), dpi=90, squeeze=False)
    for ax in axes.flat:
        ax.set_aspect("equal")
        ax.axis("off")
    for ax, word, title in zip(axes[0], ("too small", "default", "too large"), titles):
        ax.set_title(f"{word}: {title}", fontsize=14)
    handles = [plt.Line2D([], [], color=c, marker="o", ls="", ms=8, label=text) for c, text in legend]
    figure.legend(handles=handles, loc="lower center", ncol=len(handles), fontsize=12, frameon=False)

    def save():
        x, y = (np.vstack([FIX.points, PLACED.points]) @ view.T)[:, :2].T
        height = figure.get_figheight()
        for ax in axes.flat:
            ax.set_xlim(x.min() - 2, x.max() + 2)
            ax.set_ylim(y.min() - 2, y.max() + 2)
        figure.subplots_adjust(0.01, 0.8 / height, 0.99, 1 - 0.3 / height, 0.02, 0.12)
        figure.canvas.draw()
        picture = Image.fromarray(np.asarray(figure.canvas.buffer_rgba())).convert("RGB")
        picture.quantize(64, Image.Quantize.MAXCOVERAGE, dither=Image.Dither.NONE).save(HERE / f"{name}.png", optimize=True)

    return axes, save


def note(axes, text):
    axes.text(0.5, -0.01, text, transform=axes.transAxes, ha="center", va="top", fontsize=12)


def draw_features():
    multiples = (6, 12, 70)
    view = camera(FIX)
    axes, save = panels("features", view, 2, [f"{m} s = {m * S:.1f} mm" for m in multiples],
                        [(BLUE, "feature points"),
                         (ORANGE, "those of FLT with the right place among their ten candidates in FIX")])
    for (upper, lower), m in zip(axes.T, multiples):
        (fix, fix_values), (flt, flt_values) = features_of(FIX, m * S), features_of(FLT, m * S)
        draw(upper, view, FIX, GREY, 14)
        draw(upper, view, fix, BLUE, 14)
        note(upper, f"FIX: {len(fix):,} feature points")
        placed = flt.moved(POSE)
        candidates = distances(flt_values, fix_values).argsort(1)[:, :10]
        off = np.linalg.norm(fix.points[candidates] - placed.points[:, None], axis=2).min(1)
        right = off < 3 * S  # dMaxPolygonVertexError
        draw(lower, view, PLACED, GREY, 14)
        draw(lower, view, placed[~right], BLUE, 14)
        draw(lower, view, placed[right], ORANGE, 24)
        note(lower, f"FLT: {right.sum()} of {len(flt):,} have the right place")
    save()


def random_polygons(points, diameter, count):
    """Yields polygons of four points, at most the diameter and at least a third of it apart."""
    random, apart = np.random.default_rng(1), distances(points, points)
    while count:
        polygon = random.choice(np.flatnonzero(apart[random.integers(len(points))] < diameter), 4)
        sides = apart[np.ix_(polygon, polygon)][np.triu_indices(4, 1)]
        if diameter / 3 <= sides.min() and sides.max() <= diameter:
            count -= 1
            yield polygon


def draw_polygons():
    multiples = (8, 40, 160)
    view = camera(PLACED)
    axes, save = panels("polygons", view, 1, [f"{m} s = {m * S:.1f} mm" for m in multiples],
                        [(PALE, "FLT where FIX has points too"), (GREY, "FLT alone"),
                         (ORANGE, "polygon within the overlap"), (BLACK, "polygon beyond it")])
    fix, flt = features_of(FIX, 12 * S)[0], features_of(FLT, 12 * S)[0]
    placed = flt.moved(POSE)
    shared = distances(PLACED.points, FIX.points).min(1) < 2 * S
    to_fix = distances(placed.points, fix.points)
    partner, apart = to_fix.argmin(1), to_fix.min(1)
    for ax, m in zip(axes[0], multiples):
        draw(ax, view, PLACED[~shared], GREY, 14)
        draw(ax, view, PLACED[shared], PALE, 14)
        polygons = list(random_polygons(placed.points, m * S, 1000))
        within = [p for p in polygons if apart[p].max() < 3 * S]
        poses = [vo.procrustes(flt.points[p], fix.points[partner[p]]) for p in within if len(set(partner[p])) == 4]
        turns = [vo.Trafo(pose).rotation_distance(POSE) for pose in poses]
        seen = [p for p in polygons if (placed.normals[p] @ view[2]).min() > 0.05]
        for p in seen[:10]:
            x, y = (placed.points[p] @ view.T)[[0, 1, 2, 3, 0], :2].T
            ax.plot(x, y, "-o", ms=3.5, lw=1.5, color=ORANGE if apart[p].max() < 3 * S else BLACK)
        note(ax, f"{len(within) / 10:.0f} % within the overlap,\ntheir poses turned by {np.degrees(np.median(turns)):.1f}° (median)")
    save()


def draw_pairs():
    multiples = (0.5, 2, 12)
    view = camera(PLACED)
    axes, save = panels("pairs", view, 1, [f"{m} s = {m * S:.2f} mm" for m in multiples],
                        [(GREY, "FIX"), (BLUE, "FLT: no partner in FIX"), (ORANGE, "FLT: a partner"),
                         (BLACK, f"FLT: a partner farther than 2 s = {2 * S:.2f} mm")])
    apart = distances(PLACED.points, FIX.points)
    partner = apart.argmin(1)
    alike = (PLACED.normals * FIX.normals[partner]).sum(1) > np.cos(CONFIG["icpConfig"]["dNormalAngleTolerance"])
    for ax, m in zip(axes[0], multiples):
        paired = (apart.min(1) < m * S) & alike
        far = apart.min(1) >= 2 * S
        draw(ax, view, FIX, GREY, 8)
        for colour, chosen in ((BLUE, ~paired), (ORANGE, paired & ~far), (BLACK, paired & far)):
            draw(ax, view, PLACED[chosen], colour, 14)
        result = vo.icp((FIX.points, FIX.normals), (FLT.points, FLT.normals), POSE, config=CONFIG["icpConfig"],
                        dMinQueryRadius=m * S)
        print(f"dMinQueryRadius {m} s: {result.fStop_RMSE:.3f} mm RMSE")
        note(ax, f"{100 * paired.mean():.0f} % of FLT have a partner,\nsmall/big ratio {result.fStop_SmallBigRatio:.2f}: "
             + ("accepted" if result else "refused"))
    save()


FIX, FLT = Scan.read("hippo1.ply"), Scan.read("hippo2.ply")
FOUND = vo.register((FIX.points, FIX.normals), (FLT.points, FLT.normals))
POSE, CONFIG = FOUND.best.trafo, FOUND.settings["config"]
S = FOUND.settings["workingSpacing"] / 2  # the point spacing; scans are thinned to twice as much for the features
PLACED = FLT.moved(POSE)

if __name__ == "__main__":
    draw_features()
    draw_polygons()
    draw_pairs()
