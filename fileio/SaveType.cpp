// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The save-type keyword table and how a keyword changes an image before it is written.
#include "fileio/SaveType.h"

#include <array>

#include "engine/Image.h"

namespace astrivelle {

namespace {

// "UNCOMPTIF" is the same format as "TIFF16" under the name Combine Files and the colour-array
// code use.
constexpr std::array<SaveTypeEntry, 7> kSaveTypes{{
    {"SAMEASINPUT", 0, 0, 0, -1, nullptr},
    {"COMPFIT", KindFITS, Data16, 0, 1, ".fit"},
    {"UNCOMPFIT", KindFITS, Data16, 0, 0, ".fit"},
    {"COMPFIT32", KindFITS, DataFloat, 0, 1, ".fit"},
    {"UNCOMPFIT32", KindFITS, DataFloat, 0, 0, ".fit"},
    {"TIFF16", KindTIFF, 0, 16, -1, ".tif"},
    {"UNCOMPTIF", KindTIFF, 0, 16, -1, ".tif"},
}};

const SaveTypeEntry* Find(const std::string& keyword) {
    for (const SaveTypeEntry& entry : kSaveTypes)
        if (keyword == entry.keyword)
            return &entry;
    return nullptr;
}

} // namespace

std::span<const SaveTypeEntry> SaveTypes() {
    return kSaveTypes;
}

bool IsKnownSaveType(const std::string& keyword) {
    return Find(keyword) != nullptr;
}

std::string ApplySaveType(Image& image, const std::string& keyword,
                          const std::string& inputExtension) {
    const SaveTypeEntry* entry = Find(keyword);
    if (!entry || !entry->extension)
        return inputExtension;
    if (entry->fileKind == KindFITS)
        image.SetGeometryFits(KindFITS, image.colorType, 0, entry->dataType, image.width,
                              image.height);
    else if (entry->fileKind == KindTIFF)
        image.SetGeometryTiff(KindTIFF, image.colorType, 0, image.width, image.height,
                              entry->tiffBits);
    if (entry->compress >= 0)
        image.fitsCompress = entry->compress == 1;
    return entry->extension;
}

} // namespace astrivelle
