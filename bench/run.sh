#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# End-to-end benchmarks: runs each pipeline step of ours side by side with peer programs
# (Siril, ccdproc, astroalign, SEP) on the same synthetic nights, times every run under
# /usr/bin/time -v, scores the outputs against the nights' truth with `astrivelle-synth measure`
# and writes bench/results/latest.md.
#
# usage: bench/run.sh [--sets quick|night|all] [--build DIR] [--timeout SECONDS] [--regen]
#   --sets     which data sets (default: $BENCH_SETS, else all); each comes mono and RGGB
#   --build    the build folder holding astrivelle-synth (default build/release)
#   --timeout  limit of one run in seconds (default: $BENCH_TIMEOUT, else 1800)
#   --regen    make the data sets again even when they exist with the same parameters
# Environment: BENCH_SYNTH overrides the generator program (default BUILD/astrivelle-synth),
# BENCH_RESULTS the folder of latest.md (default bench/results).
# Outputs: bench-output/data/<set>/ (the nights), bench-output/work/<set>/<program>/ (each
# program's folder with its logs), bench-output/runs/<set>/<task>/*.json (one record per run).
set -euo pipefail

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
BUILD=$ROOT/build/release
OUT=$ROOT/bench-output
SETS=${BENCH_SETS:-all}
TIMEOUT=${BENCH_TIMEOUT:-1800}
REGEN=0

usage() { sed -n '8,17p' "${BASH_SOURCE[0]}" | sed 's/^# \{0,1\}//'; }

while (($#)); do
    case $1 in
        --sets) SETS=${2:?--sets needs a value}; shift 2 ;;
        --sets=*) SETS=${1#*=}; shift ;;
        --build) BUILD=${2:?--build needs a value}; shift 2 ;;
        --build=*) BUILD=${1#*=}; shift ;;
        --timeout) TIMEOUT=${2:?--timeout needs a value}; shift 2 ;;
        --timeout=*) TIMEOUT=${1#*=}; shift ;;
        --regen) REGEN=1; shift ;;
        -h | --help) usage; exit 0 ;;
        *) echo "bench/run.sh: unknown argument $1" >&2; usage >&2; exit 2 ;;
    esac
done
case $SETS in
    quick | night | all) ;;
    *) echo "bench/run.sh: --sets must be quick, night or all" >&2; exit 2 ;;
