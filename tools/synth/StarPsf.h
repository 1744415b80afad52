// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The star profile of the synthetic nights: a circular Moffat function of fixed
/// beta 3, I(r) = A (1 + r^2 / alpha^2)^-3, with A = flux (beta - 1) / (pi alpha^2) so that it
/// integrates to `flux`, and FWHM = 2 alpha sqrt(2^(1/beta) - 1).
#pragma once
#include <cmath>

namespace astrivelle::synth {

constexpr double kMoffatBeta = 3.0;

/// alpha of the Moffat profile of full width at half maximum `fwhm` (any beta).
inline double MoffatAlpha(double fwhm, double beta = kMoffatBeta) {
    return fwhm / (2.0 * std::sqrt(std::pow(2.0, 1.0 / beta) - 1.0));
}

/// FWHM of a Moffat profile.
inline double MoffatFwhm(double alpha, double beta = kMoffatBeta) {
    return 2.0 * alpha * std::sqrt(std::pow(2.0, 1.0 / beta) - 1.0);
}

/// Central intensity (per pixel area) of a profile of total `flux`.
inline double MoffatPeak(double flux, double alpha, double beta = kMoffatBeta) {
    return flux * (beta - 1.0) / (3.141592653589793 * alpha * alpha);
}

/// Radius beyond which the beta-3 profile of central intensity `peak` stays below `floor`.
inline double MoffatRadius(double peak, double alpha, double floor) {
    if (peak <= floor)
        return alpha;
    return alpha * std::sqrt(std::cbrt(peak / floor) - 1.0);
}

} // namespace astrivelle::synth
