// SPDX-License-Identifier: GPL-3.0-or-later
/// \file TIFF directories and Exif fields over a checked byte source.
#include "fileio/TiffDirectory.h"

#include <algorithm>
#include <cstring>

namespace astrivelle {

bool TiffMemorySource::ReadAt(std::uint64_t offset, void* dst, std::size_t n) const {
    if (offset > size_ || n > size_ - offset)
        return false;
    if (n)
        std::memcpy(dst, data_ + offset, n);
    return true;
}

const TiffEntry* TiffDirectory::Find(std::uint16_t tag) const {
    for (const TiffEntry& e : entries)
        if (e.tag == tag)
            return &e;
    return nullptr;
}

std::size_t TiffTypeSize(std::uint16_t type) {
    switch (type) {
    case 3: // SHORT
    case 8: // SSHORT
        return 2;
    case 4:  // LONG
    case 9:  // SLONG
    case 11: // FLOAT
    case 13: // IFD
        return 4;
    case 5:  // RATIONAL
    case 10: // SRATIONAL
    case 12: // DOUBLE
        return 8;
    default: // BYTE, ASCII, SBYTE, UNDEFINED and unknown types
        return 1;
    }
}

std::uint16_t TiffU16(const std::uint8_t* p, bool littleEndian) {
    return littleEndian ? static_cast<std::uint16_t>(p[0] | (p[1] << 8))
                        : static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}

std::uint32_t TiffU32(const std::uint8_t* p, bool littleEndian) {
    if (littleEndian)
        return std::uint32_t(p[0]) | (std::uint32_t(p[1]) << 8) | (std::uint32_t(p[2]) << 16) |
               (std::uint32_t(p[3]) << 24);
    return (std::uint32_t(p[0]) << 24) | (std::uint32_t(p[1]) << 16) | (std::uint32_t(p[2]) << 8) |
           std::uint32_t(p[3]);
}

bool ReadTiffHeader(const TiffByteSource& source, bool* littleEndian, std::uint32_t* firstIfd) {
    std::uint8_t h[8];
    if (!source.ReadAt(0, h, 8))
        return false;
    bool le;
    if (h[0] == 'I' && h[1] == 'I')
        le = true;
    else if (h[0] == 'M' && h[1] == 'M')
        le = false;
    else
        return false;
    if (TiffU16(h + 2, le) != 42)
        return false;
    *littleEndian = le;
    *firstIfd = TiffU32(h + 4, le);
    return true;
}

bool ReadTiffDirectory(const TiffByteSource& source, bool le, std::uint32_t offset,
                       TiffDirectory* directory) {
    std::uint8_t countBytes[2];
    if (!source.ReadAt(offset, countBytes, 2))
        return false;
    const std::uint16_t count = TiffU16(countBytes, le);
    // One read for all entries and the next-directory word (at most 786 KB).
    std::vector<std::uint8_t> raw(static_cast<std::size_t>(count) * 12 + 4);
    const std::uint64_t at = std::uint64_t(offset) + 2;
    std::uint32_t next = 0;
    if (source.ReadAt(at, raw.data(), raw.size())) {
        next = TiffU32(raw.data() + count * 12, le);
    } else if (!source.ReadAt(at, raw.data(), raw.size() - 4)) {
        return false; // the entries themselves are cut; a missing next word reads as 0
    }
    directory->offset = offset;
    directory->next = next;
    directory->entries.clear();
    directory->entries.reserve(count);
    for (std::uint16_t i = 0; i < count; ++i) {
        const std::uint8_t* p = raw.data() + i * 12;
        TiffEntry e;
        e.tag = TiffU16(p, le);
        e.type = TiffU16(p + 2, le);
        e.count = TiffU32(p + 4, le);
        std::memcpy(e.field, p + 8, 4);
        e.value = (e.type == TiffShort && e.count == 1) ? TiffU16(p + 8, le) : TiffU32(p + 8, le);
        directory->entries.push_back(e);
    }
    return true;
}

bool ReadTiffDirectoryChain(const TiffByteSource& source, bool le, std::uint32_t firstOffset,
                            std::vector<TiffDirectory>* chain, std::size_t maxDirectories) {
    chain->clear();
    std::uint32_t offset = firstOffset;
    while (chain->size() < maxDirectories) {
        TiffDirectory d;
        if (!ReadTiffDirectory(source, le, offset, &d))
            return !chain->empty();
        const std::uint32_t next = d.next;
        chain->push_back(std::move(d));
        if (next == 0)
            break;
        const bool seen = std::any_of(chain->begin(), chain->end(),
                                      [&](const TiffDirectory& x) { return x.offset == next; });
        if (seen)
            break;
        offset = next;
    }
    return true;
}

bool ParseTiffDirectoryChain(const std::uint8_t* data, std::size_t size, bool le,
                             std::uint32_t firstOffset, std::vector<TiffDirectory>* chain,
                             std::size_t maxDirectories) {
    if (!data)
        return false;
    TiffMemorySource source(data, size);
    return ReadTiffDirectoryChain(source, le, firstOffset, chain, maxDirectories);
}

bool ReadTiffEntryBytes(const TiffByteSource& source, const TiffEntry& entry, std::size_t maxBytes,
                        std::vector<std::uint8_t>* bytes) {
    const std::uint64_t total = std::uint64_t(entry.count) * TiffTypeSize(entry.type);
    const std::size_t take = static_cast<std::size_t>(std::min<std::uint64_t>(total, maxBytes));
    if (total <= 4) {
        bytes->assign(entry.field, entry.field + take);
        return true;
    }
    // The values must lie inside the source as a whole, not only the part taken; checked
    // before anything is allocated for them.
    if (entry.value > source.Size() || total > source.Size() - entry.value)
        return false;
    bytes->assign(take, 0);
    return source.ReadAt(entry.value, bytes->data(), take);
}

bool ReadTiffEntryUInts(const TiffByteSource& source, bool le, const TiffEntry& entry,
                        std::size_t maxCount, std::vector<std::uint32_t>* values) {
    if (entry.type != TiffByte && entry.type != TiffShort && entry.type != TiffLong)
        return false;
    const std::size_t item = TiffTypeSize(entry.type);
    const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(entry.count, maxCount));
    std::vector<std::uint8_t> bytes;
    if (!ReadTiffEntryBytes(source, entry, n * item, &bytes))
        return false;
    values->resize(n);
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint8_t* p = bytes.data() + i * item;
        (*values)[i] = item == 1 ? p[0] : (item == 2 ? TiffU16(p, le) : TiffU32(p, le));
    }
    return true;
}

