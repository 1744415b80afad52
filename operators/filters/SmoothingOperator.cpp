// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Smoothing operator function of an open image: checks with their texts, record,
/// then one plane after the other.
#include "engine/ProcessWindow.h"
#include "operators/Filters.h"

namespace astrivelle {

bool CProcessWindow::Smoothing(const SmoothingParams& params, IProgress* progress) {
    SmoothingParams p = params;
    std::string text;
    if (LimitSmoothingWindow(&p, &text))
        notify().Message(text); // set to the limit; the operation goes on
    if (!SmoothingWindowFits(p, image.width, image.height, &text)) {
        notify().Message(text);
        return false;
    }
    const std::vector<int> slots = SelectedSlots();
    return RunOperator("Smoothing", FormatSmoothing(p), [&](bool pending) {
        for (int s : slots)
            if (!image.Smooth(progress, pending, image.prevPlane[s], image.curPlane[s], p.type,
                              p.halfSize, p.strength, p.order, p.applyMin, p.applyMax, p.feather))
                return false;
        return true;
    });
}

} // namespace astrivelle
