// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Image::Rotate and its extent: a plane turned about a point, each destination pixel
/// mapped back into the source and sampled by the interpolation's kernel.
///
/// Coordinates are those of the array (x right, y down), so the turn by a positive angle
/// (cos, -sin; sin, cos) is clockwise on the screen. Angles in degrees become radians with the
/// system's own pi.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "engine/Image.h"
#include "engine/PageAlloc.h"
#include "engine/Parallel.h"
#include "operators/geometry/GeometryKernels.h"

namespace astrivelle {

namespace {

constexpr const char* kRotateNoMemory = "System Out Of Memory For Rotate Function.";

void Fail(std::string* text, const char* what) {
    if (text)
        *text = what;
}

} // namespace

void Image::RotatedExtent(double aboutX, double aboutY, double angle, bool clockwise, bool radians,
                          bool addBorder, int* outWidth, int* outHeight, double* outOffsetX,
                          double* outOffsetY) const {
    *outWidth = width;
    *outHeight = height;
    *outOffsetX = 0.0;
    *outOffsetY = 0.0;
    if (!addBorder || width <= 0 || height <= 0)
        return;
    double theta = radians ? angle : angle * pi / 180.0;
    if (!clockwise)
        theta = -theta;
    const double c = std::cos(theta), s = std::sin(theta);
    const double corners[4][2] = {
        {-0.5, -0.5}, {width - 0.5, -0.5}, {-0.5, height - 0.5}, {width - 0.5, height - 0.5}};
    double minX = 0, maxX = 0, minY = 0, maxY = 0;
    for (int k = 0; k < 4; ++k) {
        const double ux = corners[k][0] - aboutX, uy = corners[k][1] - aboutY;
        const double qx = aboutX + c * ux - s * uy;
        const double qy = aboutY + s * ux + c * uy;
        if (k == 0 || qx < minX)
            minX = qx;
        if (k == 0 || qx > maxX)
            maxX = qx;
        if (k == 0 || qy < minY)
            minY = qy;
        if (k == 0 || qy > maxY)
            maxY = qy;
    }
    // Spans a hair over a whole number (cos of a right angle is not exactly 0) stay whole.
    const double spanX = maxX - minX, spanY = maxY - minY;
    *outWidth = std::max(1, static_cast<int>(std::ceil(spanX - 1e-6)));
    *outHeight = std::max(1, static_cast<int>(std::ceil(spanY - 1e-6)));
    *outOffsetX = -0.5 - minX + (*outWidth - spanX) / 2.0;
    *outOffsetY = -0.5 - minY + (*outHeight - spanY) / 2.0;
}

bool Image::Rotate(const float* src, float*& cur, float*& prev, double aboutX, double aboutY,
                   double angle, bool clockwise, bool radians, float border, int interpolation,
                   bool addBorder, bool commit, std::string* text) {
    if (!src || !cur || width <= 0 || height <= 0 || interpolation < 1 || interpolation > 3 ||
        !std::isfinite(angle) || !std::isfinite(aboutX) || !std::isfinite(aboutY))
        return false;
    int outW = width, outH = height;
    double offX = 0.0, offY = 0.0;
    RotatedExtent(aboutX, aboutY, angle, clockwise, radians, addBorder, &outW, &outH, &offX, &offY);
    const std::size_t oldCount = static_cast<std::size_t>(width) * height;
    const std::size_t newCount = static_cast<std::size_t>(outW) * outH;

    // The destination: new planes for a new size, else `cur` itself (through a copy of the
    // source when they are one plane).
    float* copy = nullptr;
    float* dst = cur;
    if (addBorder) {
        dst = AllocPlane(newCount);
        if (!dst) {
            Fail(text, kRotateNoMemory);
            return false;
        }
    } else if (src == cur) {
        copy = AllocPlane(oldCount);
        if (!copy) {
            Fail(text, kRotateNoMemory);
            return false;
        }
        std::memcpy(copy, src, oldCount * sizeof(float));
        src = copy;
    }

    double theta = radians ? angle : angle * pi / 180.0;
    if (!clockwise)
        theta = -theta;
    const double c = std::cos(theta), s = std::sin(theta);
    const int w = width, h = height;
    ParallelRows(outH, [&](int y0, int y1) {
        geometry::AxisTaps tx, ty;
        for (int y = y0; y < y1; ++y) {
            float* out = dst + static_cast<std::size_t>(y) * outW;
            const double vy = y - offY - aboutY;
            for (int x = 0; x < outW; ++x) {
                const double vx = x - offX - aboutX;
                // The inverse turn brings the destination back into the source.
                const double sx = aboutX + c * vx + s * vy;
                const double sy = aboutY - s * vx + c * vy;
                if (!geometry::TapsAt(sx, w, interpolation, &tx) ||
                    !geometry::TapsAt(sy, h, interpolation, &ty)) {
                    out[x] = border;
                    continue;
                }
                out[x] = geometry::SampleTaps(src, w, tx, ty);
            }
        }
    });
    PageFree(copy);

    if (addBorder) {
        // Input and result differ in size: the previous plane takes the result as well.
        float* newPrev = nullptr;
        if (prev) {
            newPrev = AllocPlane(newCount);
            if (!newPrev) {
                PageFree(dst);
                Fail(text, kRotateNoMemory);
                return false;
            }
            std::memcpy(newPrev, dst, newCount * sizeof(float));
        }
        PageFree(cur);
        PageFree(prev);
        cur = dst;
        prev = newPrev;
        if (commit) {
            FreeWorkRows(); // row arrays were made with the old size
            FreeAccumulators();
            width = outW;
            height = outH;
            pixelCount = static_cast<std::uint32_t>(newCount);
        }
    }
    return true;
}

} // namespace astrivelle
