// SPDX-License-Identifier: GPL-3.0-or-later
/// \file SBIG camera files: probing by the image type of the first header line, reading raw or
/// line-compressed 16-bit pixels into a float plane, and writing them back.
#include "fileio/Sbig.h"

#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "engine/Levels.h"
#include "engine/Parallel.h"
#include "fileio/FileDispatch.h"
#include "fileio/FileLock.h"

namespace astrivelle {

namespace {

/// The known image types: the kind of the file follows from the text of its first line.
struct TypeText {
    const char* plain;
    const char* compressed;
};

constexpr TypeText kTypeTexts[] = {
    {"ST-4X Image", "ST-4X Compressed Image"},
    {"ST-5 Image", "ST-5 Compressed Image"},
    {"ST-6 Image", "ST-6 Compressed Image"},
    {"ST-7 Image", "ST-7 Compressed Image"},
    {"ST-8 Image", "ST-8 Compressed Image"},
    {"ST-9 Image", "ST-9 Compressed Image"},
    {"ST-10 Image", "ST-10 Compressed Image"},
    {"STV Image", "STV Compressed Image"},
    {"PixCel255 Image", "PixCel255 Compressed Image"},
    {"PixCel237 Image", "PixCel237 Compressed Image"},
    {"ST-X Image", "ST-X Compressed Image"},
    {"ST-2K Image", "ST-2K Compressed Image"},
    {"ST-4K Image", "ST-4K Compressed Image"},
    {"SBIG Image", "SBIG Compressed Image"},
};

/// Largest stored row: a 16-bit byte count.
constexpr std::size_t kMaxRowBytes = 65535;

bool Fail(const std::string& reason) {
    SetLastFileError(reason);
    return false;
}

std::string SizeText(long long width, long long height) {
    return std::to_string(width) + " x " + std::to_string(height);
}

/// Closes a stdio stream when it goes.
struct StreamCloser {
    void operator()(std::FILE* f) const {
        if (f)
            std::fclose(f);
    }
};
using Stream = std::unique_ptr<std::FILE, StreamCloser>;

bool ReadExactly(std::FILE* f, void* to, std::size_t bytes) {
    return bytes == 0 || std::fread(to, 1, bytes, f) == bytes;
}

/// Frees a record's sample buffer when a read or write ends, however it ends.
struct PixelRelease {
    std::vector<std::uint16_t>& pixels;
    ~PixelRelease() { std::vector<std::uint16_t>().swap(pixels); }
};

/// The first token of a header area: the text up to the first line feed or carriage return,
/// leading ones skipped.
std::string_view FirstToken(const char* text) {
    const char* p = text + std::strspn(text, "\n\r");
    return std::string_view(p, std::strcspn(p, "\n\r"));
}

/// The image type text `type` rewritten so that it probes as `kind`: for the compressed
/// layout every uncompressed text in it becomes its compressed counterpart; for the
/// uncompressed layout a compressed text becomes its counterpart unless an uncompressed one
/// is already there. A text with no known type becomes the generic "SBIG" one.
std::string TypeTextForKind(const std::string& type, std::int32_t kind) {
    std::string out = type;
    if (kind == KindSBIGCompressed) {
        bool changed = true;
        while (changed) {
            changed = false;
            for (const TypeText& t : kTypeTexts) {
                const std::size_t at = out.find(t.plain);
                if (at != std::string::npos) {
                    out.replace(at, std::strlen(t.plain), t.compressed);
                    changed = true;
                }
            }
        }
    } else if (SbigKindOfHeaderText(out.c_str()) != KindSBIG) {
        for (const TypeText& t : kTypeTexts) {
            const std::size_t at = out.find(t.compressed);
            if (at != std::string::npos) {
                out.replace(at, std::strlen(t.compressed), t.plain);
                break;
            }
        }
    }
    if (SbigKindOfHeaderText(out.c_str()) != kind)
        return kind == KindSBIGCompressed ? "SBIG Compressed Image" : "SBIG Image";
    return out;
}

/// The plane of the image a colour type names, or null.
float* PlaneOf(Image& image, std::uint32_t colorType) {
    const int slot = SlotOfColorType(colorType);
    return slot < 0 ? nullptr : image.curPlane[slot];
}

/// Reads header and pixels from an open stream of `size` bytes into `h` and `image`.
bool ReadFromStream(ImageHeader& h, std::FILE* f, unsigned long long size, Image& image) {
    if (size < kSbigHeaderBytes)
        return Fail("The file is shorter than the 2048-byte SBIG header");
    char text[kSbigHeaderBytes + 1];
    if (!ReadExactly(f, text, kSbigHeaderBytes))
        return Fail("Could not read the SBIG header");
    text[kSbigHeaderBytes] = '\0';
    const ImageFileKind kind = SbigKindOfHeaderText(text);
    if (kind == KindNone)
        return Fail("The file does not begin with a known SBIG image type");
    if (!IsValidColorType(h.colorType) || h.colorType == ColorRGB)
        return Fail("An SBIG image is read into one plane; colour type " +
                    std::to_string(h.colorType) + " names none");
    h.ParseText(text);
    h.fileType = kind;
    h.maxValue = 65535;

    // Sizes are checked against the file before anything is allocated for them.
    const long long width = h.width, height = h.height;
    const unsigned long long count =
        width > 0 && height > 0 ? static_cast<unsigned long long>(width * height) : 0;
    if (count == 0 || count >= 0xFFFFFFFFULL)
        return Fail("The SBIG header gives an unusable image size " + SizeText(width, height));
    const unsigned long long payload = size - kSbigHeaderBytes;
    // A compressed row that fills its width takes at least its byte count, two bytes of the
    // first pixel and one byte per further pixel.
    const unsigned long long needed = kind == KindSBIG
                                          ? 2 * count
                                          : static_cast<unsigned long long>(height) *
                                                (static_cast<unsigned long long>(width) + 3);
    if (payload < needed)
        return Fail("The SBIG file is shorter than its header says (" + SizeText(width, height) +
                    ")");
    h.pixelCount = static_cast<std::uint32_t>(count);

    image.SetGeometryFits(kind, h.colorType, 0, Data16, h.width, h.height);
    if (!image.AllocatePlanes(1))
        return Fail("Could not allocate memory for a " + SizeText(width, height) + " image");
    PixelRelease release{h.pixels};
    std::vector<std::uint8_t> row;
    try {
        h.pixels.assign(static_cast<std::size_t>(count) + 1, 0);
        if (kind == KindSBIGCompressed)
            row.resize(kMaxRowBytes);
    } catch (const std::bad_alloc&) {
        return Fail("Could not allocate memory for a " + SizeText(width, height) + " image");
    }

    std::uint16_t* pixels = h.pixels.data();
    if (kind == KindSBIG) {
        if (!ReadExactly(f, pixels, static_cast<std::size_t>(count) * 2))
            return Fail("The SBIG file ends before its last pixel");
        if constexpr (std::endian::native == std::endian::big)
            for (std::size_t i = 0; i < count; ++i)
                pixels[i] = static_cast<std::uint16_t>((pixels[i] >> 8) | (pixels[i] << 8));
    } else {
        for (long long y = 0; y < height; ++y) {
            std::uint8_t word[2];
            if (!ReadExactly(f, word, 2))
                return Fail("The SBIG file ends in row " + std::to_string(y));
            const std::size_t length = word[0] | (static_cast<std::size_t>(word[1]) << 8);
            if (!ReadExactly(f, row.data(), length))
                return Fail("The SBIG file ends in row " + std::to_string(y));
            DecodeSbigRow(row.data(), length, h.width,
                          pixels + static_cast<std::size_t>(y) * static_cast<std::size_t>(width));
        }
    }

    // 16-bit values never exceed maxValue, so the cut to it changes nothing; no scaling.
    float* plane = PlaneOf(image, h.colorType);
    const std::size_t w = static_cast<std::size_t>(width);
    ParallelRows(h.height, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const std::uint16_t* in = pixels + static_cast<std::size_t>(y) * w;
            float* out = plane + static_cast<std::size_t>(y) * w;
            for (std::size_t x = 0; x < w; ++x)
                out[x] = static_cast<float>(in[x]);
        }
    });
    return true;
}

