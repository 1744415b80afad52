#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-3.0-or-later
"""Peer for "master frames + calibrate": ccdproc builds master bias, dark, flat dark and flat by
sigma-clipped median combine and calibrates every light with ccd_process.

usage: ccdproc_calibrate.py --data DIR --out DIR
DIR holds lights/ darks/ flats/ flatdarks/ bias/ (any may be empty except lights). Writes
OUT/masters/*.fit and OUT/calibrated/cal_NNNN.fit (32-bit float), one per light in name order.
"""
import argparse
import os
import sys
import warnings

import astropy.units as u
import ccdproc
import numpy as np
from astropy.nddata import CCDData
from astropy.utils.exceptions import AstropyWarning

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from common import frames  # noqa: E402

warnings.simplefilter("ignore", AstropyWarning)
warnings.simplefilter("ignore", RuntimeWarning)


def read(path):
    return CCDData.read(path, unit="adu")


def exposure(ccd):
    for key in ("EXPTIME", "EXPOSURE"):
        if key in ccd.header:
            return float(ccd.header[key])
    return None


def combine(ccds, **kw):
    return ccdproc.combine(ccds, method="median", sigma_clip=True, sigma_clip_low_thresh=3,
                           sigma_clip_high_thresh=3, sigma_clip_func=np.ma.median,
                           sigma_clip_dev_func=np.ma.std, dtype=np.float32, mem_limit=2e9, **kw)


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--data", required=True)
    p.add_argument("--out", required=True)
    a = p.parse_args()
    masters = os.path.join(a.out, "masters")
    calibrated = os.path.join(a.out, "calibrated")
    os.makedirs(masters, exist_ok=True)
    os.makedirs(calibrated, exist_ok=True)

    def kind(name):
        return frames(os.path.join(a.data, name))

    bias = None
    if kind("bias"):
        bias = combine([read(f) for f in kind("bias")])
        bias.write(os.path.join(masters, "bias.fit"), overwrite=True)

    dark = None
    dark_exp = None
    if kind("darks"):
        darks = [read(f) for f in kind("darks")]
        dark_exp = exposure(darks[0])
        if bias is not None:
            darks = [ccdproc.subtract_bias(d, bias) for d in darks]
        dark = combine(darks)
        dark.write(os.path.join(masters, "dark.fit"), overwrite=True)

    # Flats lose their offset to the flat darks when there are some, else to the bias.
    flat = None
    if kind("flats"):
        flat_offset = None
        if kind("flatdarks"):
            flat_offset = combine([read(f) for f in kind("flatdarks")])
            flat_offset.write(os.path.join(masters, "flatdark.fit"), overwrite=True)
        elif bias is not None:
            flat_offset = bias
        flats = [read(f) for f in kind("flats")]
        if flat_offset is not None:
            flats = [ccdproc.subtract_bias(f, flat_offset) for f in flats]
        flat = combine(flats, scale=lambda arr: 1.0 / np.ma.median(arr))
        flat.write(os.path.join(masters, "flat.fit"), overwrite=True)

    for i, path in enumerate(kind("lights")):
        light = read(path)
        light_exp = exposure(light)
        # Without exposure times on both, the dark is taken as matching the light.
        known = dark_exp is not None and light_exp is not None
        out = ccdproc.ccd_process(
            light, master_bias=bias, dark_frame=dark, master_flat=flat,
            dark_exposure=(dark_exp if known else 1.0) * u.s,
            data_exposure=(light_exp if known else 1.0) * u.s,
            dark_scale=bool(known and dark_exp != light_exp))
        out.data = out.data.astype(np.float32)
        out.mask = None
        out.uncertainty = None
        out.write(os.path.join(calibrated, f"cal_{i:04d}.fit"), overwrite=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
