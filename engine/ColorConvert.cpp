// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The program's colour conversions: hexcone HSV in double precision (called HSL in the
/// tools) and sRGB/D65 Lab in single precision. The forward and inverse Lab matrices carry
/// different precision on purpose, so a round trip always shows the same small error.
#include <cmath>

#include "engine/Image.h"

namespace astrivelle {

void Image::RgbToHsv(double r, double g, double b, double* h, double* s, double* v) {
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

void Image::HsvToRgb(double h, double s, double v, double* r, double* g, double* b) {
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

namespace {

inline float Linearise(float c) {
    c /= 65535.0f;
    c = c > 0.04045f ? std::pow((c + 0.055f) / 1.055f, 2.4f) : c / 12.92f;
    return c * 100.0f;
}

inline float LabF(float t) {
    return t > 0.008856f ? std::cbrt(t) : 7.787037f * t + 0.13793103f;
}

inline float LabInverse(float f) {
    const float cube = f * f * f;
    return cube > 0.008856f ? cube : (f - 0.13793103f) / 7.787037f;
}

inline float Compand(float c) {
    c = c > 0.0031308f ? 1.055f * std::pow(c, 0.41666666f) - 0.055f : 12.92f * c;
    c *= 65535.0f;
    return c < 0.0f ? 0.0f : (c > 65535.0f ? 65535.0f : c);
}

} // namespace

void Image::RgbToLab(float r, float g, float b, float* L, float* a, float* bb) {
    const float lr = Linearise(r), lg = Linearise(g), lb = Linearise(b);
    const float x = (0.412453f * lr + 0.35768f * lg + 0.180423f * lb) / 95.047f;
    const float y = (0.212671f * lr + 0.71516f * lg + 0.072169f * lb) / 100.0f;
    const float z = (0.019334f * lr + 0.119193f * lg + 0.950227f * lb) / 108.883f;
    const float fx = LabF(x), fy = LabF(y), fz = LabF(z);
    *L = 116.0f * fy - 16.0f;
    *a = 500.0f * (fx - fy);
    *bb = 200.0f * (fy - fz);
}

void Image::LabToRgb(float L, float a, float b, float* r, float* g, float* bb) {
    const float fy = (L + 16.0f) / 116.0f;
    const float fx = a / 500.0f + fy;
    const float fz = fy - b / 200.0f;
    const float x = LabInverse(fx) * 0.95047f;
    const float y = LabInverse(fy);
    const float z = LabInverse(fz) * 1.08883f;
    *r = Compand(3.2406f * x - 1.5372f * y - 0.4986f * z);
    *g = Compand(-0.9689f * x + 1.8758f * y + 0.0415f * z);
    *bb = Compand(0.0557f * x - 0.204f * y + 1.057f * z);
}

} // namespace astrivelle
