// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Camera raw conversion: LibRaw opens, identifies and decodes; this file chooses what is
/// asked of it by the conversion keyword, turns the result into planes on the 0..65535 scale,
/// names the mosaic, writes the camera's cards and hands the image to the writer.
#include "fileio/Raw.h"
#include "fileio/SaveType.h"

#include <libraw/libraw.h>
#include <libraw/libraw_internal.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>

#include "engine/Image.h"
#include "engine/Notify.h"
#include "engine/Parallel.h"
#include "fileio/FileDispatch.h"
#include "fileio/FileLock.h"

namespace astrivelle {

namespace {

constexpr std::array<RawConversionEntry, 4> kConversions{{
    {"Color", "At Capture White Balanced Color", false},
    {"NoWBCFA", "Bayer No White Balance", true},
    {"WBCFA", "Bayer At Capture White Balance", true},
    {"BASICBAYER", "Bayer Basic Raw", true},
}};

constexpr std::array<const char*, 8> kRawSaveTypes{
    "COMPFIT", "UNCOMPFIT", "COMPFIT32", "UNCOMPFIT32", "TIFF16", "TIFF8", "JPEG", "BMP"};

constexpr std::array<const char*, 11> kRawExtensions = {
    ".CRW", ".CR2", ".NEF", ".NRW", ".DCR", ".PEF", ".RAF", ".ORF", ".DNG", ".ARW", ".TIF"};

/// Seven steps of progress: open, identify, unpack, decode, planes, cards, write.
constexpr long kSteps = 7;

/// Larger sensors than this are taken for a damaged header and refused before any decoding.
constexpr long long kMaxRawPixels = 1LL << 29;

/// A read that comes up this many bytes short of the file during unpacking means the file
/// ends before its image data does (a few bytes of read-ahead at the very end are normal).
constexpr long long kMaxShortfall = 4096;

bool Fail(const std::string& reason) {
    SetLastFileError(reason);
    return false;
}

void Step(IProgress* owner, long step) {
    if (owner)
        owner->SetProgress(step, kSteps);
}

std::string Format(const char* format, double value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

/// LibRaw's file stream, counting what the decoder asked for beyond the end of the file while
/// counting is on.
class CountingStream : public LibRaw_file_datastream {
public:
    explicit CountingStream(const char* path) : LibRaw_file_datastream(path) {}
    int read(void* ptr, std::size_t size, std::size_t count) override {
        const int got = LibRaw_file_datastream::read(ptr, size, count);
        if (counting && got >= 0) {
            consumed += static_cast<long long>(static_cast<std::size_t>(got) * size);
            if (static_cast<std::size_t>(got) < count)
                shortfall += static_cast<long long>((count - static_cast<std::size_t>(got)) * size);
        }
        return got;
    }
    int get_char() override {
        const int c = LibRaw_file_datastream::get_char();
        if (counting)
            ++(c < 0 ? shortfall : consumed);
        return c;
    }
    bool counting = false;
    long long shortfall = 0; ///< bytes asked for beyond the end
    long long consumed = 0;  ///< bytes delivered
};

/// What LibRaw reported through its callbacks.
struct Complaints {
    std::string data;
    std::string memory;
};

void OnDataError(void* data, const char* /*file*/, const int offset) {
    auto* c = static_cast<Complaints*>(data);
    if (c->data.empty())
        c->data = offset < 0 ? std::string("unexpected end of file")
                             : "data corrupted at offset " + std::to_string(offset);
}

void OnMemoryError(void* data, const char* /*file*/, const char* where) {
    auto* c = static_cast<Complaints*>(data);
    if (c->memory.empty())
        c->memory = std::string("out of memory in ") + (where ? where : "the decoder");
}

/// Frees a LibRaw memory image.
struct MemImageDeleter {
    void operator()(libraw_processed_image_t* p) const { LibRaw::dcraw_clear_mem(p); }
};

/// One open raw file: the decoder, its stream and what went wrong. LibRaw's object is large,
/// so it lives on the heap.
class RawSession {
public:
    explicit RawSession(const std::string& path)
        : stream_(std::make_unique<CountingStream>(path.c_str())),
          raw_(std::make_unique<LibRaw>(LIBRAW_OPTIONS_NONE)) {
        raw_->set_dataerror_handler(&OnDataError, &complaints_);
        raw_->set_memerror_handler(&OnMemoryError, &complaints_);
    }
    ~RawSession() {
        // The stream must outlive every use the decoder makes of it.
        raw_->recycle();
    }
    RawSession(const RawSession&) = delete;
    RawSession& operator=(const RawSession&) = delete;

    LibRaw& raw() { return *raw_; }

    /// Opens and identifies; fills the identification part of `info`.
    bool Open(RawFileInfo* info) {
        if (!stream_->valid())
            return Fail("LibRaw could not open the file: " +
                        std::string(LibRaw::strerror(LIBRAW_IO_ERROR)));
        const int code = raw_->open_datastream(stream_.get());
        if (code != LIBRAW_SUCCESS)
            return Fail("LibRaw could not open the file: " + std::string(LibRaw::strerror(code)));
        const libraw_data_t& d = raw_->imgdata;
        info->make = d.idata.make;
        info->model = d.idata.model;
        info->filters = d.idata.filters;
        info->pattern = PatternKeywordOfFilters(d.idata.filters);
        info->colors = d.idata.colors;
        info->width = d.sizes.width;
        info->height = d.sizes.height;
        info->rawWidth = d.sizes.raw_width;
        info->rawHeight = d.sizes.raw_height;
        info->shutter = d.other.shutter;
        info->iso = d.other.iso_speed;
        info->aperture = d.other.aperture;
        info->focalLength = d.other.focal_len;
        if (info->width < 1 || info->height < 1 || info->rawWidth < 1 || info->rawHeight < 1)
            return Fail("The raw file's image size is not usable");
        if (static_cast<long long>(info->rawWidth) * info->rawHeight > kMaxRawPixels ||
            static_cast<long long>(info->width) * info->height > kMaxRawPixels)
            return Fail("The raw file's image size " + std::to_string(info->rawWidth) + " x " +
                        std::to_string(info->rawHeight) + " is not usable");
        return true;
    }

    /// Reads the raw data; a file that ends before its data does, or data the decoder calls
    /// corrupt, is refused.
    bool Unpack() {
        // Where the decoder says the data lies: a file cut short before it is refused before
        // anything is allocated for it.
        const libraw_internal_data_t* internal = raw_->get_internal_data_pointer();
        const long long offset = internal->unpacker_data.data_offset;
        const long long size = internal->unpacker_data.data_size;
        const long long fileSize = stream_->size();
        if (size > 0 && offset >= 0 && offset + size > fileSize)
            return Fail("The raw file ends before its image data does");
        stream_->counting = true;
        stream_->shortfall = 0;
        stream_->consumed = 0;
        const int code = raw_->unpack();
        stream_->counting = false;
        if (code != LIBRAW_SUCCESS)
            return Fail("LibRaw could not decode the file: " + std::string(LibRaw::strerror(code)) +
                        Detail());
        if (!complaints_.data.empty() || !complaints_.memory.empty())
            return Fail("LibRaw could not decode the file:" + Detail());
        if (stream_->shortfall > kMaxShortfall)
            return Fail("The raw file ends before its image data does");
        // Some decoders stop quietly at a missing block and leave the rest of the sensor as
        // the allocator gave it. Every raw coding spends far more than a bit on 64 pixels;
        // the two that decode through libjpeg read past this count and are not judged.
        const long long pixels =
            static_cast<long long>(raw_->imgdata.sizes.width) * raw_->imgdata.sizes.height;
        const std::string decoder = raw_->unpack_function_name();
        if (stream_->consumed * 64 < pixels && decoder.find("lossy_dng") == std::string::npos &&
            decoder.find("kodak_jpeg") == std::string::npos)
            return Fail("The raw file holds too little data for its image");
        if (SensorIsEmpty())
            return Fail("The raw file holds no image data");
        return true;
    }

    /// LibRaw's result code as a failure, with what its callbacks said.
    bool FailCode(const char* what, int code) {
        return Fail(std::string(what) + ": " + LibRaw::strerror(code) + Detail());
    }

private:
    /// True when every sample the decoder unpacked is zero.
    bool SensorIsEmpty() const {
        const libraw_rawdata_t& r = raw_->imgdata.rawdata;
        const libraw_image_sizes_t& s = raw_->imgdata.sizes;
        std::size_t count = 0;
        const std::uint16_t* samples = nullptr;
        if (r.raw_image) {
            samples = r.raw_image;
            count = static_cast<std::size_t>(s.raw_pitch / 2) * s.raw_height;
        } else if (r.color4_image) {
            samples = &r.color4_image[0][0];
            count = static_cast<std::size_t>(s.raw_pitch / 8) * s.raw_height * 4;
        } else if (r.color3_image) {
            samples = &r.color3_image[0][0];
            count = static_cast<std::size_t>(s.raw_pitch / 6) * s.raw_height * 3;
        } else {
            return false; // floating-point or other forms: nothing to judge
        }
        return std::all_of(samples, samples + count, [](std::uint16_t v) { return v == 0; });
    }

    std::string Detail() const {
        std::string s;
        if (!complaints_.data.empty())
            s += " (" + complaints_.data + ")";
        if (!complaints_.memory.empty())
            s += " (" + complaints_.memory + ")";
        return s;
    }

    Complaints complaints_;
    std::unique_ptr<CountingStream> stream_;
    std::unique_ptr<LibRaw> raw_;
};

/// Multipliers normalised so that the smallest is 1; channel 3 (the second green of a
/// three-colour sensor) takes channel 1's when it has none. False when unusable.
bool NormalizedMultipliers(const float* source, int colors, double out[4]) {
    double m[4] = {source[0], source[1], source[2], source[3]};
    if (!(m[3] > 0))
        m[3] = colors < 4 ? m[1] : 0;
    const int used = colors < 4 ? 3 : 4;
    double smallest = 0;
    for (int c = 0; c < used; ++c) {
        if (!(m[c] > 0) || !std::isfinite(m[c]))
            return false;
        smallest = c == 0 ? m[c] : std::min(smallest, m[c]);
    }
    if (colors < 4)
        m[3] = m[1];
    for (int c = 0; c < 4; ++c)
        out[c] = m[c] / smallest;
    return true;
}

/// The raw mosaic of the visible area as one plane.
bool DecodeMosaic(RawSession& session, const RawConversionEntry& conversion, Image& image,
                  RawFileInfo* info) {
    LibRaw& raw = session.raw();
    const libraw_data_t& d = raw.imgdata;
    if (d.idata.filters == 0 || !d.rawdata.raw_image)
        return Fail("The raw file has no colour filter mosaic to keep");
    if (info->pattern.empty())
        return Fail("The raw file's colour filter layout has no pattern keyword");
    if (raw.is_fuji_rotated())
        return Fail("The raw file's sensor is laid out diagonally and has no plain mosaic");

    const std::string keyword = conversion.keyword;
    double mul[4] = {1, 1, 1, 1};
    if (keyword == "WBCFA") {
        if (!NormalizedMultipliers(d.color.cam_mul, d.idata.colors, mul) &&
            !NormalizedMultipliers(d.color.pre_mul, d.idata.colors, mul))
            return Fail("The raw file holds no usable white balance");
    } else if (keyword == "BASICBAYER") {
        if (!NormalizedMultipliers(d.color.pre_mul, d.idata.colors, mul))
            return Fail("The raw file holds no usable daylight multipliers");
    }

    const int code = raw.raw2image_ex(1);
    if (code != LIBRAW_SUCCESS)
        return session.FailCode("LibRaw could not decode the file", code);
    const int width = d.sizes.iwidth, height = d.sizes.iheight;
    const double white = d.color.maximum;
    if (!d.image || width != d.sizes.width || height != d.sizes.height || width < 1 || height < 1)
        return Fail("LibRaw returned no mosaic of the file's size");
    if (!(white > 0))
        return Fail("The raw file's white level does not lie above its black level");
    std::copy(mul, mul + 4, info->multipliers);
    info->whiteAboveBlack = white;

    image.SetGeometryFits(KindFITS, ColorGray, 0, Data16, width, height);
    if (!image.AllocatePlanes(1))
        return Fail("Could not allocate memory for the raw image");
    // The filter word repeats every 8 rows and 2 columns.
    float scale[8][2];
    int channel[8][2];
    for (int r = 0; r < 8; ++r)
        for (int c = 0; c < 2; ++c) {
            channel[r][c] = raw.COLOR(r, c) & 3;
            scale[r][c] = static_cast<float>(65535.0 / white * mul[channel[r][c]]);
        }
    const auto* pixels = d.image;
    float* plane = image.curPlane[0];
    ParallelRows(height, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const std::size_t row = static_cast<std::size_t>(y) * width;
            const float* s = scale[y & 7];
            const int* ch = channel[y & 7];
            for (int x = 0; x < width; ++x) {
                const float v = pixels[row + x][ch[x & 1]] * s[x & 1];
                plane[row + x] = v < 65535.0f ? v : 65535.0f;
            }
        }
    });
    return true;
}

/// The decoder's interpolated colour at the camera's white balance.
bool DecodeColor(RawSession& session, const RawRequest& request, Image& image) {
    LibRaw& raw = session.raw();
    libraw_output_params_t& p = raw.imgdata.params;
    p.use_camera_wb = 1;
    p.output_bps = 16;
    if (request.linear) {
        p.gamm[0] = 1.0;
        p.gamm[1] = 1.0;
        p.no_auto_bright = 1;
    }
    if (request.ownerName == "CFileSetProcess") {
        p.half_size = request.buildRGBPixel ? 1 : 0;
        p.green_matching = request.reduceGreenNoise ? 1 : 0;
    }
    int code = raw.dcraw_process();
    if (code != LIBRAW_SUCCESS)
        return session.FailCode("LibRaw could not decode the file", code);
    code = LIBRAW_SUCCESS;
    std::unique_ptr<libraw_processed_image_t, MemImageDeleter> out(raw.dcraw_make_mem_image(&code));
    if (!out || code != LIBRAW_SUCCESS)
        return session.FailCode("LibRaw could not make the image", code);
    if (out->type != LIBRAW_IMAGE_BITMAP || out->bits != 16 ||
        (out->colors != 3 && out->colors != 1) || out->width < 1 || out->height < 1 ||
        out->data_size < static_cast<unsigned>(out->width) * out->height * out->colors * 2)
        return Fail("LibRaw returned an image of an unexpected form");

    const int width = out->width, height = out->height, colors = out->colors;
    image.SetGeometryFits(KindFITS, colors == 3 ? ColorRGB : ColorGray, 0, Data16, width, height);
    if (!image.AllocatePlanes(1))
        return Fail("Could not allocate memory for the raw image");
    const auto* samples = reinterpret_cast<const std::uint16_t*>(out->data);
    float* planes[3] = {image.curPlane[image.Slots()[0]], nullptr, nullptr};
    if (colors == 3) {
        planes[1] = image.curPlane[1];
        planes[2] = image.curPlane[2];
    }
    ParallelRows(height, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const std::size_t row = static_cast<std::size_t>(y) * width;
            const std::uint16_t* s = samples + row * colors;
            for (int c = 0; c < colors; ++c) {
                float* dst = planes[c] + row;
                for (int x = 0; x < width; ++x)
                    dst[x] = s[static_cast<std::size_t>(x) * colors + c];
            }
        }
    });
    return true;
}

