#!/usr/bin/env python3
"""Draws radii.svg from radii.csv: accepted proposals among 1,000 polygons against one length in spacings."""

import csv
import math

WIDTH, HEIGHT, GAP, LEFT, TOP = 250, 190, 62, 58, 46
COLOURS = {"figure, overlap 0.79": "#0b6e99", "rabbit, overlap 0.55": "#c4501b"}
TITLES = {"dFeatureRadius": "feature radius", "dMaxPolygonDiameter": "polygon diameter",
          "dMaxPolygonVertexError": "vertex error"}
DEFAULTS = {"dFeatureRadius": 12, "dMaxPolygonDiameter": 40, "dMaxPolygonVertexError": 3}
MOST = 240

panels = {}
for row in csv.DictReader(open("radii.csv")):
    panels.setdefault(row["setting"], {}).setdefault(row["pair"], []).append(
        (float(row["spacings"]), int(row["accepted"]), row["found"] == "1"))


def panel(left, setting, pairs):
    lengths = [x for points in pairs.values() for x, _, _ in points]
    low, high = math.log(min(lengths)), math.log(max(lengths))

    def at(x, y):
        return left + WIDTH * (math.log(x) - low) / (high - low), TOP + HEIGHT * (1 - y / MOST)

    yield f'<rect x="{left}" y="{TOP}" width="{WIDTH}" height="{HEIGHT}" fill="none" stroke="#888"/>'
    yield f'<text x="{left + WIDTH / 2}" y="{TOP - 12}" text-anchor="middle" font-weight="bold">{TITLES[setting]}</text>'
    for y in range(0, MOST + 1, 60):
        yield f'<text x="{left - 8}" y="{at(min(lengths), y)[1] + 4}" text-anchor="end">{y}</text>'
    first = next(iter(pairs.values()))
    for x, _, _ in first[::2]:
        yield f'<text x="{at(x, 0)[0]}" y="{TOP + HEIGHT + 17}" text-anchor="middle">{x:g}</text>'
    x = at(DEFAULTS[setting], 0)[0]
    yield f'<line x1="{x}" y1="{TOP}" x2="{x}" y2="{TOP + HEIGHT}" stroke="#888" stroke-dasharray="4 3"/>'
    for name, points in pairs.items():
        path = " ".join("{:.1f},{:.1f}".format(*at(x, y)) for x, y, _ in points)
        yield f'<polyline points="{path}" fill="none" stroke="{COLOURS[name]}" stroke-width="2"/>'
        for x, y, found in points:
            cx, cy = at(x, y)
            fill = COLOURS[name] if found else "white"
            yield f'<circle cx="{cx:.1f}" cy="{cy:.1f}" r="4" fill="{fill}" stroke="{COLOURS[name]}" stroke-width="1.5"/>'


total = LEFT + 3 * WIDTH + 2 * GAP + 20
lines = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{total}" height="{TOP + HEIGHT + 80}" '
         'font-family="sans-serif" font-size="12" fill="#222">',
         f'<rect width="{total}" height="{TOP + HEIGHT + 80}" fill="white"/>']
for i, (setting, pairs) in enumerate(panels.items()):
    lines += panel(LEFT + i * (WIDTH + GAP), setting, pairs)
bottom = TOP + HEIGHT + 40
lines.append(f'<text x="{LEFT + 1.5 * WIDTH + GAP}" y="{bottom}" text-anchor="middle">length in spacings</text>')
lines.append(f'<text transform="rotate(-90 14 {TOP + HEIGHT / 2})" x="14" y="{TOP + HEIGHT / 2}" '
             'text-anchor="middle">accepted proposals</text>')
for i, (name, colour) in enumerate(COLOURS.items()):
    x = LEFT + i * 190
    lines.append(f'<circle cx="{x}" cy="{bottom + 20}" r="4" fill="{colour}"/><text x="{x + 10}" y="{bottom + 24}">{name}</text>')
lines.append(f'<text x="{LEFT + 390}" y="{bottom + 24}">hollow: no pose accepted   dashed: default</text></svg>')
open("radii.svg", "w").write("\n".join(lines))
