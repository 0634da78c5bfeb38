#!/usr/bin/env python3
"""Draws verdict.svg from verdict.csv: what each test of the verdict lets pass as its limit moves, of the true poses and of
the wrong poses that the search accepted (a receiver operating curve a test); a dot marks the limit in use."""

import csv
import math

# column, title, limit in use, and whether a larger figure speaks for a pose
TESTS = [("agreement", "agreement", 0.8, True, "#0b6e99"), ("misfit_w", "misfit", 0.35, False, "#c4501b"),
         ("seen_empty", "seen-empty space", 0.03, False, "#3a7d34"), ("stability", "stability", 0.006, True, "#7b4ea3"),
         ("overlap", "overlap", 0.15, True, "#8a6d1d")]
WIDTH, HEIGHT, LEFT, TOP = 420, 260, 60, 24
LEAST = 0.001

rows = list(csv.DictReader(open("verdict.csv", encoding="ascii")))


def passing(column, limit, is_more, is_true):
    figures = [float(r[column]) for r in rows if int(r["is_true"]) == is_true]
    return sum(v >= limit if is_more else v <= limit for v in figures) / len(figures)


def at(wrong, true):
    """Logarithmic in the wrong poses; none of them counts as LEAST."""
    return LEFT + WIDTH * (1 - math.log(max(wrong, LEAST)) / math.log(LEAST)), TOP + HEIGHT * (1 - true)


def curve(column, is_more):
    limits = sorted({float(r[column]) for r in rows}, reverse=is_more)
    corners = [(0.0, 0.0)] + [(passing(column, v, is_more, 0), passing(column, v, is_more, 1)) for v in limits]
    return " ".join("%.1f,%.1f" % at(*c) for c in corners)


svg = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{LEFT + WIDTH + 170}" height="{TOP + HEIGHT + 52}" '
       'font-family="sans-serif" font-size="12">', '<rect width="100%" height="100%" fill="#fff"/>',
       f'<rect x="{LEFT}" y="{TOP}" width="{WIDTH}" height="{HEIGHT}" fill="none" stroke="#888"/>']
for wrong, name in ((0.001, "none"), (0.01, "1 %"), (0.1, "10 %"), (1, "100 %")):
    svg.append(f'<text x="{at(wrong, 0)[0]}" y="{TOP + HEIGHT + 16}" text-anchor="middle">{name}</text>')
for true in (0, 25, 50, 75, 100):
    svg.append(f'<text x="{LEFT - 8}" y="{at(1, true / 100)[1] + 4}" text-anchor="end">{true} %</text>')
svg += [f'<text x="{LEFT + WIDTH / 2}" y="{TOP + HEIGHT + 38}" text-anchor="middle">share of the wrong poses that pass</text>',
        f'<text transform="translate(18 {TOP + HEIGHT / 2}) rotate(-90)" text-anchor="middle">share of the true poses that pass</text>']
for i, (column, title, limit, is_more, colour) in enumerate(TESTS):
    x, y = at(passing(column, limit, is_more, 0), passing(column, limit, is_more, 1))
    label = TOP + 20 + 22 * i
    svg += [f'<polyline points="{curve(column, is_more)}" fill="none" stroke="{colour}" stroke-width="2"/>',
            f'<circle cx="{x:.1f}" cy="{y:.1f}" r="4" fill="{colour}"/>',
            f'<line x1="{LEFT + WIDTH + 14}" y1="{label - 4}" x2="{LEFT + WIDTH + 34}" y2="{label - 4}" stroke="{colour}" stroke-width="2"/>',
            f'<text x="{LEFT + WIDTH + 40}" y="{label}">{title}</text>']
open("verdict.svg", "w", encoding="ascii").write("\n".join(svg + ["</svg>"]) + "\n")
