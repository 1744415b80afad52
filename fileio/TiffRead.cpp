// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Reading TIFF: the header and first directory by the program's tag rules, the strips
/// checked against the file before anything is allocated, and the samples read a block of
/// rows at a time into float planes on 0..65535.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include "engine/Image.h"
#include "engine/Parallel.h"
#include "fileio/FileDispatch.h"
#include "fileio/FileLock.h"
#include "fileio/Tiff.h"

namespace astrivelle {

namespace {

/// A file read with pread; every read is checked against the size found at opening.
class TiffFileSource : public TiffByteSource {
public:
    ~TiffFileSource() override {
        if (fd_ >= 0)
            ::close(fd_);
    }
    bool Open(const std::string& path) {
        fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd_ < 0)
            return false;
        struct stat st;
        if (::fstat(fd_, &st) != 0 || !S_ISREG(st.st_mode))
            return false;
        size_ = static_cast<std::uint64_t>(st.st_size);
        return true;
    }
    std::uint64_t Size() const override { return size_; }
    bool ReadAt(std::uint64_t offset, void* dst, std::size_t n) const override {
        if (fd_ < 0 || offset > size_ || n > size_ - offset)
            return false;
        auto* out = static_cast<std::uint8_t*>(dst);
        while (n > 0) {
            const ssize_t got = ::pread(fd_, out, n, static_cast<off_t>(offset));
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                return false;
            out += got;
            offset += static_cast<std::uint64_t>(got);
            n -= static_cast<std::size_t>(got);
        }
        return true;
    }

private:
    int fd_ = -1;
    std::uint64_t size_ = 0;
};

/// A silent failure: no text for the user, the reason for LastFileError.
bool Silent(const std::string& reason) {
    SetLastFileError(reason);
    return false;
}

/// A failure with the reader's own text.
bool Worded(std::string* errorText, const char* text) {
    if (errorText)
        *errorText = text;
    SetLastFileError(text);
    return false;
}

/// The single value of an entry: 16 bits for a SHORT, 32 bits otherwise.
std::uint32_t ScalarOf(const TiffEntry& e, bool le) {
    return e.type == TiffShort ? TiffU16(e.field, le) : TiffU32(e.field, le);
}

std::string TagText(std::uint16_t tag) {
    return "TIFF tag " + std::to_string(tag);
}

bool ValidBits(std::uint32_t bits) {
    return bits == 8 || bits == 16 || bits == 32;
}

/// Bytes the system could still give: available memory plus free swap (unknown: no limit).
unsigned long long MemoryAvailable() {
    std::ifstream meminfo("/proc/meminfo");
    std::string name, unit;
    unsigned long long kb = 0, total = 0;
    bool found = false;
    while (meminfo >> name >> kb) {
        std::getline(meminfo, unit);
        if (name == "MemAvailable:" || name == "SwapFree:") {
            total += kb * 1024ULL;
            found = true;
        }
    }
    return found ? total : std::numeric_limits<unsigned long long>::max();
}

/// Rows of one read block: as many whole rows as fit in this many bytes, at least one.
constexpr std::size_t kBlockBytes = std::size_t(256) << 10;

/// The plane value of one file sample: 8 bits times 257, 16 bits as it stands, a 32-bit
/// float times 65535, after a byte swap in a big-endian file.
template <int Bits, bool Swap> inline float PlaneValue(const std::uint8_t* p) {
    if constexpr (Bits == 8) {
        return static_cast<float>(p[0] * 257);
    } else if constexpr (Bits == 16) {
        std::uint16_t v;
        std::memcpy(&v, p, 2);
        if constexpr (Swap)
            v = static_cast<std::uint16_t>((v >> 8) | (v << 8));
        return static_cast<float>(v);
    } else {
        std::uint32_t v;
        std::memcpy(&v, p, 4);
        if constexpr (Swap)
            v = __builtin_bswap32(v);
        float f;
        std::memcpy(&f, &v, 4);
        return f * 65535.0f;
    }
}

/// Converts one row of chunky samples into 1 or 3 float rows.
template <int Samples, int Bits, bool Swap>
void ConvertRowOf(const std::uint8_t* __restrict in, std::size_t width, float* const* out) {
    constexpr std::size_t kStep = Samples * (Bits / 8);
    if constexpr (Samples == 1) {
        float* __restrict o = out[0];
        for (std::size_t x = 0; x < width; ++x)
            o[x] = PlaneValue<Bits, Swap>(in + kStep * x);
    } else {
        float* __restrict r = out[0];
        float* __restrict g = out[1];
        float* __restrict b = out[2];
        for (std::size_t x = 0; x < width; ++x) {
            const std::uint8_t* p = in + kStep * x;
            r[x] = PlaneValue<Bits, Swap>(p);
            g[x] = PlaneValue<Bits, Swap>(p + Bits / 8);
            b[x] = PlaneValue<Bits, Swap>(p + 2 * (Bits / 8));
        }
    }
}

using RowConverter = void (*)(const std::uint8_t*, std::size_t, float* const*);

template <int Samples> RowConverter ConverterOf(int bits, bool swap) {
    if (bits == 8)
        return ConvertRowOf<Samples, 8, false>;
    if (bits == 16)
        return swap ? ConvertRowOf<Samples, 16, true> : ConvertRowOf<Samples, 16, false>;
    return swap ? ConvertRowOf<Samples, 32, true> : ConvertRowOf<Samples, 32, false>;
}

} // namespace

