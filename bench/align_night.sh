#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Star alignment of the 24-frame night, side by side: our quick alignment and our descriptor
# matching against astroalign (python3-astroalign) on the same calibrated lights, each timed
# under /usr/bin/time -v and scored against the night's truth (the largest corner error over
# the frames) with `astrivelle-synth measure`.
#
# usage: bench/align_night.sh [--build DIR]
# Needs the night of bench/run.sh (bench-output/data/night-mono); writes
# bench-output/align-night/ and prints one table.
set -euo pipefail

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
. "$ROOT/bench/common.sh"
BUILD=$ROOT/build/release
while (($#)); do
    case $1 in
        --build) BUILD=$2; shift 2 ;;
        *) echo "bench/align_night.sh: unknown argument $1" >&2; exit 2 ;;
    esac
done
bench_paths
DATA=$ROOT/bench-output/data/night-mono
OUT=$ROOT/bench-output/align-night
if [ ! -f "$DATA/truth.json" ]; then
    echo "bench/align_night.sh: no night in $DATA; run bench/run.sh --sets night first" >&2
    exit 2
fi
W=$OUT/work
rm -rf "$OUT"
mkdir -p "$W"
# The lights all three align: less their dark, over the flat (not timed).
calibrate_lights "$C" "$DATA" "$W" >"$OUT/prepare.log" 2>&1
N=$(ls "$W"/calibrated/*.fit | wc -l)

for method in quick autostar; do
    (cd "$W" && /usr/bin/time -v -o "$OUT/$method.time" "$C" align --quiet --method "$method" \
        --transforms "$method.txt" -o "$method" calibrated/*.fit) >"$OUT/$method.log" 2>&1 || true
done
/usr/bin/time -v -o "$OUT/astroalign.time" "$PY" "$PEERS/astroalign_register.py" \
    --in "$W/calibrated" --out "$W/astroalign" --transforms "$W/astroalign.txt" \
    >"$OUT/astroalign.log" 2>&1 || true

corner() {
    "$PY" "$PEERS/score.py" --synth "$BUILD/astrivelle-synth" --truth "$DATA/truth.json" \
        --out "$OUT/$1.quality.json" --lights "$DATA/lights" --transforms "$W/$1.txt" \
        >/dev/null 2>&1 || true
    "$PY" -c "import json; print(round(json.load(open('$OUT/$1.quality.json')).get('cornerError', float('nan')), 3))" 2>/dev/null || echo "-"
}
printf '%-11s %8s %10s %8s %8s %12s\n' program "wall s" "s/frame" "peak MB" aligned cornerError
for p in quick autostar astroalign; do
    w=$(wall "$p")
    printf '%-11s %8s %10s %8s %8s %12s\n' "$p" "$w" "$(awk -v w="$w" -v n="$N" 'BEGIN { printf "%.3f", w / n }')" \
        "$(rss "$p")" "$(wc -l <"$W/$p.txt" 2>/dev/null || echo 0)" "$(corner "$p")"
done
