// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The 5 x 5 median by a sorting network run across the pixels of a row: each window
/// position is an array of a run of pixels, and each comparator a min and a max over those
/// arrays, which the compiler turns into vector instructions. The network sorts the 25 samples
/// outright, so its middle entry is the sorted window's entry 12, as in the plain form, for
/// every plane without a NaN and without -0 (whose order against 0 a compare can't tell).
#pragma once
#include <array>
#include <vector>

#include "operators/filters/SmoothingKernels.h"

namespace astrivelle::smoothing {

/// Rows [y0, y1) of the median of half size 2: the windows inside the plane by the network,
/// the rest by the plain gather. Polls `run` (may be null) every row; false when it said stop.
bool MedianNetworkRows(const PlaneJob& job, int y0, int y1, FilterRun* run);

/// The comparators (low index first) that sort 25 values far enough for entry 12: Batcher's
/// odd-even merge sort of 32, without those that touch only the seven padding places at the
/// top or that no later comparator passes on to entry 12.
const std::vector<std::array<int, 2>>& Median25Network();

} // namespace astrivelle::smoothing
