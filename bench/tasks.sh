# SPDX-License-Identifier: GPL-3.0-or-later
# Astrivelle's own command line for each end-to-end benchmark task, read by bench/run.sh.
# An empty command puts "not built yet" in that task's Astrivelle row (no timing).
#
# A command runs with `bash -c` in $WORK (bench-output/work/<set>/astrivelle, emptied at the
# start of each data set), under /usr/bin/time -v and the run's timeout, with these exported:
#   BUILD  the build folder ($BUILD/astrivelle-cli is the command-line program)
#   DATA   the night's frames: $DATA/{lights,darks,flats,flatdarks,bias}/<kind>_NNNNN.fit,
#          numbered from 1 in frame order (frame 0 is the first light and the reference)
#   WORK   this folder; a task may use what the tasks before it left here
#   BAYER  the colour pattern of the set ("RG,GB") or empty for mono
# and must leave, for scoring:
#   calibrate  $WORK/calibrated/*.fit          every light calibrated, in frame order
#   register   $WORK/transforms.txt            "N m00 m01 m02 m10 m11 m12" per frame: the map
#                                              from frame N's pixel coordinates (0-based) to
#                                              frame 0's
#              $WORK/registered/*.fit          the calibrated lights on frame 0's grid
#   stack      $WORK/stack.fit                 $WORK/registered/ stacked with rejection
#   pipeline   $WORK/pipeline/stack.fit        the raw frames taken through masters, calibrate,
#                                              register and stack in one command, and
#              $WORK/pipeline/calibrated/*.fit its calibrated lights (the first one is the
#                                              reference for snrGain)
#   detect     $WORK/stars.txt                 "x y" per star found on the first file of
#                                              $WORK/calibrated/ (0-based, centres at integers)
# Masters by sigma-clipped median (darks, flat darks, flats), then every light calibrated with
# the dark (bias included, same exposure), the flat and the flat dark.
ASTRIVELLE_CALIBRATE='C=$BUILD/astrivelle-cli
$C combine --quiet --method SIGMED --name dark -o masters $DATA/darks/*.fit &&
$C combine --quiet --method SIGMED --name flatdark -o masters $DATA/flatdarks/*.fit &&
$C combine --quiet --method SIGMED --name flat -o masters $DATA/flats/*.fit &&
$C calibrate --quiet --dark masters/dark.fit --flat masters/flat.fit \
    --flat-dark masters/flatdark.fit -o calibrated $DATA/lights/*.fit'

# Quick Alignment onto the first calibrated light. A colour set is interpolated first
# (BINT_ frames, one pixel smaller on each side), and its maps are taken back to the
# mosaic's pixel coordinates: x = x' + 1, y = y' + 1.
ASTRIVELLE_REGISTER='C=$BUILD/astrivelle-cli
if [ -n "$BAYER" ]; then
    $C bayer --quiet --pattern "$BAYER" --save-type UNCOMPFIT -o color calibrated/*.fit &&
    $C align --quiet --method quick --transforms colour-transforms.txt -o registered color/*.fit &&
    awk "{ printf \"%s %.9g %.9g %.9g %.9g %.9g %.9g\\n\", \$1, \$2, \$3, \$4 + 1 - \$2 - \$3, \$5, \$6, \$7 + 1 - \$5 - \$6 }" colour-transforms.txt >transforms.txt
else
    $C align --quiet --method quick --transforms transforms.txt -o registered calibrated/*.fit
fi'

# The registered frames stacked by sigma-clipped average.
ASTRIVELLE_STACK='$BUILD/astrivelle-cli combine --quiet --method SIGAVG --name stack -o . registered/*.fit'

# The automatic process from the raw frames: masters, calibration, (colour), Quick Alignment
# and the sigma-clipped stack; its calibrated lights are linked where the scoring looks.
ASTRIVELLE_PIPELINE='C=$BUILD/astrivelle-cli
if [ -n "$BAYER" ]; then colour="--type OSCCCD --color CFA --pattern $BAYER"; else colour="--type CCD"; fi
$C auto --quiet --lights $DATA/lights --darks $DATA/darks --flats $DATA/flats \
    --flat-darks $DATA/flatdarks --bias $DATA/bias $colour --align quick --combine SIGAVG \
    --name stack -o pipeline >pipeline.log &&
mkdir -p pipeline/calibrated && ln -s ../C_light_00001.fit pipeline/calibrated/'


# The stars of the first calibrated light; our centroids are 1-based.
ASTRIVELLE_DETECT='f=$(ls calibrated/*.fit | LC_ALL=C sort | head -n 1)
$BUILD/astrivelle-cli stars --json --fwhm "$f" >stars.json &&
/usr/bin/python3 -c "import json,sys; [print(s[\"x\"] - 1, s[\"y\"] - 1) for s in json.load(open(\"stars.json\"))[\"stars\"]]" >stars.txt'