esac
case $BUILD in /*) ;; *) BUILD=$ROOT/$BUILD ;; esac
SYNTH=${BENCH_SYNTH:-$BUILD/astrivelle-synth}
# The peers are Debian's Python modules: use Debian's interpreter, not whatever is first on PATH.
PY=/usr/bin/python3
PEERS=$ROOT/bench/peers
RUNS=$OUT/runs
RESULTS=${BENCH_RESULTS:-$ROOT/bench/results}
LOAD_START=$(cut -d' ' -f1-3 /proc/loadavg 2>/dev/null || echo "?")
# shellcheck source=tasks.sh
source "$ROOT/bench/tasks.sh"

say() { printf '%s\n' "$*"; }

# --- peers from Debian's packages: only what is missing, with sudo when not root ---------------
install_peers() {
    local packages=(siril python3-ccdproc python3-astroalign python3-sep python3-astropy
        python3-numpy time)
    local missing=() p
    for p in "${packages[@]}"; do
        if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
            missing+=("$p")
        fi
    done
    if ((${#missing[@]} == 0)); then
        say "bench: peers are installed"
        return
    fi
    local sudo=""
    if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
    say "bench: installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    $sudo apt-get update -qq
    $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

# --- data sets ---------------------------------------------------------------------------------
# make_set NAME FRAMES SIZE CALIBRATION_FRAMES BAYER: bench-output/data/NAME, reused when it was
# made with the same parameters.
make_set() {
    local name=$1 frames=$2 size=$3 n=$4 bayer=$5
    local dir=$OUT/data/$name
    local params=(night --seed 1 --frames "$frames" --size "$size" --darks "$n" --flats "$n"
        --flat-darks "$n" --bias "$n")
    if [ -n "$bayer" ]; then params+=(--bayer "$bayer"); fi
    if ((REGEN == 0)) && [ -f "$dir/truth.json" ] &&
        [ "$(cat "$dir/.bench-params" 2>/dev/null)" = "${params[*]}" ]; then
        say "bench: $name: reusing $dir"
        return
    fi
    say "bench: $name: making ${params[*]}"
    rm -rf "$dir"
    mkdir -p "$dir"
    "$SYNTH" "${params[@]}" --out "$dir"
    printf '%s' "${params[*]}" >"$dir/.bench-params"
}

# link_inputs DATA INPUTS: INPUTS/<kind>/<prefix>_NNNNN.fit symlinks to the night's files in
# name order, so that every program sees the frames numbered the same way.
link_inputs() {
    local data=$1 inputs=$2 kind prefix i f
    for kind in lights darks flats flatdarks bias; do
        case $kind in
            lights) prefix=light ;; darks) prefix=dark ;; flats) prefix=flat ;;
            flatdarks) prefix=flatdark ;; bias) prefix=bias ;;
        esac
        mkdir -p "$inputs/$kind"
        i=1
        while IFS= read -r f; do
            [ -n "$f" ] || continue
            ln -s "$f" "$inputs/$kind/$(printf '%s_%05d.fit' "$prefix" "$i")"
            i=$((i + 1))
        done < <(find "$data/$kind" -maxdepth 1 \( -name '*.fit' -o -name '*.fits' \) 2>/dev/null |
            LC_ALL=C sort)
    done
}

count_fits() { find "$1" -maxdepth 1 \( -name '*.fit' -o -name '*.fits' \) 2>/dev/null | wc -l; }
first_fits() {
    find "$1" -maxdepth 1 \( -name '*.fit' -o -name '*.fits' \) 2>/dev/null | LC_ALL=C sort |
        head -n 1
}

# --- running and recording ---------------------------------------------------------------------
# timed DIR LABEL CMD...: runs CMD in DIR under /usr/bin/time -v and the timeout; DIR/LABEL.log
# gets its output, DIR/LABEL.time the figures; RC its exit status.
timed() {
    local dir=$1 label=$2
    shift 2
    local start=$SECONDS
    printf '    %-34s' "$(basename "$dir") $label"
    if (cd "$dir" && /usr/bin/time -v -o "$dir/$label.time" \
        timeout -k 10 "$TIMEOUT" "$@") >"$dir/$label.log" 2>&1; then
        RC=0
    else
        RC=$?
    fi
    case $RC in
        0) say "ok, $((SECONDS - start)) s" ;;
        124 | 137) say "timeout after $TIMEOUT s" ;;
        *) say "failed ($RC), see $dir/$label.log" ;;
    esac
}

# record SET TASK PROGRAM ORDER [report.py record options]: one run's JSON.
record() {
    local set=$1 task=$2 program=$3 order=$4
    shift 4
    "$PY" "$PEERS/report.py" record --out "$RUNS/$set/$task/$order-$program.json" \
        --set "$set" --task "$task" --program "$program" --order "$order" "$@"
}

# record_timed SET TASK PROGRAM ORDER DIR LABEL [QUALITY_JSON] [notes...]
record_timed() {
    local set=$1 task=$2 program=$3 order=$4 dir=$5 label=$6 quality=${7:-}
    shift 7 || shift $#
    local notes=() n
    for n in "$@"; do notes+=(--note "$n"); done
    record "$set" "$task" "$program" "$order" --time "$dir/$label.time" --exit "$RC" \
        --timeout "$TIMEOUT" ${quality:+--quality "$quality"} "${notes[@]}"
}

# score OUT.json [score.py options]: quality figures of an output (not timed).
score() {
    local out=$1
    shift
    "$PY" "$PEERS/score.py" --synth "$SYNTH" --truth "$TRUTH" --out "$out" "$@" ||
        echo '{"notes": ["scoring failed"]}' >"$out"
}

# --- Siril scripts (1.0 syntax); each part starts and ends in the work folder ------------------
siril_masters_calibrate() {
    local cfa=$1
    cat <<'EOF'
cd bias
convert bias -out=../process
cd ../process
stack bias rej s 3 3 -nonorm -out=master_bias
cd ../darks
convert dark -out=../process
cd ../process
stack dark rej s 3 3 -nonorm -out=master_dark
cd ../flatdarks
convert flatdark -out=../process
cd ../process
stack flatdark rej s 3 3 -nonorm -out=master_flatdark
cd ../flats
convert flat -out=../process
cd ../process
preprocess flat -dark=master_flatdark
stack pp_flat rej s 3 3 -norm=mul -out=master_flat
cd ../lights
convert light -out=../process
cd ../process
EOF
    if [ -n "$cfa" ]; then
        echo "preprocess light -dark=master_dark -flat=master_flat -cfa -equalize_cfa -debayer"
    else
        echo "preprocess light -dark=master_dark -flat=master_flat"
    fi
    echo "cd .."
}
siril_register() {
    printf '%s\n' "cd process" "setref pp_light 1" "register pp_light" "cd .."
}
siril_stack() {
    printf '%s\n' "cd process" "stack r_pp_light rej s 3 3 -norm=addscale -out=../stack" "cd .."
}
# siril_script FILE PARTS...: a script made of the given parts.
siril_script() {
    local file=$1 part
    shift
    {
        echo "requires 1.0.0"
        echo "setext fit"
        for part in "$@"; do $part "$CFA"; done
    } >"$file"
}
siril_run() { timed "$1" "$2" siril-cli -d "$1" -s "$1/$2.ssf"; }

# siril_folder DIR: a Siril work folder with the frames linked in (real folders: Siril's
# "cd ../process" from a linked folder would land beside the link's target).
siril_folder() {
    local dir=$1 kind
    mkdir -p "$dir/process"
    for kind in lights darks flats flatdarks bias; do
        mkdir -p "$dir/$kind"
        cp -P "$INPUTS/$kind"/* "$dir/$kind"/ 2>/dev/null || true
    done
}

# --- one data set ------------------------------------------------------------------------------
run_set() {
    local set=$1 bayer=$2
    local data=$OUT/data/$set
    local work=$OUT/work/$set
    TRUTH=$data/truth.json
    CFA=$bayer
    rm -rf "${work:?}" "${RUNS:?}/$set"
    mkdir -p "$work" "$RUNS/$set"
    INPUTS=$work/inputs
    link_inputs "$data" "$INPUTS"
    local lights=$INPUTS/lights
    local cfa_note=""
    local siril_note=""
    if [ -n "$bayer" ]; then
        cfa_note="CFA data taken as mono"
        siril_note="debayered (its default RGGB: it does not read BAYERPAT 'RG,GB')"
    fi
    say "bench: $set ($(count_fits "$lights") lights)"

    ours "$set" "$data" "$work/astrivelle" "$bayer"

    # Siril, task by task in one folder: each step starts from the one before.
    local s=$work/siril q
    siril_folder "$s"
    siril_script "$s/calibrate.ssf" siril_masters_calibrate
    siril_script "$s/register.ssf" siril_register
    siril_script "$s/stack.ssf" siril_stack
    siril_run "$s" calibrate
    local siril_cal=$s/process/pp_light_00001.fit
    q=$s/calibrate.quality.json
    if ((RC == 0)); then score "$q" --image "$siril_cal" --keys noise,fwhm; fi
    record_timed "$set" calibrate Siril 1 "$s" calibrate "$q" "$siril_note" \
        "first calibrated light scored"
    if ((RC == 0)); then
        siril_run "$s" register
        q=$s/register.quality.json
        if ((RC == 0)); then
            "$PY" "$PEERS/siril_transforms.py" --log "$s/register.log" --image "$siril_cal" \
                --out "$s/transforms.txt" 2>"$s/transforms.log" &&
                score "$q" --lights "$lights" --transforms "$s/transforms.txt"
        fi
        record_timed "$set" register Siril 2 "$s" register "$q" "$siril_note" \
            "includes writing resampled frames; transforms from its log (5 decimals)"
    else
        record "$set" register Siril 2 --status skipped --note "needs its calibrate step"
    fi
    if ((RC == 0)); then
        siril_run "$s" stack
        q=$s/stack.quality.json
        if ((RC == 0)); then score "$q" --image "$s/stack.fit" --reference "$siril_cal"; fi
        record_timed "$set" stack Siril 3 "$s" stack "$q" "$siril_note" \
            "sigma 3/3 rejection, addscale normalisation"
    else
        record "$set" stack Siril 3 --status skipped --note "needs its register step"
    fi

    # Siril, the whole pipeline in one script.
    local sp=$work/siril-pipeline
    siril_folder "$sp"
    siril_script "$sp/pipeline.ssf" siril_masters_calibrate siril_register siril_stack
    siril_run "$sp" pipeline
    q=$sp/pipeline.quality.json
    if ((RC == 0)); then
        score "$q" --image "$sp/stack.fit" --reference "$sp/process/pp_light_00001.fit"
    fi
    record_timed "$set" pipeline Siril 1 "$sp" pipeline "$q" "$siril_note"

    # ccdproc calibrates; astroalign registers its output; ccdproc stacks astroalign's output.
    local c=$work/ccdproc a=$work/astroalign
    mkdir -p "$c" "$a"
    timed "$c" calibrate "$PY" "$PEERS/ccdproc_calibrate.py" --data "$INPUTS" --out "$c"
    local cc_cal
    cc_cal=$(first_fits "$c/calibrated")
    q=$c/calibrate.quality.json
    if ((RC == 0)); then score "$q" --image "$cc_cal" --keys noise,fwhm; fi
    record_timed "$set" calibrate ccdproc 2 "$c" calibrate "$q" "$cfa_note" \
        "sigma-clipped median masters; first calibrated light scored"
    local cc_ok=$RC
    if ((cc_ok == 0)); then
        timed "$a" register "$PY" "$PEERS/astroalign_register.py" --in "$c/calibrated" \
            --out "$a/registered" --transforms "$a/transforms.txt"
        q=$a/register.quality.json
        if [ -s "$a/transforms.txt" ]; then
            score "$q" --lights "$lights" --transforms "$a/transforms.txt"
        fi
        record_timed "$set" register astroalign 3 "$a" register "$q" "$cfa_note" \
            "ccdproc's calibrated lights; includes writing resampled frames"
    else
        record "$set" register astroalign 3 --status skipped --note "needs ccdproc's calibrate"
    fi
    if ((cc_ok == 0)) && [ "$(count_fits "$a/registered")" -gt 1 ]; then
        timed "$c" stack "$PY" "$PEERS/ccdproc_stack.py" --in "$a/registered" --out "$c/stack.fit"
        q=$c/stack.quality.json
        if ((RC == 0)); then score "$q" --image "$c/stack.fit" --reference "$cc_cal"; fi
        record_timed "$set" stack ccdproc 4 "$c" stack "$q" "$cfa_note" \
            "astroalign's registered frames; Combiner sigma clip 3/3 + average"
    else
        record "$set" stack ccdproc 4 --status skipped --note "needs astroalign's register"
    fi

    # SEP on ccdproc's first calibrated light.
    local p=$work/sep
    mkdir -p "$p"
    if ((cc_ok == 0)); then
        timed "$p" detect "$PY" "$PEERS/sep_detect.py" --image "$cc_cal" --out "$p/stars.txt"
        q=$p/detect.quality.json
        if ((RC == 0)); then score "$q" --image "$cc_cal" --stars "$p/stars.txt" \
            --keys completeness,positionError; fi
        record_timed "$set" detect SEP 1 "$p" detect "$q" "$cfa_note" \
            "ccdproc's first calibrated light; $(wc -l <"$p/stars.txt" 2>/dev/null || echo 0) sources"
    else
        record "$set" detect SEP 1 --status skipped --note "needs ccdproc's calibrate"
    fi
}

# ours SET DATA WORK BAYER: Astrivelle's rows, from the commands in bench/tasks.sh.
ours() {
    local set=$1 data=$2 w=$3 bayer=$4 q
    mkdir -p "$w"
    local -A cmd=([calibrate]=$ASTRIVELLE_CALIBRATE [register]=$ASTRIVELLE_REGISTER
        [stack]=$ASTRIVELLE_STACK [pipeline]=$ASTRIVELLE_PIPELINE [detect]=$ASTRIVELLE_DETECT)
    local task
    for task in calibrate register stack pipeline detect; do
        if [ -z "${cmd[$task]}" ]; then
            record "$set" "$task" Astrivelle 0 --status "not built yet"
            continue
        fi
        timed "$w" "$task" env BUILD="$BUILD" DATA="$INPUTS" WORK="$w" BAYER="$bayer" bash -c "${cmd[$task]}"
        q=$w/$task.quality.json
        if ((RC == 0)); then
            local cal
            cal=$(first_fits "$w/calibrated")
            case $task in
                calibrate) score "$q" --image "$cal" --keys noise,fwhm ;;
                register) score "$q" --lights "$INPUTS/lights" --transforms "$w/transforms.txt" ;;
                stack) score "$q" --image "$w/stack.fit" --reference "$cal" ;;
                pipeline) score "$q" --image "$w/pipeline/stack.fit" \
                    --reference "$(first_fits "$w/pipeline/calibrated")" ;;
                detect) score "$q" --image "$cal" --stars "$w/stars.txt" \
                    --keys completeness,positionError ;;
            esac
        fi
        record_timed "$set" "$task" Astrivelle 0 "$w" "$task" "$q"
    done
}

# --- main --------------------------------------------------------------------------------------
install_peers
if [ ! -x "$SYNTH" ]; then
    echo "bench/run.sh: $SYNTH is missing; build it first (make build)" >&2
    exit 1
fi
if ! "$SYNTH" night --help >/dev/null 2>&1; then
    echo "bench/run.sh: '$SYNTH night' does not run:" >&2
    "$SYNTH" night --help 2>&1 | head -n 3 >&2 || true
    exit 1
fi

names=()
infos=()
want() { [ "$SETS" = all ] || [ "$SETS" = "$1" ]; }
if want quick; then
    names+=(quick-mono quick-rggb)
    make_set quick-mono 8 1500x1000 4 ""
    make_set quick-rggb 8 1500x1000 4 RG,GB
    infos+=(--set-info "quick-mono=8 lights of 1500x1000, 4 each of darks, flats, flat darks, bias"
        --set-info "quick-rggb=the same with an RGGB colour pattern")
fi
if want night; then
    names+=(night-mono night-rggb)
    make_set night-mono 24 3000x2000 8 ""
    make_set night-rggb 24 3000x2000 8 RG,GB
    infos+=(--set-info "night-mono=24 lights of 3000x2000, 8 each of darks, flats, flat darks, bias"
        --set-info "night-rggb=the same with an RGGB colour pattern")
fi

# Runs of data sets not asked for this time are dropped, so the report shows this run only.
rm -rf "$RUNS"
mkdir -p "$RUNS" "$RESULTS"
for name in "${names[@]}"; do
    case $name in *-rggb) run_set "$name" RG,GB ;; *) run_set "$name" "" ;; esac
done
"$PY" "$PEERS/report.py" meta --out "$OUT/meta.json" --load-start "$LOAD_START" "${infos[@]}"
"$PY" "$PEERS/report.py" render --runs "$RUNS" --meta "$OUT/meta.json" \
    --out "$RESULTS/latest.md"
say "bench: results in $RESULTS/latest.md"
