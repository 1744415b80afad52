// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Filters family: Smoothing (the eight window filters of "Smoothing & Noise Reduction"),
/// its parameter text, the checks whose texts the tool and the operator show, and its replay.
#pragma once
#include <string>

#include "operators/Registry.h"

namespace astrivelle {

class Image;

/// The filter types as stored. There is no type 7.
enum SmoothingType : int {
    SmoothBox = 1,
    SmoothBinomial = 2,
    SmoothGaussian = 3,
    SmoothSelectedNbhd = 4,
    SmoothQuantile = 5,
    SmoothMedian = 6,
    SmoothAbsDifference = 8,
    SmoothAdaptiveMedian = 9,
};

/// One Smoothing step. The window side is 2 * halfSize + 1.
struct SmoothingParams {
    int type = SmoothGaussian;
    int halfSize = 1;
    double strength = 1.0;
    int order = 1; ///< odd, 1..997; used by the adaptive median only
    int applyMin = 0;
    int applyMax = 65535;
    int feather = 0;
};

/// True for 1, 2, 3, 4, 5, 6, 8 and 9.
bool IsSmoothingType(int type);
/// Separable and linear: box, binomial, Gaussian.
inline bool IsSeparableSmoothing(int type) {
    return type >= SmoothBox && type <= SmoothGaussian;
}
/// The name in the parameter text ("Box Filter", "Median"...), empty for an unknown type.
const char* SmoothingTypeName(int type);
/// The type of a name of the parameter text, 0 when none matches.
int SmoothingTypeOfName(const std::string& name);
/// The status text while the filter runs ("Median Filter ...").
const char* SmoothingProgressText(int type);
/// The status text after a cancel ("Median Filter Canceled.", "Box Filter Canceled.").
const char* SmoothingCancelText(int type);
/// Largest half size of a type: 499 for box and Gaussian, 85 for binomial, 25 for the others.
int SmoothingHalfSizeLimit(int type);

/// The `#` text: the form with "Order" for the adaptive median, the short form otherwise.
std::string FormatSmoothing(const SmoothingParams& params);
/// Reads either form back by position; the type's name decides whether an Order field
/// follows the window size. False with the reason when a field or the type is missing.
bool ParseSmoothing(const std::string& text, SmoothingParams* params, std::string* error);

/// A window larger than its type allows is set to the limit: true with the type's text
/// ("Maximum blur window size of the Median function is 51 x 51.") when that happened.
bool LimitSmoothingWindow(SmoothingParams* params, std::string* text);
/// False, with "Window Size is large than the image. Use a smaller smoothing Window Size.",
/// when the window side is at least the image's width and at least its height; a window
/// wider than the image in one direction only is taken (its indices are clamped).
bool SmoothingWindowFits(const SmoothingParams& params, int width, int height, std::string* text);
/// The apply range after an edit of its minimum (`minEdited`) or maximum: empty when
/// min < max, else "Please select a min luminance less than max luminance." or "Please
/// select a max luminance greater than min luminance.".
std::string SmoothingRangeText(int applyMin, int applyMax, bool minEdited);

/// The window size list of the dialog: "3x3" (half size 1) up to "999x999" (half size 499).
std::string SmoothingSizeLabel(int halfSize);
/// Order is an odd number 1..997: the nearest one not above `order` (at least 1).
int SmoothingOrderValue(int order);
/// The strength slider: position 0..100 is strength position / 100.
inline double SmoothingStrengthOfPosition(int position) {
    return position / 100.0;
}
int SmoothingPositionOfStrength(double strength);

/// Applies a Smoothing step to every slot of the image (pending false, as replay does): the
/// window limit set silently, the image-size check with its text in `error`.
bool ApplySmoothing(Image& image, const SmoothingParams& params, class IProgress* progress,
                    std::string* error);

OperatorDescriptor SmoothingDescriptor();

} // namespace astrivelle
