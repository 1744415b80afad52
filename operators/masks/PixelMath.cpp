// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Pixel Math: add, subtract, multiply or divide by a constant inside a level range with
/// a feathered edge; its parameter text and its replay.
#include <algorithm>
#include <cstdlib>

#include "engine/Image.h"
#include "engine/Parallel.h"
#include "engine/ParamText.h"
#include "operators/FilterSupport.h"
#include "operators/Masks.h"

namespace astrivelle {

namespace {

/// One plane. Written as selects rather than branches so that the row loop vectorises; the
/// arithmetic is exactly that of the rule (a weight of 1 gives m itself).
template <class Op>
void PixelMathPlane(const Image& img, const float* prev, float* cur, const ApplyRange& range,
                    Op op) {
    const double top = img.maxValue;
    const int w = img.width;
    const double lo = range.lo, hi = range.hi, mn = range.applyMin, mx = range.applyMax;
    const double feather = range.feather;
    ParallelRows(img.height, [&](int y0, int y1) {
        const std::size_t end = static_cast<std::size_t>(y1) * w;
        if (range.feather == 0) {
            for (std::size_t i = static_cast<std::size_t>(y0) * w; i < end; ++i) {
                const double p = prev[i];
                const double m = std::min(std::max(op(p), 0.0), top);
                const bool outside = (p < lo) | (p > hi);
                cur[i] = outside ? static_cast<float>(p) : static_cast<float>(m);
            }
            return;
        }
        for (std::size_t i = static_cast<std::size_t>(y0) * w; i < end; ++i) {
            const double p = prev[i];
            const double m = op(p);
            const double below = (p - lo) / feather, above = (hi - p) / feather;
            const double wgt = p <= mn ? below : (p >= mx ? above : 1.0);
            const double out = std::min(std::max((1.0 - wgt) * p + wgt * m, 0.0), top);
            const bool outside = (p < lo) | (p > hi);
            cur[i] = outside ? static_cast<float>(p) : static_cast<float>(out);
        }
    });
}

/// Multiply and divide on RGB: the largest of R, G, B decides the range and the weight, and
/// all three channels change with the one weight.
template <class Op> void PixelMathColor(Image& img, const ApplyRange& range, Op op) {
    const double top = img.maxValue;
    const int w = img.width;
    float* pr[3] = {img.prevPlane[0], img.prevPlane[1], img.prevPlane[2]};
    float* cr[3] = {img.curPlane[0], img.curPlane[1], img.curPlane[2]};
    ParallelRows(img.height, [&](int y0, int y1) {
        for (std::size_t i = static_cast<std::size_t>(y0) * w; i < static_cast<std::size_t>(y1) * w;
             ++i) {
            const double v = Max2(pr[0][i], Max2(pr[1][i], pr[2][i]));
            if (range.Outside(v)) {
                for (int c = 0; c < 3; ++c)
                    cr[c][i] = pr[c][i];
                continue;
            }
            const double wgt = range.Weight(v);
            for (int c = 0; c < 3; ++c) {
                const double p = pr[c][i];
                const double m = op(p);
                const double out = wgt == 1.0 ? m : (1.0 - wgt) * p + wgt * m;
                cr[c][i] = static_cast<float>(Image::ClampValue(out, 0.0, top));
            }
        }
    });
}

void BeginPending(const Image& img, bool pending, float* prev, const float* cur) {
    if (!pending)
        img.CopyPlane(prev, cur);
}

} // namespace

void Image::PixelAdd(bool pending, float* prev, float* cur, double constant, int applyMin,
                     int applyMax, int feather) {
    BeginPending(*this, pending, prev, cur);
    PixelMathPlane(*this, prev, cur, ApplyRange(applyMin, applyMax, feather),
                   [constant](double p) { return p + constant; });
}

void Image::PixelMultiply(bool pending, float* prev, float* cur, double constant, int applyMin,
                          int applyMax, int feather) {
    BeginPending(*this, pending, prev, cur);
    PixelMathPlane(*this, prev, cur, ApplyRange(applyMin, applyMax, feather),
                   [constant](double p) { return p * constant; });
}

void Image::PixelDivide(bool pending, float* prev, float* cur, double constant, int applyMin,
                        int applyMax, int feather) {
    if (constant == 0.0)
        return; // no change, not even the copy of pending
    BeginPending(*this, pending, prev, cur);
    PixelMathPlane(*this, prev, cur, ApplyRange(applyMin, applyMax, feather),
                   [constant](double p) { return p / constant; });
}

void Image::PixelMultiplyColor(bool pending, double constant, int applyMin, int applyMax,
                               int feather) {
    for (int c = 0; c < 3; ++c)
        BeginPending(*this, pending, prevPlane[c], curPlane[c]);
    PixelMathColor(*this, ApplyRange(applyMin, applyMax, feather),
                   [constant](double p) { return p * constant; });
}

void Image::PixelDivideColor(bool pending, double constant, int applyMin, int applyMax,
                             int feather) {
    if (constant == 0.0)
        return;
    for (int c = 0; c < 3; ++c)
        BeginPending(*this, pending, prevPlane[c], curPlane[c]);
    PixelMathColor(*this, ApplyRange(applyMin, applyMax, feather),
                   [constant](double p) { return p / constant; });
}

// ---- parameter text ---------------------------------------------------------------------

namespace {
const char* kOperationWords[] = {"Add", "Subtract", "Multiply", "Divide"};
}

const char* PixelMathKeyword(PixelMathParams::Op op) {
    static const char* keywords[] = {"ADD", "SUB", "MUL", "DIV"};
    return keywords[static_cast<int>(op)];
}

std::string FormatPixelMath(const PixelMathParams& p) {
    return FormatText("Operation: %s#Constant: %5.3f#Threshold Min: %d#Threshold Max: %d#"
                      "Feather Range: %d#",
                      kOperationWords[static_cast<int>(p.op)], p.constant, p.applyMin, p.applyMax,
                      p.feather);
}

bool ParsePixelMath(const std::string& text, PixelMathParams* params, std::string* error) {
    std::string rest = text, field, value;
    auto fail = [&](const char* what) {
        if (error)
            *error = std::string("Pixel Math: ") + what + " missing in \"" + text + "\"";
        return false;
    };
    if (!NextField(&field, &rest))
        return fail("operation");
    PixelMathParams p;
    bool found = false;
    for (int k = 0; k < 4 && !found; ++k)
        if (field.find(kOperationWords[k]) != std::string::npos) {
            p.op = static_cast<PixelMathParams::Op>(k);
            found = true;
        }
    if (!found)
        return fail("operation");
    if (!NextValue(&value, &rest))
        return fail("constant");
    p.constant = std::atof(value.c_str());
    if (!NextValue(&value, &rest))
        return fail("threshold minimum");
    p.applyMin = std::atoi(value.c_str());
    if (!NextValue(&value, &rest))
        return fail("threshold maximum");
    p.applyMax = std::atoi(value.c_str());
    if (!NextValue(&value, &rest))
        return fail("feather range");
    p.feather = std::atoi(value.c_str());
    *params = p;
    return true;
}

bool ApplyPixelMath(Image& image, const PixelMathParams& p) {
    using Op = PixelMathParams::Op;
    const bool rgb = image.colorType == ColorRGB;
    if (rgb && (p.op == Op::Multiply || p.op == Op::Divide)) {
        if (p.op == Op::Multiply)
            image.PixelMultiplyColor(false, p.constant, p.applyMin, p.applyMax, p.feather);
        else
            image.PixelDivideColor(false, p.constant, p.applyMin, p.applyMax, p.feather);
        return true;
    }
    for (int s : image.Slots()) {
        float* prev = image.prevPlane[s];
        float* cur = image.curPlane[s];
        if (!prev || !cur)
            return false;
        switch (p.op) {
        case Op::Add:
            image.PixelAdd(false, prev, cur, p.constant, p.applyMin, p.applyMax, p.feather);
            break;
        case Op::Subtract:
            image.PixelAdd(false, prev, cur, -p.constant, p.applyMin, p.applyMax, p.feather);
            break;
        case Op::Multiply:
            image.PixelMultiply(false, prev, cur, p.constant, p.applyMin, p.applyMax, p.feather);
            break;
        case Op::Divide:
            image.PixelDivide(false, prev, cur, p.constant, p.applyMin, p.applyMax, p.feather);
            break;
        }
    }
    return true;
}

namespace {

bool ReplayPixelMath(Image& image, const std::string& text, const ReplayContext&,
                     std::string* error) {
    PixelMathParams p;
    return ParsePixelMath(text, &p, error) && ApplyPixelMath(image, p);
}

bool RoundTripPixelMath(const std::string& text, std::string* formatted) {
    PixelMathParams p;
    if (!ParsePixelMath(text, &p, nullptr))
        return false;
    *formatted = FormatPixelMath(p);
    return true;
}

} // namespace

OperatorDescriptor PixelMathDescriptor() {
    OperatorDescriptor d;
    d.name = "Pixel Math";
    d.replay = ReplayPixelMath;
    d.roundTrip = RoundTripPixelMath;
    for (int k = 0; k < 4; ++k) {
        PixelMathParams p;
        p.op = static_cast<PixelMathParams::Op>(k);
        p.constant = k < 2 ? 100.0 : 1.5;
        p.applyMin = 10;
        p.applyMax = 60000;
        p.feather = 50;
        d.examples.push_back(FormatPixelMath(p));
    }
    return d;
}

} // namespace astrivelle
