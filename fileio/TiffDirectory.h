// SPDX-License-Identifier: GPL-3.0-or-later
/// \file TIFF image file directories read from any byte source with bounds checks: the
/// 12-byte entries of one directory or of a chain, their values, and the Exif fields this
/// program carries. Stands alone so that the TIFF reader and the Exif block of a JPEG's APP1
/// segment share it; it knows nothing of files, locks or images.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace astrivelle {

/// TIFF field types used here.
enum TiffFieldType : std::uint16_t {
    TiffByte = 1,
    TiffAscii = 2,
    TiffShort = 3,
    TiffLong = 4,
    TiffRational = 5,
    TiffUndefined = 7,
    TiffSRational = 10,
};

/// Bytes that can be read at an offset. Every read is checked against Size().
class TiffByteSource {
public:
    virtual ~TiffByteSource() = default;
    virtual std::uint64_t Size() const = 0;
    /// Reads exactly `n` bytes at `offset`; false when any of them lies outside the source or
    /// the read fails.
    virtual bool ReadAt(std::uint64_t offset, void* dst, std::size_t n) const = 0;
};

/// A source over a buffer the caller keeps alive.
class TiffMemorySource : public TiffByteSource {
public:
    TiffMemorySource(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    std::uint64_t Size() const override { return size_; }
    bool ReadAt(std::uint64_t offset, void* dst, std::size_t n) const override;

private:
    const std::uint8_t* data_;
    std::size_t size_;
};

/// One 12-byte directory entry. `value` is the value field in the file's byte order: a SHORT
/// with count 1 as a 16-bit quantity, everything else as a 32-bit one. `field` keeps the four
/// bytes as they stand in the file (inline bytes, strings, undefined data).
struct TiffEntry {
    std::uint16_t tag = 0;
    std::uint16_t type = 0;
    std::uint32_t count = 0;
    std::uint32_t value = 0;
    std::uint8_t field[4] = {0, 0, 0, 0};
};

/// One directory: its entries in file order and the offset of the next one (0 for none).
struct TiffDirectory {
    std::uint32_t offset = 0;
    std::vector<TiffEntry> entries;
    std::uint32_t next = 0;
    /// The first entry with the tag, or nullptr.
    const TiffEntry* Find(std::uint16_t tag) const;
};

/// Size in bytes of one item of a field type (1 for unknown types, so that a count still
/// bounds the bytes).
std::size_t TiffTypeSize(std::uint16_t type);

/// Decodes a 16- or 32-bit quantity in the given byte order.
std::uint16_t TiffU16(const std::uint8_t* p, bool littleEndian);
std::uint32_t TiffU32(const std::uint8_t* p, bool littleEndian);

/// Reads the eight header bytes: byte order ("II" or "MM"), 42 and the first directory's
/// offset. False for anything else.
bool ReadTiffHeader(const TiffByteSource& source, bool* littleEndian, std::uint32_t* firstIfd);

/// Reads the directory at `offset`: the 16-bit count, then that many entries and the
/// next-directory word. False when any of it lies outside the source.
bool ReadTiffDirectory(const TiffByteSource& source, bool littleEndian, std::uint32_t offset,
                       TiffDirectory* directory);

/// Reads the directory chain from `firstOffset`, at most `maxDirectories` long; a loop or a
/// next offset outside the source ends it. False only when the first one cannot be read.
bool ReadTiffDirectoryChain(const TiffByteSource& source, bool littleEndian,
                            std::uint32_t firstOffset, std::vector<TiffDirectory>* chain,
                            std::size_t maxDirectories = 16);

/// The same over a buffer of (pointer, size) bytes.
bool ParseTiffDirectoryChain(const std::uint8_t* data, std::size_t size, bool littleEndian,
                             std::uint32_t firstOffset, std::vector<TiffDirectory>* chain,
                             std::size_t maxDirectories = 16);

/// The bytes of an entry's values: the value field itself when `count * itemSize` fits in
/// four bytes, else read from the offset. At most `maxBytes` are taken. False when the values
/// lie outside the source.
bool ReadTiffEntryBytes(const TiffByteSource& source, const TiffEntry& entry, std::size_t maxBytes,
                        std::vector<std::uint8_t>* bytes);

/// The entry's unsigned integer values (BYTE, SHORT or LONG), decoded, at most `maxCount`.
/// False for another type or values outside the source.
bool ReadTiffEntryUInts(const TiffByteSource& source, bool littleEndian, const TiffEntry& entry,
                        std::size_t maxCount, std::vector<std::uint32_t>* values);

/// A RATIONAL as its two 32-bit words, numerator then denominator.
struct TiffRationalValue {
    std::uint32_t numerator = 0;
    std::uint32_t denominator = 1;
};

/// The Exif fields the program carries from file to file, each with its present flag.
/// The two version fields and FileSource keep their four bytes as they stand; the signed
/// values (ShutterSpeedValue, ExposureBiasValue) keep their bits in the unsigned words.
struct TiffExif {
    TiffRationalValue exposureTime;             // 33434
    TiffRationalValue fNumber;                  // 33437
    std::uint16_t exposureProgram = 0;          // 34850
    std::uint16_t isoSpeedRatings = 0;          // 34855
    std::uint8_t exifVersion[4] = {};           // 36864
    char dateTimeOriginal[20] = {};             // 36867
    char dateTimeDigitized[20] = {};            // 36868
    TiffRationalValue shutterSpeedValue;        // 37377
    TiffRationalValue apertureValue;            // 37378
    TiffRationalValue exposureBiasValue;        // 37380
    TiffRationalValue maxApertureValue;         // 37381
    std::uint16_t flash = 0;                    // 37385
    TiffRationalValue focalLength;              // 37386
    std::uint8_t flashPixVersion[4] = {};       // 40960
    std::uint16_t colorSpace = 0;               // 40961
    TiffRationalValue focalPlaneXResolution;    // 41486
    TiffRationalValue focalPlaneYResolution;    // 41487
    std::uint16_t focalPlaneResolutionUnit = 0; // 41488
    std::uint16_t sensingMethod = 0;            // 41495
    std::uint8_t fileSource[4] = {};            // 41728
    std::uint16_t customRendered = 0;           // 41985
    std::uint16_t exposureMode = 0;             // 41986
    std::uint16_t whiteBalance = 0;             // 41987
    std::uint16_t sceneCaptureType = 0;         // 41990

