// SPDX-License-Identifier: GPL-3.0-or-later
/// \file CJPEGFile and Image::ReadJPEG / Image::WriteJPEG: 8-bit samples to planes on the
/// 0..65535 scale (times 65535 / 255) and back (nearest level divided by 257).
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>

#include "engine/Image.h"
#include "engine/Levels.h"
#include "engine/PageAlloc.h"
#include "engine/Parallel.h"
#include "fileio/FileDispatch.h"
#include "fileio/FileLock.h"
#include "fileio/Jpeg.h"

namespace astrivelle {

namespace {

bool Fail(const std::string& reason) {
    SetLastFileError(reason);
    return false;
}

constexpr const char* kInvalidColorType = "Internal error, image does not have a valid color type.";

/// Page-allocated byte rows for one whole image, freed when they go.
class ByteRows {
public:
    ~ByteRows() {
        PageFree(rows_);
        PageFree(bytes_);
    }
    bool Allocate(std::uint32_t rowBytes, std::uint32_t height) {
        bytes_ = static_cast<std::uint8_t*>(PageAlloc(static_cast<std::size_t>(rowBytes) * height));
        rows_ = static_cast<std::uint8_t**>(PageAlloc(sizeof(std::uint8_t*) * height));
        if (!bytes_ || !rows_)
            return false;
        for (std::uint32_t y = 0; y < height; ++y)
            rows_[y] = bytes_ + static_cast<std::size_t>(rowBytes) * y;
        return true;
    }
    std::uint8_t* const* rows() const { return rows_; }

private:
    std::uint8_t* bytes_ = nullptr;
    std::uint8_t** rows_ = nullptr;
};

/// A byte as a level: value * 65535 / 255, which is exactly value * 257 and never above 65535.
inline float LevelOfByte(std::uint8_t v) {
    return static_cast<float>(v * 257);
}

/// A level as a byte: nearest integer clamped to 0..65535, divided by 257 (truncated).
inline std::uint8_t ByteOfLevel(float p) {
    return static_cast<std::uint8_t>(RoundLevel16(p) / 257);
}

/// Images from this size on are converted on a second thread while they decode.
constexpr std::uint32_t kPipelinePixels = 1u << 20;

/// Decoded rows `first`.. (`count` of them) to the planes.
void ConvertRows(const std::uint8_t* const* rows, std::uint32_t first, std::uint32_t count,
                 std::size_t w, bool gray, float* const planes[3]) {
    for (std::uint32_t r = 0; r < count; ++r) {
        const std::uint8_t* in = rows[r];
        const std::size_t at = static_cast<std::size_t>(first + r) * w;
        if (gray) {
            float* out = planes[0] + at;
            for (std::size_t x = 0; x < w; ++x)
                out[x] = LevelOfByte(in[x]);
        } else {
            float* red = planes[0] + at;
            float* green = planes[1] + at;
            float* blue = planes[2] + at;
            for (std::size_t x = 0; x < w; ++x) {
                red[x] = LevelOfByte(in[3 * x + 0]);
                green[x] = LevelOfByte(in[3 * x + 1]);
                blue[x] = LevelOfByte(in[3 * x + 2]);
            }
        }
    }
}

/// Rows handed from the decoding thread to the converter: the decoder publishes how many it
/// has finished and never waits; the converter follows.
class RowProgress {
public:
    void Publish(std::uint32_t rows) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            ready_ = rows;
        }
        changed_.notify_all();
    }
    void Finish() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            finished_ = true;
        }
        changed_.notify_all();
    }
    /// Converter side: waits until more than `done` rows are ready (true, with their number)
    /// or the decoder has finished with nothing more (false).
    bool WaitBeyond(std::uint32_t done, std::uint32_t* ready) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [&] { return ready_ > done || finished_; });
        *ready = ready_;
        return ready_ > done;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::uint32_t ready_ = 0;
    bool finished_ = false;
};

} // namespace

bool CJPEGFile::ReadHeader() {
    return JPEGReadImageHeader(path, &width, &height, &colorSpace, &components);
}

bool CJPEGFile::ReadPixels(std::uint8_t* const* rows) {
    return JPEGReadImage(path, rows, width, height);
}

