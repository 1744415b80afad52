// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Calibrate Files: a list of light frames calibrated with the system frames of the
/// calibration setup, each written as "C_" + name with its calibration in the header.
#pragma once
#include <string>
#include <vector>

#include "calibration/Calibrate.h"
#include "calibration/CalibrationSetup.h"
#include "imagesets/FileOperation.h"

namespace astrivelle {

inline constexpr const char* kCalibratePrefix = "C_";
inline constexpr const char* kCalibrateOwnerDialog = "CCalibrateFilesDlg";
inline constexpr const char* kCalibrateOwnerPipeline = "CFileSetProcess";
inline constexpr const char* kCalibrateFramesFailedText =
    "Could not read or allocate memory for calibrations.";
inline constexpr const char* kCalibrateNoModelText =
    "Please select a dark, flat, or bias frame using Calibration Setup.";
inline constexpr const char* kCalibrateNoImageText =
    "The image file calibrate operation requires at least one image.\nPlease select at least "
    "one image.";
inline constexpr const char* kCalibrateNoUsableText =
    "The image file calibrate operation requires at least one usable image.\nPlease select at "
    "least one readable image with the same size and color model\n as the system frames.";
inline constexpr const char* kCalibrateInProgressText = "Calibrate Files In Progress.";

/// What a run is started with.
struct CalibrateRequest {
    std::string ownerName = kCalibrateOwnerDialog;
    std::vector<std::string> files;
    std::string outputDirectory;
    std::string prefix = kCalibratePrefix;
    CalibrationSetup setup;
    /// Honoured only for the owner "CFileSetProcess".
    std::string saveType = "SAMEASINPUT";
};

/// The outcome: the frame's result (outputs, failures, status), and the dark factor applied
/// to each plane or colour set of each written file, in order.
struct CalibrateResult {
    FileOpResult run;
    std::vector<std::vector<double>> factors;
    bool started = false; ///< false when the pre-flight or the frames stopped it
};

/// The start check of the Calibrate Files window: the colour model, then the usable-file check
/// under "CALIBRATE" with "COLORonly" or "MONOonly" and the setup's frame size. `usable`
/// receives the files to run; false with the fixed text when none can be used or the user
/// cancelled at the question about refused files (asked through `notify`).
bool CheckCalibrateFiles(const CalibrateRequest& request, INotify& notify,
                         std::vector<std::string>* usable, std::string* text);

/// The worker body: pre-flight, "Preparing Calibration Frames...", the hot pixel statistics
/// ("Compute High Pixel Reduction Statistics..."), then "Calibrating Frames..." over the
/// files through the file-operation frame; the final status is the last error text or
/// "Applied :...". Runs on the calling thread; a front end starts it on a FileOpWorker.
CalibrateResult CalibrateFiles(const CalibrateRequest& request, IProgress* progress,
                               INotify* notify);

} // namespace astrivelle
