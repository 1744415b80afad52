// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The tone curve operator functions of an open image: record the text, then run the
/// pixel functions on the planes the colour mode selects.
#include "engine/ProcessWindow.h"
#include "operators/Curves.h"

namespace astrivelle {

bool CProcessWindow::Levels(const LevelsParams& params) {
    const LevelsParams p = params;
    return RunOperator("Levels", FormatLevels(p),
                       [&](bool pending) { return ApplyLevelsParams(image, p, pending); });
}

bool CProcessWindow::MicroCurves(const MicroCurvesParams& params) {
    MicroCurvesParams p = params;
    if (image.colorType != ColorRGB) {
        // One curve is recorded for a single-plane image: the master. The plane's own slot
        // stays at its default so that the record replays to the same pixels.
        p.monochrome = true;
        p.channel = "Monochrome";
        p.colorSpace = "RGB";
        for (int s = 1; s < 4; ++s)
            p.curveSlots[s] = MicroCurveSlot{};
    } else {
        p.monochrome = false;
    }
    return RunOperator("Micro Curves", FormatMicroCurves(p),
                       [&](bool pending) { return ApplyMicroCurvesParams(image, p, pending); });
}

bool CProcessWindow::HistogramContrastStretch(const HistogramStretchParams& params) {
    const HistogramStretchParams p = params;
    if (p.type < 1 || p.type > 6)
        return false;
    return RunOperator("Histogram Contrast Stretch", FormatHistogramStretch(p), [&](bool pending) {
        return ApplyHistogramStretchParams(image, p, pending);
    });
}

} // namespace astrivelle
