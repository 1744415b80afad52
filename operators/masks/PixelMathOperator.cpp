// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Pixel Math operator functions of an open image: record, then pixel work.
#include "engine/ProcessWindow.h"
#include "operators/Masks.h"

namespace astrivelle {

namespace {

/// Slots that a per-channel operator applies to: the one slot of a monochrome image, or the
/// selected channels of an RGB image.
std::vector<int> SelectedSlots(const CProcessWindow& w) {
    if (w.image.colorType != ColorRGB)
        return w.image.Slots();
    std::vector<int> slots;
    for (int s = 0; s < 3; ++s)
        if (w.channelSelect[s])
            slots.push_back(s);
    return slots;
}

} // namespace

bool CProcessWindow::PixelMathAdd(bool subtract, double constant, int applyMin, int applyMax,
                                  int feather) {
    PixelMathParams p;
    p.op = subtract ? PixelMathParams::Op::Subtract : PixelMathParams::Op::Add;
    p.constant = constant;
    p.applyMin = applyMin;
    p.applyMax = applyMax;
    p.feather = feather;
    const double signedConstant = subtract ? -constant : constant;
    return RunOperator("Pixel Math", FormatPixelMath(p), [&](bool isPending) {
        for (int s : SelectedSlots(*this))
            image.PixelAdd(isPending, image.prevPlane[s], image.curPlane[s], signedConstant,
                           applyMin, applyMax, feather);
        return true;
    });
}

bool CProcessWindow::PixelMathMultiply(double constant, int applyMin, int applyMax, int feather) {
    PixelMathParams p;
    p.op = PixelMathParams::Op::Multiply;
    p.constant = constant;
    p.applyMin = applyMin;
    p.applyMax = applyMax;
    p.feather = feather;
    return RunOperator("Pixel Math", FormatPixelMath(p), [&](bool isPending) {
        if (image.colorType == ColorRGB)
            image.PixelMultiplyColor(isPending, constant, applyMin, applyMax, feather);
        else
            for (int s : image.Slots())
                image.PixelMultiply(isPending, image.prevPlane[s], image.curPlane[s], constant,
                                    applyMin, applyMax, feather);
        return true;
    });
}

bool CProcessWindow::PixelMathDivide(double constant, int applyMin, int applyMax, int feather) {
    PixelMathParams p;
    p.op = PixelMathParams::Op::Divide;
    p.constant = constant;
    p.applyMin = applyMin;
    p.applyMax = applyMax;
    p.feather = feather;
    return RunOperator("Pixel Math", FormatPixelMath(p), [&](bool isPending) {
        if (image.colorType == ColorRGB)
            image.PixelDivideColor(isPending, constant, applyMin, applyMax, feather);
        else
            for (int s : image.Slots())
                image.PixelDivide(isPending, image.prevPlane[s], image.curPlane[s], constant,
                                  applyMin, applyMax, feather);
        return true;
    });
}

} // namespace astrivelle
