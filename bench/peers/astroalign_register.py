#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-3.0-or-later
"""Peer for "register": astroalign matches every calibrated light to the first and resamples
it onto the first one's grid.

usage: astroalign_register.py --in DIR --out DIR --transforms FILE
Writes OUT/reg_NNNN.fit and FILE with one line per frame: "N m00 m01 m02 m10 m11 m12", the
affine map from frame N's pixel coordinates (0-based, pixel centres at integers) to frame 0's.
A frame that cannot be matched gets no line and no image; the exit status is then 1.
"""
import argparse
import os
import sys

import astroalign
import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from common import frames, read_float, write_float  # noqa: E402


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--in", dest="inp", required=True)
    p.add_argument("--out", required=True)
    p.add_argument("--transforms", required=True)
    a = p.parse_args()
    os.makedirs(a.out, exist_ok=True)
    files = frames(a.inp)
    if not files:
        print(f"no frames in {a.inp}", file=sys.stderr)
        return 1
    reference, header = read_float(files[0])
    failed = 0
    with open(a.transforms, "w") as out:
        out.write("0 1 0 0 0 1 0\n")
        write_float(os.path.join(a.out, "reg_0000.fit"), reference, header)
        for n, path in enumerate(files[1:], start=1):
            image, header = read_float(path)
            try:
                transform, _ = astroalign.find_transform(image, reference)
            except Exception as e:  # astroalign raises MaxIterError and ValueError
                print(f"frame {n}: {e}", file=sys.stderr)
                failed += 1
                continue
            m = transform.params
            out.write(f"{n} " + " ".join(f"{v:.9g}" for v in (m[0, 0], m[0, 1], m[0, 2],
                                                                m[1, 0], m[1, 1], m[1, 2])) + "\n")
            registered, _ = astroalign.apply_transform(transform, image, reference, fill_value=0)
            write_float(os.path.join(a.out, f"reg_{n:04d}.fit"), registered, header)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
