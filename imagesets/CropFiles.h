// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Crop Files: a width x height box cut from each image of a list, about one point for
/// all images or about each image's own brightness centroid, written as "CR_" + name.
#pragma once
#include <string>
#include <vector>

#include "imagesets/FileOperation.h"

namespace astrivelle {

inline constexpr const char* kCropPrefix = "CR_";
inline constexpr const char* kCropOwnerDialog = "CCropFiles";
inline constexpr const char* kCropOwnerPipeline = "CFileSetProcess";
inline constexpr const char* kCropRunningText = "Cropping Files...";
inline constexpr const char* kCropCenterText = "Please select a center point for the crop.";
inline constexpr const char* kCropHeightText = "Height must be greater than 0";
inline constexpr const char* kCropWidthText = "Width must be greater than 0";
inline constexpr const char* kCropTooLargeText = "Error cropping file w and h too large";
inline constexpr const char* kCropErrorText = "Error cropping file";
inline constexpr const char* kCropFirstFileText = "Could not read the first crop file.";
inline constexpr const char* kCropFileText = "Could not read the crop file.";

enum class CropCenter { AboutXY, Centroid };

/// What a run is started with.
struct CropRequest {
    std::string ownerName = kCropOwnerDialog;
    std::vector<std::string> files;
    std::string outputDirectory;
    std::string prefix = kCropPrefix;
    CropCenter center = CropCenter::AboutXY;
    double x = -1; ///< AboutXY: the point, 0-based image coordinates; -1 unset
    double y = -1;
    int width = 0;
    int height = 0;
    /// Honoured only for the owner "CFileSetProcess".
    std::string saveType = "SAMEASINPUT";
};

/// The parameter check: empty when the request can run, else "Please select a center point
/// for the crop.", "Height must be greater than 0" or "Width must be greater than 0".
std::string CropParamsText(const CropRequest& request);

/// The centre of brightness of an image (0-based): the sky level from four bands 10 pixels
/// wide lying 5 pixels inside the border (mean m, maximum M limited to m + 3s), weights
/// w = pixel - M over x in 5..width-6, y in 5..height-6 (10000 or more counts as the image's
/// maximum value; limited to 0..maximum), the weighted mean position. A colour image uses
/// the mean of its three planes. False when the weights sum to 0 (no centroid) or the image
/// is too small for the bands.
bool BrightnessCentroid(const Image& image, double* cx, double* cy);

/// The box of `width` x `height` about (cx, cy), moved inside an image of imageWidth x
/// imageHeight where it would reach past an edge: left = round(cx) - width / 2, top likewise.
/// False when the box is larger than the image.
bool CropBox(double cx, double cy, int width, int height, int imageWidth, int imageHeight,
             int* left, int* top);

/// Cuts the box out of every plane of `image` (the previous planes are dropped). False when it
/// does not fit or memory fails.
bool CropImage(Image& image, int left, int top, int width, int height);

/// The worker body, on the calling thread: the check, then "Cropping Files..." through the
/// file-operation frame. A box larger than an image fails that file with "Error cropping file
/// w and h too large" (+ its name), an image without a centroid with "Error cropping file";
/// the run goes on. A second run while one is going ends at once with "Crop Files Is
/// Currently Busy.".
FileOpResult CropFiles(const CropRequest& request, IProgress* progress, INotify* notify);

} // namespace astrivelle