TiffFile::TiffFile() = default;
TiffFile::~TiffFile() = default;

bool TiffFile::Open(const std::string& filePath) {
    path = filePath;
    auto file = std::make_unique<TiffFileSource>();
    if (!file->Open(filePath)) {
        source_.reset();
        return Silent("Cannot open the TIFF file " + filePath + ": " + std::strerror(errno));
    }
    source_ = std::move(file);
    return true;
}

void TiffFile::OpenMemory(const std::uint8_t* data, std::size_t size) {
    source_ = std::make_unique<TiffMemorySource>(data, size);
}

bool TiffFile::ReadTags(std::string* errorText) {
    if (errorText)
        errorText->clear();
    colorSpace.clear();
    if (!source_)
        return Silent("The TIFF file is not open");
    const TiffByteSource& src = *source_;

    // 1-2. Byte order and the magic number.
    if (!src.ReadAt(0, header, 8))
        return Silent("The TIFF file is shorter than its header");
    if (header[0] == 'I')
        littleEndian = true;
    else if (header[0] == 'M')
        littleEndian = false;
    else
        return Worded(errorText, tifftext::kByteOrder);
    const bool le = littleEndian;
    if ((TiffU16(header + 2, le) & 0xFF) != '*')
        return Silent("The TIFF file does not carry the number 42 in its header");

    // 3. The first directory.
    TiffDirectory dir;
    if (!ReadTiffDirectory(src, le, TiffU32(header + 4, le), &dir))
        return Silent("The first TIFF directory lies outside the file");

    // 4. Tag by tag, in file order.
    info = TiffInfo();
    hasWidth = hasHeight = hasStripOffsets = hasRowsPerStrip = hasStripByteCounts = false;
    width = height = rowsPerStrip = stripCount = 0;
    stripFieldType = 0;
    stripOffsets.clear();
    stripByteCounts.clear();
    auto stripArray = [&](const TiffEntry& e, std::vector<std::uint32_t>* out) {
        if (e.count == 1) {
            out->assign(1, ScalarOf(e, le));
            return true;
        }
        if (e.type != TiffShort && e.type != TiffLong)
            return false;
        return ReadTiffEntryUInts(src, le, e, e.count, out);
    };
    for (const TiffEntry& e : dir.entries) {
        const std::uint32_t v = ScalarOf(e, le);
        switch (e.tag) {
        case 256:
        case 257:
            if (e.type != TiffShort && e.type != TiffLong)
                return Silent(TagText(e.tag) + " has field type " + std::to_string(e.type));
            (e.tag == 256 ? width : height) = v;
            (e.tag == 256 ? hasWidth : hasHeight) = true;
            break;
        case 258:
            if (e.count == 1) {
                if (!ValidBits(v))
                    return Silent("The TIFF file has " + std::to_string(v) + " bits per sample");
                info.bitsPerSample = static_cast<std::uint16_t>(v);
            } else if (e.count == 3) {
                std::vector<std::uint32_t> b;
                if (!ReadTiffEntryUInts(src, le, e, 3, &b))
                    return Silent("The TIFF bits per sample lie outside the file");
                if (b[0] != b[1] || b[1] != b[2] || !ValidBits(b[0]))
                    return Silent("The TIFF file has bits per sample " + std::to_string(b[0]) +
                                  ", " + std::to_string(b[1]) + ", " + std::to_string(b[2]));
                info.bitsPerSample = static_cast<std::uint16_t>(b[0]);
            } else {
                return Silent("The TIFF file has " + std::to_string(e.count) +
                              " bits-per-sample values");
            }
            info.hasBitsPerSample = true;
            break;
        case 259:
            if (v != 1)
                return Worded(errorText, tifftext::kOnlyUncompressed);
            info.compression = 1;
            info.hasCompression = true;
            break;
        case 262:
            if (v > 2)
                return Silent("The TIFF photometric interpretation " + std::to_string(v) +
                              " is not gray or RGB");
            info.photometric = static_cast<std::uint16_t>(v);
            info.hasPhotometric = true;
            break;
        case 271:
        case 272: {
            std::vector<std::uint8_t> b;
            if (!ReadTiffEntryBytes(src, e, 39, &b))
                return Silent(TagText(e.tag) + " lies outside the file");
            (e.tag == 271 ? info.make : info.model).assign(b.begin(), b.end());
            (e.tag == 271 ? info.hasMake : info.hasModel) = true;
            break;
        }
        case 273:
            if (!stripArray(e, &stripOffsets))
                return Silent("The TIFF strip offsets cannot be read");
            stripCount = static_cast<std::uint32_t>(stripOffsets.size());
            stripFieldType = e.type;
            hasStripOffsets = true;
            break;
        case 279:
            if (!stripArray(e, &stripByteCounts))
                return Silent("The TIFF strip byte counts cannot be read");
            hasStripByteCounts = true;
            break;
        case 277:
            if (v != 1 && v != 3)
                return Silent("The TIFF file has " + std::to_string(v) + " samples per pixel");
            info.samplesPerPixel = static_cast<std::uint16_t>(v);
            info.hasSamplesPerPixel = true;
            break;
        case 278:
            if (e.type != TiffShort && e.type != TiffLong)
                return Silent(TagText(e.tag) + " has field type " + std::to_string(e.type));
            rowsPerStrip = v;
            hasRowsPerStrip = true;
            break;
        case 282:
        case 283: {
            // Eight bytes as they stand in the file, also in a big-endian one.
            std::uint8_t r[8];
            if (!src.ReadAt(TiffU32(e.field, le), r, 8))
                return Silent(TagText(e.tag) + " lies outside the file");
            std::uint32_t* out = e.tag == 282 ? info.xResolution : info.yResolution;
            out[0] = TiffU32(r, true);
            out[1] = TiffU32(r + 4, true);
            (e.tag == 282 ? info.hasXResolution : info.hasYResolution) = true;
            break;
        }
        case 296:
            info.resolutionUnit = static_cast<std::uint16_t>(v);
            info.hasResolutionUnit = true;
            break;
        case 305: {
            std::vector<std::uint8_t> b;
            if (!ReadTiffEntryBytes(src, e, e.count, &b))
                return Silent(TagText(e.tag) + " lies outside the file");
            info.software.assign(b.begin(), std::find(b.begin(), b.end(), 0));
            info.hasSoftware = true;
            break;
        }
        case 320:
            return Worded(errorText, tifftext::kPalette);
        case 339:
            if (e.count == 1) {
                info.sampleFormat = v == 3 ? 1 : 0;
            } else if (e.count == 3) {
                std::vector<std::uint32_t> f;
                if (!ReadTiffEntryUInts(src, le, e, 3, &f))
                    return Silent("The TIFF sample formats lie outside the file");
                info.sampleFormat = (f[0] == 3 && f[1] == 3 && f[2] == 3) ? 257 : 0;
            }
            break;
        case 34665:
            if (!ReadTiffExif(src, le, TiffU32(e.field, le), &info.exif))
                return Silent("The Exif directory of the TIFF file is damaged");
            break;
        case 34675: {
            const std::uint64_t bytes = std::uint64_t(e.count) * TiffTypeSize(e.type);
            if (bytes > src.Size() ||
                !ReadTiffEntryBytes(src, e, static_cast<std::size_t>(bytes), &info.iccProfile))
                return Silent("The ICC profile of the TIFF file lies outside the file");
            info.hasIccProfile = true;
            break;
        }
        default:
            break;
        }
    }

    // 5. Rows per strip.
    if (!hasRowsPerStrip || stripCount == 1)
        rowsPerStrip = height;

    // 6-8.
    if (!hasWidth || !hasHeight || !info.hasBitsPerSample || !info.hasCompression ||
        !info.hasPhotometric || !info.hasSamplesPerPixel || !hasStripOffsets)
        return Worded(errorText, tifftext::kRequiredTags);
    if (info.compression != 1)
        return Worded(errorText, tifftext::kCompressed);
    if (info.samplesPerPixel == 1 && ValidBits(info.bitsPerSample))
        colorSpace = "GRAY";
    else if (info.samplesPerPixel == 3)
        colorSpace = "RGB";
    else
        return Worded(errorText, tifftext::kOnly8or16);
    return true;
}

