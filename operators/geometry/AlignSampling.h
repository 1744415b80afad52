// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The three-sample rule by which the alignment resamplers (AlignAffine3, AlignRigid2,
/// AlignProjective4) read a source plane at a fractional position.
#pragma once
#include <cstddef>

namespace astrivelle {

/// Where one output pixel reads: the centre sample and its x and y neighbours, with the
/// fractions that weigh them.
struct ThreeSample {
    std::size_t centre = 0;
    std::size_t xNeighbour = 0;
    std::size_t yNeighbour = 0;
    double fx = 0;
    double fy = 0;
};

/// The samples of source position (sx, sy) in a plane of w by h: ix, iy the truncated
/// position, fx, fy its fractions; the x neighbour is ix + 1 when fx > 0.5, else ix - 1, and
/// likewise in y. False (the output pixel is then 0 in every channel) when any of the three
/// lies outside the plane.
inline bool ThreeSamplePosition(double sx, double sy, int w, int h, ThreeSample* s) {
    if (!(sx > -1.0 && sy > -1.0 && sx < w && sy < h)) // also rejects NaN
        return false;
    const int ix = static_cast<int>(sx);
    const int iy = static_cast<int>(sy);
    const double fx = sx - ix;
    const double fy = sy - iy;
    const int nx = fx > 0.5 ? ix + 1 : ix - 1;
    const int ny = fy > 0.5 ? iy + 1 : iy - 1;
    if (ix < 0 || iy < 0 || ix >= w || iy >= h || nx < 0 || nx >= w || ny < 0 || ny >= h)
        return false;
    s->centre = static_cast<std::size_t>(iy) * w + ix;
    s->xNeighbour = static_cast<std::size_t>(iy) * w + nx;
    s->yNeighbour = static_cast<std::size_t>(ny) * w + ix;
    s->fx = fx;
    s->fy = fy;
    return true;
}

/// (X (1 - fx) + C fx + Y (1 - fy) + C fy) / 2, clamped to 0..maxValue. The larger fraction
/// gives the centre more weight: this is the rule of the system, kept as it is.
inline float ThreeSampleValue(const float* plane, const ThreeSample& s, double maxValue) {
    const double c = plane[s.centre];
    const double v = (plane[s.xNeighbour] * (1.0 - s.fx) + c * s.fx +
                      plane[s.yNeighbour] * (1.0 - s.fy) + c * s.fy) /
                     2.0;
    return static_cast<float>(v < 0 ? 0 : (v > maxValue ? maxValue : v));
}

} // namespace astrivelle
