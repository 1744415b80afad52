# SPDX-License-Identifier: GPL-3.0-or-later
"""Tests of siril_transforms.py: attributing Siril's logged matrices to images and turning
them into top-down pixel coordinates. Run from bench/peers: python3 -m unittest"""
import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import siril_transforms as st  # noqa: E402

# Two threads: image 3's matrix is printed after image 6 was found, and image 6's "done" line
# is followed at once by image 3's matrix without its own "done" line.
LOG = """log: Found 103 stars in image 3, channel #0
TRANS: a=-1.04e+01 b=9.99e-01
log: Found 115 stars in image 6, channel #0
Transformation Matrix:
   +0.99992    -0.01226    +1.10314
   +0.01225    +0.99993    -4.87133
   +0.00000    +0.00000    +1.00000
log: Matching stars in image 6: done
Transformation Matrix:
   +1.00000    +0.00000    +2.50000
   +0.00000    +1.00000    -1.25000
   +0.00000    +0.00000    +1.00000
log: Initial pair matches: 98
log: Found 117 stars in image 4, channel #0
log: Found 111 stars in image 7, channel #0
Transformation Matrix:
   +1.00000    +0.00000    +9.00000
   +0.00000    +1.00000    +9.00000
   +0.00000    +0.00000    +1.00000
log: Initial pair matches: 99
""".splitlines()


def apply(m, x, y):
    return m[0] * x + m[1] * y + m[2], m[3] * x + m[4] * y + m[5]


class ParseTest(unittest.TestCase):
    def test_attribution(self):
        found = dict(st.parse(LOG))
        # image 6 by its "done" line; image 3 as the only one left waiting; the last matrix
        # has two candidates (4 and 7) and no "done" line, so it is left out
        self.assertEqual(sorted(found), [3, 6])
        self.assertEqual(found[6][0], [0.99992, -0.01226, 1.10314])
        self.assertEqual(found[3], [[1, 0, 2.5], [0, 1, -1.25], [0, 0, 1]])


class FlipTest(unittest.TestCase):
    def test_maps_points_like_the_flipped_matrix(self):
        height = 1000
        rows = [[0.99976, -0.02093, 8.71017], [0.02094, 0.99978, -8.84235], [0, 0, 1]]
        m = st.flip(rows, height)
        for x, y in [(0, 0), (1499, 0), (0, 999), (1499, 999), (700.5, 123.25)]:
            with self.subTest(x=x, y=y):
                # Siril's coordinates count rows from the bottom
                sx, sy = apply(rows[0] + rows[1], x, height - 1 - y)
                gx, gy = apply(m, x, y)
                self.assertAlmostEqual(gx, sx, places=9)
                self.assertAlmostEqual(gy, height - 1 - sy, places=9)

    def test_identity_and_shift(self):
        self.assertEqual(st.flip([[1, 0, 0], [0, 1, 0], [0, 0, 1]], 100), [1, 0, 0, 0, 1, 0])
        self.assertEqual(st.flip([[1, 0, 3], [0, 1, 4], [0, 0, 1]], 100), [1, 0, 3, 0, 1, -4])


if __name__ == "__main__":
    unittest.main()