bool TiffFile::CheckStrips() const {
    if (!source_ || colorSpace.empty())
        return Silent("The TIFF tags have not been read");
    const std::string size = std::to_string(width) + " x " + std::to_string(height);
    constexpr std::uint32_t kMaxSide = std::numeric_limits<std::int32_t>::max();
    if (width == 0 || height == 0 || width > kMaxSide || height > kMaxSide ||
        std::uint64_t(width) * height > std::numeric_limits<std::uint32_t>::max())
        return Silent("The TIFF image size " + size + " is not usable");
    if (rowsPerStrip == 0)
        return Silent("The TIFF file has 0 rows per strip");
    const std::uint64_t fileSize = source_->Size();
    const std::uint64_t rowBytes =
        std::uint64_t(width) * info.samplesPerPixel * (info.bitsPerSample / 8);
    // The pixels must all be in the file at least once.
    if (rowBytes * height > fileSize)
        return Silent("The TIFF file is shorter than its " + size + " image");
    std::uint32_t done = 0;
    for (std::uint32_t s = 0; done < height; ++s) {
        if (s >= stripCount)
            return Silent("The TIFF strips hold fewer rows than the image height");
        const std::uint32_t rows = std::min(rowsPerStrip, height - done);
        if (stripOffsets[s] > fileSize || rowBytes * rows > fileSize - stripOffsets[s])
            return Silent("TIFF strip " + std::to_string(s) + " lies outside the file");
        done += rows;
    }
    return true;
}

