// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Windows bitmaps through CDib: the free functions beside Image::ReadBMP and
/// Image::WriteBMP (declared in engine/Image.h), the fixed texts of the open and save paths,
/// and the header-only read that the properties panel uses. Every file function holds
/// ImageFileLock for its whole duration; on failure LastFileError() says why.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

#include "engine/Dib.h"

namespace astrivelle {

class Image;

/// The open path for a list of images: a file CDib refused.
inline constexpr const char* kBmpNotWindowsText =
    "Could Not Read The File Format. Not A Windows BMP.";
/// The open path for a list of images: a bitmap of a depth other than 8 or 24 bits.
inline constexpr const char* kBmpNotEightOr24Text =
    "Could Not Read The File Format. Not An 8 0r 24 Bit Windows BMP.";

/// "Could Not Save " + name + " In A Windows 24 Bit BMP Format."
std::string BmpSaveFailureText(const std::string& name);

/// Fills `image` from a bitmap CDib::Read took: width, height, maxValue 65535, ColorRGB, kind
/// -3 and three planes. The last stored row (a DIB is bottom-up) becomes the image's first
/// row; 24-bit pixels are blue, green, red; an 8-bit byte indexes the colour table. Each
/// channel is multiplied by 257. Depths other than 8 and 24 bits are refused with
/// kBmpNotEightOr24Text, run-length encoded rows with their own text.
bool BmpDibToImage(const CDib& dib, Image& image, std::string* text);

/// What the properties panel shows of a bitmap file: its headers without the rows.
struct BmpHeaderInfo {
    DibHeader header;               ///< the info header (a core header widened to 40 bytes)
    CDib::FileInfo file;            ///< file header fields, header size, row order
    std::uint32_t tableEntries = 0; ///< colour-table entries the file holds
};

/// Reads the headers of a bitmap file (no rows are read or allocated). The refusal texts are
/// those of CDib::Read.
bool ReadBmpHeader(const std::string& path, BmpHeaderInfo* info, std::string* text = nullptr);

} // namespace astrivelle
