// SPDX-License-Identifier: GPL-3.0-or-later
/// \file libFuzzer target of the JPEG reader: the bytes go to a temporary file (the codec
/// reads files) and Image::ReadJPEG decodes it, so that libjpeg's errors and the corrupt-data
/// warnings are all taken without ending the process.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "engine/Image.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string path =
        "/tmp/astrivelle-fuzz-jpeg-" + std::to_string(getpid()) + ".jpg";
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f)
        return 0;
    std::fwrite(data, 1, size, f);
    std::fclose(f);
    astrivelle::Image image;
    image.ReadJPEG(path);
    return 0;
}
