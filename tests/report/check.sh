#!/usr/bin/env bash
# The committed page is the one that its sources make, and reports of a found, a refused and a large pair work in a browser
# without a network. Needs the release build and the files of ./run demo.
set -euo pipefail
cd "$(dirname "$0")/../.."

./run packages chromium fonts-dejavu-core
command -v npm >/dev/null || ./run packages nodejs npm

(cd exchange/report/web && npm ci --ignore-scripts --no-audit --no-fund && npm run build)
git diff --exit-code --stat -- exchange/report/web/dist || {
    echo "exchange/report/web/dist differs from what its sources make: run 'npm ci && npm run build' there and commit it"
    exit 1
}

voalgo=build/release/tools/voalgo
out=build/ci/report
rm -rf "$out"
mkdir -p "$out"
status=0
"$voalgo" register build/demo/simulated/fix.ply examples/data/hippo2.ply --quiet --report "$out/refused.html" || status=$?
((status == 2)) || { echo "two different objects: exit code $status instead of 2"; exit 1; }
"$voalgo" simulate --points 100000 --seed 3 --out "$out/large" >/dev/null
"$voalgo" register "$out/large/fix.ply" "$out/large/flt.ply" --quiet --report "$out/large.html"

SHOTS=$out node tests/report/check.mjs found=build/demo/hippo/report.html refused="$out/refused.html" found="$out/large.html"