// ---- Exif -------------------------------------------------------------------------------

const TiffExifTag kTiffExifTags[24] = {
    {33434, TiffRational, 1, "ExposureTime"},
    {33437, TiffRational, 1, "FNumber"},
    {34850, TiffShort, 1, "ExposureProgram"},
    {34855, TiffShort, 1, "ISOSpeedRatings"},
    {36864, TiffUndefined, 4, "ExifVersion"},
    {36867, TiffAscii, 20, "DateTimeOriginal"},
    {36868, TiffAscii, 20, "DateTimeDigitized"},
    {37377, TiffRational, 1, "ShutterSpeedValue"},
    {37378, TiffRational, 1, "ApertureValue"},
    {37380, TiffRational, 1, "ExposureBiasValue"},
    {37381, TiffRational, 1, "MaxApertureValue"},
    {37385, TiffShort, 1, "Flash"},
    {37386, TiffRational, 1, "FocalLength"},
    {40960, TiffUndefined, 4, "FlashPixVersion"},
    {40961, TiffShort, 1, "ColorSpace"},
    {41486, TiffRational, 1, "FocalPlaneXResolution"},
    {41487, TiffRational, 1, "FocalPlaneYResolution"},
    {41488, TiffShort, 1, "FocalPlaneResolutionUnit"},
    {41495, TiffShort, 1, "SensingMethod"},
    {41728, TiffUndefined, 4, "FileSource"},
    {41985, TiffShort, 1, "CustomRendered"},
    {41986, TiffShort, 1, "ExposureMode"},
    {41987, TiffShort, 1, "WhiteBalance"},
    {41990, TiffShort, 1, "SceneCaptureType"},
};

int TiffExifIndex(std::uint16_t tag) {
    for (int i = 0; i < 24; ++i)
        if (kTiffExifTags[i].tag == tag)
            return i;
    return -1;
}

bool TiffExif::Has(std::uint16_t tag) const {
    const int i = TiffExifIndex(tag);
    return i >= 0 && present[i];
}

void TiffExif::SetPresent(std::uint16_t tag, bool on) {
    const int i = TiffExifIndex(tag);
    if (i >= 0)
        present[i] = on;
}

int TiffExif::PresentCount() const {
    return static_cast<int>(std::count(std::begin(present), std::end(present), true));
}

