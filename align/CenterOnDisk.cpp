// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Planet alignment: the sky level around a bright disk, the centre of brightness of the
/// disk, and the sub-pixel shift that brings it onto a target (Image::CenterOnDisk for colour,
/// Image::CenterOnDiskMono for one channel).
///
/// The weights are nearly a flat mask of the disk: anything 10000 or more above the sky
/// counts as the full scale, so limb shading hardly moves the centre.
#include <cmath>
#include <cstring>
#include <vector>

#include "engine/Image.h"
#include "engine/PageAlloc.h"
#include "engine/Parallel.h"

namespace astrivelle {

namespace {

constexpr int kMargin = 5;            ///< pixels left out at every border
constexpr int kBand = 10;             ///< width of the sky bands
constexpr double kFullDisk = 10000.0; ///< a weight from here on counts as the maximum

/// The four sky bands as rectangles [x0, x1) x [y0, y1) of the inner frame
/// [fx0, fx1) x [fy0, fy1): below the top margin, above the bottom margin, right of the left
/// margin and left of the right margin. A corner where two bands meet counts in both.
struct Rect {
    int x0, x1, y0, y1;
};

void SkyBands(int fx0, int fx1, int fy0, int fy1, Rect out[4]) {
    out[0] = {fx0, fx1, fy0, fy0 + kBand};
    out[1] = {fx0, fx1, fy1 - kBand, fy1};
    out[2] = {fx0, fx0 + kBand, fy0, fy1};
    out[3] = {fx1 - kBand, fx1, fy0, fy1};
}

template <class Fn> void ForBands(const float* plane, int width, const Rect bands[4], Fn fn) {
    for (int b = 0; b < 4; ++b)
        for (int y = bands[b].y0; y < bands[b].y1; ++y) {
            const float* row = plane + static_cast<std::size_t>(y) * width;
            for (int x = bands[b].x0; x < bands[b].x1; ++x)
                fn(static_cast<double>(row[x]));
        }
}

/// Moves one plane by (dx, dy): right and down for positive amounts, bilinear, sub-pixel.
bool Shift(Image& image, bool inPlace, const float* src, float* dst, double dx, double dy) {
    return image.Translate(inPlace, src, dst, dy < 0, dx < 0, std::fabs(dy), std::fabs(dx), 0.0f,
                           true, 2);
}

/// An image without a centroid goes on as it is.
void PassOn(const Image& image, bool inPlace, const float* src, float* dst) {
    if (!inPlace && src && dst && src != dst)
        std::memcpy(dst, src, static_cast<std::size_t>(image.width) * image.height * sizeof(float));
}

/// The target of the shift: the frame's centre, or the pair the first image sets.
void Target(const Image& image, bool centreInFrame, double cx, double cy, double* tx, double* ty) {
    if (centreInFrame) {
        *tx = image.width / 2;
        *ty = image.height / 2;
        return;
    }
    if (*tx == -1.0 && *ty == -1.0) {
        *tx = cx;
        *ty = cy;
    }
}

} // namespace

double Image::DiskSkyLevel(const float* plane, double* outMean, double* outMax,
                           double* outRms) const {
    if (outMean)
        *outMean = 0.0;
    if (outMax)
        *outMax = 0.0;
    if (outRms)
        *outRms = 0.0;
    // Rows and columns 5 .. size-6 hold the bands; they need room for ten of each.
    const int x0 = kMargin, x1 = width - kMargin, y0 = kMargin, y1 = height - kMargin;
    if (!plane || x1 - x0 < kBand || y1 - y0 < kBand)
        return 0.0;
    Rect bands[4];
    SkyBands(x0, x1, y0, y1, bands);
    double n = 0, sum = 0, max = 0;
    bool any = false;
    ForBands(plane, width, bands, [&](double v) {
        n += 1.0;
        sum += v;
        if (!any || v > max)
            max = v;
        any = true;
    });
    const double m = sum / n;
    double sq = 0;
    ForBands(plane, width, bands, [&](double v) { sq += (v - m) * (v - m); });
    const double rms = std::sqrt(sq / n);
    if (outMean)
        *outMean = m;
    if (outMax)
        *outMax = max;
    if (outRms)
        *outRms = rms;
    double level = max;
    if (level > m + 3.0 * rms)
        level = m + 3.0 * rms;
    return level;
}

bool Image::DiskCentroid(const float* plane, bool subtractSky, double* outX, double* outY) const {
    const int x0 = kMargin, x1 = width - kMargin; // x in 5 .. width-6
    const int y0 = kMargin, y1 = height - kMargin;
    if (!plane || x1 <= x0 || y1 <= y0)
        return false;
    const double sky = subtractSky ? DiskSkyLevel(plane) : 0.0;
    const double top = maxValue;
    // One row's sums per entry, added in row order afterwards: the same result at any split.
    const int rows = y1 - y0;
    std::vector<double> sumW(static_cast<std::size_t>(rows)), sumWX(sumW.size()),
        sumWY(sumW.size());
    ParallelRows(rows, [&](int r0, int r1) {
        for (int r = r0; r < r1; ++r) {
            const int y = y0 + r;
            const float* row = plane + static_cast<std::size_t>(y) * width;
            double w = 0, wx = 0;
            for (int x = x0; x < x1; ++x) {
                double v = row[x] - sky;
                if (v >= kFullDisk)
                    v = top;
                v = v < 0.0 ? 0.0 : (v > top ? top : v);
                w += v;
                wx += v * x;
            }
            sumW[static_cast<std::size_t>(r)] = w;
            sumWX[static_cast<std::size_t>(r)] = wx;
            sumWY[static_cast<std::size_t>(r)] = w * y;
        }
    });
    double w = 0, wx = 0, wy = 0;
    for (std::size_t r = 0; r < sumW.size(); ++r) {
        w += sumW[r];
        wx += sumWX[r];
        wy += sumWY[r];
    }
    if (w == 0.0)
        return false;
    double cx = wx / w, cy = wy / w;
    if (!subtractSky) {
        cx = static_cast<int>(cx);
        cy = static_cast<int>(cy);
    }
    *outX = cx;
    *outY = cy;
    return true;
}

bool Image::CenterOnDiskMono(bool inPlace, const float* src, float* dst, bool subtractSky,
                             bool centreInFrame, double* ioTargetX, double* ioTargetY,
                             double* outCentroidX, double* outCentroidY) {
    if (!dst || (!inPlace && !src) || !ioTargetX || !ioTargetY || width <= 0 || height <= 0)
        return false;
    const float* plane = inPlace ? dst : src;
    double cx = 0, cy = 0;
    if (!DiskCentroid(plane, subtractSky, &cx, &cy)) {
        PassOn(*this, inPlace, src, dst);
        return true;
    }
    if (outCentroidX)
        *outCentroidX = cx;
    if (outCentroidY)
        *outCentroidY = cy;
    Target(*this, centreInFrame, cx, cy, ioTargetX, ioTargetY);
    return Shift(*this, inPlace, src, dst, *ioTargetX - cx, *ioTargetY - cy);
}

bool Image::CenterOnDisk(bool inPlace, const float* srcR, float* dstR, const float* srcG,
                         float* dstG, const float* srcB, float* dstB, bool subtractSky,
                         bool centreInFrame, double* ioTargetX, double* ioTargetY,
                         double* outCentroidX, double* outCentroidY) {
    if (!dstR || !dstG || !dstB || !ioTargetX || !ioTargetY || width <= 0 || height <= 0)
        return false;
    if (!inPlace && (!srcR || !srcG || !srcB))
        return false;
    const float* r = inPlace ? dstR : srcR;
    const float* g = inPlace ? dstG : srcG;
    const float* b = inPlace ? dstB : srcB;
    // The luminance: the largest of the three, limited to the image's range.
    const std::size_t count = static_cast<std::size_t>(width) * height;
    float* lum = AllocPlane(count);
    if (!lum)
        return false;
    const int w = width;
    ParallelRows(height, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y)
            for (int x = 0; x < w; ++x) {
                const std::size_t i = static_cast<std::size_t>(y) * w + x;
                lum[i] = static_cast<float>(ValueOf(r[i], g[i], b[i]));
            }
    });
    double cx = 0, cy = 0;
    const bool found = DiskCentroid(lum, subtractSky, &cx, &cy);
    PageFree(lum);
    if (!found) {
        PassOn(*this, inPlace, srcR, dstR);
        PassOn(*this, inPlace, srcG, dstG);
        PassOn(*this, inPlace, srcB, dstB);
        return true;
    }
    if (outCentroidX)
        *outCentroidX = cx;
    if (outCentroidY)
        *outCentroidY = cy;
    Target(*this, centreInFrame, cx, cy, ioTargetX, ioTargetY);
    const double dx = *ioTargetX - cx, dy = *ioTargetY - cy;
    return Shift(*this, inPlace, srcR, dstR, dx, dy) && Shift(*this, inPlace, srcG, dstG, dx, dy) &&
           Shift(*this, inPlace, srcB, dstB, dx, dy);
}

} // namespace astrivelle
