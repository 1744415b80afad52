// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Reading FITS: locating the image HDU, telling colour from mono, reading the samples
/// into float planes clamped to 0..65535, and reading the header cards.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "engine/Image.h"
#include "engine/Parallel.h"
#include "fileio/FileDispatch.h"
#include "fileio/FileLock.h"
#include "fileio/Fits.h"
#include "fileio/FitsFile.h"

namespace astrivelle {

namespace {

/// The sample types a read asks cfitsio for.
enum class Sample { Byte, Short, UShort, Int, UInt, Float, Double };

/// cfitsio's type code and the size of one sample, by sample type.
struct SampleInfo {
    int cfitsioType;
    std::size_t size;
};

constexpr SampleInfo kSampleInfo[] = {{TBYTE, 1}, {TSHORT, 2}, {TUSHORT, 2}, {TINT, 4},
                                      {TUINT, 4}, {TFLOAT, 4}, {TDOUBLE, 8}};

int CfitsioType(Sample s) {
    return kSampleInfo[static_cast<int>(s)].cfitsioType;
}

std::size_t SampleSize(Sample s) {
    return kSampleInfo[static_cast<int>(s)].size;
}

bool SampleOfBitpix(int bitpix, Sample* s) {
    switch (bitpix) {
    case BYTE_IMG:
        *s = Sample::Byte;
        return true;
    case SHORT_IMG:
        *s = Sample::Short;
        return true;
    case LONG_IMG:
        *s = Sample::Int;
        return true;
    case FLOAT_IMG:
        *s = Sample::Float;
        return true;
    case DOUBLE_IMG:
        *s = Sample::Double;
        return true;
    default:
        return false;
    }
}

/// Where the image of a file is and what it looks like.
struct Location {
    int bitpix = 0;
    int naxis = 0;
    long long width = 1;
    long long height = 1;
    long long depth = 1; ///< NAXIS3 of a three-axis image
    bool compressed = false;
};

bool Fail(const std::string& reason) {
    SetLastFileError(reason);
    return false;
}

bool FailStatus(int status) {
    return Fail(FitsStatusText(status));
}

/// Opens read-only and finds the image: the first HDU, or the HDU after an empty (NAXIS 0)
/// primary, which then counts as compressed. Checks the size before anyone allocates for it.
bool Locate(FitsFile& fits, const std::string& path, Location* loc) {
    int status = 0;
    fitsfile* f = nullptr;
    if (ffdkopn(&f, path.c_str(), READONLY, &status))
        return FailStatus(status);
    fits.file = f;
    int hdu = 0;
    ffghdn(f, &hdu);
    if (hdu != 1)
        return Fail("The FITS file did not open at its first HDU");
    int type = -1;
    if (ffghdt(f, &type, &status))
        return FailStatus(status);
    if (type != IMAGE_HDU)
        return Fail("The first HDU of the FITS file is not an image");
    if (ffgidt(f, &loc->bitpix, &status) || ffgidm(f, &loc->naxis, &status))
        return FailStatus(status);
    if (loc->naxis == 0) {
        if (ffmrhd(f, 1, &type, &status))
            return FailStatus(status);
        if (ffghdt(f, &type, &status))
            return FailStatus(status);
        if (type != IMAGE_HDU)
            return Fail("The FITS file holds no image");
        if (ffgidt(f, &loc->bitpix, &status) || ffgidm(f, &loc->naxis, &status))
            return FailStatus(status);
        if (loc->naxis == 0)
            return Fail("The FITS file holds no image");
        loc->compressed = true;
    }
    long long axes[3] = {1, 1, 1};
    if (ffgiszll(f, std::min(loc->naxis, 3), axes, &status))
        return FailStatus(status);
    loc->width = axes[0];
    loc->height = axes[1];
    loc->depth = axes[2];
    constexpr long long kMaxSide = std::numeric_limits<std::int32_t>::max();
    if (loc->width < 1 || loc->height < 1 || loc->width > kMaxSide || loc->height > kMaxSide ||
        loc->width * loc->height >
            static_cast<long long>(std::numeric_limits<std::uint32_t>::max()))
        return Fail("The FITS image size " + std::to_string(loc->width) + " x " +
                    std::to_string(loc->height) + " is not usable");

    // A header that claims more data than the file holds is refused before any allocation
    // (a compressed image's tiles are checked by cfitsio as they are read).
    Sample sample;
    if (!fits_is_compressed_image(f, &status) && SampleOfBitpix(loc->bitpix, &sample)) {
        std::vector<long long> all(static_cast<std::size_t>(loc->naxis), 1);
        if (ffgiszll(f, loc->naxis, all.data(), &status))
            return FailStatus(status);
        long double bytes = static_cast<long double>(SampleSize(sample));
        for (long long n : all)
            bytes *= static_cast<long double>(n);
        long long headStart = 0, dataStart = 0, dataEnd = 0;
        if (ffghadll(f, &headStart, &dataStart, &dataEnd, &status))
            return FailStatus(status);
        std::error_code ec;
        const auto fileSize = std::filesystem::file_size(path, ec);
        if (!ec && static_cast<long double>(dataStart) + bytes > static_cast<long double>(fileSize))
            return Fail("The FITS file is shorter than its header says");
    }
    return true;
}

/// Moves one HDU forward. True when there is one and it is an image of the given size; when
/// there is none, the file stays on the HDU it was on.
bool NextHduOfSize(fitsfile* f, long long width, long long height) {
    int status = 0, here = 0, type = 0;
    ffghdn(f, &here);
    if (ffmrhd(f, 1, &type, &status)) {
        int now = 0;
        ffghdn(f, &now);
        if (now != here) {
            status = 0;
            ffmahd(f, here, nullptr, &status);
        }
        return false;
    }
    int naxis = 0;
    long long axes[2] = {1, 1};
    if (ffgidm(f, &naxis, &status) || naxis < 1 || ffgiszll(f, std::min(naxis, 2), axes, &status))
        return false;
    return axes[0] == width && axes[1] == height;
}

/// Bytes the system could still give us: available memory plus free swap (unknown: no limit).
unsigned long long MemoryAvailable() {
    std::ifstream meminfo("/proc/meminfo");
    std::string name;
    unsigned long long kb = 0, total = 0;
    bool found = false;
    std::string unit;
    while (meminfo >> name >> kb) {
        std::getline(meminfo, unit);
        if (name == "MemAvailable:" || name == "SwapFree:") {
            total += kb * 1024ULL;
            found = true;
        }
    }
    return found ? total : std::numeric_limits<unsigned long long>::max();
}

bool EnoughMemoryFor(unsigned long long bytes) {
    return bytes <= MemoryAvailable();
}

/// Where one plane goes: a flat plane or caller rows.
struct PlaneTarget {
    float* flat = nullptr;
    float* const* rows = nullptr;
};

/// Clamps to 0..65535; NaN counts as 0.
inline float ClampSample(double v) {
    return v > 0.0 ? static_cast<float>(v < 65535.0 ? v : 65535.0) : 0.0f;
}

template <class T>
void ConvertPlane(const T* samples, const PlaneTarget& target, int width, int height,
                  bool eightBit) {
    ParallelRows(height, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const std::size_t offset = static_cast<std::size_t>(y) * width;
            const T* in = samples + offset;
            float* out = target.flat ? target.flat + offset : target.rows[y];
            // Separate loops per case so that each one vectorises.
            if constexpr (std::is_same_v<T, std::uint16_t>) {
                for (int x = 0; x < width; ++x)
                    out[x] = static_cast<float>(in[x]); // always within 0..65535
            } else if (eightBit) {
                for (int x = 0; x < width; ++x)
                    out[x] = ClampSample(static_cast<double>(in[x]) * 65535.0 / 255.0);
            } else {
                for (int x = 0; x < width; ++x)
                    out[x] = ClampSample(static_cast<double>(in[x]));
            }
        }
    });
}

