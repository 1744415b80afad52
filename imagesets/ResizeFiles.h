// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Resize Files: each image of a list brought to a size (a factor, the largest or the
/// smallest size of the set, or a given width and height) and written as "RZ_" + name.
#pragma once
#include <string>
#include <vector>

#include "imagesets/FileOperation.h"

namespace astrivelle {

inline constexpr const char* kResizePrefix = "RZ_";
inline constexpr const char* kResizeOwnerDialog = "CResizeFiles";
inline constexpr const char* kResizeOwnerPipeline = "CFileSetProcess";
inline constexpr const char* kResizeRunningText = "Resizing Files...";
inline constexpr const char* kResizeNoScaleText = "No Scale Needed";
inline constexpr const char* kResizeMonoBayerRunningText = "Resizing Mono Bayer Light Frames...";
inline constexpr const char* kResizeMonoBayerDoneText = "Resized Mono Bayer to RGB Size";
inline constexpr const char* kResizeHeightText = "Height must be greater than 0.";
inline constexpr const char* kResizeWidthText = "Width must be greater than 0.";
inline constexpr const char* kResizeFactorText = "Please enter a positive real number.";

/// MonoBayer is the automatic process's step: monochrome Bayer planes brought to the size of
/// the colour frame made from the same mosaics (`width` x `height` of the request).
enum class ResizeMode { Factor, Largest, Smallest, Size, MonoBayer };

/// What a run is started with.
struct ResizeRequest {
    std::string ownerName = kResizeOwnerDialog;
    std::vector<std::string> files;
    std::string outputDirectory;
    std::string prefix = kResizePrefix;
    ResizeMode mode = ResizeMode::Factor;
    double factor = 1.0;
    int width = 0;         ///< Size, MonoBayer
    int height = 0;        ///< Size, MonoBayer
    int interpolation = 2; ///< 1 nearest neighbour, 2 bilinear, 3 bicubic
    /// Honoured only for the owner "CFileSetProcess".
    std::string saveType = "SAMEASINPUT";
};

/// The parameter check: empty when the request can run, else "Height must be greater than
/// 0.", "Width must be greater than 0." (Size) or "Please enter a positive real number."
/// (Factor).
std::string ResizeParamsText(const ResizeRequest& request);

/// The size an image of `width` x `height` gets under Factor or Size (what Image::Scale
/// makes of it); Largest and Smallest take `setWidth` x `setHeight`.
void ResizeTargetSize(const ResizeRequest& request, int width, int height, int setWidth,
                      int setHeight, int* outWidth, int* outHeight);

/// The worker body, on the calling thread: the check, the sizes of the set (Largest and
/// Smallest take the image of the largest or smallest area), then "Resizing Files..." through
/// the file-operation frame with Image::Scale on every plane. An image already at its size is
/// written unchanged; when every image is, nothing is written and the status is "No Scale
/// Needed". Unreadable files are reported ("Error reading " + name) and the run goes on. A
/// second run while one is going ends at once with "Resize Files Is Currently Busy.".
FileOpResult ResizeFiles(const ResizeRequest& request, IProgress* progress, INotify* notify);

} // namespace astrivelle
