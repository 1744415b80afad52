// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Calibrating one light frame with the system frames: bias and dark (with the
/// automatic dark scale), the flat, the overall factor, the adaptive hot pixel pass, the
/// per-colour branch for Bayer data, and the header cards that record what was done.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "calibration/CalibrationSetup.h"
#include "engine/FitsHeader.h"

namespace astrivelle {

class Image;

/// The share of dark pixels that count as normal: "Normal" 0.9995, "High" 0.999, "Highest"
/// 0.998, anything else 0.999.
double AdaptiveFraction(const std::string& level);

/// The hot pixel threshold of a dark plane: a 65536-bin histogram of the rounded values
/// (those in range), walked up from 0 until the running count / count reaches `fraction`;
/// 65535 when none does.
std::uint32_t HotPixelThreshold(const float* dark, std::size_t count, double fraction);

/// The arguments of CalibratePlane.
struct PlaneCalibration {
    const float* flat = nullptr;
    const float* dark = nullptr;
    const float* bias = nullptr;
    double darkFactor = 1.0;
    double overallFactor = 1.0;
    bool flatIsDarkSubtracted = false; ///< the setup's useFlatDark
    bool useFlat = false, useDark = false, useBias = false;
    bool hotPixelReduce = false; ///< adaptiveWithDark
    double darkThreshold = 65535;
    bool autoDarkMatch = false;
    bool noDarkSubtract = false; ///< adaptiveWithoutDark
};

/// Calibrates one plane of width x height. `target` is first copied into `source` (the spare
/// plane); every read of the light frame is from `source`, the results go to `target`,
/// clamped to 0..maxValue. `factorUsed` (optional) receives the dark factor applied (the
/// found one with automatic matching). Returns false only when a scratch buffer can't be had.
bool CalibratePlane(float* source, float* target, int width, int height, double maxValue,
                    const PlaneCalibration& args, double* factorUsed = nullptr);

/// The automatic dark scale: the darkest 31 x 31 window along a path 20 pixels inside the
/// image, then the f of 0, 0.05, ..., 5.0 whose plane - f * dark has the least spread there.
/// Returns `given` for an image of 72 pixels or less in width or height.
double FindDarkFactor(const float* plane, const float* dark, const float* bias, int width,
                      int height, double given);

/// The hot pixel pass in place on `target`: each pixel whose dark value is at or above
/// `threshold` becomes the mean of the first 25 entries of its reflected 11 x 11 window.
void HotPixelPass(float* target, const float* dark, int width, int height, double threshold,
                  double maxValue);

/// What a run applies; the fields a calibrate run copies from its setup.
struct CalibrateOptions {
    std::string colorModel = "MONO";
    bool useFlat = false, useFlatDark = false, useDark = false, useBias = false;
    double darkFactor = 1.0;
    double overallFactor = 1.0;
    bool autoDarkMatch = false;
    bool adaptiveWithDark = false;
    bool adaptiveWithoutDark = false;
    std::string adaptiveLevel = "Normal";
    bool bayerData = false;
    std::string cfaPattern = "RG,GB";
};

/// The options of a setup: each use flag only with its path set.
CalibrateOptions OptionsOfSetup(const CalibrationSetup& setup);

/// True when the per-colour branch is taken for frames of width x height.
bool UsesColourBranch(const CalibrateOptions& options, int width, int height);

/// The thresholds of a run (one per plane or colour set), 65535 where no pass runs.
struct HotPixelThresholds {
    double value[3] = {65535, 65535, 65535};
};

/// Computes the thresholds when a dark is used with either adaptive choice: per colour plane
/// for "COLOR", per colour set for split Bayer data, else one for the mono dark.
bool ComputeHotPixelThresholds(const CalibrateOptions& options, const CalibrationFrames& frames,
                               HotPixelThresholds* thresholds, std::string* text);

/// Calibrates an image read from a light file (`name` for the texts): the per-colour branch
/// or the direct branch. False with the fixed text ("Error width not divisible by 2 use
/// Images Size with Filter Files to remove the right column " + name, "Red Calibrate Error "
/// + name, ...). `factorsUsed` (optional) gets the dark factor of each plane or set.
bool CalibrateImage(Image& image, const std::string& name, const CalibrateOptions& options,
                    const CalibrationFrames& frames, const HotPixelThresholds& thresholds,
                    std::string* text, std::vector<double>* factorsUsed = nullptr);

/// The "COMMENT" cards (data type 3, text in the comment) recording the calibration.
HeaderList CalibrationCards(const CalibrateOptions& options);

/// "Applied :" with " Dark,", " Flat,", " Flat Dark,", " Bias,", " hot pixel reduce,",
/// " no dark subtract,", " auto dark match,", " to Bayer Data," for what was on.
std::string AppliedText(const CalibrateOptions& options);

} // namespace astrivelle
