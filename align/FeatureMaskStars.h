// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Feature Mask operator in its "Stars" mode: a monochrome plane becomes a mask of
/// its star cores, bright compact spots on black, with all extended structure (sky gradients,
/// nebulae, galaxy cores larger than the radius) removed. The descriptor matching of star
/// alignment binarizes the mask at 32768 and searches it for stars.
///
/// How the mask is made (plane size and the 0..65535 scale are kept):
/// 1. Background: the grey-scale opening of the plane (a minimum, then a maximum filter over a
///    square of side 2 * (1.5 * radius) + 1). Whatever cannot hold that square (stars, small
///    knots) is cut away; gradients and structure wider than the square stay in it. The
///    residual (plane - background) is smoothed by a Gaussian of sigma 0.3 * radius, about
///    the size of a star: this matched residual places the cores and judges their shape.
/// 2. Significance: the plane's own Gaussian-smoothed copy, its height at a core above the
///    mean of the square ring at `radius` about it, over the noise of that height (1.4826
///    times its median absolute deviation, per block of 64 x 64, on every fourth pixel). The
///    opening is not used here: its plateaus and steps would pass for faint stars.
///    The scale is 9500 levels per sigma: the `threshold` 36068 asks for 3.8 sigma.
/// 3. A core is a local maximum of the matched residual over the square of half size
///    `breakLocal` (the first in row order wins a tie) that is significant enough, whose
///    brightest pixel has at least `breakNeighbours` of its eight neighbours at half its
///    height above the ring, less twice the pixel noise (a lone hot pixel has none; the
///    noise is measured per block from neighbour differences), and whose matched residual on the
///    ring is below (1 - `factor`) of its peak, both above the block's median (a star falls
///    off; an extended blob does not).
/// 4. Output: the cores ranked by significance, strongest first; a square of half size
///    `maskedArea` about the core of rank k at the level 65535 * 2^(-k / 40), 0 elsewhere. A
///    binarization at 32768 thus keeps the 40 strongest cores, and each lower level of the
///    recipe lets fainter ones in. Where squares overlap the stronger core's level stands.
#pragma once
#include <string>

namespace astrivelle {

/// The arguments of the "Stars" mode; the defaults are the ones star alignment passes.
struct FeatureMaskStarsParams {
    int radius = 10;
    int threshold = 36068;
    int colorMode = 1; ///< 1: one monochrome plane (the only mode of "Stars")
    int maskedArea = 3;
    int breakLocal = 2;
    int breakNeighbours = 2;
    double factor = 0.75;
};

/// Cores per halving of the spot level (the strongest 40 reach 32768).
inline constexpr double kFeatureMaskBrightCount = 40.0;
/// Levels per sigma of the significance scale.
inline constexpr double kFeatureMaskLevelsPerSigma = 9500.0;
/// Side of the blocks in which the background level and the noise are measured.
inline constexpr int kFeatureMaskBlock = 64;
/// The least noise assumed on the matched plane, so that a flat plane has no cores.
inline constexpr float kFeatureMaskNoiseFloor = 0.05f;
/// Radius of the opening: structure that cannot hold its square is kept as compact.
inline int OpeningRadius(const FeatureMaskStarsParams& p) {
    return p.radius + p.radius / 2;
}
/// Sigma of the Gaussian of the matched plane, about the size of a star of that radius.
inline double MatchedSigma(const FeatureMaskStarsParams& p) {
    return 0.3 * p.radius;
}

/// Makes the star mask of `src` (width x height) in `dst` (may equal `src`). False, with
/// `error` set, for an argument out of range, a missing plane or memory that can't be had.
/// `outCores` (optional) receives the number of star cores.
bool FeatureMaskStars(const float* src, float* dst, int width, int height,
                      const FeatureMaskStarsParams& params, std::string* error,
                      int* outCores = nullptr);

} // namespace astrivelle
