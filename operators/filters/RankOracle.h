// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The rank filters in their plain form: each window gathered by the mirror rule, sorted
/// where the filter sorts, and reduced exactly as the filter is defined. This is the
/// reference the fast filters are held to, bit for bit, and the path they take for planes
/// the fast form can't represent.
#pragma once
#include <cstdint>

#include "operators/filters/SmoothingKernels.h"

namespace astrivelle::smoothing {

/// Largest window of the rank filters: 51 x 51 samples.
constexpr int kRankMaxCount = 51 * 51;

/// Ascending sort of a window (a plain recursive quicksort).
void SortWindow(double* values, int count);

/// Type 6: the sorted entry at (count - 1) / 2. Sorts `window`.
double PlainMedian(double* window, int count);
/// Type 4: sum(w * v) / sum(w) with w = top - abs(trunc(p - v)), in window order.
double PlainSelectedNbhd(const double* window, int count, double p, double top);
/// Type 8: median c; median t of abs(v - c); mean of the v with abs(v - c) <= t. Sorts
/// `window`; `scratch` holds count values.
double PlainAbsDifference(double* window, double* scratch, int count);
/// Type 9: the adaptive median. `lastIndex` carries i from pixel to pixel along a row (0 at
/// the row's start) and is left as it was when p is only found at count - 1. Sorts `window`.
double PlainAdaptiveMedian(double* window, int count, double p, int order, int* lastIndex);
/// The sorted index type 9 takes from i.
inline int AdaptiveMedianIndex(int i, int count, int order) {
    const int q = (order + 1) / 2;
    const int limit = count - order + 1;
    int lowered = i - q + 1;
    if (lowered < 1)
        lowered = 1;
    if (lowered > limit)
        lowered = limit;
    int j = q - 2 + lowered;
    if (j < 0)
        j = 0;
    if (j > count - 1)
        j = count - 1;
    return j;
}

/// Type 5's bin of a value: trunc(v / 256), kept to 0..255 (a value below 0 or not a number
/// counts in bin 0, one above 65535 in bin 255).
inline int QuantileBin(double v) {
    if (!(v >= 0))
        return 0;
    return v >= 65536.0 ? 255 : static_cast<int>(v / 256.0);
}
/// Type 5 from its 256-bin histogram with the count, the sum and the sum of squares of the
/// bin numbers. Both forms of the filter end here.
double QuantileOfHistogram(const std::int32_t* bins, long count, double sum, double sumSq, double p,
                           double top);
/// Type 5 from a gathered window.
double PlainQuantile(const double* window, int count, double p, double top);

/// Rows [y0, y1) of a rank filter by the plain gather, written to job.cur. Polls `run` (may
/// be null) every 100 pixels; false when it said stop.
bool PlainRankRows(const PlaneJob& job, int y0, int y1, FilterRun* run);

/// The whole plane by the plain gather, one row after the other.
void PlainRankFilter(const PlaneJob& job);

} // namespace astrivelle::smoothing
