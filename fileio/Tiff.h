// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The program's own uncompressed TIFF: one image in strips, chunky samples of 8 or 16
/// bit integers or 32-bit floats, gray or RGB, with the camera tags (make, model, software,
/// resolution, Exif, ICC profile) carried from a read to the next write. Image::ReadTIFF and
/// Image::WriteTIFF (declared in engine/Image.h) live in TiffRead.cpp and TiffWrite.cpp.
/// Every entry point holds ImageFileLock for its whole duration.
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "fileio/TiffDirectory.h"

namespace astrivelle {

/// The fixed texts of the TIFF reader and writer.
namespace tifftext {
inline constexpr const char* kByteOrder = "The TIFF file does not have PC or Macintosh byte order.";
inline constexpr const char* kOnlyUncompressed = "Only uncompressed TIFF format is supported.";
inline constexpr const char* kPalette = "Palette-color TIFF images are not supported.";
inline constexpr const char* kRequiredTags = "Not all TIFF required tags are present in the image.";
inline constexpr const char* kCompressed = "Compressed TIFF is not supported.";
inline constexpr const char* kOnly8or16 =
    "Only 8 or 16 bit per channel gray and RGB images are supported.";
inline constexpr const char* kOpenForWrite = "Problem opening the file for write";
inline constexpr const char* kColorType = "Internal error, image does not have a valid color type.";
inline constexpr const char* kNoMemory = "Could not allocate memory.";
inline constexpr const char* kImageData = "Problem writing TIFF image data.";
inline constexpr const char* kExifData = "Problem writing Exif data.";
inline constexpr const char* kIccData = "Problem writing ICC profile data.";
inline constexpr const char* kExifTag = "Problem writing Exif tag data.";
inline constexpr const char* kIccTag = "Problem writing ICC Profile.";
inline constexpr const char* kHeader = "Problem writing TIFF header.";
inline constexpr const char* kExifCount = "Problem writing Exif tag count.";
} // namespace tifftext

/// The failure text of one Exif value, by tag ("Problem writing FNumber Exif data."); empty
/// for a tag that is not carried.
const char* TiffExifValueFailure(std::uint16_t tag);

/// The tag values an image keeps from the TIFF it came from (all but the size and strip
/// fields), each with its present flag, so that a TIFF opened, processed and saved still
/// carries its camera data.
struct TiffInfo {
    std::uint16_t bitsPerSample = 1;       ///< 258
    std::uint16_t compression = 1;         ///< 259
    std::uint16_t photometric = 0;         ///< 262
    std::uint16_t samplesPerPixel = 1;     ///< 277
    std::uint32_t xResolution[2] = {0, 1}; ///< 282, numerator and denominator
    std::uint32_t yResolution[2] = {0, 1}; ///< 283
    std::uint16_t resolutionUnit = 1;      ///< 296
    std::string make;  ///< 271, up to 39 bytes as stored (its length is the stored length)
    std::string model; ///< 272, likewise
    /// 0 for integer (339 value 1, or three 1s), 1 for float (value 3), 257 for three 3s.
    std::uint16_t sampleFormat = 0;
    std::string software;                 ///< 305, as stored
    TiffExif exif;                        ///< the Exif directory (34665)
    std::vector<std::uint8_t> iccProfile; ///< 34675, whole

    bool hasBitsPerSample = false, hasCompression = false, hasPhotometric = false,
         hasSamplesPerPixel = false, hasXResolution = false, hasYResolution = false,
         hasResolutionUnit = false, hasMake = false, hasModel = false, hasSoftware = false,
         hasIccProfile = false;
};

/// The state of one TIFF file: what its header and first directory say, and the source of
/// its bytes. Outlives a read so that an image can pick up its tags.
class TiffFile {
public:
    TiffFile();
    ~TiffFile();
    TiffFile(const TiffFile&) = delete;
    TiffFile& operator=(const TiffFile&) = delete;

    /// Opens the file at `path` for reading (no bytes are read yet).
    bool Open(const std::string& path);
    /// Reads from a buffer the caller keeps alive (fuzzing, Exif-like blocks in memory).
    void OpenMemory(const std::uint8_t* data, std::size_t size);

    /// Reads the header and the first image file directory. `errorText` receives the
    /// reader's own message, or stays empty when the failure has no words of its own;
    /// LastFileError() says in plain words why.
    bool ReadTags(std::string* errorText);

    /// True when the strips hold `height` rows inside the file and the size is usable: the
    /// check made before any plane is allocated.
    bool CheckStrips() const;

    /// Reads the pixels into row-pointer arrays of floats on 0..65535 (`height` rows of
    /// `width`); in a gray file only `redRows` is used.
    bool ReadPixels(float* const* redRows, float* const* greenRows, float* const* blueRows);
    /// The same into flat planes of width x height floats.
    bool ReadPlanes(float* red, float* green, float* blue);

    /// ReadTags then ReadPixels.
    bool Read(float* const* redRows, float* const* greenRows, float* const* blueRows,
              std::string* errorText);

    std::string path;
    std::string colorSpace; ///< "GRAY" or "RGB" after a successful ReadTags
    bool littleEndian = true;
    std::uint8_t header[8] = {};
    std::uint32_t width = 0;        ///< 256
    std::uint32_t height = 0;       ///< 257
    std::uint32_t rowsPerStrip = 0; ///< 278, `height` when absent or with one strip
    std::uint32_t stripCount = 0;
    std::uint16_t stripFieldType = 0;
    std::vector<std::uint32_t> stripOffsets;    ///< 273, decoded from 16- or 32-bit items
    std::vector<std::uint32_t> stripByteCounts; ///< 279, kept but never used
    TiffInfo info;
    bool hasWidth = false, hasHeight = false, hasStripOffsets = false, hasRowsPerStrip = false,
         hasStripByteCounts = false;

private:
    template <class RowOf> bool ReadInto(RowOf rowOf, bool color);
    std::unique_ptr<TiffByteSource> source_;
};

/// Reads the tags of the file at `path` without its pixels (the open path needs the colour
/// space, the size and the reader's text). Holds ImageFileLock.
bool ReadTiffTags(const std::string& path, TiffFile* file, std::string* errorText);

/// Where the writer's bytes go. Write and Seek return false on failure.
class TiffSink {
public:
    virtual ~TiffSink() = default;
    virtual bool Write(const void* data, std::size_t n) = 0;
    virtual bool Seek(std::uint64_t offset) = 0;
    /// Called once at the end; false when the bytes could not all be stored.
    virtual bool Finish() { return true; }
};

/// What the writer writes: the planes of `colorType` (1 writes red, green, blue interleaved;
/// a single-plane type writes the plane it names), at 8, 16 or 32 bits, with the tags of
/// `info` (nullptr: none carried).
struct TiffWriteRequest {
    const float* red = nullptr;
    const float* green = nullptr;
    const float* blue = nullptr;
    std::uint32_t bits = 16;
    std::uint32_t colorType = 9;
    std::int32_t width = 0;
    std::int32_t height = 0;
    const TiffInfo* info = nullptr;
};

/// Writes a TIFF to `path`; false with the writer's own message in `message`.
bool WriteTiffFile(const std::string& path, const TiffWriteRequest& request, std::string* message);

/// Writes a TIFF into any sink (the file writer uses it too).
bool WriteTiffToSink(TiffSink& sink, const TiffWriteRequest& request, std::string* message);

} // namespace astrivelle
