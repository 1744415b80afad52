// SPDX-License-Identifier: GPL-3.0-or-later
/// \file libFuzzer entry for camera raw conversion: any bytes must decode or fail cleanly
/// under every conversion keyword. The last byte picks the keyword.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "engine/Image.h"
#include "fileio/Raw.h"

using namespace astrivelle;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string path = "/tmp/fuzz-raw-" + std::to_string(getpid()) + ".dng";
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f)
        return 0;
    const bool written = std::fwrite(data, 1, size, f) == size;
    std::fclose(f);
    if (!written)
        return 0;
    const auto conversions = RawConversions();
    RawRequest request;
    request.ownerName = "CFileSetProcess";
    request.conversion = conversions[size ? data[size - 1] % conversions.size() : 0].keyword;
    request.inputPath = path;
    request.buildRGBPixel = size > 1 && (data[size - 2] & 1);
    Image image;
    if (DecodeRawImage(request, image) && image.pixelCount == 0)
        __builtin_trap(); // a decode that succeeds gives pixels
    return 0;
}
