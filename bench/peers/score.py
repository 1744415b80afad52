#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-3.0-or-later
"""Scores one program's output with `astrivelle-synth measure` and writes the figures the
report shows, as JSON ({"noise": .., ..., "notes": [...]}). A measure that fails or returns
nothing leaves its figures out and says why in "notes"; the exit status stays 0 so the timing
of the run is still reported.

  score.py --synth S --truth T --out Q.json --image F [--reference R] [--keys a,b]
      figures of one image in frame 0's geometry (a stack, a calibrated first light).
  score.py --synth S --truth T --out Q.json --image F --stars STARS.txt
      completeness and position error of detections on frame 0.
  score.py --synth S --truth T --out Q.json --lights DIR --transforms FILE
      corner error of every frame's transform ("N m00 .. m12" per line); the largest is kept.
"""
import argparse
import json
import os
import subprocess
import sys
import tempfile

import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from common import frames, image_shape, read_float, write_float  # noqa: E402


def in_adu(path, folder):
    """PATH, or a copy scaled by 65535 in FOLDER when PATH holds floats within [0, 1] (Siril
    writes those), so that noise figures of all programs are in the same units."""
    data, header = read_float(path)
    if header.get("BITPIX", 16) > 0 or np.nanmax(data) > 1.5:
        return path, False
    copy = os.path.join(folder, "adu_" + os.path.basename(path))
    header = header.copy()
    for key in ("BZERO", "BSCALE"):
        header.pop(key, None)
    write_float(copy, data * 65535.0, header)
    return copy, True


def inset_of(path, truth):
    """The border an image lacks against the night's frames: a colour interpolation that drops
    one pixel all round gives 1; 0 for an image of the frames' size or any other size."""
    h, w = image_shape(path)
    with open(truth) as f:
        t = json.load(f)
    dw, dh = t["width"] - w, t["height"] - h
    return dw // 2 if dw == dh and dw > 0 and dw % 2 == 0 else 0


def measure(synth, truth, args):
    """The measure's JSON object, or raises RuntimeError with its message."""
    cmd = [synth, "measure", "--truth", truth] + args + ["--json"]
    try:
        done = subprocess.run(cmd, capture_output=True, text=True, timeout=600)
    except (OSError, subprocess.SubprocessError) as e:
        raise RuntimeError(str(e))
    if done.returncode != 0:
        msg = (done.stderr.strip() or done.stdout.strip() or f"exit {done.returncode}")
        raise RuntimeError(msg.splitlines()[-1])
    try:
        return json.loads(done.stdout.strip().splitlines()[-1])
    except (ValueError, IndexError):
        raise RuntimeError(f"no JSON from measure: {done.stdout.strip()[:80]!r}")


def read_transforms(path):
    result = []
    with open(path) as f:
        for line in f:
            parts = line.split()
            if len(parts) == 7:
                result.append((int(parts[0]), [float(v) for v in parts[1:]]))
    return result


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--synth", required=True)
    p.add_argument("--truth", required=True)
    p.add_argument("--out", required=True)
    p.add_argument("--image")
    p.add_argument("--reference")
    p.add_argument("--stars")
    p.add_argument("--lights")
    p.add_argument("--transforms")
    p.add_argument("--keys", default="")
    a = p.parse_args()
    figures = {"notes": []}
    keys = [k for k in a.keys.split(",") if k]
    try:
        if a.transforms:
            lights = frames(a.lights)
            errors = []
            for n, m in read_transforms(a.transforms):
                if n == 0 or n >= len(lights):
                    continue
                got = measure(a.synth, a.truth, ["--image", lights[n], "--frame", str(n),
                                                 "--transform", ",".join(f"{v:.10g}" for v in m)])
                if got.get("cornerError") is not None:
                    errors.append(got["cornerError"])
            if errors:
                figures["cornerError"] = max(errors)
            if len(errors) < len(lights) - 1:
                figures["notes"].append(f"{len(errors)} of {len(lights) - 1} frames scored")
        else:
            tmp = tempfile.mkdtemp(prefix="score-", dir=os.path.dirname(os.path.abspath(a.out)))
            image, scaled = in_adu(a.image, tmp)
            args = ["--image", image, "--frame", "0", "--inset", str(inset_of(image, a.truth))]
            if a.reference:
                reference = in_adu(a.reference, tmp)[0]
                args += ["--reference", reference,
                         "--reference-inset", str(inset_of(reference, a.truth))]
            if scaled:
                figures["notes"].append("[0,1] output scaled by 65535 for scoring")
            if a.stars:
                args += ["--stars", a.stars]
            got = measure(a.synth, a.truth, args)
            for key, value in got.items():
                if value is not None and (not keys or key in keys):
                    figures[key] = value
    except (RuntimeError, OSError) as e:
        figures["notes"].append(f"measure failed: {e}")
    with open(a.out, "w") as f:
        json.dump(figures, f, indent=1)
    return 0


if __name__ == "__main__":
    sys.exit(main())
