#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Star detection on one large frame: our `stars` against SEP (python3-sep) on the same
# calibrated 6000x4000 light, each timed under /usr/bin/time -v, each list scored against the
# night's truth (completeness of the true stars by SNR, position error) with
# `astrivelle-synth measure`.
#
# usage: bench/detect_wide.sh [--build DIR] [--size WxH]
# Writes bench-output/detect-wide/ and prints one table.
set -euo pipefail

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
. "$ROOT/bench/common.sh"
BUILD=$ROOT/build/release
SIZE=6000x4000
while (($#)); do
    case $1 in
        --build) BUILD=$2; shift 2 ;;
        --size) SIZE=$2; shift 2 ;;
        *) echo "bench/detect_wide.sh: unknown argument $1" >&2; exit 2 ;;
    esac
done
bench_paths
OUT=$ROOT/bench-output/detect-wide
DATA=$OUT/data
params=(night --seed 5 --frames 1 --size "$SIZE" --darks 3 --flats 3 --flat-darks 3 --bias 3
    --quiet)
if [ "$(cat "$DATA/.params" 2>/dev/null)" != "${params[*]}" ]; then
    rm -rf "$DATA"
    mkdir -p "$DATA"
    "$BUILD/astrivelle-synth" "${params[@]}" --out "$DATA"
    printf '%s' "${params[*]}" >"$DATA/.params"
fi
# The frame both programs search: the light less its dark, over the flat (not timed).
W=$OUT/work
rm -rf "$W"
mkdir -p "$W"
calibrate_lights "$C" "$DATA" "$W" --save-type UNCOMPFIT32 >"$OUT/prepare.log" 2>&1
FRAME=$(ls "$W"/calibrated/*.fit | head -n 1)

/usr/bin/time -v -o "$OUT/ours.time" bash -c \
    "$C stars --json --fwhm '$FRAME' >'$W/stars.json'" >"$OUT/ours.log" 2>&1
"$PY" -c "import json; [print(s['x'] - 1, s['y'] - 1) for s in json.load(open('$W/stars.json'))['stars']]" \
    >"$W/ours.txt"
/usr/bin/time -v -o "$OUT/sep.time" "$PY" "$PEERS/sep_detect.py" --image "$FRAME" \
    --out "$W/sep.txt" >"$OUT/sep.log" 2>&1

figures() {
    "$PY" "$PEERS/score.py" --synth "$BUILD/astrivelle-synth" --truth "$DATA/truth.json" \
        --out "$OUT/$1.quality.json" --image "$FRAME" --stars "$W/$1.txt" >/dev/null 2>&1 || true
    "$PY" -c "import json; q = json.load(open('$OUT/$1.quality.json')); q.pop('notes', None); print(json.dumps(q))"
}
printf '%-8s %8s %8s %8s  %s\n' "program" "wall s" "peak MB" "found" "quality"
for p in ours sep; do
    printf '%-8s %8s %8s %8s  %s\n' "$p" "$(wall "$p")" "$(rss "$p")" "$(wc -l <"$W/$p.txt")" \
        "$(figures "$p")"
done
rm -rf "$OUT"/score-*
