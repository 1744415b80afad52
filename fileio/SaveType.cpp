// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The save-type keyword table and how a keyword changes an image before it is written.
#include "fileio/SaveType.h"

#include <array>

#include "engine/Image.h"

namespace astrivelle {

namespace {

// "UNCOMPTIF" is the same format as "TIFF16" under the name Combine Files and the colour-array
// code use.
// "TIFF8", "JPEG", "BMP" and "PNG" are offered only where files are converted (raw conversion and
// the convert command), not by the image-set operations.
constexpr std::array<SaveTypeEntry, 11> kSaveTypes{{
    {"SAMEASINPUT", 0, 0, 0, -1, nullptr, false},
    {"COMPFIT", KindFITS, Data16, 0, 1, ".fit", false},
    {"UNCOMPFIT", KindFITS, Data16, 0, 0, ".fit", false},
    {"COMPFIT32", KindFITS, DataFloat, 0, 1, ".fit", false},
    {"UNCOMPFIT32", KindFITS, DataFloat, 0, 0, ".fit", false},
    {"TIFF16", KindTIFF, 0, 16, -1, ".tif", false},
    {"UNCOMPTIF", KindTIFF, 0, 16, -1, ".tif", false},
    {"TIFF8", KindTIFF, 0, 8, -1, ".tif", true},
    {"JPEG", KindJPEG, 0, 0, -1, ".jpg", true},
    {"BMP", KindBMP, 0, 0, -1, ".bmp", true},
    {"PNG", KindPNG, 0, 0, -1, ".png", true},
}};

} // namespace

const SaveTypeEntry* FindSaveType(const std::string& keyword) {
    for (const SaveTypeEntry& entry : kSaveTypes)
        if (keyword == entry.keyword)
            return &entry;
    return nullptr;
}

std::span<const SaveTypeEntry> SaveTypes() {
    return kSaveTypes;
}

bool IsKnownSaveType(const std::string& keyword, bool conversion) {
    const SaveTypeEntry* entry = FindSaveType(keyword);
    return entry && (conversion || !entry->conversionOnly);
}

std::string ApplySaveType(Image& image, const std::string& keyword,
                          const std::string& inputExtension) {
    const SaveTypeEntry* entry = FindSaveType(keyword);
    if (!entry || !entry->extension)
        return inputExtension;
    if (entry->fileKind == KindFITS)
        image.SetGeometryFits(KindFITS, image.colorType, 0, entry->dataType, image.width,
                              image.height);
    else if (entry->fileKind == KindTIFF)
        image.SetGeometryTiff(KindTIFF, image.colorType, 0, image.width, image.height,
                              entry->tiffBits);
    else
        image.SetGeometry(entry->fileKind, image.colorType, 0, image.width, image.height);
    if (entry->compress >= 0)
        image.fitsCompress = entry->compress == 1;
    return entry->extension;
}

} // namespace astrivelle
