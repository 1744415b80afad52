// SPDX-License-Identifier: GPL-3.0-or-later
/// \file JPEG through libjpeg-turbo behind three operations (header, pixels, write), the
/// CJPEGFile that holds one file's state, and the free functions beside Image::ReadJPEG and
/// Image::WriteJPEG (declared in engine/Image.h). Every operation holds ImageFileLock for its
/// whole duration, never ends the process on a corrupt file, and on failure leaves the reason
/// in LastFileError().
#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace astrivelle {

/// Reads the header: the size, the colour space ("GRAY", "RGB", "CMYK", "YCCK" or "YCbCr")
/// and the number of components the file holds. The path is taken as a private copy.
bool JPEGReadImageHeader(std::string path, std::uint32_t* width, std::uint32_t* height,
                         std::string* colorSpace, std::int32_t* components);

/// Decodes the pixels into `height` caller rows: `width` bytes a row for a "GRAY" file,
/// 3 * `width` (red, green, blue) for every other colour space; CMYK and YCCK files come out
/// as RGB. Fails, writing nothing past the rows, when the file is not `width` x `height`.
bool JPEGReadImage(std::string path, std::uint8_t* const* rows, std::uint32_t width,
                   std::uint32_t height);

/// Encodes `height` rows ("RGB": 3 * `width` bytes a row, red, green, blue; "GRAY": `width`
/// bytes) at `quality` (libjpeg's 1..100 scale, passed as it stands). A partly written file is
/// removed.
bool JPEGWriteImage(std::string path, const std::uint8_t* const* rows,
                    const std::string& colorSpace, int quality, std::uint32_t width,
                    std::uint32_t height);

/// Decodes block by block for callers that convert as they go: `sink(firstRow, count, rows)`
/// receives consecutive rows in the layout of JPEGReadImage; returning false stops the read.
/// Without `rows` the block is valid only during the call; with `rows` (`height` caller rows
/// as for JPEGReadImage) the pixels are decoded into them and stay there.
/// A sink never receives more rows at once than this.
inline constexpr std::uint32_t kJpegBlockRows = 16;
using JpegRowSink =
    std::function<bool(std::uint32_t firstRow, std::uint32_t count, const std::uint8_t* const*)>;
bool JPEGReadImageRows(const std::string& path, std::uint32_t width, std::uint32_t height,
                       const JpegRowSink& sink, std::uint8_t* const* rows = nullptr);

/// The payload of the first APP1 segment that starts with "Exif\0\0", without those six bytes
/// (so it begins with the TIFF byte-order mark). False with a reason when the file has none.
bool JPEGReadExifBlock(const std::string& path, std::vector<std::uint8_t>* tiffBytes);

/// The pixels a JPEG of this size may claim at most for a file of `fileBytes`: libjpeg needs
/// at least a few bits for every 8 x 8 block of each scan, so a header that claims more than
/// 4096 pixels a byte (beyond a floor of 16 megapixels) is a lie told before allocation.
bool JpegSizeIsPlausible(std::uint64_t width, std::uint64_t height, std::uint64_t fileBytes);

/// One JPEG file's state.
class CJPEGFile {
public:
    CJPEGFile() = default;
    explicit CJPEGFile(std::string filePath) : path(std::move(filePath)) {}

    std::string path;
    std::string colorSpace;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::int32_t components = 0;

    /// JPEGReadImageHeader into the fields.
    bool ReadHeader();
    /// True when the header said "GRAY" (rows of `width` bytes; else 3 * `width`).
    bool IsGray() const { return colorSpace == "GRAY"; }
    /// JPEGReadImage into `height` caller rows of the header's size.
    bool ReadPixels(std::uint8_t* const* rows);
    /// Converts the planes (colour type 1: red, green, blue; any other valid type: the plane
    /// that type names, passed as `red`) to bytes, each sample the nearest integer clamped to
    /// 0..65535 and divided by 257, and calls JPEGWriteImage with "RGB" or "GRAY". Colour type
    /// 5 or outside 1..9: "Internal error, image does not have a valid color type."
    bool Write(const float* red, const float* green, const float* blue, std::uint32_t colorType,
               int quality, std::uint32_t width, std::uint32_t height);
};

} // namespace astrivelle
