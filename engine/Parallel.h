// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The one row-parallel loop of the pixel code.
#pragma once
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

namespace astrivelle {

/// Runs `fn(y0, y1)` over disjoint row spans covering [0, rows). Each span is written by one
/// task only, so kernels need no locks; they must not allocate inside.
template <class Fn> void ParallelRows(int rows, Fn&& fn) {
    if (rows <= 0)
        return;
    tbb::parallel_for(tbb::blocked_range<int>(0, rows),
                      [&](const tbb::blocked_range<int>& r) { fn(r.begin(), r.end()); });
}

} // namespace astrivelle
