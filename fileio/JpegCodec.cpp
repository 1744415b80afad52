// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The three JPEG operations over libjpeg-turbo. libjpeg reports fatal errors (and the
/// warnings that mean the data is corrupt) by a call that must not return; ours jumps back to
/// the frame that started the libjpeg call. No object with a destructor lives in such a
/// frame: everything that must be released sits in a Decoder or Encoder owned by the caller, whose
/// destructor runs on every path.
// jpeglib.h needs size_t and FILE declared before it.
#include <cstddef>
#include <cstdio>

#include <jerror.h>
#include <jpeglib.h>

#include <cerrno>
#include <csetjmp>
#include <cstring>
#include <filesystem>

#include "fileio/FileDispatch.h"
#include "fileio/FileLock.h"
#include "fileio/Jpeg.h"

namespace astrivelle {

namespace {

struct ErrorManager {
    jpeg_error_mgr pub;
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

extern "C" void JumpOnError(j_common_ptr cinfo) {
    auto* err = reinterpret_cast<ErrorManager*>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, err->message);
    std::longjmp(err->jump, 1);
}

/// Warnings after which libjpeg would go on with guessed pixels are failures here; the ones
/// about harmless oddities (stray bytes between markers, unknown JFIF revisions, ...) are not.
extern "C" void JumpOnCorruptData(j_common_ptr cinfo, int level) {
    if (level >= 0)
        return; // trace messages
    switch (cinfo->err->msg_code) {
    case JWRN_HIT_MARKER:
    case JWRN_HUFF_BAD_CODE:
    case JWRN_JPEG_EOF:
    case JWRN_MUST_RESYNC:
    case JWRN_NOT_SEQUENTIAL:
    case JWRN_BOGUS_PROGRESSION:
        JumpOnError(cinfo);
        break;
    default:
        cinfo->err->num_warnings++;
        break;
    }
}

extern "C" void Silent(j_common_ptr) {}

void InstallErrorManager(ErrorManager& err) {
    jpeg_std_error(&err.pub);
    err.pub.error_exit = JumpOnError;
    err.pub.emit_message = JumpOnCorruptData;
    err.pub.output_message = Silent;
    err.message[0] = '\0';
}

bool Fail(const std::string& reason) {
    SetLastFileError(reason);
    return false;
}

/// A decompression and its file, released on every path.
struct Decoder {
    jpeg_decompress_struct cinfo;
    ErrorManager err;
    std::FILE* file = nullptr;
    bool created = false;
    Decoder() { std::memset(&cinfo, 0, sizeof cinfo); }
    ~Decoder() {
        if (created)
            jpeg_destroy_decompress(&cinfo);
        if (file)
            std::fclose(file);
    }
    std::string Message() const { return std::string("JPEG error: ") + err.message; }
};

struct Encoder {
    jpeg_compress_struct cinfo;
    ErrorManager err;
    std::FILE* file = nullptr;
    bool created = false;
    Encoder() { std::memset(&cinfo, 0, sizeof cinfo); }
    ~Encoder() {
        if (created)
            jpeg_destroy_compress(&cinfo);
        if (file)
            std::fclose(file);
    }
    std::string Message() const { return std::string("JPEG error: ") + err.message; }
};

const char* ColorSpaceName(J_COLOR_SPACE space) {
    switch (space) {
    case JCS_GRAYSCALE:
        return "GRAY";
    case JCS_RGB:
        return "RGB";
    case JCS_CMYK:
        return "CMYK";
    case JCS_YCCK:
        return "YCCK";
    case JCS_YCbCr:
        return "YCbCr";
    default:
        return nullptr;
    }
}

bool OpenForReading(Decoder& d, const std::string& path) {
    d.file = std::fopen(path.c_str(), "rb");
    if (!d.file)
        return Fail("Could not open " + path + ": " + std::strerror(errno));
    return true;
}

/// Reads the markers up to the first scan. APP1 segments are kept when asked for.
/// (Frame that setjmp returns to: trivial locals only.)
bool DecodeHeader(Decoder& d, bool keepApp1) {
    InstallErrorManager(d.err);
    d.cinfo.err = &d.err.pub;
    if (setjmp(d.err.jump))
        return Fail(d.Message());
    d.created = true;
    jpeg_create_decompress(&d.cinfo);
    jpeg_stdio_src(&d.cinfo, d.file);
    if (keepApp1)
        jpeg_save_markers(&d.cinfo, JPEG_APP0 + 1, 0xFFFF);
    jpeg_read_header(&d.cinfo, TRUE);
    if (!ColorSpaceName(d.cinfo.jpeg_color_space))
        return Fail("The JPEG file's colour space (" + std::to_string(d.cinfo.jpeg_color_space) +
                    ") is not one the program reads");
    return true;
}

/// Byte rows of the decoder's output and of what callers see, from libjpeg's image pool.
struct RowBlock {
    JSAMPARRAY decoded = nullptr;   ///< what libjpeg writes (4 bytes a pixel for CMYK)
    JSAMPARRAY delivered = nullptr; ///< what the sink receives (RGB for CMYK)
};

constexpr JDIMENSION kBlockRows = kJpegBlockRows;

/// CMYK from the decoder to RGB. Adobe writes its CMYK inverted (0 is full ink).
void CmykToRgb(const JSAMPLE* in, JSAMPLE* out, JDIMENSION width, bool inverted) {
    for (JDIMENSION x = 0; x < width; ++x, in += 4, out += 3) {
        const unsigned k = inverted ? in[3] : 255u - in[3];
        for (int c = 0; c < 3; ++c) {
            const unsigned v = inverted ? in[c] : 255u - in[c];
            out[c] = static_cast<JSAMPLE>((v * k + 127) / 255);
        }
    }
}

/// Decodes the whole image. Rows go into `direct` when it is given (straight from libjpeg
/// when no colour conversion of ours is needed), else block by block into libjpeg's pool.
/// `sink`, when given, sees each finished block: in `direct` or in the pool.
/// (Frame that setjmp returns to: trivial locals only.)
bool DecodePixels(Decoder& d, JSAMPROW* direct, const JpegRowSink* sink) {
    if (setjmp(d.err.jump))
        return Fail(d.Message());
    j_decompress_ptr cinfo = &d.cinfo;
    const bool gray = cinfo->jpeg_color_space == JCS_GRAYSCALE;
    const bool cmyk = cinfo->jpeg_color_space == JCS_CMYK || cinfo->jpeg_color_space == JCS_YCCK;
    cinfo->out_color_space = gray ? JCS_GRAYSCALE : (cmyk ? JCS_CMYK : JCS_RGB);
    jpeg_start_decompress(cinfo);
    const JDIMENSION width = cinfo->output_width;
    const JDIMENSION height = cinfo->output_height;
    if (direct && !cmyk) {
        while (cinfo->output_scanline < height) {
            const JDIMENSION first = cinfo->output_scanline;
            const JDIMENSION want = height - first < kBlockRows ? height - first : kBlockRows;
            JDIMENSION got = 0;
            while (got < want) {
                const JDIMENSION n = jpeg_read_scanlines(cinfo, direct + first + got, want - got);
                if (n == 0)
                    return Fail("JPEG error: the decoder returned no rows");
                got += n;
            }
            if (sink && !(*sink)(first, got, direct + first)) {
                jpeg_abort_decompress(cinfo);
                return false;
            }
        }
    } else {
        RowBlock block;
        const JDIMENSION outBytes = width * (gray ? 1 : 3);
        block.decoded =
            (*cinfo->mem->alloc_sarray)(reinterpret_cast<j_common_ptr>(cinfo), JPOOL_IMAGE,
                                        width * cinfo->output_components, kBlockRows);
        block.delivered = cmyk ? (*cinfo->mem->alloc_sarray)(reinterpret_cast<j_common_ptr>(cinfo),
                                                             JPOOL_IMAGE, outBytes, kBlockRows)
                               : block.decoded;
        const bool inverted = cinfo->saw_Adobe_marker;
        while (cinfo->output_scanline < height) {
            const JDIMENSION first = cinfo->output_scanline;
            const JDIMENSION want = height - first < kBlockRows ? height - first : kBlockRows;
            JDIMENSION got = 0;
            while (got < want) {
                const JDIMENSION n = jpeg_read_scanlines(cinfo, block.decoded + got, want - got);
                if (n == 0)
                    return Fail("JPEG error: the decoder returned no rows");
                got += n;
            }
            if (cmyk)
                for (JDIMENSION r = 0; r < got; ++r)
                    CmykToRgb(block.decoded[r], block.delivered[r], width, inverted);
            if (direct)
                for (JDIMENSION r = 0; r < got; ++r)
                    std::memcpy(direct[first + r], block.delivered[r], outBytes);
            if (sink && !(*sink)(first, got, direct ? direct + first : block.delivered)) {
                jpeg_abort_decompress(cinfo);
                return false;
            }
        }
    }
    jpeg_finish_decompress(cinfo);
    return true;
}

bool CheckSize(const Decoder& d, std::uint32_t width, std::uint32_t height) {
    if (d.cinfo.image_width != width || d.cinfo.image_height != height)
        return Fail("The JPEG image is " + std::to_string(d.cinfo.image_width) + " x " +
                    std::to_string(d.cinfo.image_height) + ", not " + std::to_string(width) +
                    " x " + std::to_string(height));
    return true;
}

/// (Frame that setjmp returns to: trivial locals only.)
bool Encode(Encoder& e, const std::uint8_t* const* rows, bool gray, int quality,
            std::uint32_t width, std::uint32_t height) {
    InstallErrorManager(e.err);
    e.cinfo.err = &e.err.pub;
    if (setjmp(e.err.jump))
        return Fail(e.Message());
    e.created = true;
    jpeg_create_compress(&e.cinfo);
    jpeg_stdio_dest(&e.cinfo, e.file);
    e.cinfo.image_width = width;
    e.cinfo.image_height = height;
    e.cinfo.input_components = gray ? 1 : 3;
    e.cinfo.in_color_space = gray ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&e.cinfo);
    jpeg_set_quality(&e.cinfo, quality, TRUE);
    jpeg_start_compress(&e.cinfo, TRUE);
    // libjpeg takes non-const rows but only reads them.
    JSAMPARRAY in = const_cast<JSAMPARRAY>(rows);
    while (e.cinfo.next_scanline < height) {
        const JDIMENSION n = jpeg_write_scanlines(&e.cinfo, in + e.cinfo.next_scanline,
                                                  height - e.cinfo.next_scanline);
        if (n == 0)
            return Fail("JPEG error: the encoder took no rows");
    }
    jpeg_finish_compress(&e.cinfo);
    return true;
}

} // namespace

