// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Writing TIFF: the header, the pixels as one strip at offset 8, the values of the
/// tags, the Exif block and the ICC profile, then the directory, and last the directory's
/// offset patched into the header.
#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "engine/Image.h"
#include "engine/Levels.h"
#include "engine/Parallel.h"
#include "fileio/FileDispatch.h"
#include "fileio/FileLock.h"
#include "fileio/Tiff.h"

namespace astrivelle {

static_assert(std::endian::native == std::endian::little,
              "the TIFF writer stores samples in the machine's own (little-endian) order");

namespace {

constexpr char kSoftware[11] = "Astrivelle"; // ten letters and the NUL
constexpr std::size_t kMaxTextBytes = 39;
constexpr std::size_t kBlockBytes = std::size_t(1) << 20;

/// A FILE opened "wb", closed on every path.
class FileSink : public TiffSink {
public:
    ~FileSink() override {
        if (file_)
            std::fclose(file_);
    }
    bool Open(const std::string& path) {
        file_ = std::fopen(path.c_str(), "wb");
        if (file_)
            std::setvbuf(file_, nullptr, _IOFBF, std::size_t(1) << 20);
        return file_ != nullptr;
    }
    bool Write(const void* data, std::size_t n) override {
        return std::fwrite(data, 1, n, file_) == n;
    }
    bool Seek(std::uint64_t offset) override {
        return fseeko(file_, static_cast<off_t>(offset), SEEK_SET) == 0;
    }
    bool Finish() override {
        const bool flushed = std::fflush(file_) == 0;
        const bool closed = std::fclose(file_) == 0;
        file_ = nullptr;
        return flushed && closed;
    }

private:
    std::FILE* file_ = nullptr;
};

/// Little-endian pieces of the directory.
void Put16(std::vector<std::uint8_t>& b, std::uint32_t v) {
    b.push_back(static_cast<std::uint8_t>(v));
    b.push_back(static_cast<std::uint8_t>(v >> 8));
}
void Put32(std::vector<std::uint8_t>& b, std::uint32_t v) {
    Put16(b, v & 0xFFFF);
    Put16(b, v >> 16);
}

/// One 12-byte entry. A SHORT with count 1 holds its value in the first two bytes; `inline4`
/// puts four bytes as they stand.
std::vector<std::uint8_t> Entry(std::uint16_t tag, std::uint16_t type, std::uint32_t count,
                                std::uint32_t value, const std::uint8_t* inline4 = nullptr) {
    std::vector<std::uint8_t> e;
    Put16(e, tag);
    Put16(e, type);
    Put32(e, count);
    if (inline4) {
        e.insert(e.end(), inline4, inline4 + 4);
    } else if (type == TiffShort && count == 1) {
        Put16(e, value);
        Put16(e, 0);
    } else {
        Put32(e, value);
    }
    return e;
}

/// Writes through the sink, keeping the position and the first failure's text.
class Writer {
public:
    explicit Writer(TiffSink& sink) : sink_(sink) {}
    bool Put(const void* data, std::size_t n, const char* failure) {
        if (!sink_.Write(data, n))
            return Fail(failure);
        at_ += n;
        return true;
    }
    bool Put(const std::vector<std::uint8_t>& b, const char* failure) {
        return Put(b.data(), b.size(), failure);
    }
    bool Fail(const char* text) {
        if (message_.empty())
            message_ = text;
        return false;
    }
    bool Fail2(const char* inner, const char* outer) {
        Fail(inner);
        message_ += "\n";
        message_ += outer;
        return false;
    }
    std::uint64_t at() const { return at_; }
    TiffSink& sink() { return sink_; }
    const std::string& message() const { return message_; }

private:
    TiffSink& sink_;
    std::uint64_t at_ = 0;
    std::string message_;
};

/// The text of an ASCII tag as stored, at most 39 bytes.
std::string Stored(const std::string& text) {
    return text.substr(0, std::min(text.size(), kMaxTextBytes));
}

/// Where a value lives: an offset after the pixels, or inside the entry when it fits there.
struct Placed {
    std::uint32_t offset = 0;
    std::uint8_t inline4[4] = {0, 0, 0, 0};
    bool isInline = false;
};

/// Writes `bytes` after the pixels unless they fit in the entry itself.
bool PlaceBytes(Writer& w, const std::uint8_t* bytes, std::size_t n, Placed* placed,
                const char* failure) {
    if (n <= 4) {
        placed->isInline = true;
        std::memcpy(placed->inline4, bytes, n);
        return true;
    }
    placed->offset = static_cast<std::uint32_t>(w.at());
    return w.Put(bytes, n, failure);
}

void PutRational(std::vector<std::uint8_t>& b, const TiffRationalValue& r) {
    Put32(b, r.numerator);
    Put32(b, r.denominator);
}

const std::uint8_t* BytesField(const TiffExif& x, std::uint16_t tag) {
    switch (tag) {
    case 36864:
        return x.exifVersion;
    case 40960:
        return x.flashPixVersion;
    case 41728:
        return x.fileSource;
    case 36867:
        return reinterpret_cast<const std::uint8_t*>(x.dateTimeOriginal);
    case 36868:
        return reinterpret_cast<const std::uint8_t*>(x.dateTimeDigitized);
    default:
        return nullptr;
    }
}

/// The Exif block: the large values, the entry count, the entries; no next-directory word.
/// Returns the directory's offset in `offset`.
bool WriteExif(Writer& w, const TiffExif& x, std::uint32_t* offset) {
    std::uint32_t valueAt[24] = {};
    for (int i = 0; i < 24; ++i) {
        const TiffExifTag& t = kTiffExifTags[i];
        if (!x.present[i])
            continue;
        std::vector<std::uint8_t> b;
        if (t.type == TiffRational) {
            PutRational(b, *ExifRational(x, t.tag));
        } else if (t.type == TiffAscii) {
            const std::uint8_t* s = BytesField(x, t.tag);
            b.assign(s, s + 20);
        } else {
            continue; // SHORT and UNDEFINED 4 sit in the entry
        }
        valueAt[i] = static_cast<std::uint32_t>(w.at());
        if (!w.Put(b, TiffExifValueFailure(t.tag)))
            return w.Fail2(TiffExifValueFailure(t.tag), tifftext::kExifData);
    }
    *offset = static_cast<std::uint32_t>(w.at());
    std::vector<std::uint8_t> count;
    Put16(count, static_cast<std::uint32_t>(x.PresentCount()));
    if (!w.Put(count, tifftext::kExifCount))
        return w.Fail2(tifftext::kExifCount, tifftext::kExifData);
    for (int i = 0; i < 24; ++i) {
        const TiffExifTag& t = kTiffExifTags[i];
        if (!x.present[i])
            continue;
        std::vector<std::uint8_t> e;
        if (t.type == TiffShort)
            e = Entry(t.tag, t.type, 1, ExifShortValue(x, t.tag));
        else if (t.type == TiffUndefined)
            e = Entry(t.tag, t.type, 4, 0, BytesField(x, t.tag));
        else
            e = Entry(t.tag, t.type, t.count, valueAt[i]);
        if (!w.Put(e, tifftext::kImageData))
            return w.Fail2(tifftext::kImageData, tifftext::kExifData);
    }
    return true;
}

/// The file's sample of one plane value: 8 bits (nearest level divided by 257, truncated),
/// 16 bits (nearest level) or a 32-bit float (value / 65535).
template <class T> inline T FileSample(float v) {
    if constexpr (std::is_same_v<T, std::uint8_t>)
        return static_cast<std::uint8_t>(RoundLevel16(v) / 257);
    else if constexpr (std::is_same_v<T, std::uint16_t>)
        return static_cast<std::uint16_t>(RoundLevel16(v));
    else
        return static_cast<float>(static_cast<double>(v) / 65535.0);
}

/// One row of `Samples` interleaved samples from the planes' rows.
template <class T, int Samples>
void ConvertRow(const float* const* in, std::size_t width, std::uint8_t* out) {
    T* o = reinterpret_cast<T*>(out);
    if constexpr (Samples == 1) {
        const float* a = in[0];
        for (std::size_t x = 0; x < width; ++x)
            o[x] = FileSample<T>(a[x]);
    } else {
        const float* r = in[0];
        const float* g = in[1];
        const float* b = in[2];
        for (std::size_t x = 0; x < width; ++x) {
            o[3 * x] = FileSample<T>(r[x]);
            o[3 * x + 1] = FileSample<T>(g[x]);
            o[3 * x + 2] = FileSample<T>(b[x]);
        }
    }
}

/// Converts rows [y0, y1) of the planes to the file's samples in `out`.
template <class T, int Samples>
void ConvertRowsOf(const float* const* planes, std::size_t width, int y0, int y1,
                   std::uint8_t* out) {
    const std::size_t rowBytes = width * Samples * sizeof(T);
    ParallelRows(y1 - y0, [&](int i0, int i1) {
        for (int i = i0; i < i1; ++i) {
            const std::size_t y = static_cast<std::size_t>(y0 + i);
            const float* rows[3] = {};
            for (int s = 0; s < Samples; ++s)
                rows[s] = planes[s] + y * width;
            ConvertRow<T, Samples>(rows, width, out + static_cast<std::size_t>(i) * rowBytes);
        }
    });
}

void ConvertRows(const float* const* planes, int samples, std::uint32_t bits, std::size_t width,
                 int y0, int y1, std::uint8_t* out) {
    if (samples == 3) {
        if (bits == 8)
            ConvertRowsOf<std::uint8_t, 3>(planes, width, y0, y1, out);
        else if (bits == 16)
            ConvertRowsOf<std::uint16_t, 3>(planes, width, y0, y1, out);
        else
            ConvertRowsOf<float, 3>(planes, width, y0, y1, out);
    } else {
        if (bits == 8)
            ConvertRowsOf<std::uint8_t, 1>(planes, width, y0, y1, out);
        else if (bits == 16)
            ConvertRowsOf<std::uint16_t, 1>(planes, width, y0, y1, out);
        else
            ConvertRowsOf<float, 1>(planes, width, y0, y1, out);
    }
}

} // namespace

const char* TiffExifValueFailure(std::uint16_t tag) {
    switch (tag) {
    case 33434:
        return "Problem writing ExposureTime Exif data.";
    case 33437:
        return "Problem writing FNumber Exif data.";
    case 34850:
        return "Problem writing Exposure Program Exif data.";
    case 34855:
        return "Problem writing ISOSpeedRating Exif data.";
    case 36864:
        return "Problem writing Exif version data.";
    case 36867:
        return "Problem writing DateTimeOriginal Exif data.";
    case 36868:
        return "Problem writing DateTimeDigitized Exif data.";
    case 37377:
        return "Problem writing ShutterSpeedValue Exif data.";
    case 37378:
        return "Problem writing ApertureValue Exif data.";
    case 37380:
        return "Problem writing ExposureBiasValue Exif data.";
    case 37381:
        return "Problem writing MaxApertureValue Exif data.";
    case 37385:
        return "Problem writing Flash Exif data.";
    case 37386:
        return "Problem writing FocalLength Exif data.";
    case 40960:
        return "Problem writing FlashPixVersion Exif data.";
    case 40961:
        return "Problem writing ColorSpace Exif data.";
    case 41486:
        return "Problem writing  FocalPlaneXResolution Exif data.";
    case 41487:
        return "Problem writing  FocalPlaneYResolution Exif data.";
    case 41488:
        return "Problem writing FocalPlaneResolutionUnit Exif data.";
    case 41495:
        return "Problem writing SensingMethod Exif data.";
    case 41728:
        return "Problem writing FileSource Exif data.";
    case 41985:
        return "Problem writing CustomRendered Exif data.";
    case 41986:
        return "Problem writing ExposureMode Exif data.";
    case 41987:
        return "Problem writing WhiteBalance Exif data.";
    case 41990:
        return "Problem writing SceneCaptureType Exif data.";
    default:
        return "";
    }
}

bool WriteTiffToSink(TiffSink& sink, const TiffWriteRequest& q, std::string* message) {
    auto fail = [&](const std::string& text) {
        if (message)
            *message = text;
        return false;
    };
    const std::uint32_t ct = q.colorType;
    if (ct == 0 || ct == 5 || ct > 9)
        return fail(tifftext::kColorType);
    if (q.bits != 8 && q.bits != 16 && q.bits != 32)
        return fail("A TIFF is written with 8, 16 or 32 bits per sample, not " +
                    std::to_string(q.bits));
    if (q.width < 1 || q.height < 1)
        return fail("The image has no pixels to write");
    const bool rgb = ct == ColorRGB;
    const int samples = rgb ? 3 : 1;
    const float* planes[3] = {q.red, q.green, q.blue};
    const float* order[3] = {nullptr, nullptr, nullptr};
    if (rgb) {
        order[0] = q.red;
        order[1] = q.green;
        order[2] = q.blue;
    } else {
        order[0] = planes[SlotOfColorType(ct)];
    }
    for (int s = 0; s < samples; ++s)
        if (!order[s])
            return fail("The image has no pixels to write");

    const TiffInfo none;
    const TiffInfo& info = q.info ? *q.info : none;
    const std::size_t width = static_cast<std::size_t>(q.width);
    const std::size_t sampleBytes = q.bits / 8;
    const std::size_t rowBytes = width * samples * sampleBytes;
    const std::uint64_t pixelBytes = std::uint64_t(rowBytes) * q.height;
    // Everything but the pixels is well under 1 MB plus the profile; all offsets are 32-bit.
    if (8 + pixelBytes + info.iccProfile.size() + (1u << 20) > 0xFFFFFFFFULL)
        return fail("The image is too large for a TIFF file");

    Writer w(sink);
    // 1. The header with the directory offset patched at the end.
    const std::uint8_t head[8] = {'I', 'I', 42, 0, 0, 0, 0, 0};
    if (!w.Put(head, 8, tifftext::kHeader))
        return fail(w.message());

    // 2. The pixels, one strip at offset 8.
    const std::size_t blockRows =
        std::max<std::size_t>(1, std::min<std::size_t>(kBlockBytes / rowBytes, q.height));
    std::vector<std::uint8_t> block;
    try {
        block.resize(blockRows * rowBytes);
    } catch (const std::bad_alloc&) {
        return fail(tifftext::kNoMemory);
    }
    for (int y = 0; y < q.height;) {
        const int n = static_cast<int>(std::min<std::size_t>(blockRows, q.height - y));
        ConvertRows(order, samples, q.bits, width, y, y + n, block.data());
        if (!w.Put(block.data(), std::size_t(n) * rowBytes, tifftext::kImageData))
            return fail(w.message());
        y += n;
    }

    // 3. The values after the pixels.
    std::uint32_t bitsAt = 0, formatAt = 0;
    if (rgb) {
        std::vector<std::uint8_t> b;
        for (int i = 0; i < 3; ++i)
            Put16(b, q.bits);
        bitsAt = static_cast<std::uint32_t>(w.at());
        if (!w.Put(b, tifftext::kImageData))
            return fail(w.message());
    }
    if (q.bits == 32 && (rgb || ct == ColorGray)) {
        std::vector<std::uint8_t> b;
        for (int i = 0; i < (rgb ? 3 : 1); ++i)
            Put16(b, 3);
        formatAt = static_cast<std::uint32_t>(w.at());
        if (!w.Put(b, tifftext::kImageData))
            return fail(w.message());
    }
    const std::string make = Stored(info.make), model = Stored(info.model);
    Placed makeAt, modelAt;
    if (info.hasMake && !PlaceBytes(w, reinterpret_cast<const std::uint8_t*>(make.data()),
                                    make.size(), &makeAt, tifftext::kImageData))
        return fail(w.message());
    if (info.hasModel && !PlaceBytes(w, reinterpret_cast<const std::uint8_t*>(model.data()),
                                     model.size(), &modelAt, tifftext::kImageData))
        return fail(w.message());
    std::vector<std::uint8_t> res;
    for (const std::uint32_t* r : {info.xResolution, info.yResolution}) {
        Put32(res, r[0]);
        Put32(res, r[1]);
    }
    const std::uint32_t xResAt = static_cast<std::uint32_t>(w.at());
    const std::uint32_t yResAt = xResAt + 8;
    if (!w.Put(res, tifftext::kImageData))
        return fail(w.message());
    const std::uint32_t softwareAt = static_cast<std::uint32_t>(w.at());
    if (!w.Put(kSoftware, sizeof kSoftware, tifftext::kImageData))
        return fail(w.message());
    const bool exif = info.exif.Has(36864);
    std::uint32_t exifAt = 0;
    if (exif && !WriteExif(w, info.exif, &exifAt))
        return fail(w.message());
    Placed iccAt;
    if (info.hasIccProfile &&
        !PlaceBytes(w, info.iccProfile.data(), info.iccProfile.size(), &iccAt, tifftext::kIccData))
        return fail(w.message());

    // 4. The directory.
    const std::uint32_t directoryAt = static_cast<std::uint32_t>(w.at());
    std::uint32_t count = rgb ? 14 : 13;
    count += info.hasMake + info.hasModel + exif + info.hasIccProfile + (q.bits == 32);
    std::uint64_t declared = std::uint64_t(q.width) * std::uint64_t(q.height);
    if (q.bits == 16)
        declared *= 2;
    else if (q.bits == 32)
        declared *= 3;
    if (rgb)
        declared *= 3;
    std::vector<std::uint8_t> d;
    Put16(d, count);
    auto add = [&](const std::vector<std::uint8_t>& e) { d.insert(d.end(), e.begin(), e.end()); };
    add(Entry(256, TiffLong, 1, static_cast<std::uint32_t>(q.width)));
    add(Entry(257, TiffLong, 1, static_cast<std::uint32_t>(q.height)));
    add(rgb ? Entry(258, TiffShort, 3, bitsAt) : Entry(258, TiffShort, 1, q.bits));
    add(Entry(259, TiffShort, 1, 1));
    add(Entry(262, TiffShort, 1, rgb ? 2 : 1));
    if (info.hasMake)
        add(Entry(271, TiffAscii, static_cast<std::uint32_t>(make.size()), makeAt.offset,
                  makeAt.isInline ? makeAt.inline4 : nullptr));
    if (info.hasModel)
        add(Entry(272, TiffAscii, static_cast<std::uint32_t>(model.size()), modelAt.offset,
                  modelAt.isInline ? modelAt.inline4 : nullptr));
    add(Entry(273, TiffLong, 1, 8));
    add(Entry(277, TiffShort, 1, rgb ? 3 : 1));
    add(Entry(278, TiffLong, 1, static_cast<std::uint32_t>(q.height)));
    add(Entry(279, TiffLong, 1, static_cast<std::uint32_t>(declared)));
    add(Entry(282, TiffRational, 1, xResAt));
    add(Entry(283, TiffRational, 1, yResAt));
    if (rgb)
        add(Entry(284, TiffShort, 1, 1));
    add(Entry(296, TiffShort, 1, info.resolutionUnit));
    add(Entry(305, TiffAscii, sizeof kSoftware, softwareAt));
    if (q.bits == 32)
        add(rgb ? Entry(339, TiffShort, 3, formatAt) : Entry(339, TiffShort, 1, 3));
    if (!w.Put(d, tifftext::kImageData))
        return fail(w.message());
    if (exif && !w.Put(Entry(34665, TiffLong, 1, exifAt), tifftext::kExifTag))
        return fail(w.message());
    if (info.hasIccProfile &&
        !w.Put(Entry(34675, TiffUndefined, static_cast<std::uint32_t>(info.iccProfile.size()),
                     iccAt.offset, iccAt.isInline ? iccAt.inline4 : nullptr),
               tifftext::kIccTag))
        return fail(w.message());

    // 5. No next directory; the first directory's offset goes into the header.
    std::vector<std::uint8_t> tail;
    Put32(tail, 0);
    if (!w.Put(tail, tifftext::kImageData))
        return fail(w.message());
    std::vector<std::uint8_t> patch;
    Put32(patch, directoryAt);
    if (!sink.Seek(4) || !sink.Write(patch.data(), 4) || !sink.Finish())
        return fail(tifftext::kHeader);
    return true;
}

bool WriteTiffFile(const std::string& path, const TiffWriteRequest& request, std::string* message) {
    ImageFileGuard guard;
    const std::uint32_t ct = request.colorType;
    if (ct == 0 || ct == 5 || ct > 9) {
        if (message)
            *message = tifftext::kColorType;
        return false;
    }
    FileSink sink;
    if (!sink.Open(path)) {
        if (message)
            *message = tifftext::kOpenForWrite;
        return false;
    }
    return WriteTiffToSink(sink, request, message);
}

bool Image::WriteTIFF(const std::string& path) {
    ImageFileGuard guard;
    ClearLastFileError();
    TiffWriteRequest request;
    request.red = curPlane[0];
    request.green = curPlane[1];
    request.blue = curPlane[2];
    request.bits = tiffBitsPerSample;
    request.colorType = colorType;
    request.width = width;
    request.height = height;
    request.info = tiffInfo.get();
    std::string message;
    if (!WriteTiffFile(path, request, &message)) {
        SetLastFileError(message);
        return false;
    }
    return true;
}

} // namespace astrivelle
