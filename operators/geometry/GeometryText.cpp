// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The parameter texts of Translate, Rotate, Scale and the mirrors, their checks, the
/// pixel work shared by the operators and replay, and the registry entries.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "engine/Image.h"
#include "engine/ParamText.h"
#include "operators/Geometry.h"

namespace astrivelle {

namespace {

constexpr int kLevelTop = 65535;

bool Fail(std::string* error, const std::string& op, const std::string& what,
          const std::string& text) {
    if (error)
        *error = op + ": " + what + " in \"" + text + "\"";
    return false;
}

/// Reads the interpolation name that ends a geometric text into `mode`.
bool ReadInterpolation(std::string* rest, int* mode, std::string* error, const char* op,
                       const std::string& text);

/// The operator's own check of parsed values; `params` takes them only when it passes.
template <class Params>
bool Accept(const Params& p, const std::string& check, Params* params, std::string* error,
            const char* op, const std::string& text) {
    if (!check.empty())
        return Fail(error, op, check, text);
    *params = p;
    return true;
}

void SetError(std::string* error, const std::string& text) {
    if (error)
        *error = text;
}

/// The label of a field: the text before its ':'.
std::string Label(const std::string& field) {
    const std::string::size_type colon = field.find(':');
    return colon == std::string::npos ? field : field.substr(0, colon);
}

bool Has(const std::string& text, const char* word) {
    return text.find(word) != std::string::npos;
}

bool HasImage(const Image& image) {
    if (image.width <= 0 || image.height <= 0)
        return false;
    const std::vector<int> slots = image.Slots();
    if (slots.empty())
        return false;
    for (int s : slots)
        if (!image.curPlane[s] || !image.prevPlane[s])
            return false;
    return true;
}

/// Pending false: the current planes become the step's input in the previous planes.
void BeginPlanes(Image& image, bool pending) {
    if (!pending)
        image.CurrentToPrevious();
}

} // namespace

const char* InterpolationName(int mode, bool rotatePage) {
    switch (mode) {
    case InterpolateNearest:
        return rotatePage ? "Nearest Nbhd" : "Nearest Neighbor";
    case InterpolateBilinear:
        return "Bilinear";
    case InterpolateBicubic:
        return "Bicubic";
    default:
        return "";
    }
}

int InterpolationOfName(const std::string& name) {
    if (name == "Nearest Neighbor" || name == "Nearest Nbhd")
        return InterpolateNearest;
    if (name == "Bilinear")
        return InterpolateBilinear;
    if (name == "Bicubic")
        return InterpolateBicubic;
    return 0;
}

namespace {

bool ReadInterpolation(std::string* rest, int* mode, std::string* error, const char* op,
                       const std::string& text) {
    std::string value;
    if (!NextValue(&value, rest))
        return Fail(error, op, "interpolation missing", text);
    *mode = InterpolationOfName(value);
    if (*mode == 0)
        return Fail(error, op, "interpolation unknown", text);
    return true;
}

} // namespace

// ---- texts ----------------------------------------------------------------------------------

std::string FormatTranslate(const TranslateParams& p) {
    return FormatText("Translate %s : %.4f#Translate %s : %.4f#Border Pixel : %d#"
                      "Sub-Pixel : %s#Interpolation : %s#",
                      p.up ? "Up" : "Down", p.dy, p.left ? "Left" : "Right", p.dx, p.border,
                      p.subPixel ? "Yes" : "No", InterpolationName(p.interpolation));
}

bool ParseTranslate(const std::string& text, TranslateParams* params, std::string* error) {
    const char* op = "Translate";
    std::string rest = text, field, value;
    TranslateParams p;
    if (!NextField(&field, &rest) || !FieldValue(&value, field))
        return Fail(error, op, "vertical move missing", text);
    if (!Has(Label(field), "Up") && !Has(Label(field), "Down"))
        return Fail(error, op, "vertical direction missing", text);
    p.up = Has(Label(field), "Up");
    p.dy = std::atof(value.c_str());
    if (!NextField(&field, &rest) || !FieldValue(&value, field))
        return Fail(error, op, "horizontal move missing", text);
    if (!Has(Label(field), "Left") && !Has(Label(field), "Right"))
        return Fail(error, op, "horizontal direction missing", text);
    p.left = Has(Label(field), "Left");
    p.dx = std::atof(value.c_str());
    if (!NextValue(&value, &rest))
        return Fail(error, op, "border pixel missing", text);
    p.border = std::atoi(value.c_str());
    if (!NextValue(&value, &rest))
        return Fail(error, op, "sub-pixel missing", text);
    p.subPixel = IsYes(value);
    if (!ReadInterpolation(&rest, &p.interpolation, error, op, text))
        return false;
    return Accept(p, TranslateCheckText(p, 1, 1), params, error, op, text);
}

std::string FormatRotate(const RotateParams& p) {
    return FormatText("Rotate %s (%s) : %.4f#About : (%d, %d)#Border Value : %d#"
                      "Add Border : %s#Interpolation : %s#",
                      p.clockwise ? "CW" : "CCW", p.radians ? "Radians" : "Degrees", p.angle,
                      p.aboutX, p.aboutY, p.border, p.addBorder ? "Yes" : "No",
                      InterpolationName(p.interpolation, true));
}

bool ParseRotate(const std::string& text, RotateParams* params, std::string* error) {
    const char* op = "Rotate";
    std::string rest = text, field, value;
    RotateParams p;
    if (!NextField(&field, &rest) || !FieldValue(&value, field))
        return Fail(error, op, "angle missing", text);
    const std::string label = Label(field);
    if (!Has(label, "CW") || (!Has(label, "Degrees") && !Has(label, "Radians")))
        return Fail(error, op, "direction missing", text);
    p.clockwise = !Has(label, "CCW");
    p.radians = Has(label, "Radians");
    p.angle = std::atof(value.c_str());
    if (!NextValue(&value, &rest) || !PointValue(&p.aboutX, &p.aboutY, value))
        return Fail(error, op, "centre missing", text);
    if (!NextValue(&value, &rest))
        return Fail(error, op, "border value missing", text);
    p.border = std::atoi(value.c_str());
    if (!NextValue(&value, &rest))
        return Fail(error, op, "add border missing", text);
    p.addBorder = IsYes(value);
    if (!ReadInterpolation(&rest, &p.interpolation, error, op, text))
        return false;
    return Accept(p, RotateCheckText(p, 1, 1), params, error, op, text);
}

std::string FormatScale(const ScaleStepParams& p) {
    if (p.byFactor)
        return FormatText("Scale By : Factor#Width X : %.4f#Height X : %.4f#Interpolation : %s#",
                          p.factorX, p.factorY, InterpolationName(p.interpolation));
    return FormatText("Scale By : Size#Width : %d#Height : %d#Interpolation : %s#", p.width,
                      p.height, InterpolationName(p.interpolation));
}

bool ParseScale(const std::string& text, ScaleStepParams* params, std::string* error) {
    const char* op = "Scale";
    std::string rest = text, value;
    ScaleStepParams p;
    if (!NextValue(&value, &rest) || (value != "Factor" && value != "Size"))
        return Fail(error, op, "kind missing", text);
    p.byFactor = value == "Factor";
    std::string first, second;
    if (!NextValue(&first, &rest) || !NextValue(&second, &rest))
        return Fail(error, op, "size missing", text);
    if (p.byFactor) {
        p.factorX = std::atof(first.c_str());
        p.factorY = std::atof(second.c_str());
    } else {
        p.width = std::atoi(first.c_str());
        p.height = std::atoi(second.c_str());
    }
    if (!ReadInterpolation(&rest, &p.interpolation, error, op, text))
        return false;
    return Accept(p, ScaleCheckText(p, 1, 1), params, error, op, text);
}

std::string FormatMirror(bool vertical) {
    return vertical ? "Mirror : Vertical#" : "Mirror : Horizontal#";
}

// ---- checks ---------------------------------------------------------------------------------

std::string TranslateCheckText(const TranslateParams& p, int width, int height) {
    if (width <= 0 || height <= 0)
        return kGeometryNoImageText;
    if (!(p.dx >= 0.0 && std::isfinite(p.dx)) || !(p.dy >= 0.0 && std::isfinite(p.dy)))
        return kGeometryPositiveRealText;
    if (p.border < 0 || p.border > kLevelTop)
        return kGeometryPositiveIntegerText;
    if (InterpolationName(p.interpolation)[0] == '\0')
        return kGeometryPositiveIntegerText;
    return {};
}

std::string RotateCheckText(const RotateParams& p, int width, int height) {
    if (width <= 0 || height <= 0)
        return kGeometryNoImageText;
    if (!(p.angle >= 0.0 && std::isfinite(p.angle)))
        return kGeometryPositiveRealText;
    if (p.border < 0 || p.border > kLevelTop)
        return kGeometryPositiveIntegerText;
    if (InterpolationName(p.interpolation)[0] == '\0')
        return kGeometryPositiveIntegerText;
    return {};
}

std::string ScaleCheckText(const ScaleStepParams& p, int width, int height) {
    if (width <= 0 || height <= 0)
        return kGeometryNoImageText;
    if (p.byFactor) {
        if (!(p.factorX > 0.0 && std::isfinite(p.factorX)) ||
            !(p.factorY > 0.0 && std::isfinite(p.factorY)))
            return kGeometryPositiveRealText;
    } else {
        if (p.width <= 0)
            return kGeometryWidthText;
        if (p.height <= 0)
            return kGeometryHeightText;
    }
    if (InterpolationName(p.interpolation)[0] == '\0')
        return kGeometryPositiveIntegerText;
    return {};
}

ScaleParams ScaleParamsOf(const ScaleStepParams& p) {
    ScaleParams s;
    s.preserveAspect = false;
    s.byFactor = p.byFactor;
    s.byDimension = !p.byFactor;
    s.factorX = p.factorX;
    s.factorY = p.factorY;
    s.uniformFactor = p.factorX;
    s.newWidth = p.width;
    s.newHeight = p.height;
    s.resampleType = p.interpolation;
    return s;
}

bool ScaleIsIdentity(const ScaleStepParams& p, int width, int height) {
    if (p.byFactor)
        return p.factorX == 1.0 && p.factorY == 1.0;
    return p.width == width && p.height == height;
}

// ---- pixel work -----------------------------------------------------------------------------

bool ApplyTranslate(Image& image, const TranslateParams& p, bool pending, std::string* error) {
    if (!HasImage(image)) {
        SetError(error, kGeometryNoImageText);
        return false;
    }
    const std::string check = TranslateCheckText(p, image.width, image.height);
    if (!check.empty()) {
        SetError(error, check);
        return false;
    }
    BeginPlanes(image, pending);
    for (int s : image.Slots())
        if (!image.Translate(false, image.prevPlane[s], image.curPlane[s], p.up, p.left, p.dy, p.dx,
                             static_cast<float>(p.border), p.subPixel, p.interpolation)) {
            SetError(error, "Translate: the plane could not be moved.");
            return false;
        }
    return true;
}

bool ApplyRotate(Image& image, const RotateParams& p, bool pending, std::string* error) {
    if (!HasImage(image)) {
        SetError(error, kGeometryNoImageText);
        return false;
    }
    const std::string check = RotateCheckText(p, image.width, image.height);
    if (!check.empty()) {
        SetError(error, check);
        return false;
    }
    BeginPlanes(image, pending);
    const std::vector<int> slots = image.Slots();
    for (std::size_t k = 0; k < slots.size(); ++k) {
        const int s = slots[k];
        std::string text;
        if (!image.Rotate(image.prevPlane[s], image.curPlane[s], image.prevPlane[s], p.aboutX,
                          p.aboutY, p.angle, p.clockwise, p.radians, static_cast<float>(p.border),
                          p.interpolation, p.addBorder, k + 1 == slots.size(), &text)) {
            SetError(error, text.empty() ? "Rotate: the plane could not be turned." : text);
            return false;
        }
    }
    return true;
}

bool ApplyScale(Image& image, const ScaleStepParams& p, std::string* error) {
    if (!HasImage(image)) {
        SetError(error, kGeometryNoImageText);
        return false;
    }
    const std::string check = ScaleCheckText(p, image.width, image.height);
    if (!check.empty()) {
        SetError(error, check);
        return false;
    }
    if (ScaleIsIdentity(p, image.width, image.height))
        return true; // "No Scale Needed": nothing to do
    ScaleParams sp = ScaleParamsOf(p);
    const std::vector<int> slots = image.Slots();
    for (std::size_t k = 0; k < slots.size(); ++k) {
        const int s = slots[k];
        sp.commit = k + 1 == slots.size();
        std::string text;
        if (!image.Scale(sp, image.curPlane[s], image.prevPlane[s], &text)) {
            SetError(error, text);
            return false;
        }
    }
    return true;
}

bool ApplyMirror(Image& image, bool vertical, bool pending, std::string* error) {
    if (!HasImage(image)) {
        SetError(error, kGeometryNoImageText);
        return false;
    }
    BeginPlanes(image, pending);
    for (int s : image.Slots()) {
        const bool ok = vertical ? image.FlipRows(false, image.prevPlane[s], image.curPlane[s])
                                 : image.FlipColumns(false, image.prevPlane[s], image.curPlane[s]);
        if (!ok) {
            SetError(error, "Mirror: the plane could not be flipped.");
            return false;
        }
    }
    return true;
}

// ---- replay ---------------------------------------------------------------------------------

namespace {

bool ReplayMirror(Image& image, const std::string& text, bool vertical, std::string* error) {
    std::string rest = text, field;
    if (!NextField(&field, &rest))
        return Fail(error, vertical ? "Mirror Vertical" : "Mirror Horizontal", "field missing",
                    text);
    return ApplyMirror(image, vertical, false, error);
}

bool ReplayMirrorVertical(Image& image, const std::string& text, const ReplayContext&,
                          std::string* error) {
    return ReplayMirror(image, text, true, error);
}

bool ReplayMirrorHorizontal(Image& image, const std::string& text, const ReplayContext&,
                            std::string* error) {
    return ReplayMirror(image, text, false, error);
}

bool RoundTripMirror(const std::string& text, std::string* formatted) {
    if (text != FormatMirror(true) && text != FormatMirror(false))
        return false;
    *formatted = text;
    return true;
}

bool ReplayTranslate(Image& image, const std::string& text, const ReplayContext&,
                     std::string* error) {
    TranslateParams p;
    return ParseTranslate(text, &p, error) && ApplyTranslate(image, p, false, error);
}

bool RoundTripTranslate(const std::string& text, std::string* formatted) {
    TranslateParams p;
    if (!ParseTranslate(text, &p, nullptr))
        return false;
    *formatted = FormatTranslate(p);
    return true;
}

bool ReplayRotate(Image& image, const std::string& text, const ReplayContext&, std::string* error) {
    RotateParams p;
    return ParseRotate(text, &p, error) && ApplyRotate(image, p, false, error);
}

bool RoundTripRotate(const std::string& text, std::string* formatted) {
    RotateParams p;
    if (!ParseRotate(text, &p, nullptr))
        return false;
    *formatted = FormatRotate(p);
    return true;
}

bool ReplayScale(Image& image, const std::string& text, const ReplayContext&, std::string* error) {
    ScaleStepParams p;
    return ParseScale(text, &p, error) && ApplyScale(image, p, error);
}

bool RoundTripScale(const std::string& text, std::string* formatted) {
    ScaleStepParams p;
    if (!ParseScale(text, &p, nullptr))
        return false;
    *formatted = FormatScale(p);
    return true;
}

} // namespace

OperatorDescriptor MirrorVerticalDescriptor() {
    OperatorDescriptor d;
    d.name = "Mirror Vertical";
    d.replay = ReplayMirrorVertical;
    d.roundTrip = RoundTripMirror;
    d.examples = {FormatMirror(true)};
    return d;
}

OperatorDescriptor MirrorHorizontalDescriptor() {
    OperatorDescriptor d;
    d.name = "Mirror Horizontal";
    d.replay = ReplayMirrorHorizontal;
    d.roundTrip = RoundTripMirror;
    d.examples = {FormatMirror(false)};
    return d;
}

OperatorDescriptor TranslateDescriptor() {
    OperatorDescriptor d;
    d.name = "Translate";
    d.replay = ReplayTranslate;
    d.roundTrip = RoundTripTranslate;
    TranslateParams whole;
    whole.dy = 2;
    whole.dx = 3;
    whole.left = true;
    whole.subPixel = false;
    whole.interpolation = InterpolateNearest;
    whole.border = 100;
    TranslateParams sub;
    sub.up = true;
    sub.dy = 0.25;
    sub.dx = 1.5;
    sub.interpolation = InterpolateBicubic;
    d.examples = {FormatTranslate(whole), FormatTranslate(sub)};
    return d;
}

OperatorDescriptor ScaleDescriptor() {
    OperatorDescriptor d;
    d.name = "Scale";
    d.replay = ReplayScale;
    d.roundTrip = RoundTripScale;
    d.changesGeometry = true;
    ScaleStepParams factor;
    factor.factorX = 1.5;
    factor.factorY = 0.5;
    ScaleStepParams size;
    size.byFactor = false;
    size.width = 12;
    size.height = 6;
    size.interpolation = InterpolateBicubic;
    d.examples = {FormatScale(factor), FormatScale(size)};
    return d;
}

OperatorDescriptor RotateDescriptor() {
    OperatorDescriptor d;
    d.name = "Rotate";
    d.replay = ReplayRotate;
    d.roundTrip = RoundTripRotate;
    d.changesGeometry = true;
    RotateParams turn;
    turn.angle = 12.5;
    turn.aboutX = 4;
    turn.aboutY = 4;
    RotateParams border;
    border.angle = 0.5;
    border.clockwise = false;
    border.radians = true;
    border.aboutX = 3;
    border.aboutY = 2;
    border.border = 50;
    border.addBorder = true;
    border.interpolation = InterpolateNearest;
    d.examples = {FormatRotate(turn), FormatRotate(border)};
    return d;
}

} // namespace astrivelle
