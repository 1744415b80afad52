// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The interpolation kernels the geometric transforms share: the cubic B-spline R(t) and
/// the taps of one axis at a source position.
#pragma once
#include <cmath>
#include <cstddef>

namespace astrivelle::geometry {

/// The cubic B-spline kernel R(t) = (P(t+2) - 4 P(t+1) + 6 P(t) - 4 P(t-1)) / 6 with
/// P(u) = u^3 for u > 0, else 0. The sum equals the B-spline on -2..2; beyond 2 it would leave
/// a remainder (the P(t-2) term is missing), so the kernel is 0 outside its support.
inline double CubicBSpline(double t) {
    if (t <= -2.0 || t >= 2.0)
        return 0.0;
    auto P = [](double u) { return u > 0.0 ? u * u * u : 0.0; };
    return (P(t + 2.0) - 4.0 * P(t + 1.0) + 6.0 * P(t) - 4.0 * P(t - 1.0)) / 6.0;
}

/// The taps of one axis for sampling at `pos` (pixel centres at integers) by `mode`:
/// 1 the nearest pixel, 2 the two linear neighbours, 3 the four B-spline neighbours. Taps
/// with weight 0 are dropped. False when a tap with weight lies outside 0..size-1.
struct AxisTaps {
    int count = 0;
    int index[4] = {0, 0, 0, 0};
    double weight[4] = {0, 0, 0, 0};
};

inline bool TapsAt(double pos, int size, int mode, AxisTaps* taps) {
    taps->count = 0;
    auto add = [&](int i, double w) {
        if (w == 0.0)
            return true;
        if (i < 0 || i >= size)
            return false;
        taps->index[taps->count] = i;
        taps->weight[taps->count] = w;
        ++taps->count;
        return true;
    };
    if (!(pos > -1e9 && pos < 1e9)) // NaN or far away
        return false;
    if (mode == 1)
        return add(static_cast<int>(std::floor(pos + 0.5)), 1.0);
    const int base = static_cast<int>(std::floor(pos));
    const double f = pos - base;
    if (mode == 2)
        return add(base, 1.0 - f) && add(base + 1, f);
    for (int m = -1; m <= 2; ++m)
        if (!add(base + m, CubicBSpline(m - f)))
            return false;
    return true;
}

/// The sample of `plane` (rows of `width`) at the taps of both axes: rows of the y taps, each
/// the weighted sum of its x taps, summed in doubles.
inline float SampleTaps(const float* plane, int width, const AxisTaps& tx, const AxisTaps& ty) {
    double sum = 0.0;
    for (int j = 0; j < ty.count; ++j) {
        const float* row = plane + static_cast<std::size_t>(ty.index[j]) * width;
        double line = 0.0;
        for (int i = 0; i < tx.count; ++i)
            line += tx.weight[i] * row[tx.index[i]];
        sum += ty.weight[j] * line;
    }
    return static_cast<float>(sum);
}

} // namespace astrivelle::geometry
