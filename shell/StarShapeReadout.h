// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The star line under the pixel readout: the measures of the star under the mouse
/// (CProcessWindow::CalculateNbhdHFD), or nothing when no star is accepted there.
#pragma once
#include <QString>

namespace astrivelle {

class CProcessWindow;
struct CStarShapeStructure;

/// "FWHM: %.2f  HFD: %.2f  Ecc: %.3f  Centroid: (%.2f, %.2f)" of a measured star; the
/// centroid in 0-based pixels like the pixel readout. Empty for a record that is not valid.
QString StarShapeLine(const CStarShapeStructure& star);

/// The line for the 0-based pixel (x, y) of `window`: the luminance star of a colour image,
/// the one channel's of a monochrome image. Empty where CalculateNbhdHFD measures nothing.
QString StarShapeReadout(CProcessWindow& window, int x, int y);

} // namespace astrivelle
