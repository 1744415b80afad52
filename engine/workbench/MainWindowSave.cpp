// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Saving open images: to their own path, under a new name and format, or all at once.
/// Every write goes to a temporary file in the target's folder that is renamed over the
/// target only when it is whole.
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "engine/workbench/MainWindow.h"
#include "engine/workbench/StepFile.h"
#include "fileio/FileDispatch.h"
#include "fileio/Sbig.h"
#include "fileio/WriteSafely.h"

namespace astrivelle {

namespace fs = std::filesystem;

namespace {

/// The extensions (upper case, with the point) a format's file may carry.
std::vector<std::string_view> KindExtensions(std::int32_t kind) {
    switch (kind) {
    case KindFITS:
        return {".FIT", ".FTS", ".FITS"};
    case KindTIFF:
        return {".TIF", ".TIFF"};
    case KindJPEG:
        return {".JPG", ".JPEG", ".JPE"};
    case KindBMP:
        return {".BMP"};
    case KindSBIG:
    case KindSBIGCompressed:
        return {".SBIG", ".ST2K", ".ST4K", ".STX", ".ST5", ".ST6",
                ".ST7",  ".ST8",  ".ST9",  ".STV", ".255", ".237"};
    default:
        return {};
    }
}

bool HasWriter(std::int32_t kind) {
    return !KindExtensions(kind).empty();
}

} // namespace

bool CMainWindow::WriteImage(CProcessWindow& window, const std::string& path, std::int32_t kind) {
    if (kind == kKindWithoutWriter) {
        notify().Message(kUseConvertFilesText);
        return false;
    }
    if (!HasWriter(kind)) {
        notify().Message(kFileTypeNotDefinedText);
        return false;
    }
    const std::string name = fs::path(path).filename().string();
    const fs::path folder =
        fs::path(path).parent_path().empty() ? fs::path(".") : fs::path(path).parent_path();
    std::error_code ec;
    if (!fs::is_directory(folder, ec) || access(folder.c_str(), W_OK) != 0 ||
        fs::is_directory(path, ec)) {
        notify().Message("Could Not Open " + name + " For Write.");
        return false;
    }
    const bool wasBusy = window.fileOpBusy;
    window.fileOpBusy = true;
    std::string error;
    const bool ok = WriteImageSafely(window.image, path, kind, {}, &error);
    window.fileOpBusy = wasBusy;
    if (!ok) {
        notify().Message(WriteFailureText(kind, name));
        return false;
    }
    ForgetTempFile(path); // a file the user saved is no longer temporary
    return true;
}

bool CMainWindow::SaveImage(CProcessWindow* window) {
    CProcessWindow* w = window ? window : ActiveImage();
    if (!w || !IsOpen(w)) {
        notify().Message(kPleaseOpenAnImageText);
        return false;
    }
    if (w->threadBusy) {
        notify().Message(kOperationInProgressDotText);
        return false;
    }
    return WriteImage(*w, w->filePath, w->image.fileType);
}

bool CMainWindow::SaveImageAs(const std::string& path, std::int32_t kind, CProcessWindow* window) {
    CProcessWindow* w = window ? window : ActiveImage();
    if (!w || !IsOpen(w)) {
        notify().Message(kPleaseOpenAnImageText);
        return false;
    }
    if (w->threadBusy) {
        notify().Message(kOperationInProgressDotText);
        return false;
    }
    const std::string name = fs::path(path).filename().string();
    const std::size_t point = name.rfind('.');
    if (name.empty() || point == std::string::npos || point + 1 == name.size()) {
        notify().Message(kInvalidFilenameText);
        return false;
    }
    const std::string ext = UpperExtension(name.substr(point));
    const auto allowed = KindExtensions(kind);
    if (HasWriter(kind) && std::find(allowed.begin(), allowed.end(), ext) == allowed.end()) {
        notify().Message(kInvalidImageExtensionText);
        return false;
    }
    std::error_code ec;
    if (fs::exists(path, ec) && notify().Ask(path + kAlreadyExistsText) != Answer::Yes)
        return false;

    // The target format's settings; put back if the write fails.
    Image& image = w->image;
    const std::int32_t oldKind = image.fileType;
    const std::uint32_t oldDataType = image.dataType;
    const std::uint32_t oldBits = image.tiffBitsPerSample;
    const HeaderList oldCards = image.headerCards;
    if (kind == KindFITS && oldKind != KindFITS) {
        image.dataType = Data16; // an image that did not come from a FITS file
        if (image.header)
            RebuildSbigFitsKeys(image); // its SBIG header as FITS keys
    }
    if (kind == KindTIFF && image.tiffBitsPerSample != 8 && image.tiffBitsPerSample != 16 &&
        image.tiffBitsPerSample != 32)
        image.tiffBitsPerSample = 16;
    image.fileType = kind;
    if (!WriteImage(*w, path, kind)) {
        image.fileType = oldKind;
        image.dataType = oldDataType;
        image.tiffBitsPerSample = oldBits;
        image.headerCards = oldCards;
        return false;
    }
    w->filePath = path;
    w->title = name;
    lastFolder = fs::path(path).parent_path().string();
    w->notify().SetCaption(w->Caption());
    return true;
}

bool CMainWindow::SaveAll() {
    if (images_.Empty()) {
        notify().Message(kPleaseOpenAnImageText);
        return false;
    }
    if (notify().Ask(kSaveAllQuestion) != Answer::Yes)
        return false;
    bool all = true;
    for (CProcessWindow* w : images_.List()) {
        if (w->threadBusy) {
            notify().Message(kOperationInProgressDotText);
            all = false;
            continue;
        }
        if (!WriteImage(*w, w->filePath, w->image.fileType))
            all = false;
    }
    return all;
}

} // namespace astrivelle
