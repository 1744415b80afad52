// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Normalize Files: a set of images brought to one brightness and contrast (or one
/// range) per channel, in two stages (analyze the set, then normalize each file), each output
/// written as "NL_" + name.
#pragma once
#include <array>
#include <string>
#include <vector>

#include "imagesets/FileOperation.h"

namespace astrivelle {

inline constexpr const char* kNormalizePrefix = "NL_";
inline constexpr const char* kNormalizeOwnerDialog = "CNormalizeFiles";
inline constexpr const char* kNormalizeOwnerPipeline = "CFileSetProcess";
inline constexpr const char* kNormalizeAnalyzeText = "Analyze Image Set...";
inline constexpr const char* kNormalizeRunningText = "Normalizing Files...";
inline constexpr const char* kNormalizeNoneText = "No Images Processed";
inline constexpr const char* kNormalizeTwoImagesText =
    "Normalize operation requires at least two images.\nPlease select at least two images.";
inline constexpr const char* kNormalizeTwoUsableText =
    "Normalize operation requires at least two usable images.\nPlease select at least two "
    "images.";
inline constexpr int kNormalizeLimit = 65535;

enum class NormalizeMode { BrightnessContrast, Range };
enum class NormalizeTarget { SetMaximum, SetAverage, SetMinimum, UserDefined };

/// What a run is started with.
struct NormalizeRequest {
    std::string ownerName = kNormalizeOwnerDialog;
    std::vector<std::string> files;
    std::string outputDirectory;
    std::string prefix = kNormalizePrefix;
    NormalizeMode mode = NormalizeMode::BrightnessContrast;
    NormalizeTarget target = NormalizeTarget::SetAverage;
    /// "Brightness & Contrast" with "User Defined".
    double background = 5120;
    double deviation = 2000;
    /// "Use Average Standard Deviation From Image Set" (in place of `deviation`).
    bool useSetDeviation = false;
    /// "Range" with "User Defined".
    double minimum = 0;
    double maximum = 65535;
    /// Honoured only for the owner "CFileSetProcess".
    std::string saveType = "SAMEASINPUT";
};

/// The statistics of one channel over the set: the pair is (mean, deviation) in
/// "Brightness & Contrast" mode and (minimum, maximum) in "Range" mode.
struct NormalizeChannelSet {
    int count = 0;
    std::array<double, 2> largest{0, 0};
    std::array<double, 2> smallest{0, 0};
    std::array<double, 2> sum{0, 0};
    std::array<double, 2> Average() const {
        return {count ? sum[0] / count : 0.0, count ? sum[1] / count : 0.0};
    }
};

struct NormalizeResult {
    FileOpResult run;
    bool started = false; ///< false when a check stopped it before the first file
    std::array<NormalizeChannelSet, 3> sets{};      ///< by plane slot
    std::array<std::array<double, 2>, 3> targets{}; ///< by plane slot: (c, d)
    std::string step; ///< "Completed" or "Error", for the automatic process
};

/// The "User Defined" values: empty when they can be used, else "Please select an average
/// background level < 65535", "Please select an average background level and average
/// standard deviation < 65535" or "Please select minimum range < maximum range and maximum
/// range <= 65535". Other targets always pass.
std::string NormalizeParamsText(const NormalizeRequest& request);

/// The target pair of one channel set for the request's choice.
std::array<double, 2> NormalizeTargetOf(const NormalizeRequest& request,
                                        const NormalizeChannelSet& set);

/// The worker body, on the calling thread: the checks, "Analyze Image Set..." over the usable
/// files (statistics per file and channel), then "Normalizing Files..." through the
/// file-operation frame. Status "No Images Processed" when nothing was written. A second run
/// while one is going ends at once with "Normalize Files Is Currently Busy.".
NormalizeResult NormalizeFiles(const NormalizeRequest& request, IProgress* progress,
                               INotify* notify);

} // namespace astrivelle
