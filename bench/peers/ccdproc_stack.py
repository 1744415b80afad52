#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-3.0-or-later
"""Peer for "stack with rejection": ccdproc's Combiner, 3-sigma clipping about the median, then
the average of what remains.

usage: ccdproc_stack.py --in DIR --out FILE
"""
import argparse
import os
import sys
import warnings

import numpy as np
from astropy.nddata import CCDData
from astropy.utils.exceptions import AstropyWarning
from ccdproc import Combiner

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from common import frames, read_float  # noqa: E402

warnings.simplefilter("ignore", AstropyWarning)
warnings.simplefilter("ignore", RuntimeWarning)


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--in", dest="inp", required=True)
    p.add_argument("--out", required=True)
    a = p.parse_args()
    files = frames(a.inp)
    if not files:
        print(f"no frames in {a.inp}", file=sys.stderr)
        return 1
    ccds = []
    for f in files:
        data, header = read_float(f)
        ccds.append(CCDData(data, unit="adu", header=header))
    combiner = Combiner(ccds, dtype=np.float32)
    combiner.sigma_clipping(low_thresh=3, high_thresh=3, func=np.ma.median, dev_func=np.ma.std)
    stacked = combiner.average_combine()
    stacked.data = stacked.data.astype(np.float32)
    stacked.mask = None
    stacked.uncertainty = None
    stacked.write(a.out, overwrite=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
