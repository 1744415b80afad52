// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Digital Development's parameter text, its reading, the run from parameters, its
/// replay and its operator entry.
#include <string>

#include "engine/Image.h"
#include "engine/Notify.h"
#include "engine/ParamText.h"
#include "operators/FilterSupport.h"
#include "operators/Stretch.h"

namespace astrivelle {

// ---- parameter text ---------------------------------------------------------------------------

std::string FormatDigitalDevelopment(const DigitalDevelopmentParams& p, bool colour) {
    const char* fix = p.fixDefects ? "Yes" : "No";
    if (!colour)
        return FormatText(
            "Pre-Stretch Scale Type: %s#Pre-Stretch Scale : %4.3f#Pre-Stretch Black Point : "
            "%6.5f#Pre-Stretch White Point : %4.3f#Pre-Stretch Black Point Range : %s#"
            "Break-Point Slider Range : %s#Backgd-Wt Slider Range : %s#Background Min : %d#"
            "Background Weight : %6.5f#Break-Point Highlights : %d#Sharpening Filter : %s#"
            "Fix Defects :%s#Sharpening Strength : %4.3f#",
            ScaleTypeText(p.scaleType), p.pre.scale, p.pre.black, p.pre.white,
            p.pre.blackRange.c_str(), p.breakPointRange.c_str(), p.weightRange.c_str(),
            p.backgroundMin, p.backgroundWeight, p.breakPoint, p.filter.c_str(), fix, p.strength);
    return FormatText(
        "Pre-Stretch Scale Type : %s#Pre-Stretch Scale : %4.3f#Pre-Stretch Black Point : %6.5f#"
        "Pre-Stretch White Point : %4.3f#Pre-Stretch Black Point Range : %s#"
        "Break-Point Slider Range : %s#Backgd-Wt Slider Range : %s#Background Min : %d#"
        "Background Weight : %6.5f#Break-Point Highlights : %d#Sharpening Filter :%s#"
        "Fix Defects :%s#Sharpening Strength : %4.3f#Red : %4.3f#Green : %4.3f#Blue : %4.3f#",
        ScaleTypeText(p.scaleType), p.pre.scale, p.pre.black, p.pre.white, p.pre.blackRange.c_str(),
        p.breakPointRange.c_str(), p.weightRange.c_str(), p.backgroundMin, p.backgroundWeight,
        p.breakPoint, p.filter.c_str(), fix, p.strength, p.red, p.green, p.blue);
}

bool ParseDigitalDevelopment(const std::string& text, DigitalDevelopmentParams* params,
                             bool* colour, std::string* error) {
    DigitalDevelopmentParams p;
    StretchFieldReader f(text, "Digital Development", error);
    if (!f.Scale("pre-stretch scale type", &p.scaleType) ||
        !f.Number("pre-stretch scale", &p.pre.scale) ||
        !f.Number("pre-stretch black point", &p.pre.black) ||
        !f.Number("pre-stretch white point", &p.pre.white) ||
        !f.Text("pre-stretch black point range", &p.pre.blackRange) ||
        !f.Text("break-point slider range", &p.breakPointRange) ||
        !f.Text("background weight slider range", &p.weightRange) ||
        !f.Integer("background min", &p.backgroundMin) ||
        !f.Number("background weight", &p.backgroundWeight) ||
        !f.Integer("break-point highlights", &p.breakPoint) ||
        !f.Text("sharpening filter", &p.filter) || !f.Flag("fix defects", &p.fixDefects) ||
        !f.Number("sharpening strength", &p.strength))
        return false;
    if (SharpeningFilterIndex(p.filter) < 0) {
        if (error)
            *error = "Digital Development: unknown sharpening filter \"" + p.filter + "\"";
        return false;
    }
    const bool hasWeights = f.More();
    if (hasWeights &&
        (!f.Number("red", &p.red) || !f.Number("green", &p.green) || !f.Number("blue", &p.blue)))
        return false;
    *params = p;
    if (colour)
        *colour = hasWeights;
    return true;
}

bool RunDigitalDevelopment(Image& image, const DigitalDevelopmentParams& p,
                           const StretchChannels& ch, bool pending, const CCustomFilter* custom,
                           IProgress* progress) {
    static const CCustomFilter identity;
    if (!custom)
        custom = &identity;
    const int bkgMinAndBreakPoint[2] = {p.backgroundMin, p.breakPoint};
    return image.ApplyDigitalDevelopment(
        pending, SharpeningFilterIndex(p.filter), custom->weights.data(), custom->size,
        custom->lowPass, bkgMinAndBreakPoint, ch.red, ch.green, ch.blue, p.backgroundWeight, p.red,
        p.green, p.blue, p.strength, p.fixDefects, p.pre.scale, p.pre.black, p.pre.white,
        ScaleTypeText(p.scaleType), progress);
}

namespace {

bool ReplayDigitalDevelopment(Image& image, const std::string& text, const ReplayContext& context,
                              std::string* error) {
    DigitalDevelopmentParams p;
    bool colour = false;
    if (!ParseDigitalDevelopment(text, &p, &colour, error))
        return false;
    const auto* custom = static_cast<const CCustomFilter*>(context.customFilter);
    if (p.filter == "Custom" && custom && !CustomSizeAccepted(custom->size)) {
        if (error)
            *error = kCustomFilterSizeText;
        return false;
    }
    bool ok = true;
    if (!colour && image.colorType == ColorRGB) {
        // A one-plane record on a colour image: the one-plane form on each plane.
        for (int s = 0; s < 3 && ok; ++s)
            ok = RunDigitalDevelopment(image, p, StretchChannels{s == 0, s == 1, s == 2}, false,
                                       custom, context.progress);
    } else {
        ok = RunDigitalDevelopment(image, p, StretchChannels{}, false, custom, context.progress);
    }
    if (!ok && error)
        *error = context.progress && context.progress->Cancelled()
                     ? "Digital Development: cancelled"
                     : "Could Not Allocate Memory For Operation.";
    return ok;
}

bool RoundTripDigitalDevelopment(const std::string& text, std::string* formatted) {
    DigitalDevelopmentParams p;
    bool colour = false;
    if (!ParseDigitalDevelopment(text, &p, &colour, nullptr))
        return false;
    *formatted = FormatDigitalDevelopment(p, colour);
    return true;
}

} // namespace

OperatorDescriptor DigitalDevelopmentDescriptor() {
    OperatorDescriptor d;
    d.name = "Digital Development";
    d.replay = ReplayDigitalDevelopment;
    d.roundTrip = RoundTripDigitalDevelopment;
    d.examples.push_back(FormatDigitalDevelopment(DigitalDevelopmentParams{}, false));
    DigitalDevelopmentParams p;
    p.scaleType = ScaleType::Linear;
    p.pre = {1.5, 0.002, 0.95, kBlackRangeTexts[2]};
    p.breakPointRange = kBreakPointRangeTexts[2];
    p.weightRange = kPowerRangeTexts[3];
    p.backgroundMin = 150;
    p.backgroundWeight = 0.875;
    p.breakPoint = 2500;
    p.filter = "Hard Plus";
    p.fixDefects = true;
    p.strength = 0.6;
    p.red = 0.25;
    p.green = 0.5;
    p.blue = 0.75;
    d.examples.push_back(FormatDigitalDevelopment(p, true));
    p.filter = "Custom";
    p.fixDefects = false;
    d.examples.push_back(FormatDigitalDevelopment(p, false));
    return d;
}

} // namespace astrivelle
