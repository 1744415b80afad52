#!/usr/bin/env bash
# The demo: make a synthetic star field, raise its sky by a Pixel Math record replayed through
# `filter`, and show both images with `info`.
set -euo pipefail
build=${1:-build/release}
out=demo-output
rm -rf "$out"
mkdir -p "$out/in" "$out/out"

"$build/astrivelle-demo-image" "$out/in/field.fit" 800 600 7
"$build/astrivelle-cli" filter --quiet \
    --op "Pixel Math" \
    --params "Operation: Multiply#Constant: 1.500#Threshold Min: 0#Threshold Max: 8000#Feather Range: 500#" \
    --op "Pixel Math" \
    --params "Operation: Subtract#Constant: 1000.000#Threshold Min: 0#Threshold Max: 65535#Feather Range: 0#" \
    --save-type COMPFIT -o "$out/out" "$out/in/field.fit"

echo "== input"
"$build/astrivelle-cli" info "$out/in/field.fit" | head -n 12
echo "== output"
"$build/astrivelle-cli" info "$out/out/FF_field.fit" | head -n 12
"$build/astrivelle-cli" info --json "$out/out/FF_field.fit" > "$out/out/FF_field.json"
echo
echo "Demo results are in $(cd "$out" && pwd):"
echo "  in/field.fit         synthetic star field (16-bit FITS)"
echo "  out/FF_field.fit     after two Pixel Math records (Rice-compressed FITS)"
echo "  out/FF_field.json    'info --json' of the result"
