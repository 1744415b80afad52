// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The star readout of an image window: the measures of the star under the mouse, per
/// channel.
#include <algorithm>

#include "engine/ProcessWindow.h"

namespace astrivelle {

namespace {
constexpr int kStarRadius = 14;
constexpr int kStarDiagonal = 9;
constexpr int kEdgeMargin = 15;
constexpr double kMaxAsymmetry = 2.0;
constexpr double kPeakFactor = 1.5;
} // namespace

bool CProcessWindow::CalculateNbhdHFD(int x, int y, bool forceAccept, CStarShapeStructure* out,
                                      int outCount) {
    Image& img = image;
    // The left and top limits differ from the right and bottom ones on purpose.
    if (!(y > 15 && y < img.height - 15 && x >= 16 && x < img.width - 15))
        return false;
    if (!out || outCount <= 0)
        return true;
    outCount = std::min(outCount, 4);
    // The channels in record order: luminance (null) and red, green, blue; or the one plane.
    const float* channels[4] = {nullptr, nullptr, nullptr, nullptr};
    int n = 0;
    if (img.colorType == ColorRGB) {
        channels[0] = nullptr;
        channels[1] = img.curPlane[0];
        channels[2] = img.curPlane[1];
        channels[3] = img.curPlane[2];
        n = 4;
    } else {
        const int slot = SlotOfColorType(img.colorType);
        if (slot < 0 || !img.curPlane[slot])
            return true;
        channels[0] = img.curPlane[slot];
        n = 1;
    }
    for (int i = 0; i < std::min(n, outCount); ++i) {
        out[i] = CStarShapeStructure{};
        if (i > 0 && !channels[i])
            continue;
        img.MeasureStar(forceAccept, channels[i], x, y, kStarRadius, kStarDiagonal, kEdgeMargin,
                        kMaxAsymmetry, kPeakFactor, &out[i], true, true);
    }
    return true;
}

} // namespace astrivelle
