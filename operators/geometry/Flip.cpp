// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Image::FlipRows and Image::FlipColumns: the two mirror images of a plane, rows in
/// parallel. Both together are the half turn of a meridian flip.
#include <algorithm>
#include <cstring>

#include "engine/Image.h"
#include "engine/Parallel.h"

namespace astrivelle {

bool Image::FlipRows(bool inPlace, const float* src, float* dst) {
    if (!dst || (!inPlace && !src) || width <= 0 || height <= 0)
        return false;
    const std::size_t rowBytes = static_cast<std::size_t>(width) * sizeof(float);
    if (inPlace || src == dst) {
        // Swap the row pairs of the upper half with their mirrors.
        ParallelRows(height / 2, [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y) {
                float* a = dst + static_cast<std::size_t>(y) * width;
                float* b = dst + static_cast<std::size_t>(height - 1 - y) * width;
                std::swap_ranges(a, a + width, b);
            }
        });
        return true;
    }
    ParallelRows(height, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y)
            std::memcpy(dst + static_cast<std::size_t>(y) * width,
                        src + static_cast<std::size_t>(height - 1 - y) * width, rowBytes);
    });
    return true;
}

bool Image::FlipColumns(bool inPlace, const float* src, float* dst) {
    if (!dst || (!inPlace && !src) || width <= 0 || height <= 0)
        return false;
    const bool same = inPlace || src == dst;
    ParallelRows(height, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            float* out = dst + static_cast<std::size_t>(y) * width;
            if (same) {
                std::reverse(out, out + width);
            } else {
                const float* in = src + static_cast<std::size_t>(y) * width;
                std::reverse_copy(in, in + width, out);
            }
        }
    });
    return true;
}

} // namespace astrivelle