template <class RowOf> bool TiffFile::ReadInto(RowOf rowOf, bool color) {
    if (!CheckStrips())
        return false;
    const int samples = info.samplesPerPixel;
    const int bits = info.bitsPerSample;
    const bool swap = !littleEndian && bits != 8;
    const std::size_t rowBytes = std::size_t(width) * samples * (bits / 8);
    const std::size_t blockRows =
        std::max<std::size_t>(1, std::min<std::size_t>(kBlockBytes / rowBytes, rowsPerStrip));
    std::vector<std::uint8_t> block;
    try {
        block.resize(blockRows * rowBytes);
    } catch (const std::bad_alloc&) {
        return Silent("Could not allocate a TIFF row buffer of " + std::to_string(rowBytes) +
                      " bytes");
    }
    const int planes = color ? 3 : 1;
    const RowConverter convert = color ? ConverterOf<3>(bits, swap) : ConverterOf<1>(bits, swap);
    std::uint32_t done = 0;
    for (std::uint32_t s = 0; done < height; ++s) {
        const std::uint32_t rows = std::min(rowsPerStrip, height - done);
        std::uint64_t at = stripOffsets[s];
        for (std::uint32_t r = 0; r < rows;) {
            const std::uint32_t n =
                static_cast<std::uint32_t>(std::min<std::size_t>(blockRows, std::size_t(rows - r)));
            if (!source_->ReadAt(at, block.data(), n * rowBytes))
                return Silent("Could not read TIFF strip " + std::to_string(s));
            const std::uint32_t y0 = done + r;
            ParallelRows(static_cast<int>(n), [&](int i0, int i1) {
                for (int i = i0; i < i1; ++i) {
                    float* out[3];
                    for (int p = 0; p < planes; ++p)
                        out[p] = rowOf(p, y0 + static_cast<std::uint32_t>(i));
                    convert(block.data() + std::size_t(i) * rowBytes, width, out);
                }
            });
            at += std::uint64_t(n) * rowBytes;
            r += n;
        }
        done += rows;
    }
    return true;
}

