// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Image::Translate: a plane moved by whole pixels or, with sub-pixel precision, by a
/// weighted sum of its neighbours (bilinear or cubic B-spline). Uncovered pixels take the
/// border value.
///
/// The move is separable, so each axis gets its taps once: for a destination coordinate the
/// source base is the coordinate minus the signed integer step, and the neighbours lie
/// further against the direction of the move. A pixel whose taps of non-zero weight reach
/// outside the source keeps the border value; so a fraction of 0 needs no neighbour.
#include <cmath>
#include <cstring>
#include <new>
#include <vector>

#include "engine/Image.h"
#include "engine/PageAlloc.h"
#include "engine/Parallel.h"
#include "operators/geometry/GeometryKernels.h"

namespace astrivelle {

namespace {

using geometry::AxisTaps;

/// Taps of every destination coordinate along one axis.
struct AxisPlan {
    std::vector<AxisTaps> taps;
    std::vector<unsigned char> valid;
};

/// `step` is the truncated shift with the sign of the direction (+ right / down), `f` its
/// fraction (0..1), `mode` 1 (no neighbours), 2 or 3. `xAxis` picks the argument order of the
/// cubic weights: R(m - f) on x, R(f - m) on y, m = -1..2.
AxisPlan PlanAxis(int size, int step, double f, int direction, int mode, bool xAxis) {
    AxisPlan plan;
    plan.taps.resize(static_cast<std::size_t>(size));
    plan.valid.resize(static_cast<std::size_t>(size));
    const int away = -direction; // towards the neighbours in the source
    double w[4] = {1, 0, 0, 0};
    int first = 0, count = 1;
    if (mode == 2) {
        w[0] = 1.0 - f;
        w[1] = f;
        count = 2;
    } else if (mode == 3) {
        for (int m = -1; m <= 2; ++m)
            w[m + 1] = xAxis ? geometry::CubicBSpline(m - f) : geometry::CubicBSpline(f - m);
        first = -1;
        count = 4;
    }
    for (int o = 0; o < size; ++o) {
        const int base = o - step;
        AxisTaps& t = plan.taps[static_cast<std::size_t>(o)];
        bool ok = true;
        for (int k = 0; k < count; ++k) {
            const double weight = w[k];
            if (weight == 0.0)
                continue;
            const int i = base + away * (first + k);
            if (i < 0 || i >= size) {
                ok = false;
                break;
            }
            t.index[t.count] = i;
            t.weight[t.count] = weight;
            ++t.count;
        }
        plan.valid[static_cast<std::size_t>(o)] = ok ? 1 : 0;
    }
    return plan;
}

} // namespace

bool Image::Translate(bool inPlace, const float* src, float* dst, bool negativeY, bool negativeX,
                      double dy, double dx, float border, bool subPixel, int interpolation) {
    if (!dst || (!inPlace && !src) || width <= 0 || height <= 0)
        return false;
    if (subPixel && (interpolation < 1 || interpolation > 3))
        return false;
    if (!(dx == dx) || !(dy == dy))
        return false;
    // A negative amount is a move the other way.
    if (dx < 0) {
        dx = -dx;
        negativeX = !negativeX;
    }
    if (dy < 0) {
        dy = -dy;
        negativeY = !negativeY;
    }
    const int dirX = negativeX ? -1 : 1;
    const int dirY = negativeY ? -1 : 1;
    // Amounts beyond the image leave only border pixels; keep the integers in range.
    const double limitX = static_cast<double>(width) + 4.0;
    const double limitY = static_cast<double>(height) + 4.0;
    const int ix = static_cast<int>(dx < limitX ? dx : limitX);
    const int iy = static_cast<int>(dy < limitY ? dy : limitY);
    const int mode = subPixel ? interpolation : 1;
    // The fractions come from the amounts themselves (the integers may have been limited).
    const double fx = mode == 1 ? 0.0 : dx - std::floor(dx);
    const double fy = mode == 1 ? 0.0 : dy - std::floor(dy);

    AxisPlan px, py;
    try {
        px = PlanAxis(width, dirX * ix, fx, dirX, mode, true);
        py = PlanAxis(height, dirY * iy, fy, dirY, mode, false);
    } catch (const std::bad_alloc&) {
        return false;
    }

    const std::size_t count = static_cast<std::size_t>(width) * height;
    float* copy = nullptr;
    const float* in = src;
    if (inPlace || src == dst) {
        copy = AllocPlane(count);
        if (!copy)
            return false;
        std::memcpy(copy, dst, count * sizeof(float));
        in = copy;
    }
    const int w = width;
    ParallelRows(height, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            float* out = dst + static_cast<std::size_t>(y) * w;
            const AxisTaps& ty = py.taps[static_cast<std::size_t>(y)];
            if (!py.valid[static_cast<std::size_t>(y)]) {
                for (int x = 0; x < w; ++x)
                    out[x] = border;
                continue;
            }
            for (int x = 0; x < w; ++x) {
                if (!px.valid[static_cast<std::size_t>(x)]) {
                    out[x] = border;
                    continue;
                }
                const AxisTaps& tx = px.taps[static_cast<std::size_t>(x)];
                out[x] = geometry::SampleTaps(in, w, tx, ty);
            }
        }
    });
    PageFree(copy);
    return true;
}

} // namespace astrivelle
