// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Feature Mask operator in its "Stars" mode: a monochrome plane becomes a mask of
/// its star cores, bright compact spots on black, with all extended structure (sky gradients,
/// nebulae, galaxy cores larger than the radius) removed. The descriptor matching of star
/// alignment binarizes the mask at 32768 and searches it for stars.
///
/// How the mask is made (plane size and the 0..65535 scale are kept):
/// 1. Background: the grey-scale opening of the plane (a minimum, then a maximum filter over a
///    square of side 2 * radius + 1). Whatever cannot hold that square (stars, small knots) is
///    cut away; gradients and structure wider than the square stay in the background.
/// 2. Residual r = plane - background (never negative). It holds the compact structure.
/// 3. Local noise: the plane is cut into blocks of 32 x 32; in each, the residual's bias is the
///    median of r and the noise sigma is 1.4826 times the median absolute difference of
///    horizontal neighbours over sqrt(2) (robust against stars and gradients alike).
/// 4. Significance s = (r - bias) / sigma on a scale of 6553.5 levels per sigma (ten sigma are
///    full scale): a pixel is a candidate when its level is at or above `threshold` (36068 is
///    about 5.5 sigma).
/// 5. A candidate is a star core when it is the largest residual of its square of half size
///    `breakLocal` (the first in row order wins a tie), at least `breakNeighbours` of its eight
///    neighbours reach half its residual (a lone hot pixel does not), and everything on the
///    square ring at half the radius stays below (1 - `factor`) of its residual (a star falls
///    off; a ridge, filament or extended blob does not).
/// 6. Output: the cores ranked by their flux (the sum of r - bias over the square of step 5, in
///    sigma), strongest first; a square of half size `maskedArea` about the core of rank k at
///    the level 65535 * 2^(-k / 40), 0 elsewhere. A binarization at 32768 thus keeps the 40
///    strongest cores, and each lower level of the recipe lets fainter ones in. Where squares
///    overlap the stronger core's level stands.
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
inline constexpr double kFeatureMaskLevelsPerSigma = 6553.5;

/// Makes the star mask of `src` (width x height) in `dst` (may equal `src`). False, with
/// `error` set, for an argument out of range, a missing plane or memory that can't be had.
/// `outCores` (optional) receives the number of star cores.
bool FeatureMaskStars(const float* src, float* dst, int width, int height,
                      const FeatureMaskStarsParams& params, std::string* error,
                      int* outCores = nullptr);

} // namespace astrivelle