bool TiffFile::ReadPixels(float* const* redRows, float* const* greenRows, float* const* blueRows) {
    ImageFileGuard guard;
    const bool color = colorSpace == "RGB";
    if (!redRows || (color && (!greenRows || !blueRows)))
        return Silent("No rows to read the TIFF image into");
    float* const* rows[3] = {redRows, greenRows, blueRows};
    return ReadInto([&](int p, std::uint32_t y) { return rows[p][y]; }, color);
}

bool TiffFile::ReadPlanes(float* red, float* green, float* blue) {
    ImageFileGuard guard;
    const bool color = colorSpace == "RGB";
    if (!red || (color && (!green || !blue)))
        return Silent("No planes to read the TIFF image into");
    float* planes[3] = {red, green, blue};
    const std::size_t w = width;
    return ReadInto([&](int p, std::uint32_t y) { return planes[p] + y * w; }, color);
}

bool TiffFile::Read(float* const* redRows, float* const* greenRows, float* const* blueRows,
                    std::string* errorText) {
    ImageFileGuard guard;
    return ReadTags(errorText) && ReadPixels(redRows, greenRows, blueRows);
}

bool ReadTiffTags(const std::string& path, TiffFile* file, std::string* errorText) {
    ImageFileGuard guard;
    ClearLastFileError();
    if (errorText)
        errorText->clear();
    if (!file)
        return Silent("No TIFF file record to read into");
    return file->Open(path) && file->ReadTags(errorText);
}

bool Image::ReadTIFF(const std::string& path, std::string* message) {
    ImageFileGuard guard;
    ClearLastFileError();
    std::string text;
    TiffFile file;
    const bool ok = [&] {
        if (!file.Open(path) || !file.ReadTags(&text) || !file.CheckStrips())
            return false;
        const bool rgb = file.colorSpace == "RGB";
        FreePlanes();
        FreeWorkRows();
        FreeAccumulators();
        tiffInfo.reset();
        SetGeometryTiff(KindTIFF, rgb ? ColorRGB : ColorGray, 0, static_cast<int>(file.width),
                        static_cast<int>(file.height), file.info.bitsPerSample);
        const unsigned long long planeBytes =
            static_cast<unsigned long long>(pixelCount) * sizeof(float) * (rgb ? 3 : 1);
        if (2 * planeBytes > MemoryAvailable() || !AllocatePlanes(1))
            return Silent("Could not allocate memory for a " + std::to_string(width) + " x " +
                          std::to_string(height) + " image");
        if (!file.ReadPlanes(curPlane[0], curPlane[1], curPlane[2]))
            return false;
        tiffInfo = std::make_shared<TiffInfo>(file.info);
        return true;
    }();
    if (message)
        *message = text;
    return ok;
}

} // namespace astrivelle
