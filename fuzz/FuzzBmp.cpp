// SPDX-License-Identifier: GPL-3.0-or-later
/// \file libFuzzer target of the BMP reader: CDib's header, colour table and row checks on
/// bytes in memory, then the conversion to planes.
#include <cstddef>
#include <cstdint>
#include <string>

#include "engine/Dib.h"
#include "engine/Image.h"
#include "fileio/Bmp.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    astrivelle::CDib dib;
    std::string text;
    if (!dib.ReadMemory(data, size, &text))
        return 0;
    astrivelle::Image image;
    if (astrivelle::BmpDibToImage(dib, image, &text)) {
        // Touch the last pixel of every plane: the conversion must have filled them all.
        volatile float sink = 0;
        for (int s = 0; s < 3; ++s)
            sink = sink + image.curPlane[s][image.pixelCount - 1];
    }
    return 0;
}
