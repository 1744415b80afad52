// SPDX-License-Identifier: GPL-3.0-or-later
/// \file SBIG camera files: the probe, the line codec, the FITS keys made from the text header,
/// and an in-memory reader. Image::ReadSBIG and Image::WriteSBIG (declared in engine/Image.h)
/// and the ImageHeader members (engine/ImageHeader.h) live in Sbig.cpp and SbigHeader.cpp.
/// Every file function holds ImageFileLock for its whole duration; on failure LastFileError()
/// says why.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

#include "engine/FitsHeader.h"
#include "engine/Image.h"
#include "engine/ImageHeader.h"

namespace astrivelle {

/// Size of the text header in front of the pixels.
inline constexpr std::size_t kSbigHeaderBytes = 2048;

/// The save path's text when WriteSBIG fails (no SBIG header record, or a file error).
inline constexpr const char* kSbigWriteErrorText = "Error writing SBIG image to disk.";

/// Reads the first 2048 bytes: KindSBIG (-2) or KindSBIGCompressed (-1) by the image type of
/// the first line, KindNone (0) for a foreign, short or unreadable file.
ImageFileKind ProbeSBIG(const std::string& path);

/// The kind named by the first token of a header area (NUL-terminated): each uncompressed
/// type text is searched for in it, then each compressed one. KindNone when none is found.
ImageFileKind SbigKindOfHeaderText(const char* text);

/// Worst-case bytes of one encoded row record (length word included) for a row of `width`.
inline std::size_t SbigRowRecordCapacity(int width) {
    return 2 + 3 * static_cast<std::size_t>(width);
}

/// Encodes one row into `out` (SbigRowRecordCapacity bytes): the 16-bit byte count, then the
/// compressed bytes, or 2 * width and the raw samples when compression would not be shorter.
/// Returns the bytes of the whole record. `width` must be 1..32767.
std::size_t EncodeSbigRow(const std::uint16_t* row, int width, std::uint8_t* out);

/// Decodes the `length` stored bytes of one row into `row` (width samples). Samples the bytes
/// do not reach are left as they were; bytes beyond the row's width are ignored. Returns the
/// number of samples written.
int DecodeSbigRow(const std::uint8_t* bytes, std::size_t length, int width, std::uint16_t* row);

/// Fills `cards` (emptied first) with the FITS keys an SBIG header stands for.
void SbigHeaderToFitsKeys(const ImageHeader& header, HeaderList* cards);

/// Rebuilds image.headerCards from image.header (for a FITS save of an SBIG image); false,
/// changing nothing, when the image has no SBIG header.
bool RebuildSbigFitsKeys(Image& image);

/// The DATE-OBS text of a month/day/year date and a time: "2007-03-15T21:14:05.000".
std::string SbigDateObs(const std::string& date, const std::string& time);

/// Reads an SBIG file held in memory, as Image::ReadSBIG reads one from disk (fuzzing and
/// tests).
bool ReadSbigMemory(Image& image, const std::uint8_t* data, std::size_t size,
                    std::uint32_t colorType);

} // namespace astrivelle
