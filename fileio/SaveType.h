// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Save-type keywords: the text by which every image-set operation names the format of
/// its output files.
#pragma once
#include <cstdint>
#include <span>
#include <string>

namespace astrivelle {

class Image;

/// One keyword of the table. dataType 0 and compress -1 mean "as read".
struct SaveTypeEntry {
    const char* keyword;
    std::int32_t fileKind;  ///< KindFITS, KindTIFF, or 0 for "as read"
    std::uint32_t dataType; ///< FITS sample type, 0 when the keyword does not set it
    std::uint32_t tiffBits; ///< TIFF bits per sample, 0 when the keyword does not set it
    int compress;           ///< 1 sets fitsCompress, 0 clears it, -1 leaves it
    const char* extension;  ///< extension written; nullptr keeps the input's own
    bool conversionOnly;    ///< offered only where files are converted
};

/// "SAMEASINPUT", "COMPFIT", "UNCOMPFIT", "COMPFIT32", "UNCOMPFIT32", "TIFF16", "UNCOMPTIF".
std::span<const SaveTypeEntry> SaveTypes();

/// The entry of a keyword (compared exactly), or nullptr.
const SaveTypeEntry* FindSaveType(const std::string& keyword);

/// True for a keyword of the table (compared exactly, case included).
bool IsKnownSaveType(const std::string& keyword, bool conversion = false);

/// Applies a keyword to a freshly read image before it is written and returns the extension
/// (with its dot) of the output file: ".fit" for the FITS keywords, ".tif" for the TIFF ones,
/// and `inputExtension` for "SAMEASINPUT" or a keyword the table does not know, which leave
/// the format as read.
std::string ApplySaveType(Image& image, const std::string& keyword,
                          const std::string& inputExtension);

} // namespace astrivelle
