# SPDX-License-Identifier: GPL-3.0-or-later
# Shared by the side-by-side benchmark scripts (sourced, not run): the figures of a
# /usr/bin/time -v report and the calibration of a synthetic night's lights.

# wall NAME: the wall time in seconds of $OUT/NAME.time; rss NAME: its peak resident set in MB.
wall() { awk -F': ' '/Elapsed \(wall clock\)/ { n = split($2, t, ":"); s = 0;
    for (i = 1; i <= n; i++) s = s * 60 + t[i]; printf "%.2f", s }' "$OUT/$1.time"; }
rss() { awk -F': ' '/Maximum resident/ { printf "%.0f", $2 / 1024 }' "$OUT/$1.time"; }

# calibrate_lights CLI DATA WORK [calibrate options...]: masters from DATA's darks, flats and
# flat darks in WORK/masters, and DATA's lights less their dark, over the flat, in
# WORK/calibrated.
calibrate_lights() {
    local cli=$1 data=$2 work=$3
    shift 3
    (cd "$work" &&
        "$cli" combine --quiet --method SIGMED --name dark -o masters "$data"/darks/*.fit &&
        "$cli" combine --quiet --method SIGMED --name flatdark -o masters "$data"/flatdarks/*.fit &&
        "$cli" combine --quiet --method SIGMED --name flat -o masters "$data"/flats/*.fit &&
        "$cli" calibrate --quiet "$@" --dark masters/dark.fit --flat masters/flat.fit \
            --flat-dark masters/flatdark.fit -o calibrated "$data"/lights/*.fit)
}

# bench_paths: after the arguments, BUILD made absolute (relative to ROOT) and the programs
# every script runs: C (our command line), PY (the system's Python with the peers' modules)
# and PEERS (the peer scripts).
bench_paths() {
    case $BUILD in /*) ;; *) BUILD=$ROOT/$BUILD ;; esac
    C=$BUILD/astrivelle-cli
    PY=/usr/bin/python3
    PEERS=$ROOT/bench/peers
}