/// What Image::ReadSBIG does, from any stream: a new record, the pixels, the FITS keys.
bool ReadImage(Image& image, std::FILE* f, unsigned long long size, std::uint32_t colorType) {
    image.FreePlanes();
    image.FreeWorkRows();
    image.FreeAccumulators();
    image.headerCards.clear();
    image.header.reset();
    auto header = std::make_shared<ImageHeader>();
    header->colorType = colorType;
    if (!ReadFromStream(*header, f, size, image)) {
        image.FreePlanes();
        return false;
    }
    SbigHeaderToFitsKeys(*header, &image.headerCards);
    image.header = std::move(header);
    return true;
}

/// Opens a file for reading and tells its size.
bool OpenForRead(const std::string& path, Stream* stream, unsigned long long* size) {
    stream->reset(std::fopen(path.c_str(), "rb"));
    if (!*stream)
        return Fail("Could not open " + path);
    struct stat st {};
    if (fstat(fileno(stream->get()), &st) != 0 || !S_ISREG(st.st_mode))
        return Fail(path + " is not a readable file");
    *size = static_cast<unsigned long long>(st.st_size);
    return true;
}

} // namespace

ImageFileKind SbigKindOfHeaderText(const char* text) {
    const std::string_view token = FirstToken(text);
    for (const TypeText& t : kTypeTexts)
        if (token.find(t.plain) != std::string_view::npos)
            return KindSBIG;
    for (const TypeText& t : kTypeTexts)
        if (token.find(t.compressed) != std::string_view::npos)
            return KindSBIGCompressed;
    return KindNone;
}

