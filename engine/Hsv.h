// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Hexcone HSV in double precision, inline so that pixel loops that swap one component
/// (the value, the hue) run without a call per pixel; Image::RgbToHsv and Image::HsvToRgb are
/// these same functions.
#pragma once
#include <cmath>

#include "engine/Levels.h"

namespace astrivelle {

inline void HexconeFromRgb(double r, double g, double b, double* h, double* s, double* v) {
    const double mx = Max2(r, Max2(g, b));
    const double mn = Min2(r, Min2(g, b));
    *v = mx;
    if (mx == 0.0) {
        *h = *s = 0.0;
        return;
    }
    *s = (mx - mn) / mx;
    if (*s == 0.0) {
        *h = 0.0;
        return;
    }
    const double d = mx - mn;
    double hue;
    if (r == mx)
        hue = (g - b) / d;
    else if (g != mx)
        hue = (r - g) / d + 4.0;
    else
        hue = (b - r) / d + 2.0;
    hue /= 6.0;
    if (hue < 0.0)
        hue += 1.0;
    *h = hue;
}

inline void RgbFromHexcone(double h, double s, double v, double* r, double* g, double* b) {
    if (v == 0.0) {
        *r = *g = *b = 0.0;
        return;
    }
    if (s == 0.0) {
        *r = *g = *b = v;
        return;
    }
    // A hue outside 0..1 wraps round the circle; 1.0 is the same hue as 0.
    if (h < 0.0 || h >= 1.0)
        h -= std::floor(h);
    const double h6 = h * 6.0;
    const double p = (1.0 - s) * v;
    const double q = v - p;
    if (h6 <= 1.0) {
        *r = v;
        *b = p;
        *g = q * h6 + p;
    } else if (h6 <= 3.0) {
        *g = v;
        if (h6 == 2.0) {
            *r = *b = p;
        } else if (h6 < 2.0) {
            *b = p;
            *r = p - q * (h6 - 2.0);
        } else {
            *r = p;
            *b = q * (h6 - 2.0) + p;
        }
    } else if (h6 < 5.0) {
        *b = v;
        if (h6 == 4.0) {
            *r = *g = p;
        } else if (h6 < 4.0) {
            *r = p;
            *g = p - q * (h6 - 4.0);
        } else {
            *g = p;
            *r = q * (h6 - 4.0) + p;
        }
    } else {
        *r = v;
        *g = p;
        *b = p + (6.0 - h6) * q;
    }
}

} // namespace astrivelle
