# SPDX-License-Identifier: GPL-3.0-or-later
"""Small helpers shared by the peer scripts: listing frames, reading FITS as native floats."""
import glob
import os

import numpy as np
from astropy.io import fits


def frames(folder):
    """The .fit/.fits files of a folder in name order (the order of the night's frames)."""
    files = glob.glob(os.path.join(folder, "*.fit")) + glob.glob(os.path.join(folder, "*.fits"))
    return sorted(files)


def read_float(path):
    """The first image HDU as a native-endian float32 array (sep and astroalign need native)."""
    with fits.open(path, memmap=False) as hdul:
        for hdu in hdul:
            if hdu.data is not None:
                return np.ascontiguousarray(hdu.data, dtype=np.float32), hdu.header
    raise ValueError(f"{path}: no image data")


def image_shape(path):
    """The (rows, columns) of the first image HDU, from its header alone."""
    with fits.open(path) as hdul:
        for hdu in hdul:
            if hdu.shape and len(hdu.shape) >= 2:
                return hdu.shape[-2], hdu.shape[-1]
    raise ValueError(f"{path}: no image data")


def write_float(path, data, header=None):
    fits.PrimaryHDU(np.asarray(data, dtype=np.float32), header=header).writeto(path, overwrite=True)
