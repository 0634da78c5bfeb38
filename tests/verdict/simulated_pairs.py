#!/usr/bin/env python3
"""Scores the tool on simulated scans: how many pairs with a known pose it registers, and that it accepts none of those
that it must refuse.

simulated_pairs.py VOALGO [--bodies N] [--points N] [--keep FILE]

Bodies of four families: free forms, turned parts with one small boss, prisms, and stacked blocks. Each body is scanned in
pairs of much, little and hardly any overlap, by scanners with different faults. Scans of different bodies are paired, too:
any pose is wrong then. A run is not part of the test suite: with 36 bodies it takes a quarter of an hour and more."""
import argparse
import collections
import json
import math
import pathlib
import random
import subprocess
import sys
import tempfile

LIMIT_DEG = 2.0
LIMIT_MM = 2.0
SCANNERS = [[], ["--correlation", "3", "--warp", "0.05"], ["--quantum", "0.05", "--noise", "0.02"],
            ["--smear", "0.1", "--holes", "0.1"], ["--clutter", "0.05"]]
OVERLAPS = {"much": 0.6, "little": 0.3, "hardly any": 0.04}


class Mesh:
    def __init__(self):
        self.vertices, self.faces = [], []

    def ring(self, points):
        first = len(self.vertices)
        self.vertices += points
        return list(range(first, first + len(points)))

    def band(self, low, high):
        n = len(low)
        for i in range(n):
            j = (i + 1) % n
            self.faces += [(low[i], low[j], high[j]), (low[i], high[j], high[i])]

    def cap(self, ring, is_top):
        c = len(self.vertices)
        k = len(ring)
        self.vertices.append(tuple(sum(self.vertices[i][a] for i in ring) / k for a in range(3)))
        for i in range(k):
            a, b = ring[i], ring[(i + 1) % k]
            self.faces.append((a, b, c) if is_top else (b, a, c))

    def tube(self, rings):
        rings = [self.ring(r) for r in rings]
        for low, high in zip(rings, rings[1:]):
            self.band(low, high)
        self.cap(rings[0], False)
        self.cap(rings[-1], True)

    def block(self, low, high):
        corners = [(low[0], low[1]), (high[0], low[1]), (high[0], high[1]), (low[0], high[1])]
        self.tube([[(x, y, z) for x, y in corners] for z in (low[2], high[2])])

    def write(self, path):
        with open(path, "w", encoding="ascii") as f:
            f.writelines("v %.6f %.6f %.6f\n" % v for v in self.vertices)
            f.writelines("f %d %d %d\n" % tuple(i + 1 for i in face) for face in self.faces)


def turned(draw):
    """A surface of revolution with one small boss, without which its angle could not be told."""
    mesh = Mesh()
    z, rings = 0.0, []
    for _ in range(draw.randint(4, 8)):
        r = draw.uniform(12, 45)
        rings += [(r, z), (r * draw.uniform(0.8, 1.0), z + (step := draw.uniform(6, 18)))]
        z += step
    circle = [(math.cos(a), math.sin(a)) for a in (2 * math.pi * i / 96 for i in range(96))]
    mesh.tube([[(r * c, r * s, h + 0.01 * k) for c, s in circle] for k, (r, h) in enumerate(rings)])
    top = rings[-1][0]
    size = draw.uniform(4, 7)
    mesh.block((top * 0.3, -size, z - 5), (top * 0.3 + size, size, z + size))
    return mesh


def prism(draw):
    mesh = Mesh()
    n = draw.randint(5, 9)
    angles = sorted(2 * math.pi * (i + draw.uniform(0, 0.7)) / n for i in range(n))
    outline = [(r * math.cos(a), r * math.sin(a)) for a in angles for r in [draw.uniform(20, 50)]]
    mesh.tube([[(x, y, h) for x, y in outline] for h in (0.0, draw.uniform(20, 70))])
    return mesh


def blocks(draw):
    mesh = Mesh()
    for _ in range(draw.randint(3, 6)):
        low = [draw.uniform(-40, 20) for _ in range(3)]
        mesh.block(low, [v + draw.uniform(12, 50) for v in low])
    return mesh


