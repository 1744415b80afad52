// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The float-to-level rule and the clamps that every pixel formula ends with.
#pragma once
#include <cstdint>

namespace astrivelle {

/// The single float-to-integer rule: truncate towards zero, add one only when the fraction is
/// strictly above 0.5 (so 0.5 -> 0 and 1.5 -> 1), then clamp to lo..hi.
inline int RoundLevel(double f, int lo, int hi) {
    if (!(f == f)) // NaN counts as the bottom of the range
        return lo;
    if (f >= 2147483647.0)
        return hi;
    if (f <= -2147483647.0)
        return lo;
    int i = static_cast<int>(f);
    if (f - i > 0.5)
        ++i;
    return i < lo ? lo : (i > hi ? hi : i);
}

inline int RoundLevel(double f) {
    return RoundLevel(f, 0, 65535);
}

/// RoundLevel(f, 0, 65535) for a float, written with selects only so that loops over planes
/// vectorise. Gives the same level for every float, NaN included (0).
inline int RoundLevel16(float f) {
    const float c = f > 0.0f ? (f < 65535.0f ? f : 65535.0f) : 0.0f;
    const int i = static_cast<int>(c);
    return i + (c - static_cast<float>(i) > 0.5f ? 1 : 0);
}

inline double Max2(double a, double b) {
    return a > b ? a : b;
}
inline double Min2(double a, double b) {
    return a < b ? a : b;
}

inline void ClampDouble(double* v, double lo, double hi) {
    if (*v < lo)
        *v = lo;
    else if (*v > hi)
        *v = hi;
}

inline void ClampFloat(float* v, float lo, float hi) {
    if (*v < lo)
        *v = lo;
    else if (*v > hi)
        *v = hi;
}

} // namespace astrivelle
