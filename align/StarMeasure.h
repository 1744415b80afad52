// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The two size measures of one star that MeasureStar adds when asked: the FWHM by
/// counting and the half-flux diameter by the exact flux inside a circle. Both use the star
/// window of the image they are given.
#pragma once
#include <vector>

namespace astrivelle {

class Image;
class INotify;

/// FWHM about the 0-based (px, py) with a window of radius r clipped by `background`: the
/// window is centred again on the mean position of its maximal pixels (given back through
/// outX, outY, 0-based, when not null), and on each of the eight rays from the centre to the
/// window's edge, centre included, the pixels at or above half the centre value are counted:
/// FWHM = 2 * (sum of the eight counts) / 8 - 1. `channel` null takes the luminance.
double StarFwhm(Image& image, const float* channel, int px, int py, int r, double background,
                double* outX = nullptr, double* outY = nullptr);

/// Half-flux diameter about the 1-based centroid (cx, cy) with a window of radius r clipped
/// by `background`: twice the first radius whose circle holds half the window's flux, found
/// in steps of 1 from 1, then 0.1, then 0.01. `notify` hears the "Pt < 0" guard.
double StarHfd(Image& image, const float* channel, int r, double cx, double cy, double background,
               INotify* notify = nullptr);

/// The plane stars are searched on: the one channel of a monochrome image, or for a colour
/// image the largest of red, green and blue at each pixel, made into `scratch`. Null when the
/// image has no such plane.
const float* StarChannel(const Image& image, std::vector<float>* scratch);

} // namespace astrivelle
