// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Quality of an image against the truth of a synthetic night, for benchmarks against
/// peer programs and for tests. The image lies in the pixel coordinates of one light frame.
///
/// Definitions (values in ADU and pixels):
/// - noise: the pixels farther than a star's reach from every truth star (and off the trail),
///   minus a background mesh (median of each 64x64 cell, interpolated bilinearly between cell
///   centres); the MAD of what is left x 1.4826, clipped at 3 sigma and taken again, 5 times.
/// - snrGain: S / noise of the image over S / noise of the reference frame, S the sum over the
///   same stars of (sum of pixels whose centre lies within 1.5 x the largest truth FWHM of the
///   star, minus that many times the median of the annulus 3 to 8 px beyond). Stars: up to the
///   200 brightest truth stars that are unsaturated, isolated and inside both images.
/// - fwhm: median FWHM of up to 40 of the brightest unsaturated isolated truth stars whose
///   peak is at least 30 x noise, each from a least-squares fit of a pixel-integrated circular
///   Moffat profile (free beta, constant background) in a window around it: the FWHM of the
///   profile before pixel sampling.
/// - completeness: among truth stars inside the frame whose single-frame SNR exceeds 20 (SNR =
///   F / sqrt(F/g + pi fwhm^2 (sky/g + dark t/g + rn^2)), F the vignetted flux, fwhm and sky
///   of the frame, g the gain), the share matched by a listed star within 1.5 px (brightest
///   first, each listed star used once); positionError: RMS distance of those matches.
/// - cornerError: the largest distance, over the four image corners, between the given map
///   from frame pixels to frame 0 pixels and the true one (the inverse of the frame's truth
///   transform).
/// A "star's reach" and "isolated" use the truth fluxes and the largest truth FWHM.
#pragma once
#include <optional>
#include <string>
#include <vector>

#include "tools/synth/TruthFile.h"

namespace astrivelle::synth {

struct StarPoint {
    double x = 0, y = 0;
};

struct MeasureRequest {
    const float* image = nullptr; ///< truth width x height
    int frame = 0;
    const float* reference = nullptr; ///< optional single calibrated frame
    int referenceFrame = 0;
    const std::vector<StarPoint>* stars = nullptr; ///< optional detected stars
    const Affine* transform = nullptr;             ///< optional frame -> frame 0 map
};

struct MeasureResult {
    std::optional<double> noise, snrGain, fwhm, completeness, positionError, cornerError;
    int fwhmStars = 0, snrStars = 0, eligibleStars = 0, matchedStars = 0;
};

/// All measures the inputs allow; false with a text for inconsistent inputs (a frame index
/// outside the truth).
bool Measure(const Truth& truth, const MeasureRequest& request, MeasureResult* result,
             std::string* error);

/// The noise measure alone.
double RobustNoise(const Truth& truth, int frame, const float* image);

/// Fits the pixel-integrated Moffat profile in a window of half-size `radius` around (x, y);
/// false when the window leaves the image or the fit fails. Gives the FWHM and the centre.
bool FitMoffat(const float* image, int width, int height, double x, double y, int radius,
               double fwhmGuess, double* fwhm, double* cx, double* cy);

/// Single-frame SNR of a truth star in a frame, as completeness defines it.
double SingleFrameSnr(const Truth& truth, const StarTruth& star, int frame);

/// cornerError for an estimated map from frame pixels to frame 0 pixels.
double CornerError(const Truth& truth, int frame, const Affine& estimate);

/// Reads "x y" lines ('#' starts a comment, blank lines skipped); false with the line number
/// of a malformed line.
bool ReadStarList(const std::string& path, std::vector<StarPoint>* stars, std::string* error);

/// Reads "m00,m01,m02,m10,m11,m12".
bool ParseAffine(const std::string& text, Affine* out);

/// The result as one JSON line (null for what was not measured).
std::string MeasureToJson(const MeasureResult& result);
/// The result as "name value" lines ("-" for what was not measured).
std::string MeasureToText(const MeasureResult& result);

} // namespace astrivelle::synth
