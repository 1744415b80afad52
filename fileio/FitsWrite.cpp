// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Writing FITS: samples by data type in one of three layouts (one mono HDU, three HDUs
/// of colour, or one three-axis colour array), then the header list on the last HDU.
#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "engine/Image.h"
#include "engine/Levels.h"
#include "engine/Parallel.h"
#include "fileio/FileDispatch.h"
#include "fileio/FileLock.h"
#include "fileio/Fits.h"
#include "fileio/FitsFile.h"

namespace astrivelle {

namespace {

bool Fail(const std::string& reason) {
    SetLastFileError(reason);
    return false;
}

/// One plane to write: a flat plane or an array of row pointers.
struct PlaneSource {
    const float* flat = nullptr;
    float* const* rows = nullptr;
    const float* Row(int y, int width) const {
        return flat ? flat + static_cast<std::size_t>(y) * width : rows[y];
    }
    bool Present() const { return flat || rows; }
};

/// BITPIX and cfitsio type of each data type 1..5.
struct WriteFormat {
    int bitpix;
    int cfitsioType;
    std::size_t sampleSize;
};

bool FormatOfDataType(std::uint32_t dataType, WriteFormat* format) {
    switch (dataType) {
    case Data8:
        *format = {BYTE_IMG, TBYTE, 1};
        return true;
    case Data16:
        *format = {USHORT_IMG, TUSHORT, 2};
        return true;
    case Data32:
        // Samples are 0..65535, so TINT writes the same file as TUINT would; cfitsio's Rice
        // compressor refuses TUINT input for a 32-bit image.
        *format = {LONG_IMG, TINT, 4};
        return true;
    case DataFloat:
        *format = {FLOAT_IMG, TFLOAT, 4};
        return true;
    case DataDouble:
        *format = {DOUBLE_IMG, TDOUBLE, 8};
        return true;
    default:
        return false;
    }
}

template <class T, class Convert>
void FillSamples(T* out, const PlaneSource& source, int width, int firstRow, int rows,
                 Convert convert) {
    ParallelRows(rows, [&](int r0, int r1) {
        for (int r = r0; r < r1; ++r) {
            const float* in = source.Row(firstRow + r, width);
            T* row = out + static_cast<std::size_t>(r) * width;
            for (int x = 0; x < width; ++x)
                row[x] = convert(in[x]);
        }
    });
}

/// Converts a plane into the buffer by data type. The nearest integer is RoundLevel's: the
/// value truncated, plus one only when the remainder exceeds 0.5.
void FillBuffer(void* buffer, std::uint32_t dataType, const PlaneSource& source, int width,
                int firstRow, int rows) {
    switch (dataType) {
    case Data8:
        FillSamples(static_cast<std::uint8_t*>(buffer), source, width, firstRow, rows,
                    [](float v) { return static_cast<std::uint8_t>(RoundLevel16(v) / 257); });
        break;
    case Data16:
        FillSamples(static_cast<std::uint16_t*>(buffer), source, width, firstRow, rows,
                    [](float v) { return static_cast<std::uint16_t>(RoundLevel16(v)); });
        break;
    case Data32:
        FillSamples(static_cast<std::int32_t*>(buffer), source, width, firstRow, rows,
                    [](float v) { return static_cast<std::int32_t>(RoundLevel16(v)); });
        break;
    case DataFloat:
        FillSamples(static_cast<float*>(buffer), source, width, firstRow, rows,
                    [](float v) { return v; });
        break;
    case DataDouble:
        FillSamples(static_cast<double*>(buffer), source, width, firstRow, rows,
                    [](float v) { return static_cast<double>(v); });
        break;
    }
}

/// Writes the header list on the current HDU, card by card in list order.
void WriteHeaderCards(fitsfile* f, const HeaderList& cards, int* status) {
    static constexpr std::array<std::string_view, 7> kWrittenByCfitsio = {
        "SIMPLE", "BITPIX", "NAXIS", "NAXIS1", "NAXIS2", "BZERO", "BSCALE"};
    for (const CFITSHeader& card : cards) {
        if (*status)
            return;
        if (card.key.empty() || std::find(kWrittenByCfitsio.begin(), kWrittenByCfitsio.end(),
                                          card.key) != kWrittenByCfitsio.end())
            continue;
        std::string key = card.key.substr(0, 99);
        // Structural and compression keys belong to cfitsio.
        if (ffgkcl(key.data()) < 21)
            continue;
        std::replace(key.begin(), key.end(), '=', ' ');

        std::string value = card.value.substr(0, 99);
        value = value.substr(0, value.find_first_of("\r\n"));
        std::replace(value.begin(), value.end(), static_cast<char>(252), 'u');

        std::string comment = card.comment.substr(0, 99);
        if (card.dataType == CardString)
            for (char& c : comment)
                if (static_cast<unsigned char>(c) & 0x80)
                    c = ' ';

        if (key == "COMMENT") {
            ffpcom(f, comment.c_str(), status);
        } else if (key == "HISTORY") {
            // A history card has no value: written as such, every one of them.
            ffphis(f, comment.c_str(), status);
        } else if (value.empty()) {
            ffukyu(f, key.c_str(), comment.c_str(), status);
        } else {
            switch (card.dataType) {
            case CardString:
                ffuky(f, TSTRING, key.c_str(), value.data(), comment.c_str(), status);
                break;
            case CardLogical: {
                // The value's text is never turned into 0 or 1: every logical is written true.
                int truth = 1;
                ffuky(f, TLOGICAL, key.c_str(), &truth, comment.c_str(), status);
                break;
            }
            case CardInteger: {
                long long v = std::strtoll(value.c_str(), nullptr, 10);
                if (v >= INT_MIN && v <= INT_MAX) {
                    int i = static_cast<int>(v);
                    ffuky(f, TINT, key.c_str(), &i, comment.c_str(), status);
                } else {
                    ffuky(f, TLONGLONG, key.c_str(), &v, comment.c_str(), status);
                }
                break;
            }
            case CardReal: {
                std::string text = value;
                std::replace(text.begin(), text.end(), 'D', 'E');
                std::replace(text.begin(), text.end(), 'd', 'e');
                double v = std::strtod(text.c_str(), nullptr);
                ffuky(f, TDOUBLE, key.c_str(), &v, comment.c_str(), status);
                break;
            }
            case CardComplex: {
                // A single real value: the text read as a number, imaginary part 0.
                float v[2] = {static_cast<float>(std::strtod(value.c_str(), nullptr)), 0.0f};
                ffuky(f, TCOMPLEX, key.c_str(), v, comment.c_str(), status);
                break;
            }
            default:
                break;
            }
        }
    }
}

/// The one writer: deletes the target, creates it, writes one or three planes in the layout
/// asked for, then the cards on the last HDU, and closes.
bool WriteFitsFile(const std::string& path, int width, int height, std::uint32_t dataType,
                   bool compress, bool threeAxes, const PlaneSource* planes, int planeCount,
                   const HeaderList* cards) {
    WriteFormat format;
    if (!FormatOfDataType(dataType, &format))
        return Fail("FITS data type " + std::to_string(dataType) + " cannot be written");
    for (int p = 0; p < planeCount; ++p)
        if (!planes[p].Present())
            return Fail("The image has no pixels to write");
    if (width < 1 || height < 1)
        return Fail("The image has no pixels to write");

    std::error_code ec;
    std::filesystem::remove(path, ec);
    int status = 0;
    fitsfile* f = nullptr;
    if (ffdkinit(&f, path.c_str(), &status))
        return Fail(FitsStatusText(status));
    FitsFile fits;
    fits.file = f;
    if (compress) {
        // Integers are Rice-compressed. Rice can only take floats quantised, which loses
        // precision, so float and double samples go into lossless GZIP tiles: the compressed
        // float save type promises a lossless file.
        const bool floats = dataType == DataFloat || dataType == DataDouble;
        fits_set_compression_type(f, floats ? GZIP_1 : RICE_1, &status);
        if (floats)
            fits_set_quantize_level(f, 0.0f, &status);
    }

    // Samples go out in blocks of rows through one small reused buffer: the same file as one
    // whole-plane write, without a plane-sized temporary.
    const long long count = static_cast<long long>(width) * height;
    constexpr std::size_t kBlockBytes = std::size_t(8) << 20;
    const int block = static_cast<int>(std::clamp<long long>(
        static_cast<long long>(kBlockBytes / (static_cast<std::size_t>(width) * format.sampleSize)),
        1, height));
    PageBuffer buffer;
    if (!buffer.Allocate(static_cast<std::size_t>(block) * width * format.sampleSize))
        return Fail("Could not allocate memory for the FITS samples");
    auto writePlane = [&](const PlaneSource& source, long long firstElement) {
        for (int y = 0; y < height && !status; y += block) {
            const int rows = std::min(block, height - y);
            FillBuffer(buffer.data(), dataType, source, width, y, rows);
            ffppr(f, format.cfitsioType, firstElement + static_cast<long long>(y) * width,
                  static_cast<long long>(rows) * width, buffer.data(), &status);
        }
    };

    if (threeAxes) {
        long naxes[3] = {width, height, 3};
        ffcrim(f, format.bitpix, 3, naxes, &status);
        for (int p = 0; p < 3 && !status; ++p)
            writePlane(planes[p], 1 + p * count);
    } else {
        for (int p = 0; p < planeCount && !status; ++p) {
            long naxes[2] = {width, height};
            ffcrim(f, format.bitpix, 2, naxes, &status);
            writePlane(planes[p], 1);
        }
    }
    if (cards)
        WriteHeaderCards(f, *cards, &status);
    if (status)
        return Fail(FitsStatusText(status));
    status = fits.Close();
    if (status)
        return Fail(FitsStatusText(status));
    return true;
}

} // namespace

bool Image::WriteFITS(const std::string& path, std::int32_t kind) {
    (void)kind; // the dispatch already chose FITS
    ImageFileGuard guard;
    ClearLastFileError();
    if (!IsValidColorType(colorType))
        return Fail("Internal error, image does not have a valid color type.");
    PlaneSource planes[3];
    int count = 0;
    for (int slot : Slots())
        planes[count++].flat = curPlane[slot];
    return WriteFitsFile(path, width, height, dataType, fitsCompress,
                         colorType == ColorRGB && fitsMaximColor, planes, count, &headerCards);
}

bool Image::WriteFITSFloatPlanes(const std::string& path, const std::string& source) {
    ImageFileGuard guard;
    ClearLastFileError();
    if (!IsValidColorType(colorType))
        return Fail("Internal error, image does not have a valid color type.");
    const bool filter = source == "FILTER";
    PlaneSource planes[3];
    int count = 0;
    for (int slot : Slots()) {
        if (filter)
            planes[count++].rows = workRows[slot];
        else
            planes[count++].flat = curPlane[slot];
    }
    if (filter && !planes[0].Present())
        return Fail("The image has no filter planes to write");
    return WriteFitsFile(path, width, height, DataFloat, false, false, planes, count, nullptr);
}

} // namespace astrivelle
