// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The row kernels of Digital Development on three planes: the curve with the
/// decompress-colour step, and the window curve of the value plane swapped into each pixel's
/// HSV. Several pixels at a time, with the same operations in the same order as the plain
/// per-pixel forms, so that the results are the same floats.
#pragma once

namespace astrivelle {

/// The curve of one plane: v / (v + a + 1) * M + B, or through the blurred value f.
struct DdpCurve {
    double a, top, backgroundMin, strength;
    bool fixDefects;
    double Plain(double v) const { return v / (v + a + 1.0) * top + backgroundMin; }
    double Filtered(double v, double f) const {
        const double d = (1.0 - strength) * v + strength * f + a + 1.0;
        double out = v / d * top + backgroundMin;
        if (fixDefects) {
            const double out2 = v / (a + v + 1.0) * top + backgroundMin;
            if (out2 > out)
                out = out2;
        }
        return out;
    }
};

/// The curve and decompress-colour step of one row from its pre-stretched values r, g, b,
/// clamped to 0..top into the output rows.
void DdpColourRow(const double* r, const double* g, const double* b, int w, const DdpCurve& curve,
                  const double weights[3], double top, float* outR, float* outG, float* outB);

/// The window curve of one row of the value plane (values `v`, blurred values `f`), each new
/// value swapped into the hexcone HSV of its pixel in the output rows, in place.
void DdpSwapRow(const double* v, const double* f, int w, const DdpCurve& curve, double top,
                float* outR, float* outG, float* outB);

} // namespace astrivelle
