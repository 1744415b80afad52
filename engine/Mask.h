// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The mask of a blend: a flat level, the bicubic surface of 4 x 4 control points, or a
/// monochrome image file. Pure pixel code; the one function that reads a mask file is declared
/// here and defined with the file code of replay (operators/ApplyCommand.cpp).
#pragma once
#include <cstdint>
#include <string>

#include "engine/ProcessStructure.h"

namespace astrivelle {

class Image;

/// Where a blend's mask comes from.
enum class MaskSource {
    Flat,    ///< every sample is the mask level
    Surface, ///< the mask surface, offset by the mask level
    File,    ///< a monochrome image file of the image's size
};

/// A luminance mask with the default surface is flat, with another surface it is the surface;
/// without the luminance flag the mask is a file.
MaskSource MaskSourceOf(bool luminanceMask, const MaskSurface& surface);

/// A point of the bicubic Bezier surface over the control points, at u (along the rows of
/// control points, y) and v (along each row, x), both in 0..1; Bernstein coefficients 1, 3, 3, 1.
void EvaluateMaskSurface(const MaskSurface& surface, double u, double v, double* x, double* y,
                         double* z);

/// Fills `mask` (width * height samples) from the surface: every image sample (row, column)
/// is a point of the surface at u = row / height, v = column / width; the point's x and y in
/// -3..3 place it at column (x + 3) / 6 * (width - 1) and row (height - 1) - (y + 3) / 6 *
/// (height - 1), truncated (a point within 1e-7 below an edge counts as on it); the first point to
/// reach a sample sets it to maxValue * z + maskLevel, clamped to 0..maxValue. Samples that no
/// point reached take the mean of their reached neighbours (the eight around them), pass after
/// pass, until none is left; if no point fell inside the image at all, every sample takes the
/// clamped mask level. False when the scratch plane of the filling can't be allocated.
bool BuildSurfaceMask(float* mask, std::int32_t width, std::int32_t height, double maxValue,
                      std::uint32_t maskLevel, const MaskSurface& surface);

/// Reads a mask file (FITS or TIFF by extension) into `mask` and checks it against an image of
/// width x height. On success `*plane` points at the mask's samples (owned by `mask`). On
/// failure `text` holds the message: "Mask width or height does not match current active
/// image.", "Mask file must be a monochrome image." or "Error reading image mask file.".
/// Defined with the file code (operators/ApplyCommand.cpp): engine code never calls it.
bool ReadMaskFile(const std::string& path, std::int32_t width, std::int32_t height, Image* mask,
                  const float** plane, std::string* text);

} // namespace astrivelle