bool JpegSizeIsPlausible(std::uint64_t width, std::uint64_t height, std::uint64_t fileBytes) {
    constexpr std::uint64_t kFloor = 16ull << 20;
    const std::uint64_t pixels = width * height;
    return pixels <= kFloor || pixels / 4096 <= fileBytes;
}

bool JPEGReadImageHeader(std::string path, std::uint32_t* width, std::uint32_t* height,
                         std::string* colorSpace, std::int32_t* components) {
    ImageFileGuard guard;
    Decoder d;
    if (!OpenForReading(d, path) || !DecodeHeader(d, false))
        return false;
    if (width)
        *width = d.cinfo.image_width;
    if (height)
        *height = d.cinfo.image_height;
    if (colorSpace)
        *colorSpace = ColorSpaceName(d.cinfo.jpeg_color_space);
    if (components)
        *components = d.cinfo.num_components;
    return true;
}

bool JPEGReadImage(std::string path, std::uint8_t* const* rows, std::uint32_t width,
                   std::uint32_t height) {
    ImageFileGuard guard;
    if (!rows)
        return Fail("No rows to read the JPEG image into");
    Decoder d;
    if (!OpenForReading(d, path) || !DecodeHeader(d, false) || !CheckSize(d, width, height))
        return false;
    return DecodePixels(d, const_cast<JSAMPROW*>(rows), nullptr);
}