/// Reads whole planes into one reused page buffer and converts them. The integer type that
/// first succeeds (TSHORT or TUSHORT, TINT or TUINT) is tried first for every later plane.
class SampleReader {
public:
    SampleReader(Sample sample, long long width, long long height)
        : sample_(sample), width_(static_cast<int>(width)), height_(static_cast<int>(height)) {}

    bool Allocate() {
        return buffer_.Allocate(static_cast<std::size_t>(width_) * height_ * SampleSize(sample_));
    }

    /// Reads `width * height` samples from element `first` (1-based) and converts them.
    bool ReadPlane(fitsfile* f, long long first, const PlaneTarget& target) {
        int status = 0;
        if (!ReadAs(f, sample_, first, &status)) {
            Sample other;
            if (!Partner(sample_, &other))
                return FailStatus(status);
            status = 0;
            if (!ReadAs(f, other, first, &status)) {
                // Scaled integers beyond both ranges (BZERO/BSCALE giving values above
                // 65535): read them as floats, so that the clamp cuts them like any other.
                if (status != NUM_OVERFLOW)
                    return FailStatus(status);
                status = 0;
                if (SampleSize(Sample::Float) > SampleSize(sample_) &&
                    !buffer_.Allocate(static_cast<std::size_t>(width_) * height_ *
                                      SampleSize(Sample::Float)))
                    return Fail("Could not allocate memory for the FITS samples");
                if (!ReadAs(f, Sample::Float, first, &status))
                    return FailStatus(status);
                other = Sample::Float;
            }
            sample_ = other;
        }
        Convert(target);
        return true;
    }

private:
    static bool Partner(Sample s, Sample* other) {
        switch (s) {
        case Sample::Short:
            *other = Sample::UShort;
            return true;
        case Sample::UShort:
            *other = Sample::Short;
            return true;
        case Sample::Int:
            *other = Sample::UInt;
            return true;
        case Sample::UInt:
            *other = Sample::Int;
            return true;
        default:
            return false;
        }
    }

