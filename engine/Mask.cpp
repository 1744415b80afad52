// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The flat and the surface mask of a blend.
#include "engine/Mask.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <vector>

#include "engine/PageAlloc.h"
#include "engine/Parallel.h"

namespace astrivelle {

namespace {

constexpr float kUnset = -1.0f;

/// A point this close below a sample's edge counts as on it: the weights of a Bernstein sum
/// add up to 1 only within rounding, and the corner rows and columns must not drop a sample.
constexpr double kEdge = 1e-7;

/// Bernstein weights of degree 3 at t: coefficients 1, 3, 3, 1.
inline void Bernstein(double t, double w[4]) {
    const double s = 1.0 - t;
    w[0] = s * s * s;
    w[1] = 3.0 * t * s * s;
    w[2] = 3.0 * t * t * s;
    w[3] = t * t * t;
}

/// The control point (row i along y, column j along x), coordinate k (0 x, 1 y, 2 z).
inline double Control(const MaskSurface& s, int i, int j, int k) {
    return s[static_cast<std::size_t>((i * 4 + j) * 3 + k)];
}

/// Samples still unset, counted over rows in parallel.
long CountUnset(const float* mask, int width, int height) {
    std::atomic<long> total{0};
    ParallelRows(height, [&](int y0, int y1) {
        long n = 0;
        const float* p = mask + static_cast<std::size_t>(y0) * width;
        const float* end = mask + static_cast<std::size_t>(y1) * width;
        for (; p < end; ++p)
            n += *p == kUnset;
        total += n;
    });
    return total.load();
}

} // namespace

MaskSource MaskSourceOf(bool luminanceMask, const MaskSurface& surface) {
    if (!luminanceMask)
        return MaskSource::File;
    return surface == DefaultMaskSurface() ? MaskSource::Flat : MaskSource::Surface;
}

void EvaluateMaskSurface(const MaskSurface& surface, double u, double v, double* x, double* y,
                         double* z) {
    double bu[4], bv[4];
    Bernstein(u, bu);
    Bernstein(v, bv);
    double out[3] = {0, 0, 0};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            for (int k = 0; k < 3; ++k)
                out[k] += bu[i] * bv[j] * Control(surface, i, j, k);
    *x = out[0];
    *y = out[1];
    *z = out[2];
}

bool BuildSurfaceMask(float* mask, std::int32_t width, std::int32_t height, double maxValue,
                      std::uint32_t maskLevel, const MaskSurface& surface) {
    if (!mask || width <= 0 || height <= 0)
        return false;
    const std::size_t count = static_cast<std::size_t>(width) * height;
    ParallelRows(height, [&](int y0, int y1) {
        std::fill(mask + static_cast<std::size_t>(y0) * width,
                  mask + static_cast<std::size_t>(y1) * width, kUnset);
    });

    // The points are placed in order, row after row, and the first to reach a sample keeps
    // it; that order makes this one pass sequential. Per row the control points are first
    // combined along u, so each sample costs twelve products.
    std::vector<double> columnWeights(static_cast<std::size_t>(width) * 4);
    for (int col = 0; col < width; ++col)
        Bernstein(static_cast<double>(col) / width,
                  &columnWeights[static_cast<std::size_t>(col) * 4]);
    const double spanX = width - 1;
    const double spanY = height - 1;
    for (int row = 0; row < height; ++row) {
        double bu[4];
        Bernstein(static_cast<double>(row) / height, bu);
        double q[4][3];
        for (int j = 0; j < 4; ++j)
            for (int k = 0; k < 3; ++k)
                q[j][k] = bu[0] * Control(surface, 0, j, k) + bu[1] * Control(surface, 1, j, k) +
                          bu[2] * Control(surface, 2, j, k) + bu[3] * Control(surface, 3, j, k);
        for (int col = 0; col < width; ++col) {
            const double* bv = &columnWeights[static_cast<std::size_t>(col) * 4];
            const double x = bv[0] * q[0][0] + bv[1] * q[1][0] + bv[2] * q[2][0] + bv[3] * q[3][0];
            const double y = bv[0] * q[0][1] + bv[1] * q[1][1] + bv[2] * q[2][1] + bv[3] * q[3][1];
            const double tx = std::trunc((x + 3.0) / 6.0 * spanX + kEdge);
            const double ty = std::trunc(spanY - (y + 3.0) / 6.0 * spanY + kEdge);
            if (!(tx >= 0 && tx < width && ty >= 0 && ty < height))
                continue;
            float& sample =
                mask[static_cast<std::size_t>(ty) * width + static_cast<std::size_t>(tx)];
            if (sample != kUnset)
                continue;
            const double z = bv[0] * q[0][2] + bv[1] * q[1][2] + bv[2] * q[2][2] + bv[3] * q[3][2];
            sample = static_cast<float>(std::clamp(maxValue * z + maskLevel, 0.0, maxValue));
        }
    }

    long unset = CountUnset(mask, width, height);
    if (unset == static_cast<long>(count)) {
        // The surface lies wholly outside the image: the level alone remains.
        const float level = static_cast<float>(std::clamp<double>(maskLevel, 0.0, maxValue));
        ParallelRows(height, [&](int y0, int y1) {
            std::fill(mask + static_cast<std::size_t>(y0) * width,
                      mask + static_cast<std::size_t>(y1) * width, level);
        });
        return true;
    }
    if (unset == 0)
        return true;

    // Holes take the mean of the reached samples around them. Each pass reads a copy made
    // before it, so the outcome does not depend on the order of the rows.
    float* before = AllocPlane(count);
    if (!before)
        return false;
    while (unset > 0) {
        std::memcpy(before, mask, sizeof(float) * count);
        ParallelRows(height, [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y) {
                const int ya = std::max(0, y - 1), yb = std::min(height - 1, y + 1);
                for (int x = 0; x < width; ++x) {
                    if (before[static_cast<std::size_t>(y) * width + x] != kUnset)
                        continue;
                    const int xa = std::max(0, x - 1), xb = std::min(width - 1, x + 1);
                    double sum = 0;
                    int n = 0;
                    for (int yy = ya; yy <= yb; ++yy)
                        for (int xx = xa; xx <= xb; ++xx) {
                            const float v = before[static_cast<std::size_t>(yy) * width + xx];
                            if (v != kUnset) {
                                sum += v;
                                ++n;
                            }
                        }
                    if (n > 0)
                        mask[static_cast<std::size_t>(y) * width + x] = static_cast<float>(sum / n);
                }
            }
        });
        unset = CountUnset(mask, width, height);
    }
    PageFree(before);
    return true;
}

} // namespace astrivelle
