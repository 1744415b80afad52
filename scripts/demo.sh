#!/usr/bin/env bash
# The demo, the program's main job: a generated one-shot-colour night (camera raw DNG lights of
# an RGGB sensor with FITS darks, flats, flat darks and bias) taken through the automatic
# process: raw conversion, masters, calibration, colour interpolation, star alignment and a
# sigma-clipped stack; then a stretched PNG preview of the stack through a recorded Digital
# Development text.
set -euo pipefail
build=${1:-build/release}
out=demo-output
rm -rf "$out"
mkdir -p "$out"

echo "== generating a one-shot-colour night: 8 raw DNG lights of 1500x1000, 4 FITS frames of each"
echo "   calibration kind"
"$build/astrivelle-synth" night --quiet --out "$out/night" --bayer RG,GB --format dng \
    --size 1500x1000 --frames 8 --darks 4 --flats 4 --flat-darks 4 --bias 4

echo "== the automatic process"
n=$out/night
"$build/astrivelle-cli" auto --quiet --lights "$n/lights" --darks "$n/darks" \
    --flats "$n/flats" --flat-darks "$n/flatdarks" --bias "$n/bias" \
    --type DSLR --color CFA --pattern RG,GB --align quick --combine SIGAVG \
    --name Stack -o "$out/result" | tee "$out/summary.txt"

# Digital Development: the median taken off, a hyperbolic curve breaking at 1000.
ddp="Pre-Stretch Scale Type : None#Pre-Stretch Scale : 1.000#Pre-Stretch Black Point : 0.00000#"
ddp+="Pre-Stretch White Point : 1.000#Pre-Stretch Black Point Range : 0.0 - 0.100#"
ddp+="Break-Point Slider Range : 0 - 10000#Backgd-Wt Slider Range : 0.000 - 1.25000#"
ddp+="Background Min : 0#Background Weight : 1.00000#Break-Point Highlights : 1000#"
ddp+="Sharpening Filter :None#Fix Defects :No#Sharpening Strength : 0.000#"
ddp+="Red : 0.500#Green : 0.500#Blue : 0.500#"
"$build/astrivelle-cli" convert --quiet --save-type PNG --stretch "Digital Development" \
    --params "$ddp" --prefix "" -o "$out/preview" "$out/result/Stack.fit"

echo "== the stack against the night's truth (the reference is the first aligned frame)"
"$build/astrivelle-synth" measure --truth "$n/truth.json" --inset 1 --image "$out/result/Stack.fit" \
    --reference "$out/result/ASA_BINT_C_CVT_light_0001.fit" | sed -n '1,3p' | tee "$out/quality.txt"

echo
echo "Demo results are in $(cd "$out" && pwd):"
echo "  night/               the generated frames and their truth (truth.json)"
echo "  result/Stack.fit     the converted, calibrated, interpolated, aligned and stacked image"
echo "  result/              the masters and every step's files"
echo "  preview/Stack.png    the stack stretched by Digital Development"
echo "  summary.txt          the steps of the run and its summary (printed above)"
echo "  quality.txt          the stack's noise, signal-to-noise gain over one frame and FWHM"
