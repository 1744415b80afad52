// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Convert Files: each file of a list read, taken through one recorded stretch (Levels,
/// Digital Development, General Stretch Functions...) and an optional brightness step, and
/// written in another format as "CV_" + name.
#pragma once
#include <string>
#include <vector>

#include "imagesets/FileOperation.h"

namespace astrivelle {

inline constexpr const char* kConvertPrefix = "CV_";
inline constexpr const char* kConvertRunningText = "Converting Files";
inline constexpr const char* kConvertWriteFailureText = "Error writing CV_";
inline constexpr const char* kConvertBrightnessFailureText =
    "Error applying brightness increase to CV_";

/// What a run is started with.
struct ConvertFilesRequest {
    std::vector<std::string> files;
    std::string outputDirectory;
    std::string prefix = kConvertPrefix;
    /// ".TIF", ".JPG", ".BMP", ".PNG" or ".FIT", or a save-type keyword ("TIFF8", "COMPFIT32",
    /// ...).
    std::string outputType = ".TIF";
    /// The stretch by its operator name ("Levels", "Digital Development", "General Stretch
    /// Functions", any recorded operator) or "BCS" / "Auto Min/Max"; empty: none.
    std::string stretch;
    /// The stretch's recorded parameter text; empty means the stretch was never applied.
    std::string parameters;
    /// Added to every pixel after the stretch, limited to 0..the image's maximum (0: none).
    double brightnessStep = 0;
};

/// The save-type keyword of an output type: ".TIF" "TIFF16", ".JPG" "JPEG", ".BMP" "BMP",
/// ".PNG" "PNG", ".FIT" "UNCOMPFIT"; a conversion keyword stands for itself; empty when unknown.
std::string ConvertSaveType(const std::string& outputType);

/// Empty when the request's stretch can run; else the text that stops the run: "Please apply
/// Levels to an image to set its parameters before conversion." and its BCS, DDP and Auto
/// Min/Max forms when the parameters are missing, or the reason a stretch can't be replayed.
std::string ConvertStretchText(const ConvertFilesRequest& request);

/// The worker body, on the calling thread: "Converting Files" through the file-operation
/// frame, each output written as prefix + name in the output type. A file whose stretch
/// fails is reported with the reason and the run goes on.
FileOpResult ConvertFiles(const ConvertFilesRequest& request, IProgress* progress, INotify* notify);

} // namespace astrivelle
