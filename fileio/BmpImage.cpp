// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Image::ReadBMP and Image::WriteBMP: 8- and 24-bit bitmaps to three planes on the
/// 0..65535 scale, and the planes to a 24-bit bitmap.
#include <cstdint>
#include <string>

#include "engine/Dib.h"
#include "engine/Image.h"
#include "engine/Levels.h"
#include "engine/Parallel.h"
#include "fileio/Bmp.h"
#include "fileio/FileDispatch.h"
#include "fileio/FileLock.h"

namespace astrivelle {

namespace {

bool Fail(const std::string& reason) {
    SetLastFileError(reason);
    return false;
}

} // namespace

bool BmpDibToImage(const CDib& dib, Image& image, std::string* text) {
    const int bits = dib.BitCount();
    if (!dib.IsValid() || (bits != 8 && bits != 24)) {
        if (text)
            *text = kBmpNotEightOr24Text;
        return false;
    }
    if (dib.Header().compression != 0) {
        if (text)
            *text = "Run-length encoded bitmaps are not supported";
        return false;
    }
    const int w = dib.Width(), h = dib.Height();
    image.FreePlanes();
    image.FreeWorkRows();
    image.FreeAccumulators();
    image.headerCards.clear();
    image.SetGeometry(KindBMP, ColorRGB, 0, w, h);
    if (!image.AllocatePlanes(1)) {
        image.FreePlanes();
        if (text)
            *text = "Could not allocate memory for a " + std::to_string(w) + " x " +
                    std::to_string(h) + " image";
        return false;
    }
    float* red = image.curPlane[0];
    float* green = image.curPlane[1];
    float* blue = image.curPlane[2];
    const RgbQuad* colors = dib.Colors();
    // Each byte times 257 is at most 65535: no clamp can bite.
    ParallelRows(h, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const std::uint8_t* in = dib.Row(h - 1 - y); // the file's first row is the last
            const std::size_t at = static_cast<std::size_t>(y) * w;
            float* r = red + at;
            float* g = green + at;
            float* b = blue + at;
            if (bits == 24) {
                for (int x = 0; x < w; ++x) {
                    b[x] = static_cast<float>(in[3 * x + 0] * 257);
                    g[x] = static_cast<float>(in[3 * x + 1] * 257);
                    r[x] = static_cast<float>(in[3 * x + 2] * 257);
                }
            } else {
                for (int x = 0; x < w; ++x) {
                    const RgbQuad& q = colors[in[x]];
                    r[x] = static_cast<float>(q.red * 257);
                    g[x] = static_cast<float>(q.green * 257);
                    b[x] = static_cast<float>(q.blue * 257);
                }
            }
        }
    });
    return true;
}

bool Image::ReadBMP(const std::string& path) {
    ImageFileGuard guard;
    ClearLastFileError();
    CDib dib;
    std::string text;
    if (!dib.Read(path, &text))
        return Fail(text);
    if (!BmpDibToImage(dib, *this, &text))
        return Fail(text);
    return true;
}

bool Image::WriteBMP(const std::string& path) {
    ImageFileGuard guard;
    ClearLastFileError();
    const float* planes[3] = {nullptr, nullptr, nullptr};
    if (colorType == ColorRGB) {
        for (int s = 0; s < 3; ++s)
            planes[s] = curPlane[s];
    } else {
        const int slot = SlotOfColorType(colorType);
        if (slot < 0)
            return Fail("Internal error, image does not have a valid color type.");
        planes[0] = planes[1] = planes[2] = curPlane[slot];
    }
    if (width <= 0 || height <= 0 || !planes[0] || !planes[1] || !planes[2])
        return Fail("The image has no pixels to write");
    CDib dib;
    std::string text;
    if (!dib.CreateTwentyFourBit(width, height, &text))
        return Fail(text);
    dib.Clear();
    // maxValue / 256 is 255 for the usual 65535: 65025 and up already give 255 (unlike the
    // division by 257 of TIFF and JPEG).
    int divisor = static_cast<int>(maxValue / 256);
    if (divisor < 1)
        divisor = 1;
    const int w = width, h = height;
    ParallelRows(h, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            std::uint8_t* out = dib.Row(h - 1 - y); // the image's last row goes first
            const std::size_t at = static_cast<std::size_t>(y) * w;
            for (int x = 0; x < w; ++x) {
                for (int c = 0; c < 3; ++c) {
                    const int level = RoundLevel16(planes[2 - c][at + x]) / divisor;
                    out[3 * x + c] = static_cast<std::uint8_t>(level > 255 ? 255 : level);
                }
            }
        }
    });
    if (!dib.Write(path, &text))
        return Fail(text);
    return true;
}

} // namespace astrivelle
