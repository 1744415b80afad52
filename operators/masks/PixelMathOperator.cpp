// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Pixel Math operator functions of an open image: record, then pixel work.
#include "engine/ProcessWindow.h"
#include "operators/Masks.h"

namespace astrivelle {

namespace {

/// One Pixel Math application through the operator skeleton. Add and Subtract run per
/// selected channel; Multiply and Divide on RGB take all three planes at once.
bool RunPixelMath(CProcessWindow& w, PixelMathParams::Op op, double constant, int applyMin,
                  int applyMax, int feather) {
    using Op = PixelMathParams::Op;
    PixelMathParams p{op, constant, applyMin, applyMax, feather};
    Image& img = w.image;
    return w.RunOperator("Pixel Math", FormatPixelMath(p), [&](bool pending) {
        const bool rgb = img.colorType == ColorRGB;
        if (op == Op::Multiply && rgb)
            img.PixelMultiplyColor(pending, constant, applyMin, applyMax, feather);
        else if (op == Op::Divide && rgb)
            img.PixelDivideColor(pending, constant, applyMin, applyMax, feather);
        else
            for (int s : w.SelectedSlots()) {
                float* prev = img.prevPlane[s];
                float* cur = img.curPlane[s];
                if (op == Op::Multiply)
                    img.PixelMultiply(pending, prev, cur, constant, applyMin, applyMax, feather);
                else if (op == Op::Divide)
                    img.PixelDivide(pending, prev, cur, constant, applyMin, applyMax, feather);
                else // Subtract is Add of the negated constant
                    img.PixelAdd(pending, prev, cur, op == Op::Subtract ? -constant : constant,
                                 applyMin, applyMax, feather);
            }
        return true;
    });
}

} // namespace

bool CProcessWindow::PixelMathAdd(bool subtract, double constant, int applyMin, int applyMax,
                                  int feather) {
    return RunPixelMath(*this, subtract ? PixelMathParams::Op::Subtract : PixelMathParams::Op::Add,
                        constant, applyMin, applyMax, feather);
}

bool CProcessWindow::PixelMathMultiply(double constant, int applyMin, int applyMax, int feather) {
    return RunPixelMath(*this, PixelMathParams::Op::Multiply, constant, applyMin, applyMax,
                        feather);
}

bool CProcessWindow::PixelMathDivide(double constant, int applyMin, int applyMax, int feather) {
    return RunPixelMath(*this, PixelMathParams::Op::Divide, constant, applyMin, applyMax, feather);
}

} // namespace astrivelle
