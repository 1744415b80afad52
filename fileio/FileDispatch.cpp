// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Format dispatch: the extension decides how a file is read, the file kind how it is
/// written. The contents of a file never change the choice.
#include "fileio/FileDispatch.h"
#include "fileio/Bmp.h"
#include "fileio/Sbig.h"

#include <algorithm>
#include <string_view>

#include "engine/Image.h"
#include "fileio/FileLock.h"

namespace astrivelle {

namespace {

thread_local std::string lastFileError;

bool OneOf(const std::string& ext, std::initializer_list<std::string_view> list) {
    return std::find(list.begin(), list.end(), ext) != list.end();
}

} // namespace

std::string WriteFailureText(std::int32_t fileKind, const std::string& name) {
    switch (fileKind) {
    case KindFITS:
        return "Error writing image to disk.";
    case KindTIFF:
        return "Error writing TIFF image to disk.";
    case KindJPEG:
        return "Error writing JPEG image to disk.";
    case KindSBIG:
    case KindSBIGCompressed:
        return kSbigWriteErrorText;
    case KindBMP:
        return BmpSaveFailureText(name);
    default:
        return "File Type Is Not Defined, \nPossible Corrupt Object Or File.";
    }
}

std::string LastFileError() {
    return lastFileError;
}
void SetLastFileError(const std::string& reason) {
    lastFileError = reason;
}
void ClearLastFileError() {
    lastFileError.clear();
}

std::string UpperExtension(const std::string& extension) {
    std::string upper = extension;
    std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    });
    return upper;
}

bool IsFitsExtension(const std::string& extension) {
    return OneOf(UpperExtension(extension), {".FIT", ".FTS", ".FITS"});
}

bool Image::ReadFile(const std::string& path, const std::string& extension) {
    ImageFileGuard guard;
    ClearLastFileError();
    const std::string ext = UpperExtension(extension);
    if (OneOf(ext, {".TIF", ".TIFF"})) {
        std::string message;
        if (ReadTIFF(path, &message))
            return true;
        if (!message.empty())
            SetLastFileError(message);
        return false;
    }
    if (OneOf(ext, {".FIT", ".FTS", ".FITS"}))
        return ReadFITS(path);
    if (OneOf(ext, {".JPG", ".JPEG", ".JPE"}))
        return ReadJPEG(path);
    if (ext == ".BMP")
        return ReadBMP(path);
    if (OneOf(ext, {".SBIG", ".ST2K", ".ST4K", ".STX", ".ST5", ".ST6", ".ST7", ".ST8", ".ST9",
                    ".STV", ".255", ".237"}))
        return ReadSBIG(path, ColorGray);
    SetLastFileError(ext.empty() ? std::string("The file name has no extension")
                                 : "Unknown image file extension \"" + extension + "\"");
    return false;
}

bool Image::WriteFile(const std::string& path, std::int32_t kind) {
    ImageFileGuard guard;
    ClearLastFileError();
    switch (kind) {
    case KindTIFF:
        return WriteTIFF(path);
    case KindJPEG:
        return WriteJPEG(path, jpegQuality);
    case KindFITS:
        return WriteFITS(path, kind);
    case KindBMP:
        return WriteBMP(path);
    case KindPNG:
        return WritePNG(path);
    case KindSBIG:
    case KindSBIGCompressed:
        return WriteSBIG(path, kind);
    default:
        SetLastFileError("Unknown file kind " + std::to_string(kind));
        return false;
    }
}

std::string ImageKindOfExtension(const std::string& extension) {
    const std::string e = UpperExtension(extension);
    if (e == ".FIT" || e == ".FITS" || e == ".FTS")
        return "FITS";
    if (e == ".TIF" || e == ".TIFF")
        return "TIFF";
    if (e == ".JPG" || e == ".JPE" || e == ".JPEG")
        return "JPEG";
    if (e == ".BMP")
        return "BMP";
    if (e == ".RAW")
        return "RAW";
    static const char* sbig[] = {".ST5",  ".ST6",  ".ST7", ".ST8",  ".STX",  ".255",
                                 ".237",  ".ST9",  ".STV", ".ST2K", ".ST4K", ".SBIG",
                                 ".ST10", ".ST1K", ".ST4", ".PSR",  ".TRM"};
    for (const char* s : sbig)
        if (e == s)
            return "SBIG";
    return {};
}

} // namespace astrivelle