FAMILIES = {"free form": None, "turned part": turned, "prism": prism, "blocks": blocks}


def simulate(tool, out, body, overlap, points, mesh):
    scanner = SCANNERS[body % len(SCANNERS)]
    command = [tool, "simulate", "--out", out, "--seed", str(100 + body), "--points", str(points), "--overlap", str(overlap)]
    subprocess.run(command + scanner + (["--mesh", mesh] if mesh else []), check=True, capture_output=True)


def register(tool, fix, flt):
    run = subprocess.run([tool, "register", fix, flt, "--json", "--quiet"], capture_output=True, text=True, check=False)
    if run.returncode not in (0, 2):  # accepted, refused
        sys.exit("%s %s: exit %d: %s" % (fix, flt, run.returncode, run.stderr))
    return json.loads(run.stdout)


def read_pose(path):
    rows = [line.split() for line in open(path, encoding="ascii") if line.strip() and not line.startswith("#")]
    return [[float(v) for v in row] for row in rows]


def distance(a, b, centre):
    """Angle between two poses, degrees, and how far apart they put `centre`, mm."""
    trace = sum(a[i][j] * b[i][j] for i in range(3) for j in range(3))
    moved = [[sum(m[i][j] * centre[j] for j in range(3)) + m[i][3] for i in range(3)] for m in (a, b)]
    return math.degrees(math.acos(max(-1.0, min(1.0, (trace - 1) / 2)))), math.dist(*moved)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("tool")
    parser.add_argument("--bodies", type=int, default=36)
    parser.add_argument("--points", type=int, default=10000)
    parser.add_argument("--keep", help="file for one line of JSON a run")
    args = parser.parse_args()
    log = open(args.keep, "w", encoding="utf-8") if args.keep else None
    counts = collections.defaultdict(collections.Counter)

    def note(kind, names, verdict, answer):
        counts[kind][verdict] += 1
        if log:
            print(json.dumps({"kind": kind, "pair": names, "verdict": verdict, "reason": answer["reason"]}), file=log, flush=True)

    with tempfile.TemporaryDirectory() as folder:
        place = pathlib.Path(folder)
        names = list(FAMILIES)
        for body in range(args.bodies):
            make = FAMILIES[names[body % len(names)]]
            mesh = str(place / ("%d.obj" % body)) if make else None
            if make:
                make(random.Random(body)).write(mesh)
            for overlap, share in OVERLAPS.items():
                out = place / ("%d %s" % (body, overlap))
                simulate(args.tool, str(out), body, share, args.points, mesh)
                answer = register(args.tool, str(out / "fix.ply"), str(out / "flt.ply"))
                verdict = "refused"
                if not answer["reason"]:
                    turn, shift = distance(read_pose(out / "truth.txt"), answer["results"][0]["pose"], [0.0, 0.0, 0.0])
                    verdict = "right" if turn < LIMIT_DEG and shift < LIMIT_MM else "WRONG"
                note("%s, %s overlap" % (names[body % len(names)], overlap), [body, body], verdict, answer)
        for a in range(args.bodies):
            for b in range(args.bodies):
                if a == b:
                    continue
                answer = register(args.tool, str(place / ("%d much" % a) / "fix.ply"), str(place / ("%d much" % b) / "flt.ply"))
                kind = "different bodies, %s and %s" % tuple(sorted(names[i % len(names)] for i in (a, b)))
                note(kind, [a, b], "refused" if answer["reason"] else "WRONG", answer)
    for kind, results in sorted(counts.items()):
        print("%-50s %s" % (kind, ", ".join("%d %s" % (n, verdict) for verdict, n in results.most_common())))
    total = sum(counts.values(), collections.Counter())
    print("all: " + ", ".join("%d %s" % (n, verdict) for verdict, n in total.most_common()))
    sys.exit(1 if total["WRONG"] else 0)


if __name__ == "__main__":
    main()
