// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The star line under the pixel readout.
#include "shell/StarShapeReadout.h"

#include "engine/ProcessWindow.h"
#include "engine/StarShape.h"

namespace astrivelle {

QString StarShapeLine(const CStarShapeStructure& star) {
    if (star.valid != 1)
        return {};
    return QString::asprintf("FWHM: %.2f  HFD: %.2f  Ecc: %.3f  Centroid: (%.2f, %.2f)", star.fwhm,
                             star.hfd, star.eccentricity, star.x - 1.0, star.y - 1.0);
}

QString StarShapeReadout(CProcessWindow& window, int x, int y) {
    if (window.threadBusy || window.image.width <= 0)
        return {};
    CStarShapeStructure star[1];
    if (!window.CalculateNbhdHFD(x, y, false, star, 1))
        return {};
    return StarShapeLine(star[0]);
}

} // namespace astrivelle