bool JPEGReadImageRows(const std::string& path, std::uint32_t width, std::uint32_t height,
                       const JpegRowSink& sink, std::uint8_t* const* rows) {
    ImageFileGuard guard;
    Decoder d;
    if (!OpenForReading(d, path) || !DecodeHeader(d, false) || !CheckSize(d, width, height))
        return false;
    return DecodePixels(d, const_cast<JSAMPROW*>(rows), &sink);
}

bool JPEGWriteImage(std::string path, const std::uint8_t* const* rows,
                    const std::string& colorSpace, int quality, std::uint32_t width,
                    std::uint32_t height) {
    ImageFileGuard guard;
    if (colorSpace != "RGB" && colorSpace != "GRAY")
        return Fail("A JPEG file cannot be written in the colour space \"" + colorSpace + "\"");
    if (!rows || width == 0 || height == 0 || width > JPEG_MAX_DIMENSION ||
        height > JPEG_MAX_DIMENSION)
        return Fail("A " + std::to_string(width) + " x " + std::to_string(height) +
                    " image cannot be written as JPEG");
    bool ok = false;
    {
        Encoder e;
        e.file = std::fopen(path.c_str(), "wb");
        if (!e.file)
            return Fail("Could not open " + path + " for writing: " + std::strerror(errno));
        ok = Encode(e, rows, colorSpace == "GRAY", quality, width, height);
        if (ok) {
            const bool flushed = std::fflush(e.file) == 0 && !std::ferror(e.file);
            const bool closed = std::fclose(e.file) == 0;
            e.file = nullptr;
            if (!flushed || !closed)
                ok = Fail("Could not write " + path + ": " + std::strerror(errno));
        }
    }
    if (!ok) {
        std::error_code ec;
        std::filesystem::remove(path, ec);
    }
    return ok;
}

bool JPEGReadExifBlock(const std::string& path, std::vector<std::uint8_t>* tiffBytes) {
    ImageFileGuard guard;
    Decoder d;
    if (!OpenForReading(d, path) || !DecodeHeader(d, true))
        return false;
    static const std::uint8_t kExif[6] = {'E', 'x', 'i', 'f', 0, 0};
    for (jpeg_saved_marker_ptr m = d.cinfo.marker_list; m; m = m->next) {
        if (m->marker == JPEG_APP0 + 1 && m->data_length > sizeof kExif &&
            std::memcmp(m->data, kExif, sizeof kExif) == 0) {
            tiffBytes->assign(m->data + sizeof kExif, m->data + m->data_length);
            return true;
        }
    }
    return Fail("The JPEG file holds no Exif block");
}

} // namespace astrivelle
