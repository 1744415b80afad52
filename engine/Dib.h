// SPDX-License-Identifier: GPL-3.0-or-later
/// \file CDib, the device-independent bitmap an image is shown through (8-bit with a 256-entry
/// colour table for monochrome, 24-bit BGR for colour; rows bottom-up, each padded to 4
/// bytes), and the logical palettes of 8-bit displays as plain data.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace astrivelle {

/// One colour-table entry, in the byte order of a DIB: blue, green, red, reserved.
struct RgbQuad {
    std::uint8_t blue = 0;
    std::uint8_t green = 0;
    std::uint8_t red = 0;
    std::uint8_t reserved = 0;
};

/// The bitmap information header of a DIB.
struct DibHeader {
    std::uint32_t size = 40;
    std::int32_t width = 0;
    std::int32_t height = 0; ///< positive: rows stored bottom-up
    std::uint16_t planes = 1;
    std::uint16_t bitCount = 0;
    std::uint32_t compression = 0;
    std::uint32_t sizeImage = 0;
    std::int32_t xPelsPerMeter = 0;
    std::int32_t yPelsPerMeter = 0;
    std::uint32_t clrUsed = 0;
    std::uint32_t clrImportant = 0;
};

class DibSource; // where CDib::Read takes its bytes from (fileio/BmpDib.cpp)

class CDib {
public:
    CDib() = default;
    CDib(const CDib&) = delete;
    CDib& operator=(const CDib&) = delete;

    /// An 8-bit bitmap with a gray-ramp colour table and zeroed bits. On failure returns false
    /// with "Out of memory for DIB header" or "Out of memory for DIB bits" in `text`.
    bool CreateEightBit(int width, int height, std::string* text = nullptr);
    /// A 24-bit bitmap (no colour table used) with zeroed bits; failure texts as above.
    bool CreateTwentyFourBit(int width, int height, std::string* text = nullptr);

    /// Writes the 256 colour entries for a colour type: 9 gray, 2 red, 3 green, 4 blue,
    /// 6 cyan, 7 magenta, 8 yellow ramps; any other type a gray ramp.
    void SetDibPalette(std::uint32_t colorType);

    /// Bytes of one stored row for a width and bit count: width * bits / 8 rounded up to 4.
    static std::size_t StrideFor(int width, int bitCount);
    std::size_t RowStride() const { return StrideFor(header_.width, header_.bitCount); }

    bool IsValid() const { return bits_ != nullptr; }
    int Width() const { return header_.width; }
    int Height() const { return header_.height; }
    int BitCount() const { return header_.bitCount; }
    const DibHeader& Header() const { return header_; }
    const RgbQuad* Colors() const { return colors_.get(); }
    RgbQuad* Colors() { return colors_.get(); }
    std::uint8_t* Bits() { return bits_.get(); }
    const std::uint8_t* Bits() const { return bits_.get(); }
    std::size_t BitsSize() const { return bitsSize_; }
    /// Stored row `row` (0 is the bottom row of the picture).
    std::uint8_t* Row(int row) { return bits_.get() + RowStride() * static_cast<std::size_t>(row); }
    const std::uint8_t* Row(int row) const {
        return bits_.get() + RowStride() * static_cast<std::size_t>(row);
    }
    void Clear();

    // ---- files (defined in fileio/BmpDib.cpp; each holds ImageFileLock) -----------------
    /// Reads a Windows bitmap file: the 14-byte file header, a 40-byte info header (or a
    /// longer one of the same start) or the 12-byte core header, the colour table and the
    /// rows. Bottom-up and top-down files both end up bottom-up in Bits(). Sizes are checked
    /// against the file before anything is allocated. On failure returns false with the
    /// reason in `text` ("Failed to read file header", "Not a bitmap file", ...).
    bool Read(const std::string& path, std::string* text = nullptr);
    /// The same from bytes in memory.
    bool ReadMemory(const std::uint8_t* data, std::size_t size, std::string* text = nullptr);
    /// Writes the bitmap: "BM", size = bytes after the header + 54 (+ 1024 for the colour
    /// table of an 8-bit bitmap), data offset 54 (+ 1024), the 40-byte info header, the
    /// colour table of an 8-bit bitmap, and the rows. A file error is "Error  = " and the
    /// system's text.
    bool Write(const std::string& path, std::string* text = nullptr) const;

    /// What the file that Read took held, for the properties panel.
    struct FileInfo {
        std::uint32_t fileSize = 0;   ///< the size field of the file header
        std::uint32_t dataOffset = 0; ///< where the rows start
        std::uint32_t headerSize = 0; ///< 12 (core), 40 or a longer Windows form
        bool topDown = false;         ///< the file stored its rows top-down
    };
    const FileInfo& File() const { return file_; }

private:
    bool Create(int width, int height, int bitCount, std::string* text);
    bool ReadFrom(DibSource& source, std::string* text);

    DibHeader header_;
    FileInfo file_;
    std::unique_ptr<RgbQuad[]> colors_;
    std::unique_ptr<std::uint8_t[]> bits_;
    std::size_t bitsSize_ = 0;
};

/// A logical-palette entry (red, green, blue, flags).
struct PaletteEntry {
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;
    std::uint8_t flags = 0;
};

/// 236 grays: levels 17..127, 129..191 and 193..254 (the levels between collide with system
/// colours and are left out).
std::vector<PaletteEntry> PaletteBW240();
/// 64 grays of level i * 4.
std::vector<PaletteEntry> PaletteBW64();
/// 236-entry ramps on one primary over levels 18..127 and 129..254.
std::vector<PaletteEntry> PaletteRed();
std::vector<PaletteEntry> PaletteGreen();
std::vector<PaletteEntry> PaletteBlue();
/// The same ramps on two primaries: green+blue, red+blue, red+green.
std::vector<PaletteEntry> PaletteCyan();
std::vector<PaletteEntry> PaletteMagenta();
std::vector<PaletteEntry> PaletteYellow();
/// 256 entries: 0..9 the first ten system colours, 10..225 the 6x6x6 cube in steps of 0x33
/// (red slowest, blue fastest), 226..241 the grays 0x00..0xFF in steps of 0x11, 242..245
/// reserved (black), 246..255 the last ten system colours.
std::vector<PaletteEntry> PaletteRGB();
/// The logical palette of a colour type (1 RGB, 2 red, ..., 9 BW240; others BW240).
std::vector<PaletteEntry> PaletteForColorType(std::uint32_t colorType);

} // namespace astrivelle
