// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Image::NormalizeChannel: one plane brought to a target mean and deviation, or to a
/// target range, limited to 0..65535.
#include <cstring>

#include "engine/Image.h"
#include "engine/Parallel.h"

namespace astrivelle {

bool Image::NormalizeChannel(bool inPlace, const float* src, float* dst, bool byMeanStd, double a,
                             double b, double c, double d) {
    if (!dst || (!inPlace && !src) || width <= 0 || height <= 0)
        return false;
    const float* in = inPlace ? dst : src;
    const std::size_t w = static_cast<std::size_t>(width);
    // A flat statistic leaves the plane as it is.
    const bool nothing = byMeanStd ? b == 0.0 : b == a;
    if (nothing) {
        if (!inPlace && src != dst)
            std::memcpy(dst, src, w * static_cast<std::size_t>(height) * sizeof(float));
        return true;
    }
    // out = (in - a) * scale / divisor + c for both forms, in the written order.
    const double scale = byMeanStd ? d : d - c;
    const double divisor = byMeanStd ? b : b - a;
    ParallelRows(height, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float* from = in + static_cast<std::size_t>(y) * w;
            float* to = dst + static_cast<std::size_t>(y) * w;
            for (std::size_t x = 0; x < w; ++x) {
                double v = (from[x] - a) * scale / divisor + c;
                v = v < 0.0 ? 0.0 : (v > 65535.0 ? 65535.0 : v);
                to[x] = static_cast<float>(v);
            }
        }
    });
    return true;
}

} // namespace astrivelle