ImageFileKind ProbeSBIG(const std::string& path) {
    ImageFileGuard guard;
    Stream f(std::fopen(path.c_str(), "rb"));
    if (!f)
        return KindNone;
    char text[kSbigHeaderBytes + 1];
    if (!ReadExactly(f.get(), text, kSbigHeaderBytes))
        return KindNone;
    text[kSbigHeaderBytes] = '\0';
    return SbigKindOfHeaderText(text);
}

std::size_t EncodeSbigRow(const std::uint16_t* row, int width, std::uint8_t* out) {
    const std::size_t raw = 2 * static_cast<std::size_t>(width);
    std::uint8_t* p = out + 2;
    std::size_t n = 0;
    p[n++] = static_cast<std::uint8_t>(row[0] & 0xFF);
    p[n++] = static_cast<std::uint8_t>(row[0] >> 8);
    // Stops as soon as the row cannot come out shorter than raw.
    for (int x = 1; x < width && n < raw; ++x) {
        const std::int32_t d = static_cast<std::int32_t>(row[x]) - row[x - 1];
        if (d >= -127 && d <= 127) {
            p[n++] = static_cast<std::uint8_t>(d & 0xFF);
        } else {
            p[n++] = 128;
            p[n++] = static_cast<std::uint8_t>(row[x] & 0xFF);
            p[n++] = static_cast<std::uint8_t>(row[x] >> 8);
        }
    }
    if (n < raw) {
        out[0] = static_cast<std::uint8_t>(n & 0xFF);
        out[1] = static_cast<std::uint8_t>(n >> 8);
        return n + 2;
    }
    out[0] = static_cast<std::uint8_t>(raw & 0xFF);
    out[1] = static_cast<std::uint8_t>(raw >> 8);
    for (int x = 0; x < width; ++x) {
        p[2 * x] = static_cast<std::uint8_t>(row[x] & 0xFF);
        p[2 * x + 1] = static_cast<std::uint8_t>(row[x] >> 8);
    }
    return raw + 2;
}

int DecodeSbigRow(const std::uint8_t* b, std::size_t length, int width, std::uint16_t* row) {
    if (width < 1 || length < 2)
        return 0;
    std::uint16_t value = static_cast<std::uint16_t>(b[0] | (b[1] << 8));
    row[0] = value;
    int n = 1;
    const std::size_t raw = 2 * static_cast<std::size_t>(width);
    if (length == raw) {
        for (std::size_t i = 2; i + 1 < length && n < width; i += 2)
            row[n++] = static_cast<std::uint16_t>(b[i] | (b[i + 1] << 8));
        return n;
    }
    if (length > raw)
        return n; // the row keeps its one pixel
    std::size_t i = 2;
    while (i < length && n < width) {
        if (b[i] == 128) {
            if (i + 2 >= length)
                break; // an escape cut short by the row's end
            value = static_cast<std::uint16_t>(b[i + 1] | (b[i + 2] << 8));
            i += 3;
        } else {
            value = static_cast<std::uint16_t>(value + static_cast<std::int8_t>(b[i]));
            ++i;
        }
        row[n++] = value;
    }
    return n;
}

bool ImageHeader::Read(const std::string& path, Image& image) {
    ImageFileGuard guard;
    Stream f;
    unsigned long long size = 0;
    if (!OpenForRead(path, &f, &size))
        return false;
    return ReadFromStream(*this, f.get(), size, image);
}

