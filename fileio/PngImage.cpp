// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Image::WritePNG: an 8-bit grey or RGB PNG of the planes, for previews that a browser
/// or any viewer shows without loss of the 8 bits. Levels become bytes as for JPEG: the nearest
/// level divided by 257.
#include <png.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "engine/Image.h"
#include "engine/Levels.h"
#include "engine/PageAlloc.h"
#include "engine/Parallel.h"
#include "fileio/FileDispatch.h"
#include "fileio/FileLock.h"

namespace astrivelle {

namespace {

bool Fail(const std::string& reason) {
    SetLastFileError(reason);
    return false;
}

} // namespace

bool Image::WritePNG(const std::string& path) {
    ImageFileGuard guard;
    ClearLastFileError();
    if (!IsValidColorType(colorType))
        return Fail("Internal error, image does not have a valid color type.");
    if (width <= 0 || height <= 0)
        return Fail("The image has no pixels to write");
    const bool rgb = colorType == ColorRGB;
    const int channels = rgb ? 3 : 1;
    const float* planes[3] = {nullptr, nullptr, nullptr};
    if (rgb) {
        for (int c = 0; c < 3; ++c)
            planes[c] = curPlane[c];
    } else {
        planes[0] = curPlane[SlotOfColorType(colorType)];
    }
    for (int c = 0; c < channels; ++c)
        if (!planes[c])
            return Fail("The image has no pixels to write");

    const std::size_t w = static_cast<std::size_t>(width);
    const std::size_t rowBytes = w * channels;
    PageBuffer bytes;
    if (!bytes.Allocate(rowBytes * static_cast<std::size_t>(height)))
        return Fail("Could not allocate memory for the PNG rows");
    auto* out = static_cast<std::uint8_t*>(bytes.data());
    ParallelRows(static_cast<int>(height), [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            std::uint8_t* row = out + rowBytes * static_cast<std::size_t>(y);
            const std::size_t at = w * static_cast<std::size_t>(y);
            for (int c = 0; c < channels; ++c) {
                const float* in = planes[c] + at;
                for (std::size_t x = 0; x < w; ++x)
                    row[x * channels + c] = static_cast<std::uint8_t>(RoundLevel16(in[x]) / 257);
            }
        }
    });

    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = rgb ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    if (!png_image_write_to_file(&image, path.c_str(), 0, out, static_cast<png_int_32>(rowBytes),
                                 nullptr)) {
        const std::string why = image.message[0] ? image.message : "unknown error";
        png_image_free(&image);
        std::remove(path.c_str());
        return Fail("Could not write the PNG file: " + why);
    }
    return true;
}

} // namespace astrivelle
