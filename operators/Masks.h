// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Masks and background family: Pixel Math.
#pragma once
#include <string>

#include "operators/Registry.h"

namespace astrivelle {

/// One Pixel Math step: an arithmetic operation with a constant on the pixels whose level lies
/// in [applyMin - feather, applyMax + feather], with a linear soft edge of `feather` levels.
struct PixelMathParams {
    enum class Op { Add, Subtract, Multiply, Divide };
    Op op = Op::Add;
    double constant = 0.0;
    int applyMin = 0;
    int applyMax = 65535;
    int feather = 0;
};

/// The `#` text of a Pixel Math step. Subtract keeps the constant as the user gave it.
std::string FormatPixelMath(const PixelMathParams& params);

/// Reads a Pixel Math text back; the operation is found by searching the first field for
/// "Add", "Subtract", "Multiply", "Divide". False when a field is missing.
bool ParsePixelMath(const std::string& text, PixelMathParams* params, std::string* error);

/// The operation keyword the pixel functions are chosen by: "ADD", "SUB", "MUL", "DIV".
const char* PixelMathKeyword(PixelMathParams::Op op);

/// Applies a Pixel Math step to every slot of the image (pending false, as replay does).
bool ApplyPixelMath(class Image& image, const PixelMathParams& params);

OperatorDescriptor PixelMathDescriptor();

} // namespace astrivelle