bool DecodeInto(RawSession& session, RawRequest& request, Image& image, RawFileInfo* info) {
    const RawConversionEntry* conversion = FindRawConversion(request.conversion);
    if (!conversion)
        return Fail("Unknown raw conversion \"" + request.conversion + "\"");
    Step(request.owner, 1);
    if (!session.Open(info))
        return false;
    request.pattern = info->pattern;
    Step(request.owner, 2);
    if (!session.Unpack())
        return false;
    Step(request.owner, 3);
    if (!(conversion->mosaic ? DecodeMosaic(session, *conversion, image, info)
                             : DecodeColor(session, request, image)))
        return false;
    Step(request.owner, 4);
    image.fitsCompress = false;
    image.fitsMaximColor = false;
    Step(request.owner, 5);
    const HeaderList cards = RawHeaderCards(*info);
    image.headerCards.insert(image.headerCards.end(), cards.begin(), cards.end());
    if (request.header)
        request.header->insert(request.header->end(), cards.begin(), cards.end());
    Step(request.owner, 6);
    return true;
}

} // namespace

std::string RawUnsupportedFormatMessage(const std::string& name) {
    return "Image File Format Does Not Support Raw Conversion.\n\n " + name;
}

std::span<const RawConversionEntry> RawConversions() {
    return kConversions;
}

