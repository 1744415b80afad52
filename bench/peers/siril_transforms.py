#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-3.0-or-later
"""Reads the transforms Siril 1.0's global star registration prints to its log and writes them
in the harness's form: "N m00 m01 m02 m10 m11 m12" mapping frame N's pixel coordinates (0-based,
row 0 = first row of the FITS data) to the reference frame's (Siril's image 1 = frame 0).

Siril keeps no transform once it has resampled the images, but for each image it logs
its "Transformation Matrix" (image to reference, five decimals, in a frame whose y axis runs
the other way: y' = height - 1 - y). Frames whose matrix cannot be attributed are left out.

usage: siril_transforms.py --log FILE --image FIRST_REGISTERED_INPUT --out FILE
"""
import argparse
import re
import os
import sys

FOUND = re.compile(r"Found \d+ stars in image (\d+)")
DONE = re.compile(r"Matching stars in image (\d+): done")
MATRIX = re.compile(r"^\s*Transformation Matrix:")
ROW = re.compile(r"^\s*([-+0-9.eE]+)\s+([-+0-9.eE]+)\s+([-+0-9.eE]+)\s*$")


def parse(lines):
    """Yields (image number, 3x3 matrix as rows) for every attributable matrix: Siril prints
    "Matching stars in image K: done" right after image K's matrix; when another thread's line
    came between them, the matrix goes to the one image still waiting for its matrix, if only
    one is."""
    waiting = []
    i = 0
    while i < len(lines):
        m = FOUND.search(lines[i])
        if m:
            waiting.append(int(m.group(1)))
        elif MATRIX.match(lines[i]):
            rows = []
            for j in range(1, 4):
                r = ROW.match(lines[i + j]) if i + j < len(lines) else None
                if r:
                    rows.append([float(v) for v in r.groups()])
            i += 3
            done = DONE.search(lines[i + 1]) if i + 1 < len(lines) else None
            image = None
            if done:
                image = int(done.group(1))
            elif len(waiting) == 1:
                image = waiting[0]
            if image is not None and len(rows) == 3:
                yield image, rows
            if image in waiting:
                waiting.remove(image)
        i += 1


def flip(rows, height):
    """The same map in coordinates whose y axis is flipped: F * H * F with F(x, y) = (x, h-1-y)."""
    (a, b, c), (d, e, f), _ = rows
    k = height - 1
    # x0 = a x + b (k - y) + c ; y0 = k - (d x + e (k - y) + f)
    return [a, -b, b * k + c, -d, e, k - e * k - f]


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--log", required=True)
    p.add_argument("--image", required=True, help="a frame of the sequence, for its height")
    p.add_argument("--out", required=True)
    a = p.parse_args()
    with open(a.log, errors="replace") as f:
        lines = f.read().splitlines()
    sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
    from common import read_float

    height = read_float(a.image)[0].shape[-2]
    found = {1: [1, 0, 0, 0, 1, 0]}
    for image, rows in parse(lines):
        found[image] = flip(rows, height)
    with open(a.out, "w") as out:
        for image in sorted(found):
            out.write(f"{image - 1} " + " ".join(f"{v:.9g}" for v in found[image]) + "\n")
    images = {int(m.group(1)) for m in map(FOUND.search, lines) if m}
    print(f"{len(found)} of {len(images | {1})} frames attributed", file=sys.stderr)
    return 0


if __name__ == "__main__":
    sys.exit(main())
