// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The weighted window sum of the restoration and Unsharp Mask passes: every window
/// gathered by the mirror rule and summed tap by tap in row order, with an interior path that
/// reads the rows directly and sums the same taps in the same order (so the same bits).
#pragma once
#include <algorithm>
#include <cstdint>
#include <vector>

#include "engine/Parallel.h"
#include "operators/FilterSupport.h"

namespace astrivelle::conv {

inline constexpr int kBlock = 256;  ///< pixels of a row summed together
inline constexpr int kMaxHalf = 32; ///< 65 x 65 bounds every window
inline constexpr int kMaxSide = 2 * kMaxHalf + 1;

/// The interior sums of `n` pixels: rows[dy] points at window row dy converted to doubles, at
/// the left edge of the first pixel's window. acc[i] = sum over dy, dx (row order) of
/// K[dy][dx] * rows[dy][i + dx], starting from 0, each a multiply then an add.
void KernelBlock(const double* const* rows, int side, const double* kernel, int n, double* acc);

/// Converts a row to doubles; true when it holds a sample of exactly -1.0.
bool ConvertRow(const float* row, int width, double* out);

/// The plain sum at one pixel: the window gathered by the mirror rule into `window` (side^2
/// doubles), then the taps in row order. With `skipNoData`, entries of exactly -1.0 are left
/// out and `*noData` is set.
inline double PlainAt(const float* plane, int width, int height, int x, int y, const double* kernel,
                      int h, bool skipNoData, bool* noData, double* window) {
    GatherMirror(plane, width, height, x, y, h, window);
    const int count = (2 * h + 1) * (2 * h + 1);
    double sum = 0.0;
    bool seen = false;
    for (int j = 0; j < count; ++j) {
        const double v = window[j];
        if (skipNoData && v == -1.0) {
            seen = true;
            continue;
        }
        sum += kernel[j] * v;
    }
    *noData = seen;
    return sum;
}

/// Runs the sums of every pixel, row by row (in parallel when asked), and hands each span to
/// `block(y, x0, n, acc, noData)`: acc[i] is the sum at (x0 + i, y); noData is null when no
/// window of the span held a -1.0 (or `skipNoData` is off), else one flag per pixel.
template <class Block>
void ConvolveRows(const float* plane, int width, int height, const double* kernel, int h,
                  bool skipNoData, bool parallel, Block&& block) {
    const int side = 2 * h + 1;
    auto rowsFn = [&](int y0, int y1) {
        double acc[kBlock];
        std::uint8_t flags[kBlock];
        double window[kMaxSide * kMaxSide];
        const double* rows[kMaxSide];
        // The window rows of the interior, converted once each into a ring of `side` rows.
        std::vector<double> ring;
        std::uint8_t ringMarks[kMaxSide] = {};
        int converted = -1; // the last source row in the ring
        auto plainSpan = [&](int y, int x0, int n) {
            bool any = false;
            for (int i = 0; i < n; ++i) {
                bool nd = false;
                acc[i] =
                    PlainAt(plane, width, height, x0 + i, y, kernel, h, skipNoData, &nd, window);
                flags[i] = nd;
                any |= nd;
            }
            block(y, x0, n, static_cast<const double*>(acc),
                  any ? static_cast<const std::uint8_t*>(flags) : nullptr);
        };
        auto plainRange = [&](int y, int xa, int xb) {
            for (int x0 = xa; x0 < xb; x0 += kBlock)
                plainSpan(y, x0, std::min(kBlock, xb - x0));
        };
        for (int y = y0; y < y1; ++y) {
            const bool rowsInside = y - h >= 0 && y + h < height;
            const int midA = h, midB = width - h;
            if (!rowsInside || midB <= midA) {
                plainRange(y, 0, width);
                continue;
            }
            if (ring.empty())
                ring.resize(static_cast<std::size_t>(side) * width);
            for (int r = std::max(converted + 1, y - h); r <= y + h; ++r) {
                ringMarks[r % side] = ConvertRow(plane + static_cast<long>(r) * width, width,
                                                 ring.data() + static_cast<long>(r % side) * width);
                converted = r;
            }
            bool clean = true;
            if (skipNoData)
                for (int dy = 0; dy < side; ++dy)
                    clean &= ringMarks[dy] == 0;
            if (!clean) { // some window of the row meets a -1.0
                plainRange(y, 0, width);
                continue;
            }
            plainRange(y, 0, midA);
            for (int x0 = midA; x0 < midB; x0 += kBlock) {
                const int n = std::min(kBlock, midB - x0);
                for (int dy = 0; dy < side; ++dy)
                    rows[dy] =
                        ring.data() + static_cast<long>((y - h + dy) % side) * width + (x0 - h);
                KernelBlock(rows, side, kernel, n, acc);
                block(y, x0, n, static_cast<const double*>(acc),
                      static_cast<const std::uint8_t*>(nullptr));
            }
            plainRange(y, midB, width);
        }
    };
    if (parallel)
        ParallelRows(height, rowsFn);
    else
        rowsFn(0, height);
}

} // namespace astrivelle::conv
