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

ASTRIVELLE_REGISTER=""
ASTRIVELLE_STACK=""
ASTRIVELLE_PIPELINE=""
ASTRIVELLE_DETECT=""
