// SPDX-License-Identifier: GPL-3.0-or-later
/// \file CDib's file side: reading the Windows and the old core bitmap headers, the colour
/// table and the rows, with every size checked against the file before allocation, and
/// writing a bitmap with the 40-byte header.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include "engine/Dib.h"
#include "fileio/Bmp.h"
#include "fileio/FileLock.h"

namespace astrivelle {

/// Bytes at offsets of a file or of a memory block.
class DibSource {
public:
    virtual ~DibSource() = default;
    virtual std::uint64_t Size() const = 0;
    /// Exactly `count` bytes from `offset`, or false.
    virtual bool ReadAt(std::uint64_t offset, void* out, std::size_t count) = 0;
};

namespace {

constexpr std::size_t kFileHeaderSize = 14;
constexpr std::uint32_t kCoreHeaderSize = 12;
constexpr std::uint32_t kInfoHeaderSize = 40;
constexpr std::uint32_t kRle8 = 1;
constexpr std::uint32_t kRle4 = 2;
constexpr std::uint32_t kBitFields = 3;

class MemorySource : public DibSource {
public:
    MemorySource(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    std::uint64_t Size() const override { return size_; }
    bool ReadAt(std::uint64_t offset, void* out, std::size_t count) override {
        if (offset > size_ || count > size_ - offset)
            return false;
        if (count)
            std::memcpy(out, data_ + offset, count);
        return true;
    }

private:
    const std::uint8_t* data_;
    std::size_t size_;
};

class FileSource : public DibSource {
public:
    explicit FileSource(std::FILE* file) : file_(file) {
        if (std::fseek(file_, 0, SEEK_END) == 0) {
            const long end = std::ftell(file_);
            size_ = end > 0 ? static_cast<std::uint64_t>(end) : 0;
        }
    }
    std::uint64_t Size() const override { return size_; }
    bool ReadAt(std::uint64_t offset, void* out, std::size_t count) override {
        if (offset > size_ || count > size_ - offset)
            return false;
        if (std::fseek(file_, static_cast<long>(offset), SEEK_SET) != 0)
            return false;
        return std::fread(out, 1, count, file_) == count;
    }

private:
    std::FILE* file_;
    std::uint64_t size_ = 0;
};

/// Closes a stdio file when it goes.
struct FileCloser {
    std::FILE* file = nullptr;
    ~FileCloser() {
        if (file)
            std::fclose(file);
    }
};

std::uint16_t Le16(const std::uint8_t* p) {
    return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}
std::uint32_t Le32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
           (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}
void Put16(std::uint8_t* p, std::uint32_t v) {
    p[0] = static_cast<std::uint8_t>(v);
    p[1] = static_cast<std::uint8_t>(v >> 8);
}
void Put32(std::uint8_t* p, std::uint32_t v) {
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}

bool Refuse(std::string* text, const std::string& why) {
    if (text)
        *text = why;
    return false;
}

std::string SystemErrorText() {
    return std::string("Error  = ") + std::strerror(errno);
}

bool IsWindowsHeaderSize(std::uint32_t size) {
    // The 40-byte form and the later forms that begin with it.
    return size == kInfoHeaderSize || size == 52 || size == 56 || size == 108 || size == 124;
}

/// Reads and checks the file header, the info (or core) header and the place of the colour
/// table; allocates nothing.
bool ReadHeaders(DibSource& source, BmpHeaderInfo* out, std::string* text) {
    std::uint8_t fileHeader[kFileHeaderSize];
    if (!source.ReadAt(0, fileHeader, sizeof fileHeader))
        return Refuse(text, "Failed to read file header");
    if (fileHeader[0] != 'B' || fileHeader[1] != 'M')
        return Refuse(text, "Not a bitmap file");
    CDib::FileInfo& file = out->file;
    file.fileSize = Le32(fileHeader + 2);
    file.dataOffset = Le32(fileHeader + 10);

    std::uint8_t info[kInfoHeaderSize] = {};
    if (!source.ReadAt(kFileHeaderSize, info, 4))
        return Refuse(text, "Failed to read BITMAPINFOHEADER");
    const std::uint32_t headerSize = Le32(info);
    DibHeader& h = out->header;
    h = DibHeader{};
    bool core = false;
    if (headerSize == kCoreHeaderSize) {
        // The old core form: 16-bit sizes, no compression or colour fields.
        if (!source.ReadAt(kFileHeaderSize, info, kCoreHeaderSize))
            return Refuse(text, "Failed to read BITMAPCOREHEADER");
        h.width = Le16(info + 4);
        h.height = Le16(info + 6);
        h.planes = Le16(info + 8);
        h.bitCount = Le16(info + 10);
        core = true;
    } else {
        if (!source.ReadAt(kFileHeaderSize, info, kInfoHeaderSize))
            return Refuse(text, "Failed to read BITMAPINFOHEADER");
        if (!IsWindowsHeaderSize(headerSize))
            return Refuse(text, " File is not Windows or PM DIB format");
        h.width = static_cast<std::int32_t>(Le32(info + 4));
        h.height = static_cast<std::int32_t>(Le32(info + 8));
        h.planes = Le16(info + 12);
        h.bitCount = Le16(info + 14);
        h.compression = Le32(info + 16);
        h.sizeImage = Le32(info + 20);
        h.xPelsPerMeter = static_cast<std::int32_t>(Le32(info + 24));
        h.yPelsPerMeter = static_cast<std::int32_t>(Le32(info + 28));
        h.clrUsed = Le32(info + 32);
        h.clrImportant = Le32(info + 36);
    }
    h.size = kInfoHeaderSize; // a core header is held in the widened form
    file.headerSize = headerSize;
    file.topDown = h.height < 0;
    if (h.width <= 0 || h.height == 0 || h.height == INT32_MIN)
        return Refuse(text, "The bitmap size " + std::to_string(h.width) + " x " +
                                std::to_string(h.height) + " is not usable");
    if (file.topDown)
        h.height = -h.height;
    switch (h.bitCount) {
    case 1:
    case 4:
    case 8:
    case 16:
    case 24:
    case 32:
        break;
    default:
        return Refuse(text, "The bitmap has " + std::to_string(h.bitCount) + " bits per pixel");
    }
    out->tableEntries = 0;
    if (h.bitCount <= 8) {
        const std::uint32_t full = 1u << h.bitCount;
        out->tableEntries = h.clrUsed ? h.clrUsed : full;
        if (out->tableEntries > full)
            return Refuse(text, core ? "Failed to read RGBTRIPLE" : "Failed to read color table");
    }
    return true;
}

} // namespace

std::string BmpSaveFailureText(const std::string& name) {
    return "Could Not Save " + name + " In A Windows 24 Bit BMP Format.";
}

bool ReadBmpHeader(const std::string& path, BmpHeaderInfo* info, std::string* text) {
    ImageFileGuard guard;
    FileCloser closer;
    closer.file = std::fopen(path.c_str(), "rb");
    if (!closer.file)
        return Refuse(text, SystemErrorText());
    FileSource source(closer.file);
    return ReadHeaders(source, info, text);
}

bool CDib::ReadFrom(DibSource& source, std::string* text) {
    bits_.reset();
    bitsSize_ = 0;
    header_ = DibHeader{};
    file_ = FileInfo{};
    BmpHeaderInfo found;
    if (!ReadHeaders(source, &found, text))
        return false;
    const DibHeader& h = found.header;
    const bool core = found.file.headerSize == kCoreHeaderSize;
    if (h.compression == kRle8 || h.compression == kRle4)
        return Refuse(text, "Run-length encoded bitmaps are not supported");
    if (h.compression != 0 && !(h.compression == kBitFields && h.bitCount >= 16))
        return Refuse(text,
                      "The bitmap compression " + std::to_string(h.compression) + " is unknown");

    // The colour table and the rows must all be in the file before anything is allocated.
    const std::uint64_t tableAt = kFileHeaderSize + found.file.headerSize;
    const std::size_t entrySize = core ? 3 : 4;
    // A table shorter than its depth allows ends where the rows begin (the core form has no
    // count at all); the entries it lacks stay black.
    if (found.file.dataOffset >= tableAt) {
        const std::uint64_t room = (found.file.dataOffset - tableAt) / entrySize;
        if (found.tableEntries > room)
            found.tableEntries = static_cast<std::uint32_t>(room);
    }
    if (tableAt + static_cast<std::uint64_t>(found.tableEntries) * entrySize > source.Size())
        return Refuse(text, core ? "Failed to read RGBTRIPLE" : "Failed to read color table");
    const std::size_t stride = StrideFor(h.width, h.bitCount);
    const std::uint64_t rowBytes = static_cast<std::uint64_t>(stride) * h.height;
    if (found.file.dataOffset > source.Size() || rowBytes > source.Size() - found.file.dataOffset)
        return Refuse(text, "Failed to read bits");

    std::unique_ptr<RgbQuad[]> colors(new (std::nothrow) RgbQuad[256]());
    if (!colors)
        return Refuse(text, "Out of memory for DIB header");
    std::uint8_t table[256 * 4];
    if (found.tableEntries && !source.ReadAt(tableAt, table, found.tableEntries * entrySize))
        return Refuse(text, core ? "Failed to read RGBTRIPLE" : "Failed to read color table");
    for (std::uint32_t i = 0; i < found.tableEntries; ++i) {
        const std::uint8_t* e = table + i * entrySize;
        colors[i] = RgbQuad{e[0], e[1], e[2], 0};
    }

    std::unique_ptr<std::uint8_t[]> bits(new (std::nothrow) std::uint8_t[rowBytes]);
    if (!bits)
        return Refuse(text, "Out of memory for DIB bits");
    if (!source.ReadAt(found.file.dataOffset, bits.get(), rowBytes))
        return Refuse(text, "Failed to read bits");
    if (found.file.topDown) {
        // Held bottom-up like every DIB: swap rows end for end.
        std::vector<std::uint8_t> swap(stride);
        for (std::int32_t a = 0, b = h.height - 1; a < b; ++a, --b) {
            std::uint8_t* ra = bits.get() + stride * static_cast<std::size_t>(a);
            std::uint8_t* rb = bits.get() + stride * static_cast<std::size_t>(b);
            std::memcpy(swap.data(), ra, stride);
            std::memcpy(ra, rb, stride);
            std::memcpy(rb, swap.data(), stride);
        }
    }
    header_ = h;
    file_ = found.file;
    colors_ = std::move(colors);
    bits_ = std::move(bits);
    bitsSize_ = static_cast<std::size_t>(rowBytes);
    return true;
}

bool CDib::Read(const std::string& path, std::string* text) {
    ImageFileGuard guard;
    FileCloser closer;
    closer.file = std::fopen(path.c_str(), "rb");
    if (!closer.file)
        return Refuse(text, SystemErrorText());
    FileSource source(closer.file);
    return ReadFrom(source, text);
}

bool CDib::ReadMemory(const std::uint8_t* data, std::size_t size, std::string* text) {
    MemorySource source(data, size);
    return ReadFrom(source, text);
}

bool CDib::Write(const std::string& path, std::string* text) const {
    ImageFileGuard guard;
    if (!bits_)
        return Refuse(text, "Out of memory for DIB bits");
    const bool withTable = header_.bitCount <= 8;
    const std::uint32_t tableBytes = withTable ? 256 * 4 : 0;
    const std::uint64_t total = 54ull + tableBytes + bitsSize_;
    if (total > 0xFFFFFFFFull)
        return Refuse(text, "The bitmap is too large for a BMP file");

    std::uint8_t head[54] = {};
    head[0] = 'B';
    head[1] = 'M';
    Put32(head + 2, static_cast<std::uint32_t>(total));
    Put32(head + 10, 54 + tableBytes);
    std::uint8_t* info = head + kFileHeaderSize;
    Put32(info, kInfoHeaderSize);
    Put32(info + 4, static_cast<std::uint32_t>(header_.width));
    Put32(info + 8, static_cast<std::uint32_t>(header_.height));
    Put16(info + 12, 1);
    Put16(info + 14, header_.bitCount);
    Put32(info + 16, 0);
    Put32(info + 20, static_cast<std::uint32_t>(bitsSize_));
    Put32(info + 24, static_cast<std::uint32_t>(header_.xPelsPerMeter));
    Put32(info + 28, static_cast<std::uint32_t>(header_.yPelsPerMeter));
    Put32(info + 32, withTable ? 256 : 0);
    Put32(info + 36, 0);

    FileCloser closer;
    closer.file = std::fopen(path.c_str(), "wb");
    if (!closer.file)
        return Refuse(text, SystemErrorText());
    bool ok = std::fwrite(head, 1, sizeof head, closer.file) == sizeof head;
    if (ok && withTable) {
        std::uint8_t table[256 * 4];
        for (int i = 0; i < 256; ++i) {
            const RgbQuad q = colors_ ? colors_[i] : RgbQuad{};
            table[4 * i + 0] = q.blue;
            table[4 * i + 1] = q.green;
            table[4 * i + 2] = q.red;
            table[4 * i + 3] = 0;
        }
        ok = std::fwrite(table, 1, sizeof table, closer.file) == sizeof table;
    }
    if (ok)
        ok = std::fwrite(bits_.get(), 1, bitsSize_, closer.file) == bitsSize_;
    std::FILE* file = closer.file;
    closer.file = nullptr;
    if (std::fclose(file) != 0)
        ok = false;
    if (!ok) {
        const std::string why = SystemErrorText();
        std::remove(path.c_str());
        return Refuse(text, why);
    }
    return true;
}

} // namespace astrivelle