bool CJPEGFile::Write(const float* red, const float* green, const float* blue,
                      std::uint32_t colorType, int quality, std::uint32_t w, std::uint32_t h) {
    ImageFileGuard guard;
    if (!IsValidColorType(colorType))
        return Fail(kInvalidColorType);
    const bool rgb = colorType == ColorRGB;
    if (!red || (rgb && (!green || !blue)) || w == 0 || h == 0)
        return Fail("The image has no pixels to write");
    ByteRows rows;
    const std::uint32_t rowBytes = rgb ? 3 * w : w;
    if (!rows.Allocate(rowBytes, h))
        return Fail("Could not allocate memory for the JPEG rows");
    ParallelRows(static_cast<int>(h), [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const std::size_t at = static_cast<std::size_t>(y) * w;
            std::uint8_t* out = rows.rows()[y];
            if (rgb) {
                for (std::uint32_t x = 0; x < w; ++x) {
                    out[3 * x + 0] = ByteOfLevel(red[at + x]);
                    out[3 * x + 1] = ByteOfLevel(green[at + x]);
                    out[3 * x + 2] = ByteOfLevel(blue[at + x]);
                }
            } else {
                for (std::uint32_t x = 0; x < w; ++x)
                    out[x] = ByteOfLevel(red[at + x]);
            }
        }
    });
    colorSpace = rgb ? "RGB" : "GRAY";
    width = w;
    height = h;
    components = rgb ? 3 : 1;
    return JPEGWriteImage(path, rows.rows(), colorSpace, quality, w, h);
}

bool Image::ReadJPEG(const std::string& path) {
    ImageFileGuard guard;
    ClearLastFileError();
    CJPEGFile file(path);
    if (!file.ReadHeader())
        return false;
    std::error_code ec;
    const std::uint64_t fileBytes = std::filesystem::file_size(path, ec);
    if (ec || !JpegSizeIsPlausible(file.width, file.height, fileBytes))
        return Fail("The JPEG header claims " + std::to_string(file.width) + " x " +
                    std::to_string(file.height) + " pixels, more than the file can hold");
    const bool gray = file.IsGray();
    FreePlanes();
    FreeWorkRows();
    FreeAccumulators();
    headerCards.clear();
    SetGeometry(KindJPEG, gray ? ColorGray : ColorRGB, 0, static_cast<std::int32_t>(file.width),
                static_cast<std::int32_t>(file.height));
    if (!AllocatePlanes(1)) {
        FreePlanes();
        return Fail("Could not allocate memory for a " + std::to_string(file.width) + " x " +
                    std::to_string(file.height) + " image");
    }
    const std::size_t w = file.width;
    const std::uint32_t h = file.height;
    float* const planes[3] = {curPlane[0], curPlane[1], curPlane[2]};
    bool ok = false;
    ByteRows bytes;
    std::thread converter;
    RowProgress progress;
    // A large image is converted on a second thread while the decoder goes on; a small one
    // block by block on this thread, while the bytes are still in the cache.
    if (pixelCount >= kPipelinePixels && std::thread::hardware_concurrency() > 1 &&
        bytes.Allocate(static_cast<std::uint32_t>(gray ? w : 3 * w), h)) {
        try {
            converter = std::thread([&] {
                std::uint32_t done = 0;
                std::uint32_t ready = 0;
                while (progress.WaitBeyond(done, &ready)) {
                    ConvertRows(bytes.rows() + done, done, ready - done, w, gray, planes);
                    done = ready;
                }
            });
        } catch (const std::system_error&) {
            // No thread to be had: convert here.
        }
    }
    if (converter.joinable()) {
        ok = JPEGReadImageRows(
            path, file.width, h,
            [&](std::uint32_t first, std::uint32_t count, const std::uint8_t* const*) {
                progress.Publish(first + count);
                return true;
            },
            bytes.rows());
        progress.Finish();
        converter.join();
    } else {
        ok = JPEGReadImageRows(
            path, file.width, h,
            [&](std::uint32_t first, std::uint32_t count, const std::uint8_t* const* rows) {
                ConvertRows(rows, first, count, w, gray, planes);
                return true;
            });
    }
    if (!ok) {
        FreePlanes();
        return false;
    }
    return true;
}

bool Image::WriteJPEG(const std::string& path, int quality) {
    ImageFileGuard guard;
    ClearLastFileError();
    if (!IsValidColorType(colorType))
        return Fail(kInvalidColorType);
    const float* red = nullptr;
    const float* green = nullptr;
    const float* blue = nullptr;
    if (colorType == ColorRGB) {
        red = curPlane[0];
        green = curPlane[1];
        blue = curPlane[2];
    } else {
        red = curPlane[SlotOfColorType(colorType)];
    }
    if (width <= 0 || height <= 0)
        return Fail("The image has no pixels to write");
    CJPEGFile file(path);
    return file.Write(red, green, blue, colorType, quality, static_cast<std::uint32_t>(width),
                      static_cast<std::uint32_t>(height));
}

} // namespace astrivelle
