// SPDX-License-Identifier: GPL-3.0-or-later
/// \file libFuzzer entry for the SBIG reader: any bytes must read or fail cleanly. A file that
/// reads is written back in both layouts and read again; its samples must come back unchanged.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "engine/Image.h"
#include "fileio/Sbig.h"

using namespace astrivelle;

namespace {

bool SamePlanes(const Image& a, const Image& b) {
    const int sa = SlotOfColorType(a.colorType), sb = SlotOfColorType(b.colorType);
    if (sa < 0 || sb < 0 || a.width != b.width || a.height != b.height)
        return false;
    for (std::uint32_t i = 0; i < a.pixelCount; ++i)
        if (a.curPlane[sa][i] != b.curPlane[sb][i])
            return false;
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The last byte, when there is one past the header, picks the colour type (2..9 and 1).
    const std::uint32_t colorTypes[] = {9, 2, 3, 4, 6, 7, 8, 1};
    const std::uint32_t colorType = size > 2048 ? colorTypes[data[size - 1] % 8] : ColorGray;
    Image image;
    if (!ReadSbigMemory(image, data, size, colorType))
        return 0;
    if (image.pixelCount > 1u << 16)
        return 0;
    static const std::string path = "/tmp/fuzz-sbig-" + std::to_string(getpid()) + ".st7";
    for (std::int32_t kind : {KindSBIG, KindSBIGCompressed}) {
        if (!image.WriteSBIG(path, kind))
            continue; // too wide to compress, or a header text that no longer fits
        Image back;
        // A hostile text line can hide a second size key that wins on the way back, so only a
        // file that comes back at the same size is compared.
        if (back.ReadSBIG(path, colorType) && back.width == image.width &&
            back.height == image.height && !SamePlanes(image, back))
            std::abort();
    }
    return 0;
}
