// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Read Noise and Gain: a camera's gain (electrons per count) and read noise (electrons)
/// from two flat frames and two bias frames by the photon transfer method, for a mono sensor
/// or per colour of a Bayer mosaic.
#pragma once
#include <cstddef>
#include <string>
#include <vector>

#include "engine/Notify.h"

namespace astrivelle {

inline constexpr const char* kReadNoiseGainBusyText = "Compute Read Noise & Gain In Progress.";
inline constexpr const char* kReadNoiseGainCloseText =
    "Please Cancel Compute Read Noise & Gain Before Closing.";
inline constexpr const char* kReadNoiseGainNoMemoryText =
    "No memory for read noise & gain calculation.";

/// The count factor of an A/D converter: 8 bit 256.0, 10 bit 64.0, 12 bit 16.0, 14 bit 4.0,
/// 16 bit 1.0; 0 for any other depth.
double CountFactorOfAdc(int bits);

/// The measure of one pair of frames of one channel.
struct PairMeasure {
    double mean1 = 0, mean2 = 0; ///< with the pedestal / pixel count taken off
    double sigma = 0;            ///< of the difference plane, pixel count as divisor
};

/// Measures a pair of planes of `count` pixels: each plane divided by `countFactor` first
/// (in place, when it is not 1.0), the means, the pedestal (when above 0) taken off each mean
/// as pedestal / count, and the spread of the single-precision difference (a - P) - (b - P).
/// False when the difference plane can't be had.
bool MeasurePair(float* a, float* b, std::size_t count, double countFactor, int pedestal,
                 PairMeasure* out);

/// Gain = ((mF1 + mF2) - (mB1 + mB2)) / (sF^2 - sB^2); read noise = gain * sB / sqrt(2).
void GainAndReadNoise(const PairMeasure& flats, const PairMeasure& bias, double* gain,
                      double* readNoise);

struct ReadNoiseGainRequest {
    std::string flat1, flat2, bias1, bias2;
    std::string frameType = "CCD"; ///< "CCD", "OSCCCD" or "DSLR"
    int adcBits = 16;
    int pedestal = 0;
    std::string cfaPattern = "RG,GB"; ///< for "DSLR" and "OSCCCD"
};

/// One row of the results: "Luminance", "Red", "Green" or "Blue".
struct GainRow {
    std::string name;
    double gain = 0;
    double readNoise = 0;
};

struct ReadNoiseGainResult {
    bool ok = false;
    std::string status; ///< the failure text, "Thread Canceled", or empty on success
    std::vector<GainRow> rows;
};

/// "%4.3f".
std::string FormatGainValue(double value);

/// The selection rule: the four files must differ. False with the first of the twelve texts
/// ("Please select a Flat 1 frame that is different than Flat 2.", ...) that applies.
bool CheckDistinctFrames(const ReadNoiseGainRequest& request, std::string* text);

/// The worker body: reads the flats, measures them, frees them, reads the bias frames and
/// measures them, with the statuses of each stage ("Processing flat frames...", ...), the
/// cancel flag read between stages. For "DSLR" and "OSCCCD" each colour of the mosaic (split
/// by the pattern through the Bayer seam of calibration/) is measured by itself.
ReadNoiseGainResult ComputeReadNoiseGain(const ReadNoiseGainRequest& request, IProgress* progress);

} // namespace astrivelle
