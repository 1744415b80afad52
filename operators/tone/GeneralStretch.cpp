// SPDX-License-Identifier: GPL-3.0-or-later
/// \file General Stretch Functions: a linear, hybrid logarithmic, root or power curve on the
/// 0..1 scale after the median offset and the pre-stretch, mapped onto an output range; each
/// channel on its own. Its parameter text and its replay.
#include <cmath>

#include "engine/Image.h"
#include "engine/Parallel.h"
#include "engine/ParamText.h"
#include "operators/Stretch.h"

namespace astrivelle {

namespace {

/// The curve of one function with its constants taken once.
struct GeneralCurve {
    StretchFunction function;
    double top, exponent, backgroundMin, white, black, range, logScale = 1.0, logShift = 0.0;

    double operator()(double x) const {
        double y;
        switch (function) {
        case StretchFunction::Linear:
            return ClampStretch((top * x - black) * top / range + backgroundMin, 0.0, 65535.0);
        case StretchFunction::HybridArcSinH:
            y = (std::log(std::fabs(x)) / logScale + logShift) * top + backgroundMin;
            break;
        default:
            y = std::pow(std::fabs(x), exponent) * top + backgroundMin;
            break;
        }
        // Background Min enters the non-linear curves twice.
        return ClampStretch((y - black) * top / range + backgroundMin, 0.0, 65535.0);
    }
};

} // namespace

bool Image::ApplyGeneralStretch(bool pending, bool applyRed, bool applyGreen, bool applyBlue,
                                const std::string& scaleType, const std::string& stretchFunction,
                                double scale, double black, double white, int backgroundMin,
                                double backgroundWeight, double exponent, int outputWhite,
                                int outputBlack) {
    ScaleType type;
    const int fn = ChoiceIndex(kStretchFunctionTexts, stretchFunction);
    if (!ScaleTypeFromText(scaleType, &type) || fn < 0)
        return false;
    const double top = maxValue;
    GeneralCurve curve{static_cast<StretchFunction>(fn),
                       top,
                       exponent,
                       static_cast<double>(backgroundMin),
                       static_cast<double>(outputWhite),
                       static_cast<double>(outputBlack),
                       static_cast<double>(outputWhite - outputBlack)};
    if (curve.function == StretchFunction::HybridArcSinH) {
        black = 0.1 - black; // the hybrid curve's black point, used by the pre-stretch too
        curve.logScale = std::log(exponent * 600.0);
        curve.logShift = -std::log(black + 0.0001) / curve.logScale;
    }
    const PreStretch pre{type, scale, black, white, top, false};

    std::vector<int> slots;
    const StretchChannels channels{applyRed, applyGreen, applyBlue};
    if (colorType != ColorRGB)
        slots.push_back(SlotOfColorType(colorType));
    else if (channels.OnePlane(*this))
        slots.push_back(applyRed ? 0 : applyGreen ? 1 : 2);
    else
        slots = {0, 1, 2};
    for (int s : slots)
        if (s < 0 || !prevPlane[s] || !curPlane[s])
            return false;

    const int w = width;
    for (int s : slots) {
        if (!pending)
            CopyPlane(prevPlane[s], curPlane[s]);
        const float* in = prevPlane[s];
        float* out = curPlane[s];
        const int offset = BackgroundOffset(MedianLevelOfPlane(in), backgroundWeight);
        ParallelRows(height, [&](int y0, int y1) {
            const std::size_t end = static_cast<std::size_t>(y1) * w;
            for (std::size_t i = static_cast<std::size_t>(y0) * w; i < end; ++i)
                out[i] = static_cast<float>(curve(pre(static_cast<double>(in[i]) + offset)));
        });
    }
    return true;
}

// ---- parameter text ---------------------------------------------------------------------------

std::string FormatGeneralStretch(const GeneralStretchParams& p) {
    const std::string exponentField =
        FormatText("%s :  %4.3f#", ExponentFieldLabel(p.function), p.exponent);
    return FormatText("Pre-Stretch Scale Type : %s#Pre-Stretch Black Range : %s#"
                      "Pre-Stretch Scale :  %4.3f#Pre-Stretch Black Point :  %6.5f#"
                      "Pre-Stretch White Point :  %4.3f#Stretch Function Type : %s#"
                      "Background Weight Range : %s#Power & Root Range : %s#"
                      "Background Min : %d#Background Weight : %6.5f#",
                      ScaleTypeText(p.scaleType), p.pre.blackRange.c_str(), p.pre.scale,
                      p.pre.black, p.pre.white, kStretchFunctionTexts[static_cast<int>(p.function)],
                      p.weightRange.c_str(), p.powerRange.c_str(), p.backgroundMin,
                      p.backgroundWeight) +
           exponentField +
           FormatText("Output White : %d#Output Black : %d#", p.outputWhite, p.outputBlack);
}

bool ParseGeneralStretch(const std::string& text, GeneralStretchParams* params,
                         std::string* error) {
    GeneralStretchParams p;
    StretchFieldReader f(text, "General Stretch Functions", error);
    std::string function;
    if (!f.Scale("pre-stretch scale type", &p.scaleType) ||
        !f.Text("pre-stretch black range", &p.pre.blackRange) ||
        !f.Number("pre-stretch scale", &p.pre.scale) ||
        !f.Number("pre-stretch black point", &p.pre.black) ||
        !f.Number("pre-stretch white point", &p.pre.white) ||
        !f.Text("stretch function type", &function))
        return false;
    const int fn = ChoiceIndex(kStretchFunctionTexts, function);
    if (fn < 0) {
        if (error)
            *error = "General Stretch Functions: unknown stretch function \"" + function + "\"";
        return false;
    }
    p.function = static_cast<StretchFunction>(fn);
    if (!f.Text("background weight range", &p.weightRange) ||
        !f.Text("power & root range", &p.powerRange) ||
        !f.Integer("background min", &p.backgroundMin) ||
        !f.Number("background weight", &p.backgroundWeight) ||
        !f.Number(ExponentFieldLabel(p.function), &p.exponent) ||
        !f.Integer("output white", &p.outputWhite) || !f.Integer("output black", &p.outputBlack))
        return false;
    *params = p;
    return true;
}

bool RunGeneralStretch(Image& image, const GeneralStretchParams& p, const StretchChannels& ch,
                       bool pending) {
    return image.ApplyGeneralStretch(pending, ch.red, ch.green, ch.blue, ScaleTypeText(p.scaleType),
                                     kStretchFunctionTexts[static_cast<int>(p.function)],
                                     p.pre.scale, p.pre.black, p.pre.white, p.backgroundMin,
                                     p.backgroundWeight, p.exponent, p.outputWhite, p.outputBlack);
}

namespace {

bool ReplayGeneralStretch(Image& image, const std::string& text, const ReplayContext&,
                          std::string* error) {
    GeneralStretchParams p;
    if (!ParseGeneralStretch(text, &p, error))
        return false;
    if (!RunGeneralStretch(image, p, StretchChannels{}, false)) {
        if (error)
            *error = "General Stretch Functions: the image has no planes";
        return false;
    }
    return true;
}

bool RoundTripGeneralStretch(const std::string& text, std::string* formatted) {
    GeneralStretchParams p;
    if (!ParseGeneralStretch(text, &p, nullptr))
        return false;
    *formatted = FormatGeneralStretch(p);
    return true;
}

} // namespace

OperatorDescriptor GeneralStretchDescriptor() {
    OperatorDescriptor d;
    d.name = "General Stretch Functions";
    d.replay = ReplayGeneralStretch;
    d.roundTrip = RoundTripGeneralStretch;
    // One example per function, so that each label of the exponent field appears.
    for (int fn = 0; fn < 4; ++fn) {
        GeneralStretchParams p;
        p.function = static_cast<StretchFunction>(fn);
        p.scaleType = static_cast<ScaleType>(1 + fn % 3);
        p.pre.blackRange = kBlackRangeTexts[fn];
        p.pre.black = fn == 1 ? 0.05 : 0.0;
        p.backgroundMin = 100 * fn;
        p.backgroundWeight = 0.25 * fn;
        p.exponent = fn == 2 ? 0.5 : (fn == 3 ? 1.125 : 1.0);
        p.pre.scale = p.scaleType == ScaleType::Power ? 1.5 : (fn == 1 ? 2.0 : 1.0);
        p.outputWhite = 60000;
        p.outputBlack = 1000 * fn;
        d.examples.push_back(FormatGeneralStretch(p));
    }
    return d;
}

} // namespace astrivelle