bool ImageHeader::Write(const std::string& path, const float* plane) {
    ImageFileGuard guard;
    if (fileType != KindSBIG && fileType != KindSBIGCompressed)
        return Fail("SBIG file kind " + std::to_string(fileType) + " is not -1 or -2");
    if (!plane)
        return Fail("The image has no plane to write");
    const long long w = width, hgt = height;
    if (w < 1 || hgt < 1 || static_cast<unsigned long long>(w * hgt) != pixelCount)
        return Fail("The SBIG header's size " + SizeText(w, hgt) + " is not usable");
    if (fileType == KindSBIGCompressed && w > 32767)
        return Fail("A compressed SBIG row holds at most 32767 pixels");
    const std::string text = ToText();
    if (text.size() > kSbigHeaderBytes)
        return Fail("The SBIG header text is longer than 2048 bytes");

    PixelRelease release{pixels};
    std::vector<std::uint8_t> row;
    try {
        pixels.assign(static_cast<std::size_t>(pixelCount) + 1, 0);
        if (fileType == KindSBIGCompressed)
            row.resize(SbigRowRecordCapacity(width));
    } catch (const std::bad_alloc&) {
        return Fail("Could not allocate memory to write a " + SizeText(w, hgt) + " SBIG image");
    }
    std::uint16_t* samples = pixels.data();
    const std::size_t rowLength = static_cast<std::size_t>(w);
    ParallelRows(height, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float* in = plane + static_cast<std::size_t>(y) * rowLength;
            std::uint16_t* out = samples + static_cast<std::size_t>(y) * rowLength;
            for (std::size_t x = 0; x < rowLength; ++x)
                out[x] = static_cast<std::uint16_t>(RoundLevel16(in[x]));
        }
    });

    Stream f(std::fopen(path.c_str(), "wb"));
    if (!f)
        return Fail("Could not open " + path + " for writing");
    bool ok = true;
    char area[kSbigHeaderBytes];
    std::memset(area, ' ', sizeof area);
    std::memcpy(area, text.data(), text.size());
    ok = std::fwrite(area, 1, sizeof area, f.get()) == sizeof area;
    if (ok && fileType == KindSBIG) {
        if constexpr (std::endian::native == std::endian::big)
            for (std::uint32_t i = 0; i < pixelCount; ++i)
                samples[i] = static_cast<std::uint16_t>((samples[i] >> 8) | (samples[i] << 8));
        ok = std::fwrite(samples, 2, pixelCount, f.get()) == pixelCount;
    } else if (ok) {
        for (long long y = 0; y < hgt && ok; ++y) {
            const std::size_t n =
                EncodeSbigRow(samples + static_cast<std::size_t>(y) * rowLength, width, row.data());
            ok = std::fwrite(row.data(), 1, n, f.get()) == n;
        }
    }
    const bool closed = std::fclose(f.release()) == 0;
    if (!ok || !closed) {
        std::error_code ec;
        std::filesystem::remove(path, ec);
        return Fail("Could not write " + path);
    }
    return true;
}

bool Image::ReadSBIG(const std::string& path, std::uint32_t colorType) {
    ImageFileGuard guard;
    ClearLastFileError();
    Stream f;
    unsigned long long size = 0;
    if (!OpenForRead(path, &f, &size)) {
        FreePlanes();
        return false;
    }
    return ReadImage(*this, f.get(), size, colorType);
}

bool ReadSbigMemory(Image& image, const std::uint8_t* data, std::size_t size,
                    std::uint32_t colorType) {
    ImageFileGuard guard;
    ClearLastFileError();
    if (size < kSbigHeaderBytes) {
        image.FreePlanes();
        image.header.reset();
        return Fail("The file is shorter than the 2048-byte SBIG header");
    }
    Stream f(fmemopen(const_cast<std::uint8_t*>(data), size, "rb"));
    if (!f) {
        image.FreePlanes();
        image.header.reset();
        return Fail("Could not read the SBIG data from memory");
    }
    return ReadImage(image, f.get(), size, colorType);
}

bool Image::WriteSBIG(const std::string& path, std::int32_t kind) {
    ImageFileGuard guard;
    ClearLastFileError();
    if (!header)
        return Fail("The image has no SBIG header record");
    if (kind != KindSBIG && kind != KindSBIGCompressed)
        return Fail("SBIG file kind " + std::to_string(kind) + " is not -1 or -2");
    float* plane = PlaneOf(*this, colorType);
    if (!plane)
        return Fail("An SBIG file holds one plane; this image has none for colour type " +
                    std::to_string(colorType));
    // The record follows the image as it is now: its size (operators may have changed it),
    // its colour type, and the layout being written, so that the first line tells the truth.
    header->fileType = kind;
    header->colorType = colorType;
    header->width = width;
    header->height = height;
    header->pixelCount = pixelCount;
    header->maxValue = 65535;
    header->imageType = TypeTextForKind(header->imageType, kind);
    return header->Write(path, plane);
}

} // namespace astrivelle
