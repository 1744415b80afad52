// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Geometric transforms for the user: Translate, Rotate, Scale and the two mirrors, with
/// their parameter texts, the checks whose texts the sheet shows, and their replay.
#pragma once
#include <string>

#include "operators/Registry.h"

namespace astrivelle {

class Image;

// ---- fixed texts ----------------------------------------------------------------------------
inline constexpr const char* kGeometryNoImageText = "No image is availble.";
inline constexpr const char* kGeometryAlignBusyText =
    "Alignment is in progress. Please reset first.";
inline constexpr const char* kGeometryPositiveRealText = "Please enter a positive real number.";
inline constexpr const char* kGeometryPositiveIntegerText = "Please enter a positive integer.";
inline constexpr const char* kGeometryWidthText = "The width W is not a positive integer.";
inline constexpr const char* kGeometryHeightText = "The height H is not a positive integer.";

/// Interpolation modes by number: 1 "Nearest Neighbor" ("Nearest Nbhd" on the rotate page),
/// 2 "Bilinear", 3 "Bicubic".
enum GeometryInterpolation : int {
    InterpolateNearest = 1,
    InterpolateBilinear = 2,
    InterpolateBicubic = 3,
};

/// The name of a mode in the parameter texts; `rotatePage` gives the rotate page's short
/// name for mode 1. Empty for an unknown mode.
const char* InterpolationName(int mode, bool rotatePage = false);
/// The mode of a name (either name of mode 1), 0 when none matches.
int InterpolationOfName(const std::string& name);

/// One Translate step: amounts are not negative, the directions say where they go.
struct TranslateParams {
    bool up = false;   ///< "Translate Up", else "Translate Down"
    bool left = false; ///< "Translate Left", else "Translate Right"
    double dy = 0.0;
    double dx = 0.0;
    int border = 0; ///< "Border Pixel"
    bool subPixel = true;
    int interpolation = InterpolateBilinear;
};

/// One Rotate step about a pixel.
struct RotateParams {
    double angle = 0.0;
    bool clockwise = true;
    bool radians = false;
    int aboutX = 0;
    int aboutY = 0;
    int border = 0; ///< "Border Value"
    bool addBorder = false;
    int interpolation = InterpolateBilinear;
};

/// One Scale step: by factors or by a size in pixels.
struct ScaleStepParams {
    bool byFactor = true;
    double factorX = 1.0;
    double factorY = 1.0;
    int width = 0;
    int height = 0;
    int interpolation = InterpolateBilinear;
};

/// "Translate Down : %.4f#Translate Right : %.4f#Border Pixel : %d#Sub-Pixel : %s#
/// Interpolation : %s#" with Up for Down and Left for Right as the directions say.
std::string FormatTranslate(const TranslateParams& params);
/// Reads the text back: the labels of the first two fields decide the directions. False
/// with the reason when a field is missing or a value is out of range.
bool ParseTranslate(const std::string& text, TranslateParams* params, std::string* error);

/// "Rotate CW (Degrees) : %.4f#About : (%d, %d)#Border Value : %d#Add Border : %s#
/// Interpolation : %s#" (CW/CCW, Degrees/Radians in the first label).
std::string FormatRotate(const RotateParams& params);
bool ParseRotate(const std::string& text, RotateParams* params, std::string* error);

/// "Scale By : Factor#Width X : %.4f#Height X : %.4f#Interpolation : %s#" or
/// "Scale By : Size#Width : %d#Height : %d#Interpolation : %s#".
std::string FormatScale(const ScaleStepParams& params);
bool ParseScale(const std::string& text, ScaleStepParams* params, std::string* error);

/// "Mirror : Vertical#" (rows, "V") and "Mirror : Horizontal#" (columns, "H").
std::string FormatMirror(bool vertical);

/// The checks of the sheet on an image of `width` by `height` (0 when there is none): empty
/// when the values can be used, else the fixed text to show.
std::string TranslateCheckText(const TranslateParams& params, int width, int height);
std::string RotateCheckText(const RotateParams& params, int width, int height);
std::string ScaleCheckText(const ScaleStepParams& params, int width, int height);

/// The Image::Scale arguments of a step (commit left to the caller).
struct ScaleParams;
ScaleParams ScaleParamsOf(const ScaleStepParams& params);
/// True when the step would leave the size as it is (both factors exactly 1).
bool ScaleIsIdentity(const ScaleStepParams& params, int width, int height);

/// The pixel work of each step on every slot of the image, as the operator and replay do it:
/// with `pending` false the current planes are first copied to the previous ones; the step
/// then reads the previous planes. Scale and a Rotate with Add Border give the image a new
/// size (both planes of every slot). False with the reason in `error`.
bool ApplyTranslate(Image& image, const TranslateParams& params, bool pending, std::string* error);
bool ApplyRotate(Image& image, const RotateParams& params, bool pending, std::string* error);
bool ApplyScale(Image& image, const ScaleStepParams& params, std::string* error);
bool ApplyMirror(Image& image, bool vertical, bool pending, std::string* error);

OperatorDescriptor MirrorVerticalDescriptor();
OperatorDescriptor MirrorHorizontalDescriptor();
OperatorDescriptor TranslateDescriptor();
OperatorDescriptor ScaleDescriptor();
OperatorDescriptor RotateDescriptor();

} // namespace astrivelle
