#!/usr/bin/env bash
# Runs every benchmark side by side with its reference and keeps the reports.
set -euo pipefail
build=${1:-build/release}
out=bench-output
mkdir -p "$out"
for b in FitsBench PixelMathBench StatisticsBench ToneBench FilterBench; do
  echo "== $b"
  "$build/bench/$b" --benchmark_repetitions=3 --benchmark_report_aggregates_only=true \
      --benchmark_out="$out/$b.json" --benchmark_out_format=json | tee "$out/$b.txt"
done
echo "== FitsPeakMemory"
"$build/bench/FitsPeakMemory" --make
"$build/bench/FitsPeakMemory" | tee "$out/FitsPeakMemory.txt"
echo "== FilterPeakMemory"
for op in gaussian101 box999 median51 quantile51 rl5 ddp9; do
  "$build/bench/FilterPeakMemory" "$op"
done | tee "$out/FilterPeakMemory.txt"
echo "Benchmark reports are in $(cd "$out" && pwd)"
# End to end: our pipeline steps beside Siril, ccdproc, astroalign and SEP on synthetic nights
# (BENCH_SETS=quick for the small sets only); writes bench/results/latest.md.
echo "== end to end"
bash bench/run.sh --build "$build"