    /// Present flags, one per field, in the order above (index of kTiffExifTags).
    bool present[24] = {};

    bool Has(std::uint16_t tag) const;
    void SetPresent(std::uint16_t tag, bool on);
    /// Number of present fields.
    int PresentCount() const;
};

/// The 24 Exif tags in the order they are written, with their field type and count.
struct TiffExifTag {
    std::uint16_t tag;
    std::uint16_t type;
    std::uint32_t count;
    const char* name;
};
extern const TiffExifTag kTiffExifTags[24];

/// The field of an Exif record that a tag names, by value class; null (or 0) for a tag of
/// another class. Reader and writer both go through these.
TiffRationalValue* ExifRational(TiffExif& x, std::uint16_t tag);
std::uint16_t* ExifShort(TiffExif& x, std::uint16_t tag);
std::uint8_t* ExifFourBytes(TiffExif& x, std::uint16_t tag);
char* ExifText(TiffExif& x, std::uint16_t tag);
inline const TiffRationalValue* ExifRational(const TiffExif& x, std::uint16_t tag) {
    return ExifRational(const_cast<TiffExif&>(x), tag);
}
inline std::uint16_t ExifShortValue(const TiffExif& x, std::uint16_t tag) {
    const std::uint16_t* v = ExifShort(const_cast<TiffExif&>(x), tag);
    return v ? *v : 0;
}

/// Index of an Exif tag in kTiffExifTags, or -1.
int TiffExifIndex(std::uint16_t tag);

/// Reads the Exif directory at `offset` into `exif`, taking the tags above and ignoring
/// others. False when the directory or a kept value lies outside the source.
bool ReadTiffExif(const TiffByteSource& source, bool littleEndian, std::uint32_t offset,
                  TiffExif* exif);

/// What the TIFF structure of an Exif APP1 segment (the bytes after "Exif\0\0") holds for
/// this program: make and model of the first directory and the Exif fields.
struct ExifBlock {
    std::string make;
    std::string model;
    TiffExif exif;
    bool hasExifDirectory = false;
};

/// Parses the TIFF structure of an Exif segment. False when its header or first directory
/// cannot be read, or its Exif directory is damaged.
bool ParseExifBlock(const std::uint8_t* data, std::size_t size, ExifBlock* block);

} // namespace astrivelle