const RawConversionEntry* FindRawConversion(const std::string& keyword) {
    for (const RawConversionEntry& e : kConversions)
        if (keyword == e.keyword)
            return &e;
    return nullptr;
}

std::span<const char* const> RawSaveTypes() {
    return kRawSaveTypes;
}

bool IsRawSaveType(const std::string& keyword) {
    return std::any_of(kRawSaveTypes.begin(), kRawSaveTypes.end(),
                       [&](const char* k) { return keyword == k; });
}

std::string ResolveRawSaveType(const std::string& keyword) {
    return IsRawSaveType(keyword) ? keyword : "TIFF16";
}

std::string ApplyRawSaveType(Image& image, const std::string& keyword) {
    return ApplySaveType(image, ResolveRawSaveType(keyword), {});
}

bool IsRawConversionExtension(const std::string& extension) {
    const std::string ext = UpperExtension(extension);
    return std::find(kRawExtensions.begin(), kRawExtensions.end(), ext) != kRawExtensions.end();
}

bool RawOutputPath(const std::string& outputDir, const std::string& prefix,
                   const std::string& inputPath, const std::string& saveType,
                   std::string* outputPath) {
    const std::filesystem::path input(inputPath);
    if (!IsRawConversionExtension(input.extension().string()))
        return false;
    const std::string name =
        prefix + input.stem().string() + FindSaveType(ResolveRawSaveType(saveType))->extension;
    *outputPath = (std::filesystem::path(outputDir) / name).string();
    return true;
}

