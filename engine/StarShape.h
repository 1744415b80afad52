// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The record of one measured star: centroid, the eight edge radii, widths, axes,
/// eccentricity, peak, background and, when asked for, FWHM and HFD. Coordinates are 1-based
/// image coordinates; values are on the 0..65535 scale of the data that was measured.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace astrivelle {

struct CStarShapeStructure {
    std::int32_t valid = 0; ///< 1 once measured
    double x = 0, y = 0;    ///< centroid, 1-based
    double leftRadius = 0, rightRadius = 0, topRadius = 0, bottomRadius = 0;
    /// Diagonal radii, already multiplied by the square root of two.
    double topLeftRadius = 0, topRightRadius = 0, bottomLeftRadius = 0, bottomRightRadius = 0;
    double widthX = 0, widthY = 0, widthLeftDiagonal = 0, widthRightDiagonal = 0;
    /// "Horizontal", "Vertical", "Left Diagonal", "Right Diagonal", or empty when round.
    std::string majorAxis, minorAxis;
    double maxRadius = 0;
    std::string maxRadiusName; ///< "LeftRadius" ... "BottomLeftRadius"
    double eccentricity = 0;
    double peak = 0;
    double background = 0;
    double fwhm = 0; ///< only filled when asked for
    double hfd = 0;  ///< only filled when asked for
};

using CStarShapeList = std::vector<CStarShapeStructure>;

} // namespace astrivelle
