#!/usr/bin/env python3
"""Holds the includes of the sources to the order that CONTRIBUTING.md states: check_includes.py [FOLDER]"""
import pathlib
import re
import sys

# What each folder may include besides itself.
BASE = {"platform", "kdtree", "numerics", "clustering", "prereg"}
MAY = {
    "platform": set(), "kdtree": {"platform"}, "numerics": {"platform", "kdtree"},
    "clustering": {"platform", "kdtree", "numerics"}, "prereg": BASE, "runtime": {"platform"},
    "bson": {"platform", "runtime"}, "solvers": {"platform", "kdtree", "numerics", "clustering", "runtime"}, "colour": {"platform"},
    "raster": {"platform", "numerics"},
    "documents": BASE | {"bson", "runtime"}, "verdict": BASE | {"documents", "runtime"},
    "exchange": {"public", "platform"}, "tools": {"public", "platform", "exchange"}, "python": {"public", "platform", "exchange"},
}
# The names by which hosts include documents/records.h and documents/any.h.
FORWARDS = {"include/VoAlgorithms/bson/registration.h", "include/VoAlgorithms/runtime/any.h"}


def faults(root):
    folders = [root / name for name in MAY] + [root / "include/VoAlgorithms" / name for name in MAY]
    for path in sorted(p for f in folders for p in f.rglob("*") if p.suffix in (".h", ".cpp")):
        relative = path.relative_to(root)
        public = relative.parts[0] == "include"
        family = relative.parts[2 if public else 0]
        for target in re.findall(r'^#include "([^"]+)"', path.read_text(), re.M):
            parts = pathlib.PurePath(target).parts
            to = parts[1] if parts[0] == "VoAlgorithms" else parts[0]
            if len(parts) == 1 or to not in MAY or to == family or str(relative) in FORWARDS:
                if public and parts[0] != "VoAlgorithms":
                    yield f"{relative}: a public header includes the internal {target}"
                continue
            allowed = to in MAY[family] or ("public" in MAY[family] and parts[0] == "VoAlgorithms")
            if public and parts[0] != "VoAlgorithms" or not allowed:
                yield f"{relative}: {family} may not include {target}"
            elif parts[0] != "VoAlgorithms" and parts[-1].startswith("detail_"):
                yield f"{relative}: {target} serves its own folder alone"


if __name__ == "__main__":
    found = list(faults(pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parents[2]))
    print("\n".join(found) or "includes point one way")
    sys.exit(bool(found))
