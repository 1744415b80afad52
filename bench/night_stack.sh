#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# The night without registration: master bias, dark, flat dark and flat, every light
# calibrated, then a sigma-clipped average and a median of the calibrated lights, by us, by
# Siril and by ccdproc on the same still night (24 lights of 3000x2000, 10 of each calibration
# frame, no motion). Each run is timed under /usr/bin/time -v; the stacks' background noise is
# measured against the night's truth with `astrivelle-synth measure`.
#
# usage: bench/night_stack.sh [--build DIR] [--size WxH] [--frames N] [--calibration N]
# Writes bench-output/night-stack/ and prints one table (wall seconds, peak RSS, noise).
set -euo pipefail

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
. "$ROOT/bench/common.sh"
BUILD=$ROOT/build/release
SIZE=3000x2000
FRAMES=24
CALIBRATION=10
while (($#)); do
    case $1 in
        --build) BUILD=$2; shift 2 ;;
        --size) SIZE=$2; shift 2 ;;
        --frames) FRAMES=$2; shift 2 ;;
        --calibration) CALIBRATION=$2; shift 2 ;;
        *) echo "bench/night_stack.sh: unknown argument $1" >&2; exit 2 ;;
    esac
done
bench_paths
OUT=$ROOT/bench-output/night-stack
DATA=$OUT/data
n=$CALIBRATION
params=(night --seed 3 --no-motion --frames "$FRAMES" --size "$SIZE" --darks "$n" --flats "$n"
    --flat-darks "$n" --bias "$n" --quiet)
if [ "$(cat "$DATA/.params" 2>/dev/null)" != "${params[*]}" ]; then
    rm -rf "$DATA"
    mkdir -p "$DATA"
    "$BUILD/astrivelle-synth" "${params[@]}" --out "$DATA"
    printf '%s' "${params[*]}" >"$DATA/.params"
fi

# timed NAME DIR CMD...: runs CMD in DIR; NAME.time holds /usr/bin/time's figures.
timed() {
    local name=$1 dir=$2
    shift 2
    mkdir -p "$dir"
    if ! (cd "$dir" && /usr/bin/time -v -o "$OUT/$name.time" "$@") >"$OUT/$name.log" 2>&1; then
        echo "$name failed, see $OUT/$name.log" >&2
    fi
}
noise() {
    "$PY" "$PEERS/score.py" --synth "$BUILD/astrivelle-synth" --truth "$DATA/truth.json" \
        --out "$OUT/$1.quality.json" --image "$2" --keys noise >/dev/null 2>&1 || true
    "$PY" -c "import json; print(round(json.load(open('$OUT/$1.quality.json')).get('noise', float('nan')), 3))"
}

# --- ours ----------------------------------------------------------------------------------
W=$OUT/astrivelle
rm -rf "$W"
timed ours-sigma "$W" bash -c "
$C combine --quiet --method SIGMED --name bias -o masters $DATA/bias/*.fit &&
$C combine --quiet --method SIGMED --name dark -o masters $DATA/darks/*.fit &&
$C combine --quiet --method SIGMED --name flatdark -o masters $DATA/flatdarks/*.fit &&
$C combine --quiet --method SIGMED --name flat -o masters $DATA/flats/*.fit &&
$C calibrate --quiet --dark masters/dark.fit --flat masters/flat.fit \
    --flat-dark masters/flatdark.fit -o calibrated $DATA/lights/*.fit &&
$C combine --quiet --method SIGAVG --name stack -o . calibrated/*.fit"
timed ours-median "$W" bash -c "$C combine --quiet --method MED --name median -o . calibrated/*.fit"

# --- Siril ---------------------------------------------------------------------------------
S=$OUT/siril
rm -rf "$S"
mkdir -p "$S/process"
for kind in lights darks flats flatdarks bias; do
    mkdir -p "$S/$kind"
    i=1
    for f in $(find "$DATA/$kind" -name '*.fit' | LC_ALL=C sort); do
        ln -s "$f" "$S/$kind/$(printf '%s_%05d.fit' "${kind%s}" "$i")"
        i=$((i + 1))
    done
done
cat >"$S/sigma.ssf" <<'EOF'
requires 1.0.0
setext fit
cd bias
convert bia -out=../process
cd ../darks
convert dark -out=../process
cd ../flatdarks
convert flatdark -out=../process
cd ../flats
convert flat -out=../process
cd ../lights
convert light -out=../process
cd ../process
stack bia rej s 3 3 -nonorm -out=master_bias
stack dark rej s 3 3 -nonorm -out=master_dark
stack flatdark rej s 3 3 -nonorm -out=master_flatdark
preprocess flat -dark=master_flatdark
stack pp_flat rej s 3 3 -norm=mul -out=master_flat
preprocess light -dark=master_dark -flat=master_flat
stack pp_light rej s 3 3 -norm=addscale -out=../stack
EOF
printf '%s\n' "requires 1.0.0" "setext fit" "cd process" "stack pp_light med -nonorm -out=../median" \
    >"$S/median.ssf"
timed siril-sigma "$S" siril-cli -d "$S" -s "$S/sigma.ssf"
timed siril-median "$S" siril-cli -d "$S" -s "$S/median.ssf"

# --- ccdproc -------------------------------------------------------------------------------
P=$OUT/ccdproc
rm -rf "$P"
timed ccdproc-sigma "$P" bash -c "$PY $PEERS/ccdproc_calibrate.py --data $DATA --out . &&
$PY $PEERS/ccdproc_stack.py --in calibrated --out stack.fit"

rm -rf "$OUT"/score-*
printf '\n%-22s %10s %12s %10s\n' "run" "wall s" "peak MB" "noise"
printf '%-22s %10s %12s %10s\n' "ours sigma" "$(wall ours-sigma)" "$(rss ours-sigma)" \
    "$(noise ours-sigma "$W/stack.fit")"
printf '%-22s %10s %12s %10s\n' "Siril sigma" "$(wall siril-sigma)" "$(rss siril-sigma)" \
    "$(noise siril-sigma "$S/stack.fit")"
printf '%-22s %10s %12s %10s\n' "ccdproc sigma" "$(wall ccdproc-sigma)" "$(rss ccdproc-sigma)" \
    "$(noise ccdproc-sigma "$P/stack.fit")"
printf '%-22s %10s %12s\n' "ours median" "$(wall ours-median)" "$(rss ours-median)"
printf '%-22s %10s %12s\n' "Siril median" "$(wall siril-median)" "$(rss siril-median)"
