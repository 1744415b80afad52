// SPDX-License-Identifier: GPL-3.0-or-later
/// \file ArcSinH: an inverse hyperbolic sine curve after the median offset and the pre-stretch,
/// with the decompress-colour step on three planes; its parameter text and its replay.
#include <cmath>

#include "engine/Image.h"
#include "engine/Notify.h"
#include "engine/Parallel.h"
#include "engine/ParamText.h"
#include "operators/Stretch.h"

namespace astrivelle {

namespace {

double Asinh(double t) {
    return std::log(std::sqrt(t * t + 1.0) + t);
}

/// The curve with its constants taken once.
struct ArcSinHCurve {
    double k, top, gain, asinhK, divisor, backgroundMin;
    ArcSinHCurve(double power, double expand, double top, int backgroundMin)
        : k((1.001 - power) * 2000.0), top(top), gain(top * expand), asinhK(Asinh(k)),
          divisor(top - expand), backgroundMin(backgroundMin) {}
    double S(double v) const { return Asinh(v * k / top) * gain / asinhK; }
    double Final(double s) const {
        return ClampStretch(s * top / divisor + backgroundMin, 0.0, 65535.0);
    }
};

bool Cancelled(const IProgress* progress) {
    return progress && progress->Cancelled();
}

} // namespace

bool Image::ApplyArcSinH(bool pending, bool applyRed, bool applyGreen, bool applyBlue,
                         const std::string& scaleType, double scale, double black, double white,
                         int backgroundMin, double backgroundWeight, double power, double expand,
                         double red, double green, double blue, IProgress* progress) {
    ScaleType type;
    if (!ScaleTypeFromText(scaleType, &type))
        return false;
    const double top = maxValue;
    const PreStretch pre{type, scale, black, white, top, true};
    const ArcSinHCurve curve(power, expand, top, backgroundMin);
    const StretchChannels channels{applyRed, applyGreen, applyBlue};
    const int w = width;
    if (progress)
        progress->SetProgress(0, 2);

    if (channels.OnePlane(*this)) {
        const int s = colorType != ColorRGB ? SlotOfColorType(colorType)
                      : applyRed            ? 0
                      : applyGreen          ? 1
                                            : 2;
        if (s < 0 || !prevPlane[s] || !curPlane[s])
            return false;
        if (!pending)
            CopyPlane(prevPlane[s], curPlane[s]);
        const float* in = prevPlane[s];
        float* out = curPlane[s];
        const int offset = BackgroundOffset(MedianLevelOfPlane(in), backgroundWeight);
        if (progress)
            progress->SetProgress(1, 2);
        ParallelRows(height, [&](int y0, int y1) {
            for (int y = y0; y < y1 && !Cancelled(progress); ++y)
                for (std::size_t i = static_cast<std::size_t>(y) * w,
                                 e = i + static_cast<std::size_t>(w);
                     i < e; ++i)
                    out[i] = static_cast<float>(
                        curve.Final(curve.S(pre(static_cast<double>(in[i]) + offset))));
        });
    } else {
        for (int c = 0; c < 3; ++c)
            if (!prevPlane[c] || !curPlane[c])
                return false;
        int offset[3];
        for (int c = 0; c < 3; ++c) {
            if (!pending)
                CopyPlane(prevPlane[c], curPlane[c]);
            offset[c] = BackgroundOffset(MedianLevelOfPlane(prevPlane[c]), backgroundWeight);
        }
        if (progress)
            progress->SetProgress(1, 2);
        const float* in[3] = {prevPlane[0], prevPlane[1], prevPlane[2]};
        float* out[3] = {curPlane[0], curPlane[1], curPlane[2]};
        const double rowStart = top * expand;
        ParallelRows(height, [&](int y0, int y1) {
            for (int y = y0; y < y1 && !Cancelled(progress); ++y) {
                double held = rowStart; // b / r before any pixel of the row had one
                for (std::size_t i = static_cast<std::size_t>(y) * w,
                                 e = i + static_cast<std::size_t>(w);
                     i < e; ++i) {
                    const double r = pre(static_cast<double>(in[0][i]) + offset[0]);
                    const double g = pre(static_cast<double>(in[1][i]) + offset[1]);
                    const double b = pre(static_cast<double>(in[2][i]) + offset[2]);
                    double R, G, B;
                    DecompressColor(r, g, b, curve.S(r), curve.S(g), curve.S(b), red, green, blue,
                                    &held, &R, &G, &B);
                    out[0][i] = static_cast<float>(curve.Final(R));
                    out[1][i] = static_cast<float>(curve.Final(G));
                    out[2][i] = static_cast<float>(curve.Final(B));
                }
            }
        });
    }
    if (Cancelled(progress))
        return false;
    if (progress)
        progress->SetProgress(2, 2);
    return true;
}

// ---- parameter text ---------------------------------------------------------------------------

std::string FormatArcSinH(const ArcSinHParams& p) {
    return FormatText("Pre-Stretch Scale Type : %s#Pre-Stretch Black Range : %s#"
                      "Pre-Stretch Scale :  %4.3f#Pre-Stretch Black Point :  %6.5f#"
                      "Pre-Stretch White Point :  %4.3f#Background Weight Range : %s#"
                      "Power Range : %s#Background Min : %d#Background Weight : %6.5f#"
                      "Power :  %4.3f#Expand : %4.3f#Red : %4.3f#Green : %4.3f#Blue : %4.3f#",
                      ScaleTypeText(p.scaleType), p.pre.blackRange.c_str(), p.pre.scale,
                      p.pre.black, p.pre.white, p.weightRange.c_str(), p.powerRange.c_str(),
                      p.backgroundMin, p.backgroundWeight, p.power, p.expand, p.red, p.green,
                      p.blue);
}

bool ParseArcSinH(const std::string& text, ArcSinHParams* params, std::string* error) {
    ArcSinHParams p;
    StretchFieldReader f(text, "ArcSinH", error);
    if (!f.Scale("pre-stretch scale type", &p.scaleType) ||
        !f.Text("pre-stretch black range", &p.pre.blackRange) ||
        !f.Number("pre-stretch scale", &p.pre.scale) ||
        !f.Number("pre-stretch black point", &p.pre.black) ||
        !f.Number("pre-stretch white point", &p.pre.white) ||
        !f.Text("background weight range", &p.weightRange) ||
        !f.Text("power range", &p.powerRange) || !f.Integer("background min", &p.backgroundMin) ||
        !f.Number("background weight", &p.backgroundWeight) || !f.Number("power", &p.power) ||
        !f.Number("expand", &p.expand) || !f.Number("red", &p.red) ||
        !f.Number("green", &p.green) || !f.Number("blue", &p.blue))
        return false;
    *params = p;
    return true;
}

bool RunArcSinH(Image& image, const ArcSinHParams& p, const StretchChannels& ch, bool pending,
                IProgress* progress) {
    return image.ApplyArcSinH(pending, ch.red, ch.green, ch.blue, ScaleTypeText(p.scaleType),
                              p.pre.scale, p.pre.black, p.pre.white, p.backgroundMin,
                              p.backgroundWeight, p.power, p.expand, p.red, p.green, p.blue,
                              progress);
}

namespace {

bool ReplayArcSinH(Image& image, const std::string& text, const ReplayContext& context,
                   std::string* error) {
    ArcSinHParams p;
    if (!ParseArcSinH(text, &p, error))
        return false;
    if (!RunArcSinH(image, p, StretchChannels{}, false, context.progress)) {
        if (error)
            *error = "ArcSinH: cancelled";
        return false;
    }
    return true;
}

bool RoundTripArcSinH(const std::string& text, std::string* formatted) {
    ArcSinHParams p;
    if (!ParseArcSinH(text, &p, nullptr))
        return false;
    *formatted = FormatArcSinH(p);
    return true;
}

} // namespace

OperatorDescriptor ArcSinHDescriptor() {
    OperatorDescriptor d;
    d.name = "ArcSinH";
    d.replay = ReplayArcSinH;
    d.roundTrip = RoundTripArcSinH;
    d.examples.push_back(FormatArcSinH(ArcSinHParams{}));
    ArcSinHParams p;
    p.scaleType = ScaleType::Root;
    p.pre = {0.5, 0.01, 0.9, kBlackRangeTexts[1]};
    p.weightRange = kWeightRangeTexts[4];
    p.powerRange = kPowerRangeTexts[3];
    p.backgroundMin = 200;
    p.backgroundWeight = 0.75;
    p.power = 0.875;
    p.expand = 1.25;
    p.red = 0.25;
    p.green = 0.75;
    p.blue = 1.0;
    d.examples.push_back(FormatArcSinH(p));
    return d;
}

} // namespace astrivelle