    bool ReadAs(fitsfile* f, Sample s, long long first, int* status) {
        // Null value 1 in the type asked for.
        alignas(8) unsigned char one[8] = {};
        switch (s) {
        case Sample::Byte:
            one[0] = 1;
            break;
        case Sample::Short:
            StoreOne<std::int16_t>(one);
            break;
        case Sample::UShort:
            StoreOne<std::uint16_t>(one);
            break;
        case Sample::Int:
            StoreOne<std::int32_t>(one);
            break;
        case Sample::UInt:
            StoreOne<std::uint32_t>(one);
            break;
        case Sample::Float:
            StoreOne<float>(one);
            break;
        case Sample::Double:
            StoreOne<double>(one);
            break;
        }
        int anyNull = 0;
        const long long count = static_cast<long long>(width_) * height_;
        return ffgpv(f, CfitsioType(s), first, count, one, buffer_.data(), &anyNull, status) == 0;
    }

    template <class T> static void StoreOne(unsigned char* bytes) {
        const T one = 1;
        std::memcpy(bytes, &one, sizeof(T));
    }

    void Convert(const PlaneTarget& t) {
        void* b = buffer_.data();
        switch (sample_) {
        case Sample::Byte:
            ConvertPlane(static_cast<const std::uint8_t*>(b), t, width_, height_, true);
            break;
        case Sample::Short:
            ConvertPlane(static_cast<const std::int16_t*>(b), t, width_, height_, false);
            break;
        case Sample::UShort:
            ConvertPlane(static_cast<const std::uint16_t*>(b), t, width_, height_, false);
            break;
        case Sample::Int:
            ConvertPlane(static_cast<const std::int32_t*>(b), t, width_, height_, false);
            break;
        case Sample::UInt:
            ConvertPlane(static_cast<const std::uint32_t*>(b), t, width_, height_, false);
            break;
        case Sample::Float:
            ConvertPlane(static_cast<const float*>(b), t, width_, height_, false);
            break;
        case Sample::Double:
            ConvertPlane(static_cast<const double*>(b), t, width_, height_, false);
            break;
        }
    }

    Sample sample_;
    int width_;
    int height_;
    PageBuffer buffer_;
};

/// The COMMENT lines cfitsio writes into every new primary header; they are not carried.
/// The first four are the lines of earlier cfitsio versions, the last the second line of the
/// present one (its first line is matched by the third entry).
bool IsStandardComment(const char* comment) {
    static const char* const kLines[] = {
        " Astrophysics Supplement Series v44/p363", " Contact the NASA Science Office of Standards",
        " FITS (Flexible Image Transport System)",  " FITS Definition document #100 and other",
        " and Astrophysics', volume 376, page 359",
    };
    for (const char* line : kLines)
        if (std::strstr(comment, line))
            return true;
    return false;
}

/// A string value without its enclosing quotes, read as FITS reads it: a doubled quote inside
/// is one quote and trailing blanks carry no meaning. (Kept doubled, a quote would double
/// again on every write.)
std::string UnquoteString(const std::string& quoted) {
    if (quoted.size() < 2 || quoted.front() != '\'' || quoted.back() != '\'')
        return quoted;
    std::string text;
    for (std::size_t i = 1; i + 1 < quoted.size(); ++i) {
        text += quoted[i];
        if (quoted[i] == '\'' && i + 2 < quoted.size() && quoted[i + 1] == '\'')
            ++i;
    }
    while (!text.empty() && text.back() == ' ')
        text.pop_back();
    return text;
}