std::uint32_t NormalizeFilterWord(std::uint32_t filters) {
    switch (filters) {
    case 0xb4b4b4b4u:
        return 0x94949494u;
    case 0xe1e1e1e1u:
        return 0x61616161u;
    case 0x1e1e1e1eu:
        return 0x16161616u;
    case 0x4b4b4b4bu:
        return 0x49494949u;
    default:
        return filters;
    }
}

const char* PatternKeywordOfFilters(std::uint32_t filters) {
    switch (NormalizeFilterWord(filters)) {
    case 0x94949494u:
        return "RG,GB";
    case 0x61616161u:
        return "GR,BG";
    case 0x16161616u:
        return "BG,GR";
    case 0x49494949u:
        return "GB,RG";
    case 0x1e4e1e4eu:
        return "CYGM,CYMG";
    case 0xe1e4e1e4u:
        return "GMCY,MGCY";
    default:
        return "";
    }
}

std::string RawShutterText(double seconds) {
    if (seconds > 0 && seconds < 1)
        return Format("1/%.0f", 1.0 / seconds);
    return Format("%0.1f sec", seconds);
}

HeaderList RawHeaderCards(const RawFileInfo& info) {
    HeaderList cards;
    if (!info.pattern.empty())
        cards.push_back({"CFAPAT", info.pattern, "CFA Pattern", CardString});
    auto comment = [&](const std::string& text) {
        cards.push_back({"COMMENT", "", text, CardString});
    };
    comment(info.make + " " + info.model);
    comment(RawShutterText(info.shutter));
    comment(std::to_string(static_cast<long long>(std::lround(info.iso))));
    comment(Format("f/%0.1f", info.aperture));
    comment(Format("%0.1f mm", info.focalLength));
    return cards;
}

