// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The program's colour conversions: hexcone HSV in double precision (called HSL in the
/// tools) and sRGB/D65 Lab in single precision. The forward and inverse Lab matrices carry
/// different precision on purpose, so a round trip always shows the same small error.
#include <cmath>

#include "engine/Hsv.h"
#include "engine/Image.h"

namespace astrivelle {

void Image::RgbToHsv(double r, double g, double b, double* h, double* s, double* v) {
    HexconeFromRgb(r, g, b, h, s, v);
}

void Image::HsvToRgb(double h, double s, double v, double* r, double* g, double* b) {
    RgbFromHexcone(h, s, v, r, g, b);
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
