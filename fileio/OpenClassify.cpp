// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The open path's classification by extension, and the conversion of camera raw files
/// to a temporary FITS file before they are shown.
#include "fileio/OpenClassify.h"

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <string_view>

#include "engine/Image.h"
#include "engine/Notify.h"
#include "fileio/FileDispatch.h"
#include "fileio/Fits.h"
#include "fileio/Jpeg.h"
#include "fileio/Raw.h"
#include "fileio/Sbig.h"
#include "fileio/Tiff.h"

namespace astrivelle {

namespace {

bool OneOf(const std::string& ext, std::initializer_list<std::string_view> list) {
    return std::find(list.begin(), list.end(), ext) != list.end();
}

/// The colour type a single-letter plane extension stands for; 9 for every other SBIG one.
std::uint32_t SbigColorOfExtension(const std::string& ext) {
    if (ext == ".R")
        return ColorRed;
    if (ext == ".G")
        return ColorGreen;
    if (ext == ".B")
        return ColorBlue;
    if (ext == ".C")
        return ColorCyan;
    if (ext == ".M")
        return ColorMagenta;
    if (ext == ".Y")
        return ColorYellow;
    return ColorGray;
}

/// The open dialog's filter index of a camera raw extension.
int RawFilterIndex(const std::string& ext) {
    static const char* const kOrder[] = {".CRW", ".CR2", ".NEF", ".DCR", ".PEF", ".ORF", ".ARW"};
    for (int i = 0; i < 7; ++i)
        if (ext == kOrder[i])
            return 7 + i;
    return 0;
}

bool Refuse(OpenClassification* out, const std::string& text) {
    out->message = text;
    return false;
}

/// Converts a raw file to "CVT_" + its name + ".fit" and classifies the result as FITS.
bool ClassifyRaw(const std::string& path, OpenSelection& selection, const OpenOptions& options,
                 const OpenProbes& probes, OpenClassification* out) {
    if (!selection.rawAsked) {
        INotify& notify = options.notify ? *options.notify : SilentNotify();
        selection.rawAsBayer = notify.Ask(kRawOpenAsBayerQuestion) == Answer::Yes;
        selection.rawAsked = true;
    }
    std::error_code ec;
    const std::string dir = options.tempDir.empty()
                                ? std::filesystem::temp_directory_path(ec).string()
                                : options.tempDir;
    RawRequest request;
    request.owner = options.progress;
    request.ownerName = "FileOpen";
    request.conversion = selection.rawAsBayer ? "WBCFA" : "Color";
    request.saveType = "COMPFIT";
    request.inputPath = path;
    out->conversion = request.conversion;
    if (!RawOutputPath(dir, "CVT_", path, request.saveType, &request.outputPath) || !probes.raw ||
        !probes.raw(request))
        return Refuse(out, kCouldNotOpenText + out->name);
    bool isColor = false;
    if (!probes.fits || !probes.fits(request.outputPath, &isColor))
        return Refuse(out, kCouldNotDisplayRawText + out->name);
    out->pathToRead = request.outputPath;
    out->fileType = KindFITS;
    out->colorType = isColor ? ColorRGB : ColorGray;
    out->filterIndex = RawFilterIndex(out->extension);
    return true;
}

} // namespace

OpenProbes DefaultOpenProbes() {
    OpenProbes p;
    p.sbig = [](const std::string& path) { return static_cast<std::int32_t>(ProbeSBIG(path)); };
    p.fits = [](const std::string& path, bool* isColor) { return ProbeFITS(path, isColor); };
    p.tiff = [](const std::string& path, bool* isRgb, std::string* message) {
        TiffFile file;
        if (!ReadTiffTags(path, &file, message))
            return false;
        *isRgb = file.colorSpace == "RGB";
        return true;
    };
    p.jpeg = [](const std::string& path, std::string* colorSpace) {
        return JPEGReadImageHeader(path, nullptr, nullptr, colorSpace, nullptr);
    };
    p.raw = [](RawRequest& request) { return DecodeRawFile(request); };
    return p;
}

bool ClassifyOpenFile(const std::string& path, OpenSelection& selection, const OpenOptions& options,
                      OpenClassification* out, const OpenProbes& probes) {
    *out = OpenClassification{};
    const std::size_t slash = path.find_last_of("/\\");
    out->name = UpperExtension(slash == std::string::npos ? path : path.substr(slash + 1));
    const std::size_t point = out->name.rfind('.');
    if (point == std::string::npos || point + 1 == out->name.size())
        return Refuse(out, kInvalidFilenameText);
    out->extension = out->name.substr(point);
    out->pathToRead = path;
    const std::string& ext = out->extension;
    const std::string couldNotOpen = kCouldNotOpenText + out->name;

    // 1. The SBIG family and the single-letter plane extensions, by the SBIG header.
    if (OneOf(ext, {".ST5", ".ST6", ".ST7", ".ST8", ".STX", ".255", ".237", ".ST9", ".STV", ".ST2K",
                    ".ST4K", ".SBIG", ".R", ".G", ".B", ".C", ".M", ".Y"})) {
        const std::int32_t kind = probes.sbig ? probes.sbig(path) : KindNone;
        if (kind != KindSBIG && kind != KindSBIGCompressed)
            return Refuse(out, couldNotOpen);
        out->fileType = kind;
        out->colorType = SbigColorOfExtension(ext);
        out->filterIndex = 6;
        return true;
    }
    // 2. Recognised and refused.
    if (ext == ".RAW")
        return Refuse(out, couldNotOpen);
    // 3.
    if (ext == ".BMP") {
        out->fileType = KindBMP;
        out->colorType = ColorRGB;
        return true;
    }
    // 4.
    if (OneOf(ext, {".FIT", ".FITS", ".FTS"})) {
        bool isColor = false;
        if (!probes.fits || !probes.fits(path, &isColor))
            return Refuse(out, "Could Not Read " + path);
        out->fileType = KindFITS;
        out->colorType = isColor ? ColorRGB : ColorGray;
        out->filterIndex = 2;
        return true;
    }
    // 5. The reader's own text where it has one.
    if (OneOf(ext, {".TIF", ".TIFF"})) {
        bool isRgb = false;
        std::string message;
        if (!probes.tiff || !probes.tiff(path, &isRgb, &message))
            return Refuse(out, message.empty() ? "Could not read " + path : message);
        out->fileType = KindTIFF;
        out->colorType = isRgb ? ColorRGB : ColorGray;
        out->filterIndex = 3;
        return true;
    }
    // 6.
    if (OneOf(ext, {".JPG", ".JPE", ".JPEG"})) {
        std::string colorSpace;
        if (!probes.jpeg || !probes.jpeg(path, &colorSpace))
            return Refuse(out, "Could not read " + path);
        out->fileType = KindJPEG;
        out->colorType = colorSpace == "GRAY" ? ColorGray : ColorRGB;
        return true;
    }
    // 7. Camera raw, through a temporary FITS file.
    if (OneOf(ext, {".CRW", ".CR2", ".NEF", ".DCR", ".PEF", ".ORF", ".ARW"}))
        return ClassifyRaw(path, selection, options, probes, out);
    // 8.
    return Refuse(out, couldNotOpen);
}

} // namespace astrivelle
