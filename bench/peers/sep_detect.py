#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-3.0-or-later
"""Peer for "star detection": SEP subtracts a mesh background and extracts sources above
1.5 sigma of the global background noise.

usage: sep_detect.py --image FILE --out STARS.txt
Writes "x y" per source (0-based, pixel centres at integers), brightest first.
"""
import argparse
import os
import sys

import numpy as np
import sep

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from common import read_float  # noqa: E402


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--image", required=True)
    p.add_argument("--out", required=True)
    p.add_argument("--thresh", type=float, default=1.5)
    a = p.parse_args()
    data, _ = read_float(a.image)
    if data.ndim == 3:  # colour planes: detect on their mean
        data = np.ascontiguousarray(data.mean(axis=0), dtype=np.float32)
    background = sep.Background(data)
    data -= background
    sep.set_extract_pixstack(5_000_000)
    sep.set_sub_object_limit(4096)
    objects = sep.extract(data, a.thresh, err=background.globalrms, minarea=5)
    order = np.argsort(-objects["flux"])
    with open(a.out, "w") as out:
        for o in objects[order]:
            out.write(f"{o['x']:.4f} {o['y']:.4f}\n")
    print(f"{len(objects)} sources", file=sys.stderr)
    return 0


if __name__ == "__main__":
    sys.exit(main())