/// Reads every card of the current HDU into the image's list; "ZBITPIX" is handed back and
/// "BMMS1".."BMMS3" take effect at once.
bool ReadHeader(fitsfile* f, Image& image, std::string* zbitpix) {
    int status = 0, count = 0;
    if (ffghsp(f, &count, nullptr, &status))
        return FailStatus(status);
    for (int i = 1; i <= count; ++i) {
        char card[FLEN_CARD] = {};
        if (ffgrec(f, i, card, &status))
            return FailStatus(status);
        if (std::strlen(card) >= 80 && card[78] == '\r' && card[79] == '\n')
            card[78] = card[79] = ' ';
        std::string raw(card, std::min<std::size_t>(std::strlen(card), 8));
        while (!raw.empty() && raw.back() == ' ')
            raw.pop_back();
        if (raw.empty())
            continue;
        char name[FLEN_CARD] = {}, value[FLEN_CARD] = {}, comment[FLEN_CARD] = {};
        int nameLength = 0, cardStatus = 0;
        if (ffgknm(card, name, &nameLength, &cardStatus) ||
            ffpsvc(card, value, comment, &cardStatus))
            continue;
        CFITSHeader h;
        h.key = name;
        if (h.key == "COMMENT" && IsStandardComment(comment))
            continue;
        char kind = 0;
        int typeStatus = 0;
        if (ffdtyp(value, &kind, &typeStatus))
            kind = 0;
        h.value = value;
        h.comment = comment;
        switch (kind) {
        case 'C':
            h.dataType = CardString;
            h.value = UnquoteString(h.value);
            break;
        case 'L':
            h.dataType = CardLogical;
            break;
        case 'I':
            h.dataType = CardInteger;
            break;
        case 'F':
            h.dataType = CardReal;
            break;
        case 'X':
            h.dataType = CardComplex;
            break;
        default:
            h.dataType = CardString;
            break;
        }
        if (h.key == "ZBITPIX")
            *zbitpix = h.value;
        for (int k = 0; k < 3; ++k)
            if (h.key == "BMMS" + std::to_string(k + 1)) {
                const double v = std::strtod(h.value.c_str(), nullptr);
                if (v < 0)
                    image.planeSubtractMinimum[k] = v;
            }
        image.headerCards.push_back(std::move(h));
    }
    return true;
}

/// What one read fills: an image (planes and header) or caller rows (pixels only).
struct ReadRequest {
    Image* image = nullptr;
    float** rows[3] = {nullptr, nullptr, nullptr};
    std::int32_t rowsWidth = 0;
    std::int32_t rowsHeight = 0;
    FitsGeometry* found = nullptr;
};

