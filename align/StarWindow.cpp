// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The star window of Image: loading it about a pixel, clipping it, its mean, and its
/// centroid weighted by the raw bit patterns of its floats.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

#include "engine/Image.h"

namespace astrivelle {

namespace {
constexpr float kMissing = -1.0f; ///< the mark of a window place outside the image
}

void Image::LoadNbhd(const float* channel, int x, int y, int r) {
    if (r < 0)
        r = 0;
    StarNbhd& w = starNbhd;
    const int side = 2 * r + 1;
    const int count = side * side;
    // Every load releases the old buffer and takes a new one of count + 1 floats.
    w.buffer.reset();
    w.buffer.reset(new (std::nothrow) float[static_cast<std::size_t>(count) + 1]);
    if (!w.buffer)
        SmallBufferFailure();
    w.nbhdHalf = r;
    w.nbhdSide = side;
    w.nbhdCount = count;
    w.nbhdCentreX = x;
    w.nbhdCentreY = y;
    float* out = w.buffer.get();
    out[count] = 0.0f;
    const float* planes[3] = {curPlane[0], curPlane[1], curPlane[2]};
    const bool luminance = channel == nullptr;
    const bool havePlanes = planes[0] && planes[1] && planes[2];
    // The columns of the window that lie inside the image.
    const int left = x - r, x0 = std::max(left, 0), x1 = std::min(x + r, width - 1);
    for (int yy = y - r; yy <= y + r; ++yy, out += side) {
        if (yy < 0 || yy >= height || x0 > x1 || (luminance && !havePlanes)) {
            std::fill(out, out + side, kMissing);
            continue;
        }
        std::fill(out, out + (x0 - left), kMissing);
        std::fill(out + (x1 - left + 1), out + side, kMissing);
        const std::size_t at = static_cast<std::size_t>(yy) * width;
        if (!luminance) {
            std::memcpy(out + (x0 - left), channel + at + x0,
                        static_cast<std::size_t>(x1 - x0 + 1) * sizeof(float));
            continue;
        }
        for (int xx = x0; xx <= x1; ++xx) {
            const std::size_t i = at + xx;
            out[xx - left] = static_cast<float>(ValueOf(planes[0][i], planes[1][i], planes[2][i]));
        }
    }
}

void Image::NbhdClipBelow(double t) {
    float* v = starNbhd.buffer.get();
    if (!v)
        return;
    for (int i = 0; i < starNbhd.nbhdCount; ++i) {
        const double d = static_cast<double>(v[i]) - t;
        v[i] = d > 0.0 ? static_cast<float>(d) : 0.0f;
    }
}

double Image::NbhdMeanValue() const {
    const float* v = starNbhd.buffer.get();
    double sum = 0.0;
    int n = 0;
    if (v)
        for (int i = 0; i < starNbhd.nbhdCount; ++i)
            if (v[i] != kMissing) {
                sum += v[i];
                ++n;
            }
    starNbhd.nbhdMean = n ? sum / n : 0.0;
    return starNbhd.nbhdMean;
}

void Image::NbhdCentroid(double* outX, double* outY) const {
    const StarNbhd& w = starNbhd;
    const double centreX = w.nbhdCentreX + 1.0, centreY = w.nbhdCentreY + 1.0;
    const float* v = w.buffer.get();
    if (w.nbhdHalf == 0 || !v) {
        *outX = centreX;
        *outY = centreY;
        return;
    }
    const int side = w.nbhdSide, count = w.nbhdCount;
    // From here on each float stands for its raw IEEE-754 bit pattern read as a signed
    // integer: the weighting is close to logarithmic in brightness. Negative patterns (the
    // -1.0 marks) do not count.
    double patternSum = 0.0;
    int valid = 0, first = -1;
    for (int i = 0; i < count; ++i) {
        std::int32_t p;
        std::memcpy(&p, v + i, sizeof p);
        if (p >= 0) {
            patternSum += p;
            ++valid;
            if (first < 0)
                first = i;
        }
    }
    if (valid == 0) {
        *outX = centreX;
        *outY = centreY;
        return;
    }
    const double mean = patternSum / valid;
    const int originX = w.nbhdCentreX - w.nbhdHalf + first % side;
    const int originY = w.nbhdCentreY - w.nbhdHalf + first / side;
    double s = 0.0, sx = 0.0, sy = 0.0;
    for (int i = 0; i < count; ++i) {
        std::int32_t p;
        std::memcpy(&p, v + i, sizeof p);
        const double weight = static_cast<double>(p) - mean;
        if (weight > 0.0) {
            s += weight;
            sx += (i % side) * weight;
            sy += (i / side) * weight;
        }
    }
    if (s == 0.0) {
        *outX = centreX;
        *outY = centreY;
        return;
    }
    *outX = sx / s + originX + 1.0;
    *outY = sy / s + originY + 1.0;
}

} // namespace astrivelle