TiffRationalValue* ExifRational(TiffExif& x, std::uint16_t tag) {
    switch (tag) {
    case 33434:
        return &x.exposureTime;
    case 33437:
        return &x.fNumber;
    case 37377:
        return &x.shutterSpeedValue;
    case 37378:
        return &x.apertureValue;
    case 37380:
        return &x.exposureBiasValue;
    case 37381:
        return &x.maxApertureValue;
    case 37386:
        return &x.focalLength;
    case 41486:
        return &x.focalPlaneXResolution;
    case 41487:
        return &x.focalPlaneYResolution;
    default:
        return nullptr;
    }
}

std::uint16_t* ExifShort(TiffExif& x, std::uint16_t tag) {
    switch (tag) {
    case 34850:
        return &x.exposureProgram;
    case 34855:
        return &x.isoSpeedRatings;
    case 37385:
        return &x.flash;
    case 40961:
        return &x.colorSpace;
    case 41488:
        return &x.focalPlaneResolutionUnit;
    case 41495:
        return &x.sensingMethod;
    case 41985:
        return &x.customRendered;
    case 41986:
        return &x.exposureMode;
    case 41987:
        return &x.whiteBalance;
    case 41990:
        return &x.sceneCaptureType;
    default:
        return nullptr;
    }
}

std::uint8_t* ExifFourBytes(TiffExif& x, std::uint16_t tag) {
    switch (tag) {
    case 36864:
        return x.exifVersion;
    case 40960:
        return x.flashPixVersion;
    case 41728:
        return x.fileSource;
    default:
        return nullptr;
    }
}

char* ExifText(TiffExif& x, std::uint16_t tag) {
    switch (tag) {
    case 36867:
        return x.dateTimeOriginal;
    case 36868:
        return x.dateTimeDigitized;
    default:
        return nullptr;
    }
}

bool ReadTiffExif(const TiffByteSource& source, bool le, std::uint32_t offset, TiffExif* exif) {
    TiffDirectory dir;
    if (!ReadTiffDirectory(source, le, offset, &dir))
        return false;
    TiffExif x;
    for (const TiffEntry& e : dir.entries) {
        const int index = TiffExifIndex(e.tag);
        if (index < 0 || e.count == 0)
            continue;
        if (TiffRationalValue* r = ExifRational(x, e.tag)) {
            if (e.type != TiffRational && e.type != TiffSRational)
                continue; // a value of another kind is not this field
            std::vector<std::uint8_t> b;
            if (!ReadTiffEntryBytes(source, e, 8, &b))
                return false;
            r->numerator = TiffU32(b.data(), le);
            r->denominator = TiffU32(b.data() + 4, le);
        } else if (std::uint16_t* s = ExifShort(x, e.tag)) {
            std::vector<std::uint32_t> v;
            if (e.type != TiffShort && e.type != TiffLong && e.type != TiffByte)
                continue;
            if (!ReadTiffEntryUInts(source, le, e, 1, &v) || v.empty())
                return false;
            *s = static_cast<std::uint16_t>(v[0]);
        } else if (std::uint8_t* four = ExifFourBytes(x, e.tag)) {
            std::vector<std::uint8_t> b;
            if (!ReadTiffEntryBytes(source, e, 4, &b))
                return false;
            std::memset(four, 0, 4);
            std::memcpy(four, b.data(), b.size());
        } else if (char* text = ExifText(x, e.tag)) {
            std::vector<std::uint8_t> b;
            if (!ReadTiffEntryBytes(source, e, 20, &b))
                return false;
            std::memset(text, 0, 20);
            std::memcpy(text, b.data(), b.size());
        }
        x.present[index] = true;
    }
    *exif = x;
    return true;
}

bool ParseExifBlock(const std::uint8_t* data, std::size_t size, ExifBlock* block) {
    if (!data || !block)
        return false;
    TiffMemorySource source(data, size);
    bool le = true;
    std::uint32_t first = 0;
    if (!ReadTiffHeader(source, &le, &first))
        return false;
    TiffDirectory ifd0;
    if (!ReadTiffDirectory(source, le, first, &ifd0))
        return false;
    ExifBlock out;
    auto text = [&](std::uint16_t tag, std::string* s) {
        const TiffEntry* e = ifd0.Find(tag);
        std::vector<std::uint8_t> b;
        if (e && e->type == TiffAscii && ReadTiffEntryBytes(source, *e, 256, &b)) {
            s->assign(b.begin(), b.end());
            const std::size_t nul = s->find('\0');
            if (nul != std::string::npos)
                s->resize(nul);
        }
    };
    text(271, &out.make);
    text(272, &out.model);
    if (const TiffEntry* e = ifd0.Find(34665)) {
        if (!ReadTiffExif(source, le, e->value, &out.exif))
            return false;
        out.hasExifDirectory = true;
    }
    *block = std::move(out);
    return true;
}

} // namespace astrivelle