bool IdentifyRawFile(const std::string& path, RawFileInfo* info) {
    ImageFileGuard guard;
    ClearLastFileError();
    try {
        RawSession session(path);
        return session.Open(info);
    } catch (const std::bad_alloc&) {
        return Fail("Out of memory while identifying the raw file");
    } catch (const std::exception& e) {
        return Fail(std::string("LibRaw failed: ") + e.what());
    } catch (...) {
        return Fail("LibRaw failed while identifying the file");
    }
}

bool DecodeRawImage(RawRequest& request, Image& image, RawFileInfo* info) {
    ImageFileGuard guard;
    ClearLastFileError();
    request.pattern.clear();
    RawFileInfo local;
    RawFileInfo* found = info ? info : &local;
    try {
        RawSession session(request.inputPath);
        return DecodeInto(session, request, image, found);
    } catch (const std::bad_alloc&) {
        return Fail("Out of memory while decoding the raw file");
    } catch (const std::exception& e) {
        return Fail(std::string("LibRaw failed: ") + e.what());
    } catch (...) {
        return Fail("LibRaw failed while decoding the file");
    }
}

bool DecodeRawFile(RawRequest& request) {
    ImageFileGuard guard;
    Image image;
    if (!DecodeRawImage(request, image))
        return false;
    ApplyRawSaveType(image, request.saveType);
    if (!image.WriteFile(request.outputPath, image.fileType)) {
        if (LastFileError().empty())
            SetLastFileError("Could not write " + request.outputPath);
        return false;
    }
    Step(request.owner, 7);
    return true;
}

} // namespace astrivelle