bool ReadFitsInto(const std::string& path, ReadRequest& request) {
    ImageFileGuard guard;
    ClearLastFileError();
    FitsFile fits;
    Location loc;
    if (!Locate(fits, path, &loc))
        return false;
    Sample sample;
    if (!SampleOfBitpix(loc.bitpix, &sample))
        return Fail("Unsupported FITS BITPIX " + std::to_string(loc.bitpix));
    fitsfile* f = fits.file;
    const int width = static_cast<int>(loc.width);
    const int height = static_cast<int>(loc.height);
    const unsigned long long count = static_cast<unsigned long long>(width) * height;
    Image* image = request.image;
    const bool lookForColor = image || (request.rows[1] && request.rows[2]);
    // A third axis of fewer than three planes (NAXIS3 = 1 is common) cannot be colour.
    const bool threeAxes = lookForColor && loc.naxis == 3 && loc.depth >= 3;
    const std::uint32_t dataType = DataTypeOfBitpix(loc.bitpix);
    const unsigned long long planeBytes = count * sizeof(float);
    const unsigned long long bufferBytes = count * SampleSize(sample);

    if (image) {
        image->FreePlanes();
        image->FreeWorkRows();
        image->FreeAccumulators();
        image->headerCards.clear();
        std::fill(std::begin(image->planeSubtractMinimum), std::end(image->planeSubtractMinimum),
                  0.0);
        image->SetGeometryFits(KindFITS, threeAxes ? ColorRGB : ColorGray, 0, dataType, width,
                               height);
        if (!EnoughMemoryFor(2 * planeBytes * (threeAxes ? 3 : 1) + bufferBytes) ||
            !image->AllocatePlanes(1))
            return Fail("Could not allocate memory for a " + std::to_string(width) + " x " +
                        std::to_string(height) + " image");
    } else if (width != request.rowsWidth || height != request.rowsHeight) {
        return Fail("The FITS image is " + std::to_string(width) + " x " + std::to_string(height) +
                    ", not " + std::to_string(request.rowsWidth) + " x " +
                    std::to_string(request.rowsHeight));
    }

    auto target = [&](int slot) {
        PlaneTarget t;
        if (image) {
            // Only the current plane: the first operator copies it to the previous plane.
            t.flat = image->curPlane[slot];
        } else {
            t.rows = request.rows[slot];
        }
        return t;
    };

    SampleReader reader(sample, width, height);
    if (!reader.Allocate())
        return Fail("Could not allocate memory for the FITS samples");
    bool color = threeAxes;
    if (threeAxes) {
        for (int p = 0; p < 3; ++p)
            if (!reader.ReadPlane(f, 1 + static_cast<long long>(p) * count, target(p)))
                return false;
    } else {
        if (!reader.ReadPlane(f, 1, target(0)))
            return false;
        if (lookForColor && NextHduOfSize(f, width, height)) {
            if (image) {
                if (!EnoughMemoryFor(4 * planeBytes) || !image->AllocateSlotPlanes(1) ||
                    !image->AllocateSlotPlanes(2))
                    return Fail("Could not allocate memory for a " + std::to_string(width) + " x " +
                                std::to_string(height) + " colour image");
                image->colorType = ColorRGB;
            }
            color = true;
            if (!reader.ReadPlane(f, 1, target(1)))
                return false;
            if (NextHduOfSize(f, width, height) && !reader.ReadPlane(f, 1, target(2)))
                return false;
        }
    }

    if (image) {
        std::string zbitpix;
        if (!ReadHeader(f, *image, &zbitpix))
            return false;
        if (loc.compressed) {
            if (zbitpix == "20")
                image->dataType = Data16;
            else if (zbitpix == "32")
                image->dataType = Data32;
            else if (zbitpix == "-32")
                image->dataType = DataFloat;
            else if (zbitpix == "-64")
                image->dataType = DataDouble;
        }
        image->fitsCompress = loc.compressed;
    }
    if (request.found) {
        *request.found =
            FitsGeometry{width, height, loc.naxis, loc.bitpix, dataType, loc.compressed, color};
    }
    return true;
}

bool Probe(const std::string& path, FitsGeometry* geometry) {
    ImageFileGuard guard;
    ClearLastFileError();
    FitsFile fits;
    Location loc;
    if (!Locate(fits, path, &loc))
        return false;
    bool color = loc.naxis == 3 && loc.depth >= 3;
    if (!color && loc.naxis != 3)
        color = NextHduOfSize(fits.file, loc.width, loc.height) &&
                NextHduOfSize(fits.file, loc.width, loc.height);
    *geometry = FitsGeometry{static_cast<std::int32_t>(loc.width),
                             static_cast<std::int32_t>(loc.height),
                             loc.naxis,
                             loc.bitpix,
                             DataTypeOfBitpix(loc.bitpix),
                             loc.compressed,
                             color};
    return true;
}

} // namespace

std::uint32_t DataTypeOfBitpix(int bitpix) {
    switch (bitpix) {
    case BYTE_IMG:
        return Data8;
    case SHORT_IMG:
        return Data16;
    case LONG_IMG:
        return Data32;
    case FLOAT_IMG:
        return DataFloat;
    case DOUBLE_IMG:
        return DataDouble;
    default:
        return 0;
    }
}

bool Image::ReadFITS(const std::string& path) {
    ReadRequest request;
    request.image = this;
    return ReadFitsInto(path, request);
}

bool ReadFITSRows(float** redRows, float** greenRows, float** blueRows, const std::string& path,
                  std::int32_t width, std::int32_t height, FitsGeometry* found) {
    if (!redRows)
        return Fail("No rows to read the FITS image into");
    ReadRequest request;
    request.rows[0] = redRows;
    request.rows[1] = greenRows;
    request.rows[2] = blueRows;
    request.rowsWidth = width;
    request.rowsHeight = height;
    request.found = found;
    return ReadFitsInto(path, request);
}

bool ProbeFITSGeometry(const std::string& path, FitsGeometry* geometry) {
    FitsGeometry g;
    if (!Probe(path, &g))
        return false;
    if (geometry)
        *geometry = g;
    return true;
}

bool ProbeFITS(const std::string& path, bool* isColor) {
    FitsGeometry g;
    if (!Probe(path, &g))
        return false;
    if (isColor)
        *isColor = g.isColor;
    return true;
}

} // namespace astrivelle
