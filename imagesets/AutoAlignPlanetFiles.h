// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Auto Align Planet Files: each image of a set shifted so that the centre of brightness
/// of its bright disk falls where the first image's lies, each output written as "AN_" + name
/// in the type it was read.
#pragma once
#include <string>
#include <vector>

#include "imagesets/FileOperation.h"

namespace astrivelle {

inline constexpr const char* kAutoAlignPlanetKeyword = "AUTOALIGNPLANET";
inline constexpr const char* kAutoAlignPlanetPrefix = "AN_";
inline constexpr const char* kAutoAlignPlanetRunningText = "Aligning Files...";
inline constexpr const char* kAutoAlignPlanetDoneText = "Completed";
inline constexpr const char* kAutoAlignPlanetOneImageText =
    "The auto align file operation requires at least one image.\nPlease select at least one "
    "FIT, JPEG, BMP, or TIFF image.";
inline constexpr const char* kAutoAlignPlanetOneUsableText =
    "The auto align file operation requires at least one usable image.\nPlease select at least "
    "one FIT, JPEG, BMP, or TIFF image.";
inline constexpr const char* kAutoAlignPlanetBusyText = "Auto Align Planet Is Currently Busy.";
inline constexpr const char* kAutoAlignPlanetInProgressText = "Auto Align Files In Progress.";
inline constexpr const char* kAutoAlignPlanetNoThreadText =
    "Auto Align thread could not be created.";
/// The output list's operation name.
inline constexpr const char* kAutoAlignPlanetListName = "Auto Align Planet Files";

/// What a run is started with.
struct AutoAlignPlanetRequest {
    std::vector<std::string> files;
    /// Files of the list marked "Exclude From Align": not processed.
    std::vector<std::string> excluded;
    std::string outputDirectory;
};

/// One image that was aligned: its centroid (0-based pixels) and the shift applied to it
/// (right and down positive). An image without a centroid has `found` false and no shift.
struct PlanetShift {
    std::string input;
    bool found = false;
    double centroidX = 0, centroidY = 0;
    double shiftX = 0, shiftY = 0;
};

struct AutoAlignPlanetResult {
    FileOpResult run;
    bool started = false; ///< false when a check stopped it before the first file
    /// The target pair: set by the first processed image with a centroid, -1 until then.
    double targetX = -1, targetY = -1;
    std::vector<PlanetShift> shifts; ///< one per written output, in order
};

/// The worker body, on the calling thread: the checks, then for each usable image that is not
/// excluded, in list order: read ("Error reading " + name + extension, then the next image),
/// the centring with the sky subtracted and the first image's centroid as the target, write
/// outputDirectory/AN_name.ext through a temporary name ("Error writing AN_" + name, which
/// stands as the status). Cancel is tested after the computation and after the write: "Thread
/// Canceled", completed outputs stay. The outputs become the "Aligned Image Set". A second
/// run while one is going ends at once with "Auto Align Planet Is Currently Busy.".
AutoAlignPlanetResult AutoAlignPlanetFiles(const AutoAlignPlanetRequest& request,
                                           IProgress* progress, INotify* notify);

} // namespace astrivelle
