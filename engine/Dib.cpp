// SPDX-License-Identifier: GPL-3.0-or-later
/// \file CDib construction and colour tables, and Image::FillDib, the mapping of the current
/// planes to display bytes.
#include "engine/Dib.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "engine/Image.h"
#include "engine/Parallel.h"

namespace astrivelle {

std::size_t CDib::StrideFor(int width, int bitCount) {
    if (width <= 0 || bitCount <= 0)
        return 0;
    const std::size_t bits = static_cast<std::size_t>(width) * bitCount;
    return ((bits + 31) / 32) * 4;
}

bool CDib::Create(int width, int height, int bitCount, std::string* text) {
    bits_.reset();
    bitsSize_ = 0;
    header_ = DibHeader{};
    file_ = FileInfo{};
    if (width <= 0 || height <= 0) {
        if (text)
            *text = "Out of memory for DIB bits";
        return false;
    }
    if (!colors_) {
        colors_.reset(new (std::nothrow) RgbQuad[256]);
        if (!colors_) {
            if (text)
                *text = "Out of memory for DIB header";
            return false;
        }
    }
    header_.width = width;
    header_.height = height;
    header_.bitCount = static_cast<std::uint16_t>(bitCount);
    header_.clrUsed = bitCount == 8 ? 256 : 0;
    const std::size_t size = StrideFor(width, bitCount) * static_cast<std::size_t>(height);
    bits_.reset(new (std::nothrow) std::uint8_t[size]());
    if (!bits_) {
        header_ = DibHeader{};
        if (text)
            *text = "Out of memory for DIB bits";
        return false;
    }
    bitsSize_ = size;
    header_.sizeImage = static_cast<std::uint32_t>(size);
    SetDibPalette(ColorGray);
    return true;
}

bool CDib::CreateEightBit(int width, int height, std::string* text) {
    return Create(width, height, 8, text);
}

bool CDib::CreateTwentyFourBit(int width, int height, std::string* text) {
    return Create(width, height, 24, text);
}

void CDib::Clear() {
    if (bits_)
        std::memset(bits_.get(), 0, bitsSize_);
}

void CDib::SetDibPalette(std::uint32_t colorType) {
    if (!colors_)
        return;
    const bool red = colorType == ColorRed || colorType == ColorMagenta || colorType == ColorYellow;
    const bool green =
        colorType == ColorGreen || colorType == ColorCyan || colorType == ColorYellow;
    const bool blue = colorType == ColorBlue || colorType == ColorCyan || colorType == ColorMagenta;
    const bool gray = !red && !green && !blue;
    for (int i = 0; i < 256; ++i) {
        const auto level = static_cast<std::uint8_t>(i);
        RgbQuad& q = colors_[i];
        q.red = (gray || red) ? level : 0;
        q.green = (gray || green) ? level : 0;
        q.blue = (gray || blue) ? level : 0;
        q.reserved = 0;
    }
}

// ---- Image::FillDib -----------------------------------------------------------------------

bool Image::FillDib(CDib& dib) const {
    if (width <= 0 || height <= 0)
        return false;
    const bool rgb = colorType == ColorRGB;
    const float* planes[3] = {nullptr, nullptr, nullptr};
    if (rgb) {
        for (int s = 0; s < 3; ++s)
            if (!(planes[s] = curPlane[s]))
                return false;
    } else {
        const int slot = SlotOfColorType(colorType);
        if (slot < 0 || !(planes[0] = curPlane[slot]))
            return false;
    }
    const int bitCount = rgb ? 24 : 8;
    if (!dib.IsValid() || dib.Width() != width || dib.Height() != height ||
        dib.BitCount() != bitCount) {
        const bool made =
            rgb ? dib.CreateTwentyFourBit(width, height) : dib.CreateEightBit(width, height);
        if (!made)
            return false;
        dib.SetDibPalette(colorType);
    }
    // 1. The divisor: 255 for the normal top of 65535.
    int divisor = static_cast<int>(maxValue / 256);
    if (divisor < 1)
        divisor = 1;
    auto toByte = [divisor](float p) {
        const int b = RoundLevel(p, 0, 65535) / divisor;
        return static_cast<std::uint8_t>(b > 255 ? 255 : b);
    };
    dib.Clear();
    const int w = width, h = height;
    // 2.-3. Image row y goes to stored row h-1-y (a DIB is bottom-up); padding stays 0.
    ParallelRows(h, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            std::uint8_t* out = dib.Row(h - 1 - y);
            const std::size_t row = static_cast<std::size_t>(y) * w;
            if (rgb) {
                for (int x = 0; x < w; ++x) {
                    out[3 * x + 0] = toByte(planes[2][row + x]);
                    out[3 * x + 1] = toByte(planes[1][row + x]);
                    out[3 * x + 2] = toByte(planes[0][row + x]);
                }
            } else {
                for (int x = 0; x < w; ++x)
                    out[x] = toByte(planes[0][row + x]);
            }
        }
    });
    return true;
}

} // namespace astrivelle
